#include "LastingTypeInternal.hpp"

#include <tolvane/LoaderProgress.hpp>
#include <tolvane/LoaderRegistryBase.hpp>

#include <memory>
#include <new>
#include <unordered_map>
#include <utility>

namespace Tolvane {
namespace {

using LoaderMap = std::unordered_map<TypeInfo, StrongPtr<LoaderBase>>;

/// Loaders in the order in which they are asked. They are not held: one that is removed meanwhile,
/// perhaps with its module, is not asked.
using Order = std::vector<WeakPtr<LoaderBase>>;

struct Domain {
  LoaderMap loaders;
  // The same loaders, replaced with every registration, so that a load that is under way keeps its
  // own and none has to copy them.
  std::shared_ptr<Order> order = std::make_shared<Order>();

  void reorder() {
    auto next = std::make_shared<Order>();
    for (const auto& [key, loader] : loaders) {
      next->emplace_back(loader);
    }
    order = std::move(next);
  }

  /// Takes a loader out, also of what loads are under way; to be released by the caller.
  LoaderMap::node_type remove(const std::type_info& key) {
    const auto found = loaders.find(key);
    if (found == loaders.end()) {
      return {};
    }
    for (WeakPtr<LoaderBase>& asked : *order) {
      if (asked == found->second) {
        asked.reset();
      }
    }
    return loaders.extract(found);
  }
};

using DomainMap = std::unordered_map<TypeInfo, Domain>;

/// Never destroyed: modules take their loaders out until the very end.
DomainMap& store() {
  static DomainMap& domains = *new DomainMap;
  return domains;
}

/// Calls `ask` with each live loader until it answers true. Returns whether one did.
template <class Ask>
bool askEach(const std::type_info& domain, Ask ask) {
  const std::shared_ptr<Order> order = detail::entryFor(store(), domain).order;
  for (const WeakPtr<LoaderBase>& registered : *order) {
    if (const StrongPtr<LoaderBase> loader = registered.lock()) {
      if (ask(*loader)) {
        return true;
      }
    }
  }
  return false;
}

} // namespace

void LoaderRegistryBase::domain_append(const std::type_info& key,
                                       const StrongPtr<LoaderBase>& loader,
                                       const std::type_info& domain) {
  StrongPtr<LoaderBase> former = loader; // Released when the registry is whole again.
  detail::Entry<DomainMap> to(store(), domain);
  detail::Entry<LoaderMap> slot(to->loaders, key);
  slot->swap(former);
  try {
    to->reorder();
  } catch (...) {
    slot->swap(former);
    throw;
  }
  slot.keep();
  to.keep();
}

bool LoaderRegistryBase::domain_remove(const std::type_info& key, const std::type_info& domain) {
  const auto found = store().find(domain);
  if (found == store().end()) {
    return false;
  }
  const auto removed = found->second.remove(key); // Released when the registry is whole again.
  if (found->second.loaders.empty() && detail::isLocalType(domain)) {
    store().erase(found); // The key must not outlive the module.
  }
  return !removed.empty();
}

bool LoaderRegistryBase::domain_remove(const std::type_info& key, const WeakPtr<LoaderBase>& loader,
                                       const std::type_info& domain) {
  const auto found = store().find(domain);
  if (found == store().end()) {
    return false;
  }
  const auto registered = found->second.loaders.find(key);
  return registered != found->second.loaders.end() && registered->second == loader &&
         domain_remove(key, domain);
}

void LoaderRegistryBase::forget(const std::type_info& type) {
  std::vector<LoaderMap::node_type> released;
  released.reserve(store().size());
  const auto forgotten = store().extract(type);
  for (auto& [other, domain] : store()) {
    released.push_back(domain.remove(type));
  }
}

bool LoaderRegistryBase::domain_isloadable(const StrongPtr<LoaderParameters>& parameters,
                                           const std::type_info& domain) {
  return askEach(domain, [&](LoaderBase& loader) { return loader.isloadable(parameters); });
}

bool LoaderRegistryBase::domain_load(const StrongPtr<LoaderParameters>& parameters,
                                     LoaderBase::ldrpar* special, const std::type_info& domain) {
  using Attempt = LoaderParameters::Attempt;
  if (!parameters) {
    return askEach(domain, [&](LoaderBase& loader) { return loader.load(parameters, special); });
  }

  /// The account of this load. A loader may start another one with the same parameters, so it is
  /// handed over at the end, also when that is an exception.
  struct Account {
    ~Account() {
      if (!attempts.empty() && attempts.back().outcome == Attempt::Outcome::Threw) {
        keepReason();
      }
      owner.attempts_ = std::move(attempts);
    }
    void keepReason() noexcept {
      try {
        if (owner.statusSet_) {
          attempts.back().reason = owner.statusText_;
        }
      } catch (const std::bad_alloc&) {
        // What came of the load says more, and so does the exception that is on its way.
      }
    }
    LoaderParameters& owner;
    std::vector<Attempt> attempts;
  };

  const Domain& from = detail::entryFor(store(), domain);
  const std::shared_ptr<Order> order = from.order;
  const auto count = static_cast<int>(from.loaders.size());
  const StrongPtr<LoaderParameters> held = parameters;
  const auto progress = held->findInterface<LoaderProgress>();
  Account account{*held, {}};
  account.attempts.reserve(order->size());
  held->setStatusText("No loader available. ");
  int index = 0;
  for (const WeakPtr<LoaderBase>& registered : *order) {
    const StrongPtr<LoaderBase> loader = registered.lock();
    if (!loader) {
      continue;
    }
    Attempt& attempt =
        account.attempts.emplace_back(Attempt{loader->className(), Attempt::Outcome::Threw, {}});
    held->statusSet_ = false;
    if (progress && !progress->tryLoader(loader, domain, index++, count)) {
      attempt.outcome = Attempt::Outcome::Vetoed;
      continue;
    }
    held->statusSet_ = false; // What the progress interface says is not the loader's reason.
    const bool loaded = loader->load(parameters, special);
    attempt.outcome = loaded ? Attempt::Outcome::Loaded : Attempt::Outcome::Refused;
    account.keepReason();
    if (loaded) {
      return true;
    }
  }
  return false;
}

StrongPtr<LoaderRequest>
LoaderRegistryBase::domain_loadrequest(const StrongPtr<LoaderParameters>& parameters,
                                       LoaderBase::ldrpar* special, const std::type_info& domain) {
  StrongPtr<LoaderRequest> request;
  askEach(domain, [&](LoaderBase& loader) {
    request = loader.loadrequest(parameters, special);
    return static_cast<bool>(request);
  });
  return request ? request : nullptr;
}

void LoaderRegistryBase::getSupportedDomainExtensions(std::list<std::string>& out,
                                                      const std::type_info& domain) {
  std::list<std::string> all;
  askEach(domain, [&](const LoaderBase& loader) {
    all.splice(all.end(), std::list(loader.extensions()));
    return false;
  });
  out.splice(out.end(), all);
}

std::vector<TypeInfo> LoaderRegistryBase::domains() {
  std::vector<TypeInfo> domains;
  for (const auto& [domain, loaders] : store()) {
    domains.push_back(domain);
  }
  return domains;
}

std::vector<StrongPtr<LoaderBase>> LoaderRegistryBase::loaders(const std::type_info& domain) {
  std::vector<StrongPtr<LoaderBase>> live;
  if (const auto found = store().find(domain); found != store().end()) {
    for (const WeakPtr<LoaderBase>& registered : *found->second.order) {
      if (StrongPtr<LoaderBase> loader = registered.lock()) {
        live.push_back(std::move(loader));
      }
    }
  }
  return live;
}

} // namespace Tolvane
