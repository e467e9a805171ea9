#include "OutputFile.hpp"

#include "Refusal.hpp"
#include "data/FileError.hpp"
#include "data/Joined.hpp"
#include "data/PictureSaver.hpp"

#include <tolvane/SaveParameters.hpp>
#include <tolvane/SaveRegistry.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

namespace fields {
namespace {

using FormatPtr = Tolvane::StrongPtr<PictureFormat, Tolvane::SaveInterfaceCreatorBase>;

/// The format of an extension; empty when there is none.
FormatPtr formatOf(const std::string& extension) {
  for (const auto& [type, creator] : Tolvane::SaveRegistry<Picture>::SaveMethods()) {
    const FormatPtr format(creator);
    if (format && std::count(format->extensions().begin(), format->extensions().end(), extension)) {
      return format;
    }
  }
  return nullptr;
}

std::string extensionOf(const std::string& path) {
  return std::filesystem::path(path).extension().string();
}

} // namespace

void writeFile(const std::string& path, const std::function<void(std::ostream&)>& write) {
  const std::string part = path + ".part";
  const auto fail = [&](const std::string& reason) {
    std::error_code ignored;
    std::filesystem::remove(part, ignored);
    throw Refusal(path + ": cannot be written (" + reason + "); choose another place with --out");
  };
  errno = 0;
  std::ofstream file(part, std::ios::binary);
  if (!file) {
    fail(std::strerror(errno));
  }
  try {
    write(file);
  } catch (const FileError& error) {
    file.close();
    fail(error.what());
  }
  file.close();
  if (!file) {
    fail(errno != 0 ? std::strerror(errno) : "the disk did not take it");
  }
  std::error_code error;
  std::filesystem::rename(part, path, error);
  if (error) {
    fail(error.message());
  }
}

void requireFormat(const std::string& path) {
  if (formatOf(extensionOf(path))) {
    return;
  }
  std::set<std::string> known;
  for (const auto& [type, creator] : Tolvane::SaveRegistry<Picture>::SaveMethods()) {
    if (const FormatPtr format{creator}) {
      known.insert(format->extensions().begin(), format->extensions().end());
    }
  }
  throw Refusal(path + ": no module saves such a picture; end its name with " + joined(known));
}

std::string pictureExtension() {
  return formatOf(".png") ? ".png" : ".ppm";
}

void savePicture(const std::string& path, const Pixels& pixels, const std::string& text) {
  requireFormat(path);
  // The saver goes with the parameters of the save, as an interface of its format's type.
  const Tolvane::SaveParameters parameters(path);
  const auto saver = formatOf(extensionOf(path))->saver(extensionOf(path));
  parameters.addInterface(saver);
  writeFile(parameters.destination(), [&](std::ostream& out) { saver->write(out, pixels, text); });
}

} // namespace fields
