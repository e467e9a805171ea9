#include "RunProbe.hpp"

#include <tolvane/Exception.hpp>
#include <tolvane/SpeakPtr.hpp>
#include <tolvane/StrongPtr.hpp>
#include <tolvane/Typename.hpp>

#include <cstdio>
#include <gtest/gtest.h>

using namespace Tolvane;

namespace {

struct Grid : ReferenceBase<Grid> {};
struct Field : Grid {};
struct Mesh : Grid {};

// A name of its own, which must go through the formats as it is.
const DefineTypename<Field> fieldName("Field<100%s>");

const std::type_info &g = typeid(Grid), &f = typeid(Field), &m = typeid(Mesh);
const std::string rawGrid = g.name(), rawField = f.name(), rawMesh = m.name(),
                  grid = "(anonymous namespace)::Grid", field = "Field<100%s>",
                  mesh = "(anonymous namespace)::Mesh";

const void* at(std::uintptr_t number) {
  return reinterpret_cast<const void*>(number);
}

/// The platform's own writing of an address.
std::string p(const void* address) {
  char text[64];
  std::snprintf(text, sizeof text, "%p", address);
  return text;
}
const void *const a1 = at(0x10), *const a2 = at(0x20), *const a3 = at(0x30), *const a4 = at(0x40);
const std::string via = " via " + p(a1) + "->" + p(a2) + "\n";

template <class Act>
std::string printed(Act act) {
  testing::internal::CaptureStdout();
  act(SpeakPtr::theSpeaker());
  return testing::internal::GetCapturedStdout();
}

std::string accessReport(const std::string& from, const std::string& counts,
                         const std::string& object, const void* referer, const std::string& raw) {
  return "\n\n *** NULL POINTER ACCESS FROM [" + from + "]  [" + counts +
         " weak refs] *** \n     Object=" + object + " (desired), ObjectBase=" + grid +
         ", TrueObject=void (actual) (via " + p(referer) +
         ")\nNullPtrException::NullPtrException(" + raw + ", " + rawGrid +
         ")\n\n *** NullPtrException::NullPtrException(type = " + object +
         ", base class = " + grid + ") *** \n\n";
}

std::string castReport(const std::string& actual, const std::string& desired, const void* stored,
                       const void* cast, const void* kept, const void* object) {
  return "\n\n***\t DYNPTR: Have typeid(TrueObject)=" + actual +
         ", should have template<Object=" + desired + "> as referenced from base " + grid +
         " ***\n\t      dynamic_cast<Object*>(this->myReferer->myObject) ==> " + p(stored) +
         "\n\t      dynamic_cast<Object*>(trueObject)\t\t       ==> " + p(cast) +
         "\n\t\t\t\t    this->myReferer->myObject  ==> " + p(kept) +
         "\n\t\t\t\t    trueObject\t\t       ==> " + p(object) + "\n";
}

} // namespace

