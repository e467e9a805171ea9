#include "Probe.hpp"

#include <tolvane/Exception.hpp>
#include <tolvane/SpeakPtr.hpp>
#include <tolvane/StrongPtr.hpp>
#include <tolvane/Typename.hpp>

#include <cstdio>
#include <map>

using namespace Tolvane;

namespace {

struct Pointed : ReferenceBase<Pointed> {
  int number = 0;
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
  const std::type_info &type = typeid(NamedLater), &i = typeid(int), &b = typeid(bool);
  const void *const p = address(0x10), *const q = address(0x20);
  const std::map<std::string, std::function<void()>> reports = {
      {"CriticalWarning", [&] { s.CriticalWarning(type, type, p, q); }},
      {"SelfConstruction", [&] { s.SelfConstruction(type, p, p); }},
      {"NullPtrException", [&] { const NullPtrException exception(type, type); }},
      {"InconsistentDynPtr",
       [&] { s.InconsistentDynPtr(i, i, i, p, q, address(0x30), address(0x40), 77); }},
      {"InvalidPtrAccess",
       [&] {
         DefineTypenameBase::setTypename(type, "Named%d");
         expectNullPtrException([&] {
           s.InvalidPtrAccess(true, type, typeid(double), i, b, -3, 4, p, q, ~std::uint64_t{0});
         });
       }},
      {"DestructionCancelled",
       [&] { s.DestructionCancelled(std::stoi(arguments.at(1)), 0, type); }},
      {"DestructionAssertion", [&] { s.DestructionAssertion(0, 0, type); }},
      {"DynPtrInvalid", [&] { s.DynPtrInvalid(nullptr, nullptr, 0, 0, type); }},
  };
  reports.at(arguments.at(0))();
  return 0;
}

// Does something with pointers.
PROBE_COMMAND(point) {
  auto* const object = new Pointed;
  StrongPtr<Pointed> strong = object;
  const WeakPtr<Pointed> weak = strong;
  const std::map<std::string, std::function<void()>> deeds = {
      {"live",
       [&] {
         StrongPtr<Pointed> copy = weak.lock();
         copy = std::move(strong);
       }},
      {"copy-dead-strong",
       [&] {
         delete object;
         const StrongPtr<Pointed> copy = strong;
       }},
      {"access",
       [&] {
         std::printf("id #%llu\n", static_cast<unsigned long long>(weak.serial()));
         strong.reset();
         expectNullPtrException([&] { weak->number = 1; });
       }},
  };
  deeds.at(arguments.at(0))();
  return 0;
}
