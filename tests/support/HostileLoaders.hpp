#pragma once

/// @file
/// Loaders and creators of savers that do what is wished, or nothing.

#include "Hostile.hpp"

#include <tolvane/LoaderRegistry.hpp>
#include <tolvane/SaveRegistry.hpp>

namespace hostile {

using namespace Tolvane;

struct PlainLoader : LoaderBase {
  explicit PlainLoader(std::list<std::string> extensions = {})
      : LoaderBase(std::move(extensions)) {}
  bool isloadable(const StrongPtr<LoaderParameters>&) override { return act(onCall), false; }
  bool load(const StrongPtr<LoaderParameters>& given, ldrpar*) override {
    if (given)
      given->setStatusText("refused");
    return act(onCall), false;
  }
  StrongPtr<LoaderRequest> loadrequest(const StrongPtr<LoaderParameters>&, ldrpar*) override {
    return act(onCall), nullptr;
  }
};
struct PlainCreator : SaveInterfaceCreatorBase {
  PlainCreator() : SaveInterfaceCreatorBase("name", "text") {}
};

} // namespace hostile
