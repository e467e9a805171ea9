#include <tolvane/Intercube.hpp>
#include <tolvane/Typename.hpp>

#include <cstdio>
#include <stdexcept>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Tolvane {

struct Intercube::Slots {
  std::unordered_map<TypeInfo, StrongPtr<InterfaceBase>> map;
  /// Whether the default createInterface() was reached, which changes no slot.
  bool nothingMade = false;
  /// Whether the object is no more, where a walk keeps its set.
  bool orphaned = false;

  /// The types as they stand: what is called during a walk may change the map under it.
  std::vector<TypeInfo> keys() const {
    std::vector<TypeInfo> keys;
    keys.reserve(map.size());
    for (const auto& [key, slot] : map) {
      keys.push_back(key);
    }
    return keys;
  }

  StrongPtr<InterfaceBase>* find(const std::type_info& type) {
    const auto found = map.find(type);
    return found != map.end() ? &found->second : nullptr;
  }
};

IntercubeIterator::~IntercubeIterator() = default;

Intercube::Intercube() : slots_(std::make_shared<Slots>()) {}

Intercube::~Intercube() {
  // Released interfaces may ask the object, which then has no set any more. A slot that is
  // registered meanwhile makes a new one.
  while (slots_ != nullptr) {
    const std::shared_ptr<Slots> last = std::move(slots_);
    last->orphaned = true;
    const auto released = std::exchange(last->map, {});
  }
}

StrongPtr<InterfaceBase> Intercube::createInterface(const std::type_info&) {
  if (slots_ != nullptr) {
    slots_->nothingMade = true;
  }
  return nullptr;
}

void Intercube::addInterface(const StrongPtr<InterfaceBase>& ip) const {
  if (!ip) {
    return;
  }
  // The old occupant is released last, when the set is whole again: its destructor may change it.
  StrongPtr<InterfaceBase> occupant = ip;
  const std::shared_ptr<Slots> slots = slots_;
  const TypeInfo key = occupant->interfaceType();
  if (slots != nullptr && !slots->orphaned) {
    slots->map[key].swap(occupant);
  }
}

StrongPtr<InterfaceBase>& Intercube::registerInterface(const std::type_info& type) {
  if (StrongPtr<InterfaceBase>* slot = findSlot(type)) {
    const std::shared_ptr<Slots> slots = slots_;
    {
      // Emptied by a swap, with the release outside the set; it may even take the slot away.
      StrongPtr<InterfaceBase> released;
      released.swap(*slot);
    }
    if (slots->orphaned) {
      throw std::logic_error("Intercube: the end of an interface destroyed the object that is to "
                             "have a slot for another");
    }
  }
  if (slots_ == nullptr) {
    slots_ = std::make_shared<Slots>();
  }
  StrongPtr<InterfaceBase>& slot = slots_->map[type];
  return slot;
}

StrongPtr<InterfaceBase> Intercube::getInterface(const std::type_info& type) {
  if (const StrongPtr<InterfaceBase>* slot = findSlot(type); slot == nullptr) {
    return nullptr;
  } else if (*slot) {
    return *slot;
  }
  const std::shared_ptr<Slots> slots = slots_;
  slots->nothingMade = false;
  StrongPtr<InterfaceBase> made = createInterface(type);
  if (slots->orphaned || (!made && slots->nothingMade)) {
    return nullptr;
  }
  // The slot is looked up again, and made again if it has to be: createInterface() may have changed
  // the set. The occupant is released when it is out of it.
  StrongPtr<InterfaceBase> occupant = made;
  if (made) {
    slots->map[type].swap(occupant);
  } else if (StrongPtr<InterfaceBase>* slot = slots->find(type)) {
    slot->swap(occupant);
  }
  return made;
}

StrongPtr<InterfaceBase> Intercube::findInterface(const std::type_info& type) const {
  const StrongPtr<InterfaceBase>* slot = findSlot(type);
  return slot != nullptr ? *slot : nullptr;
}

bool Intercube::hasInterface(const std::type_info& type) const {
  return findSlot(type) != nullptr;
}

void Intercube::removeInterfaceBase(const std::type_info& type) {
  if (slots_ != nullptr) {
    // The release comes with the node's end, outside the set.
    const auto node = slots_->map.extract(type);
  }
}

void Intercube::clearInterfaces() {
  if (slots_ != nullptr) {
    const auto released = std::exchange(slots_->map, {});
  }
}

bool Intercube::iterateInterfaces(const StrongPtr<InterfaceIterationParameter>& parameter) {
  forEachLive([&](InterfaceBase& ip) { return ip.apply(*this, parameter); });
  return true;
}

bool Intercube::const_iterateInterfaces(
    const StrongPtr<InterfaceIterationParameter>& parameter) const {
  forEachLive([&](InterfaceBase& ip) { return ip.apply_const(*this, parameter); });
  return true;
}

int Intercube::iterateInterfaces(IntercubeIterator& iterator) const {
  int visited = 0;
  if (const std::shared_ptr<Slots> slots = slots_) {
    for (const TypeInfo key : slots->keys()) {
      if (StrongPtr<InterfaceBase>* slot = slots->find(key.get())) {
        if (!iterator.visit(key, *slot)) {
          break;
        }
        ++visited;
      }
    }
  }
  return visited;
}

std::string Intercube::getInterfaceNames(char separator) const {
  std::string names;
  if (slots_ != nullptr) {
    for (const auto& [key, slot] : slots_->map) {
      names += detail::rawName(key.get());
      names += separator;
    }
  }
  return names;
}

void Intercube::printInterfaces() const {
  const std::size_t count = slots_ != nullptr ? slots_->map.size() : 0;
  std::printf("intercube [%p]:\t %ld interfaces\n", static_cast<const void*>(this),
              static_cast<long>(count));
  if (slots_ != nullptr) {
    for (const auto& [key, slot] : slots_->map) {
      std::printf("%s\n", detail::rawName(key.get()));
    }
  }
}

StrongPtr<InterfaceBase>* Intercube::findSlot(const std::type_info& type) const {
  return slots_ != nullptr ? slots_->find(type) : nullptr;
}

template <class Call>
void Intercube::forEachLive(Call call) const {
  const std::shared_ptr<Slots> slots = slots_; // A call may destroy this object.
  if (slots == nullptr) {
    return;
  }
  for (const TypeInfo key : slots->keys()) {
    const StrongPtr<InterfaceBase>* slot = slots->find(key.get());
    if (slot == nullptr || !*slot) {
      continue;
    }
    const StrongPtr<InterfaceBase> held = *slot; // The call may remove the interface.
    if (!call(*held)) {
      return;
    }
  }
}

} // namespace Tolvane
