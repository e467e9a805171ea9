#include <tolvane/Ageable.hpp>
#include <tolvane/Attributes.hpp>

#include <utility>

namespace Tolvane {

Attributes::Iterator::~Iterator() = default;

Attributes::Attributes() : stamp_(Ageable::GlobalTime.load()) {}

Attributes::Attributes(const Attributes& other)
    : entries_(other.entries_), stamp_(Ageable::GlobalTime.load()) {}

Attributes& Attributes::operator=(const Attributes& other) {
  // The old chunks go when the set is whole again: their destructors may ask it.
  auto entries = other.entries_;
  entries_.swap(entries);
  return *this;
}

Attributes::~Attributes() {
  // Released outside of the set, which their destructors may ask.
  const auto released = std::exchange(entries_, {});
}

void Attributes::setAttribute(const std::string& name, const StrongPtr<ChunkBase>& value) {
  StrongPtr<ChunkBase> former = value;
  entries_[name].swap(former);
}

StrongPtr<ChunkBase> Attributes::getAttribute(const std::string& name) const {
  const auto found = entries_.find(name);
  return found != entries_.end() ? found->second : nullptr;
}

bool Attributes::hasAttribute(const std::string& name) const {
  return entries_.contains(name);
}

int Attributes::iterate(Iterator& iterator) const {
  int visited = 0;
  // From name to name: the visitor may replace the whole set.
  for (auto entry = entries_.begin(); entry != entries_.end(); ++visited) {
    const std::string name = entry->first;
    if (!iterator.visitAttribute(name, entry->second)) {
      break;
    }
    entry = entries_.upper_bound(name);
  }
  return visited;
}

std::string Attributes::toString() const {
  std::string text = "( ";
  for (const auto& [name, value] : entries_) {
    text += name;
    text += ' ';
  }
  return text + ')';
}

} // namespace Tolvane

std::string std::to_string(const Tolvane::Attributes& attributes) {
  return attributes.toString();
}
