#include "PictureSaver.hpp"

#include <utility>

namespace fields {

PictureSaver::~PictureSaver() = default;

PictureFormat::PictureFormat(const std::string& name, const std::string& about,
                             std::list<std::string> extensions)
    : SaveInterfaceCreatorBase(name, about), extensions_(std::move(extensions)) {}

PictureFormat::~PictureFormat() = default;

} // namespace fields
