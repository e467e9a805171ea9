#include "LastingTypeInternal.hpp"

#include <tolvane/SaveRegistryBase.hpp>

#include <vector>

namespace Tolvane {
namespace {

using Creator = StrongPtr<SaveInterfaceCreatorBase>;
using SaveMethodMap = SaveRegistryBase::SaveMethodMap;
using SaveList = SaveRegistryBase::SaveList;

/// The keys from `first` on: what is called in between may change the map under a walk.
template <class Map>
std::vector<TypeInfo> keysFrom(const Map& map, typename Map::const_iterator first) {
  std::vector<TypeInfo> keys;
  for (; first != map.end(); ++first) {
    keys.push_back(first->first);
  }
  return keys;
}

Creator* findCreator(const std::type_info& type, const std::type_info& interfaceType) {
  SaveList& list = SaveRegistryBase::BaseSaveList();
  const auto methods = list.find(type);
  if (methods == list.end()) {
    return nullptr;
  }
  const auto creator = methods->second.find(interfaceType);
  return creator != methods->second.end() ? &creator->second : nullptr;
}

/// Calls `visit` for each creator of `type` until it answers false. Returns whether it never did.
template <class Visit>
bool visitMethods(const std::type_info& type, Visit visit) {
  SaveList& list = SaveRegistryBase::BaseSaveList();
  const auto methods = list.find(type);
  if (methods == list.end()) {
    return true;
  }
  for (const TypeInfo interfaceType : keysFrom(methods->second, methods->second.begin())) {
    if (Creator* creator = findCreator(type, interfaceType.get())) {
      if (!visit(interfaceType, *creator)) {
        return false;
      }
    }
  }
  return true;
}

} // namespace

SaveRegistryBase::Iterator::~Iterator() = default;

SaveRegistryBase::~SaveRegistryBase() = default;

SaveList& SaveRegistryBase::BaseSaveList() {
  // Never destroyed: modules take their creators out until the very end.
  static SaveList& list = *new SaveList;
  return list;
}

SaveMethodMap& SaveRegistryBase::SaveMethods(const std::type_info& type) {
  return detail::entryFor(BaseSaveList(), type);
}

Creator& SaveRegistryBase::getInterfaceCreator(const std::type_info& type,
                                               const std::type_info& interfaceType) {
  detail::Entry<SaveList> methods(BaseSaveList(), type);
  Creator& creator = detail::entryFor(*methods, interfaceType);
  methods.keep();
  return creator;
}

Creator SaveRegistryBase::findInterfaceCreator(const std::type_info& type,
                                               const std::type_info& interfaceType) {
  const Creator* creator = findCreator(type, interfaceType);
  return creator != nullptr ? *creator : nullptr;
}

bool SaveRegistryBase::removeCreator(const std::type_info& type,
                                     const std::type_info& interfaceType) {
  const auto methods = BaseSaveList().find(type);
  if (methods == BaseSaveList().end()) {
    return false;
  }
  const auto removed = methods->second.extract(interfaceType); // Released outside the registry.
  if (methods->second.empty() && detail::isLocalType(type)) {
    BaseSaveList().erase(methods); // The key must not outlive the module.
  }
  return !removed.empty();
}

bool SaveRegistryBase::removeCreator(const std::type_info& type,
                                     const std::type_info& interfaceType,
                                     const WeakPtr<SaveInterfaceCreatorBase>& creator) {
  const Creator* registered = findCreator(type, interfaceType);
  return registered != nullptr && *registered == creator && removeCreator(type, interfaceType);
}

void SaveRegistryBase::forget(const std::type_info& type) {
  std::vector<SaveMethodMap::node_type> released;
  released.reserve(BaseSaveList().size());
  const auto methods = BaseSaveList().extract(type);
  for (auto& [other, creators] : BaseSaveList()) {
    released.push_back(creators.extract(type));
  }
}

int SaveRegistryBase::iterate(const std::type_info& type, Iterator& iterator) {
  const SaveList& list = BaseSaveList();
  int visited = 0;
  for (const TypeInfo saved : keysFrom(list, list.find(type))) {
    const bool wentOn = visitMethods(saved.get(), [&](TypeInfo interfaceType, Creator& creator) {
      const bool goOn = iterator.visitCreator(interfaceType, creator);
      visited += goOn;
      return goOn;
    });
    if (!wentOn) {
      break;
    }
  }
  return visited;
}

int SaveRegistryBase::traverseCreators(const std::type_info& type) {
  SaveMethods(type);
  int visited = 0;
  visitMethods(type, [&](TypeInfo interfaceType, Creator& creator) {
    visited += visitCreator(interfaceType, creator);
    return true;
  });
  return visited;
}

} // namespace Tolvane
