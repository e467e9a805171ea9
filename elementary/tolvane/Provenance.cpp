#include "DeepReleaseInternal.hpp"
#include "UnloadLockInternal.hpp"

#include <tolvane/Provenance.hpp>

#include <utility>
#include <vector>

namespace Tolvane {
namespace {

/// Guards the names of all records: a path is read at one moment, and a record carries no mutex.
std::mutex& nameMutex() {
  static std::mutex& mutex = *new std::mutex;
  return mutex;
}

/// The records from `leaf` to its root. They live as long as the leaf does.
std::vector<const Provenance*> chainFrom(const Provenance& leaf) {
  std::vector<const Provenance*> chain;
  for (const Provenance* record = &leaf; record != nullptr; record = record->parent().get()) {
    chain.push_back(record);
  }
  return chain;
}

} // namespace

Provenance::Provenance(std::string name, const StrongPtr<Provenance>& parent)
    : name_(std::move(name)), parent_(parent) {}

Provenance::~Provenance() {
  detail::releaseDeep(parent_);
}

std::string Provenance::name() const {
  const auto lock = detail::lockUnlessEnding(nameMutex());
  return name_;
}

void Provenance::setName(std::string name) {
  const auto lock = detail::lockUnlessEnding(nameMutex());
  name_.swap(name);
}

std::string Provenance::path(char separator, bool withRoot) const {
  const std::vector<const Provenance*> chain = chainFrom(*this);
  const auto lock = detail::lockUnlessEnding(nameMutex());
  std::string path = withRoot ? chain.back()->name_ : std::string();
  for (std::size_t below = chain.size() - 1; below > 0; --below) {
    path += below == 1 ? separator : '/';
    path += chain[below - 1]->name_;
  }
  return path;
}

std::string Provenance::getPath(char separator) const {
  return path(separator, true);
}

std::string Provenance::getPathWithoutRoot(char separator) const {
  return path(separator, false);
}

std::string Provenance::getRoot() const {
  const Provenance* root = this;
  while (const Provenance* above = root->parent().get()) {
    root = above;
  }
  return root->name();
}

} // namespace Tolvane
