#include "Probe.hpp"

#include <tolvane/Exception.hpp>
#include <tolvane/SpeakPtr.hpp>
#include <tolvane/StrongPtr.hpp>
#include <tolvane/Typename.hpp>

#include <cstdio>
#include <functional>
#include <map>

using namespace Tolvane;

namespace {

struct Pointed : ReferenceBase<Pointed> {
  void unction() override {
    if (takeBack)
      kept = this;
    takeBack = false;
  }
  bool takeBack = false;
  static inline StrongPtr<Pointed> kept;
};

struct NamedLater {};

const void* address(std::uintptr_t number) {
  return reinterpret_cast<const void*>(number);
}

template <class Act>
void expectNullPtrException(Act act) {
  try {
    act();
  } catch (const NullPtrException&) {
  }
}

} // namespace

// Makes one report, with values that the test knows.
PROBE_COMMAND(speak) {
  SpeakPtr& s = SpeakPtr::theSpeaker();
  const std::type_info& type = typeid(NamedLater);
  const std::map<std::string, std::function<void()>> reports = {
      {"nothing", [] {}},
      {"CriticalWarning", [&] { s.CriticalWarning(type, type, address(1), address(2)); }},
      {"SelfConstruction", [&] { s.SelfConstruction(type, address(1), address(1)); }},
      {"NullPtrException", [&] { const NullPtrException exception(type, type); }},
      {"InconsistentDynPtr",
       [&] {
         s.InconsistentDynPtr(type, typeid(int), typeid(bool), address(0x10), address(0x20),
                              address(0x30), address(0x40), 77);
       }},
      {"InvalidPtrAccess",
       [&] {
         DefineTypenameBase::setTypename(type, "Named%d");
         expectNullPtrException([&] {
           s.InvalidPtrAccess(true, typeid(NamedLater), typeid(double), typeid(int), typeid(bool),
                              -3, 4, address(0x10), address(0x20), ~std::uint64_t{0});
         });
       }},
      {"DestructionCancelled0", [&] { s.DestructionCancelled(0, 1, type); }},
      {"DestructionCancelled", [&] { s.DestructionCancelled(1, 0, type); }},
      {"DestructionAssertion", [&] { s.DestructionAssertion(0, 0, type); }},
      {"WarningUnctionChange", [&] { s.WarningUnctionChange(2, 2, type); }},
      {"DynPtrInvalid", [&] { s.DynPtrInvalid(nullptr, nullptr, 0, 0, type); }},
      {"WeakPtrConstructionInfo", [&] { s.WeakPtrConstructionInfo(0, 0, type, nullptr); }},
      {"WeakPtrDestructionInfo", [&] { s.WeakPtrDestructionInfo(0, 0, type, nullptr); }},
      {"IncrementDeadRefPtr", [&] { IncrementDeadRefPtr::inc(-111, 2, type, type); }},
  };
  reports.at(arguments.at(0))();
  return 0;
}

// Does something with pointers.
PROBE_COMMAND(point) {
  const std::string what = arguments.at(0);
  auto* const object = new Pointed;
  StrongPtr<Pointed> strong = object;
  const WeakPtr<Pointed> weak = strong;
  if (what == "live") {
    StrongPtr<Pointed> copy = weak.lock();
    copy = std::move(strong);
  } else if (what == "take back") {
    object->takeBack = true;
    strong.reset();
    Pointed::kept.reset();
  } else if (what == "copy dead weak") {
    strong.reset();
    const WeakPtr<Pointed> copy = weak;
  } else if (what == "lock dead") {
    strong.reset();
    return weak.lock() ? 1 : 0;
  } else if (what == "copy dead strong") {
    delete object;
    const StrongPtr<Pointed> copy = strong;
  } else if (what == "release without object") {
    detail::PointerAccess::referer(strong)->takeObject();
    strong.reset();
    delete object;
  } else if (what == "access") {
    std::printf("id #%llu\n", static_cast<unsigned long long>(weak.serial()));
    strong.reset();
    expectNullPtrException([&] { weak->takeBack = true; });
  }
  return 0;
}
