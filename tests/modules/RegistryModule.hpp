#pragma once

// What the modules BringsLoadersA and BringsLoadersB have in common. Each has its own copy of all
// of it, type identities included, as modules of different vendors would.

#include <tolvane/LoaderRegistry.hpp>
#include <tolvane/SaveRegistry.hpp>
#include <tolvane/StreamSaverInterface.hpp>

#include <string>
#include <utility>

/// What is loaded and saved.
struct SharedVolume {};

/// A loader under one key in both modules: the one that comes last replaces the other.
struct SharedLoader : Tolvane::LoaderBase {
  using Parameters = Tolvane::StrongPtr<Tolvane::LoaderParameters>;

  explicit SharedLoader(const std::string& refusal) : reason(refusal) {}
  bool isloadable(const Parameters&) override { return false; }
  bool load(const Parameters& parameters, ldrpar*) override {
    parameters->setStatusText(reason);
    return false;
  }
  Tolvane::StrongPtr<Tolvane::LoaderRequest> loadrequest(const Parameters&, ldrpar*) override {
    return nullptr;
  }
  const std::string reason;
};

struct SharedCreator : Tolvane::SaveInterfaceCreatorBase {
  explicit SharedCreator(const std::string& module)
      : SaveInterfaceCreatorBase(module, "of a module") {}
};

/// Types that no module has. Two hundred make the registries put all that they have in new places.
template <int>
struct Foreign {};

/// Asks both registries about them.
template <int... I>
void askAboutForeign(std::integer_sequence<int, I...>) {
  (Tolvane::LoaderRegistry<Foreign<I>>::isloadable(nullptr), ...);
  (Tolvane::SaveRegistry<Foreign<I>>::SaveMethods(), ...);
}

#ifdef MODULE
namespace {
namespace OWN {

/// These are the module's own, with keys that no other module has: clang tells local types of one
/// name in two modules from each other by nothing else.
struct OwnVolume {};
struct OwnLoader : SharedLoader {
  using SharedLoader::SharedLoader;
};
struct OwnInterface : Tolvane::Interface<OwnInterface> {};

} // namespace OWN
using OWN::OwnInterface;
using OWN::OwnLoader;
using OWN::OwnVolume;

using Loaders = Tolvane::LoaderRegistry<SharedVolume>;
using Savers = Tolvane::SaveRegistry<SharedVolume>;
const Loaders::Registration<SharedLoader> sharedLoader("shared of " MODULE);
const Loaders::Registration<OwnLoader> ownLoader("own of " MODULE);
const Savers::Registration<Tolvane::StreamSaverInterface, SharedCreator>
    stream("stream of " MODULE);
const Savers::Registration<OwnInterface, SharedCreator> own("own saver of " MODULE);
const Tolvane::LoaderRegistry<OwnVolume>::Registration<SharedLoader> ownDomain("own domain");
const Tolvane::SaveRegistry<OwnVolume>::Registration<OwnInterface, SharedCreator>
    ownSaved("own type");

} // namespace
#endif