TEST(SpeakPtr, WritesEveryReportByteForByte) {
  const std::string downcast = ": " + p(a3) + " (vrfy:" + p(a4) + ")\n";
  SpeakPtr& s = SpeakPtr::theSpeaker();
  const std::pair<std::function<void()>, std::string> cases[] = {
      // The prefix stands behind the description ...
      {[&] { s.print(" a%d", "b%s", f, false); }, "b%s a%d: (ptr: " + rawField + ") {NULL}\n"},
      {[&] { s.print("a", "b", f, true); }, "ba: (ptr: " + rawField + ") {INVALID}\n"},
      {[&] { s.printRS("a", "b", f, false); }, "ba: (ptr: " + field + ") {NULL}\n"},
      {[&] { s.printRS("a", "b", f, true); }, "ba: (ptr: " + field + ") {INVALID}\n"},
      {[&] { s.print("a", "b", f, 3, -1, g, a1, a2); },
       "ba: " + rawField + " [3/-1] from ptr " + rawGrid + via},
      {[&] { s.printRS("", "", f, -111, 2147483647, g, a1, a2); },
       ": " + field + " [-111/2147483647] from ptr " + grid + via},
      // ... and before it in the others.
      {[&] { s.DynPtrNoReferer("a", "b", f, g); },
       "ab: DynPtr<" + rawField + "," + rawGrid + "> is {NULL} (NO internal referer!)\n"},
      {[&] { s.DynPtrNoRefererRS("a", "b", f, g); },
       "ab: DynPtr<" + field + "," + grid + "> is {NULL} (NO internal referer!)\n"},
      {[&] { s.DynPtrInvalidReferer("a", "b", f, g, -111, 4); },
       "ab:  DynPtr<" + rawField + "," + rawGrid +
           ">: *DESTRUCTED* - INVALID REFERER: -111 refs, 4 weak refs\n"},
      {[&] { s.DynPtrInvalidRefererRS("a", "b", f, g, -333, 0); },
       "ab:  DynPtr<" + field + "," + grid +
           ">: *DESTRUCTED* - INVALID REFERER: -333 refs, 0 weak refs\n"},
      {[&] { s.DynPtrInfo("a", "b", f, 1, 2, g, a1, a2, g, m, a3, a4); },
       "ab: " + rawField + " [1/2] from ptr " + rawGrid + via + "  Downcast[" + rawGrid + "]-->[" +
           rawMesh + "]" + downcast},
      {[&] { s.DynPtrInfoRS("a", "b", f, 1, 2, g, a1, a2, g, m, a3, a4); },
       "ab: " + field + " [1/2] from ptr " + grid + via + "  Downcast[" + grid + "]-->[" + mesh +
           "]" + downcast},
      {[&] { s.CriticalWarning(f, g, a1, a2); },
       "CRITICAL WARNING: " + field + " (-> " + grid + ") has no strong references... [0 weaks, " +
           "obj " + p(a1) + " via " + p(a2) +
           "] - weakptr destructed with no strong and no weak references!!!\n"},
      {[&] { s.SelfConstruction(f, a1, a1); },
       "*** DYNAMIC POINTER SELF-ASSIGNMENT DURING CONSTRUCTION - THIS LOOKS LIKE A RECURSIVE "
       "CONSTRUCTOR CALL,\n"
       "*** CHECK CORRECT CLASS MEMBER INITIALIZATION - PROGRAM TERMINATED\n"},
      {[&] { s.InconsistentDynPtr(f, g, m, a1, a2, a3, a4, 77); },
       castReport(mesh, field, a1, a2, a3, a4)},
      {[&] {
         for (const int count : {-111, 0, 5}) {
           s.DestructionCancelled(count, 1, g), s.DestructionAssertion(count, 1, g);
           s.WarningUnctionChange(count, 1, g), s.DynPtrInvalid(a1, nullptr, count, 1, g);
           s.WeakPtrConstructionInfo(count, 1, g, a1), s.WeakPtrDestructionInfo(count, 1, g, a1);
           IncrementDeadRefPtr::inc(count, 1, f, g);
         }
       },
       ""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(printed([&](SpeakPtr&) { c.first(); }), c.second);
}

TEST(SpeakPtr, AccessThroughNothingIsReportedAndThrown) {
  StrongPtr<Field, Grid> strong = new Field;
  const WeakPtr<Field, Grid> weak = strong;
  strong.reset();
  const StrongPtr<Grid> empty;
  const WeakPtr<Grid> emptyWeak;
  const void* const record = detail::PointerAccess::referer(weak);
  const std::string ofGrid = "Ptr<" + grid + ", " + grid + ">::operator",
                    ofField = "Ptr<(anonymous namespace)::Field, " + grid + ">::operator";
  const struct {
    std::function<void()> access;
    std::string from, counts;
    const void* referer;
  } cases[] = {
      {[&] { empty->instanceNumber(); }, "Strong" + ofGrid + "->()", "0 strong/0", nullptr},
      {[&] { (*empty).instanceNumber(); }, "Strong" + ofGrid + "*()", "0 strong/0", nullptr},
      {[&] { emptyWeak->instanceNumber(); }, "Weak" + ofGrid + "->()", "0 strong/0", nullptr},
      {[&] { strong->instanceNumber(); }, "Strong" + ofField + "->()", "0 strong/0", nullptr},
      {[&] { (*weak).instanceNumber(); }, "Weak" + ofField + "*()", "-111 strong/1", record},
  };
  for (const auto& c : cases) {
    const bool isField = c.from.find("Field") != std::string::npos;
    EXPECT_EQ(printed([&](SpeakPtr&) { EXPECT_THROW(c.access(), NullPtrException); }),
              accessReport("Tolvane::" + c.from, c.counts, isField ? field : grid, c.referer,
                           isField ? rawField : rawGrid));
  }
}

namespace {

// Two of the same class in one object, on one shared base: from the base, nobody can say which.
struct Half : virtual Grid {
  int half = 0;
};
struct FirstHalf : Half {};
struct SecondHalf : Half {};
struct Whole : FirstHalf, SecondHalf {};

} // namespace

TEST(SpeakPtr, PointersReportWhatDoesNotCast) {
  Whole whole;
  FirstHalf* const first = &whole;
  Half* const half = first;
  EXPECT_EQ(printed([&](SpeakPtr&) { EXPECT_EQ((WeakPtr<Half, Grid>(half).weakCount()), 0); }),
            castReport("(anonymous namespace)::Whole", "(anonymous namespace)::Half", nullptr, half,
                       static_cast<ReferenceBase<Grid>*>(first), half));
  // What casts is silent, and so is a conversion that finds another type.
  EXPECT_EQ(printed([&](SpeakPtr&) {
              const WeakPtr<FirstHalf, Grid> pointer = first;
              EXPECT_EQ(pointer.get(), first);
              EXPECT_FALSE((WeakPtr<Half, Grid>(pointer) || WeakPtr<Mesh, Grid>(pointer)));
            }),
            "");
}

TEST(SpeakPtr, BreakpointsGetTheWholeReport) {
  const Variables enabled = {{"TOLVANE_ENABLE_BREAKPOINTS", "1"}};
  const auto expectIn = [](const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << part << " is not in\n" << text;
  };
  const std::string access = outputOf("speak InvalidPtrAccess", enabled),
                    stop = "\nREAKPOINT>>> *** NULL POINTER ACCESS FROM [Named%d::operator->()]{",
                    types = " with      Object=double (desired), ObjectBase=int32_t, "
                            "TrueObject=bool (actual) id #18446744073709551615\n\n#0 ";
  expectIn(access, stop + p(a1) + "} + [-3 strong/4 weak refs] ***" + types);
  EXPECT_LT(access.find(stop), access.find("NullPtrException::NullPtrException(d, i)\n"));
  // A pointer gives its own number.
  const std::string own = outputOf("point access", enabled);
  expectIn(own, "} + [-111 strong/1 weak refs] *** with      Object=(anonymous namespace)::Pointed "
                "(desired), ObjectBase=(anonymous namespace)::Pointed, TrueObject=void (actual) " +
                    own.substr(0, own.find('\n') + 1) + "\n#0 ");
  // The names are asked for in the order of the text.
  const std::string inconsistent = outputOf("speak InconsistentDynPtr", enabled);
  const std::size_t second = inconsistent.find("\nREAKPOINT>>> ");
  const std::string report = inconsistent.substr(inconsistent.find("***\t DYNPTR: Have typeid("));
  expectIn(report, "=int, should have template<Object=int32_t> as referenced from base int32_t");
  expectIn(inconsistent.substr(second), report.substr(0, report.find(p(a4) + "\n")));
}

TEST(SpeakPtr, FlushesWhatMustNotBeLost) {
  for (const auto& [report, end] :
       {std::pair("CriticalWarning", "weak references!!!\n"),
        std::pair("SelfConstruction", "PROGRAM TERMINATED\n"),
        std::pair("InconsistentDynPtr", "40\n"), std::pair("NullPtrException", ") *** \n\n")}) {
    // A process that ends without emptying its buffers.
    const ProbeResult run = probe(std::string("speak ") + report + " -- immediate_exit 7 file");
    EXPECT_TRUE(run.exitCode == 7 && run.out.ends_with(end)) << run.out << run.err;
  }
}

// They print nothing, but ask for a name: in a fresh process the first such request brings the
// readable names of the plain types.
TEST(SpeakPtr, SilentEventsAskForTheName) {
  for (const auto& [silent, name] :
       {std::pair("point live", "int\n"), std::pair("speak DestructionCancelled 0", "int\n"),
        std::pair("speak DestructionCancelled 1", "int32_t\n"),
        std::pair("speak DestructionAssertion 0", "int32_t\n"),
        std::pair("speak DynPtrInvalid 0", "int32_t\n"),
        std::pair("point copy-dead-strong", "int32_t\n"), std::pair("push_brick", "int32_t\n")})
    EXPECT_EQ(outputOf(silent + std::string(" -- type_names int")), name) << silent;
}

TEST(SpeakPtr, KeepsTheSourceLine) {
  EXPECT_STREQ(getLastKnownSourceCodeLine(), "(none)");
  const char line[] = "main.cpp:3";
  setLastKnownSourceCodeLine(line);
  EXPECT_EQ(getLastKnownSourceCodeLine(), line); // the text itself, no copy
  setLastKnownSourceCodeLine("(none)");
  for (const void* address : {at(0), at(0x401000), at(~std::uintptr_t{0})})
    EXPECT_EQ(to_address_string(address), p(address));
}

// A type of the same name as in PointerTest.cpp.
namespace {
struct FirstKind : ReferenceBase<FirstKind> {};
} // namespace
std::uint64_t instanceNumberOfAnotherFirstKind();
std::uint64_t instanceNumberOfAnotherFirstKind() {
  return FirstKind().instanceNumber();
}
