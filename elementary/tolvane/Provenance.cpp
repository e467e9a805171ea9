#include "DeepReleaseInternal.hpp"

#include <tolvane/Provenance.hpp>

#include <utility>
#include <vector>

namespace Tolvane {
namespace {

/// The records from `leaf` to its root. They live as long as the leaf does.
std::vector<const Provenance*> chainFrom(const Provenance& leaf) {
  std::vector<const Provenance*> chain;
  for (const Provenance* record = &leaf; record != nullptr; record = record->parent().get()) {
    chain.push_back(record);
  }
  return chain;
}

/// The names below the root, each behind its separator, appended to `path`.
std::string joined(std::string path, const std::vector<const Provenance*>& chain, char separator) {
  for (std::size_t below = chain.size() - 1; below > 0; --below) {
    path += below == 1 ? separator : '/';
    path += chain[below - 1]->name();
  }
  return path;
}

} // namespace

Provenance::Provenance(std::string name, const StrongPtr<Provenance>& parent)
    : name_(std::move(name)), parent_(parent) {}

Provenance::~Provenance() {
  detail::releaseDeep(parent_);
}

std::string Provenance::getPath(char separator) const {
  const std::vector<const Provenance*> chain = chainFrom(*this);
  return joined(chain.back()->name(), chain, separator);
}

std::string Provenance::getPathWithoutRoot(char separator) const {
  return joined({}, chainFrom(*this), separator);
}

std::string Provenance::getRoot() const {
  const Provenance* root = this;
  while (const Provenance* above = root->parent().get()) {
    root = above;
  }
  return root->name();
}

} // namespace Tolvane
