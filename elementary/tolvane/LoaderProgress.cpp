#include <tolvane/LoaderProgress.hpp>

namespace Tolvane {

LoaderProgress::LoaderProgress() = default;

LoaderProgress::~LoaderProgress() = default;

bool LoaderProgress::OpenFile(const std::string&) {
  return true;
}

bool LoaderProgress::tryLoader(const WeakPtr<LoaderBase>&, const std::type_info&, int, int) {
  return true;
}

bool LoaderProgress::progress(const std::string&, int, int) {
  return true;
}

bool LoaderProgress::busy(const std::string&) {
  return true;
}

bool LoaderProgress::message(const std::string&) {
  return true;
}

} // namespace Tolvane
