#include "LastingTypeInternal.hpp"

#include <tolvane/LoaderProgress.hpp>
#include <tolvane/LoaderRegistryBase.hpp>
#include <tolvane/Typename.hpp>

#include <new>
#include <unordered_map>
#include <utility>

namespace Tolvane {
namespace {

using LoaderMap = std::unordered_map<TypeInfo, StrongPtr<LoaderBase>>;
using DomainMap = std::unordered_map<TypeInfo, LoaderMap>;

/// Never destroyed: modules take their loaders out until the very end.
DomainMap& store() {
  static DomainMap& domains = *new DomainMap;
  return domains;
}

/// The loaders of a domain as they stand, so that what they do cannot disturb the walk over them.
/// They are not held: one that is removed meanwhile, perhaps with its module, is gone and not
/// asked, unless somebody else holds it.
std::vector<WeakPtr<LoaderBase>> snapshot(const std::type_info& domain) {
  std::vector<WeakPtr<LoaderBase>> loaders;
  for (const auto& [key, loader] : detail::entryFor(store(), domain)) {
    loaders.emplace_back(loader);
  }
  return loaders;
}

/// Calls `ask` with each live loader until it answers true. Returns whether one did.
template <class Ask>
bool askEach(const std::type_info& domain, Ask ask) {
  for (const WeakPtr<LoaderBase>& registered : snapshot(domain)) {
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
  detail::entryFor(detail::entryFor(store(), domain), key).swap(former);
}

bool LoaderRegistryBase::domain_remove(const std::type_info& key, const std::type_info& domain) {
  // Released when the registry is whole again.
  const auto removed = detail::extractEntry(store(), domain, key);
  return !removed.empty();
}

bool LoaderRegistryBase::domain_remove(const std::type_info& key, const WeakPtr<LoaderBase>& loader,
                                       const std::type_info& domain) {
  const auto found = store().find(domain);
  if (found == store().end()) {
    return false;
  }
  const auto registered = found->second.find(key);
  return registered != found->second.end() && registered->second == loader &&
         domain_remove(key, domain);
}

void LoaderRegistryBase::forget(const std::type_info& type) {
  std::vector<LoaderMap::node_type> released;
  const auto domain = store().extract(type);
  for (auto& [other, loaders] : store()) {
    released.push_back(loaders.extract(type));
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
        // The exception that is on its way says more.
      }
    }
    LoaderParameters& owner;
    std::vector<Attempt> attempts;
  };

  const std::vector<WeakPtr<LoaderBase>> loaders = snapshot(domain);
  const StrongPtr<LoaderParameters> held = parameters;
  const auto progress = held->findInterface<LoaderProgress>();
  Account account{*held, {}};
  held->setStatusText("No loader available. ");
  int index = 0;
  for (const WeakPtr<LoaderBase>& registered : loaders) {
    const StrongPtr<LoaderBase> loader = registered.lock();
    if (!loader) {
      continue;
    }
    const LoaderBase& asked = *loader;
    Attempt& attempt = account.attempts.emplace_back(
        Attempt{Typename(typeid(asked)), Attempt::Outcome::Threw, {}});
    held->statusSet_ = false;
    if (progress &&
        !progress->tryLoader(loader, domain, index++, static_cast<int>(loaders.size()))) {
      attempt.outcome = Attempt::Outcome::Vetoed;
      continue;
    }
    held->statusSet_ = false; // What the progress interface says is not the loader's reason.
    const bool loaded = loader->load(parameters, special);
    attempt.outcome = loaded ? Attempt::Outcome::Loaded : Attempt::Outcome::Refused;
    if (held->statusSet_) {
      attempt.reason = held->statusText();
    }
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
  askEach(domain, [&](const LoaderBase& loader) {
    out.splice(out.end(), std::list(loader.extensions()));
    return false;
  });
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
    for (const auto& [key, loader] : found->second) {
      if (loader) {
        live.push_back(loader);
      }
    }
  }
  return live;
}

} // namespace Tolvane
