#include <tolvane/LoaderRequest.hpp>

#include <utility>

namespace Tolvane {

LoaderRequest::LoaderRequest(std::string url) : url_(std::move(url)) {}

LoaderRequest::~LoaderRequest() = default;

} // namespace Tolvane
