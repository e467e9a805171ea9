#include "RunProbe.hpp"

#include <tolvane/Exception.hpp>
#include <tolvane/SpeakPtr.hpp>
#include <tolvane/StrongPtr.hpp>
#include <tolvane/Typename.hpp>

#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <regex>

using namespace Tolvane;

namespace {

struct Grid : ReferenceBase<Grid> {};
struct Field : Grid {};
struct Mesh : Grid {};

// A name of its own, which must go through the formats as it is.
const DefineTypename<Field> fieldName("Field<100%s>");

const std::string rawGrid = typeid(Grid).name(), rawField = typeid(Field).name(),
                  rawMesh = typeid(Mesh).name();
const std::string grid = "(anonymous namespace)::Grid", field = "Field<100%s>",
                  mesh = "(anonymous namespace)::Mesh";

const void* address(std::uintptr_t number) {
  return reinterpret_cast<const void*>(number);
}

/// The platform's own writing of an address.
std::string p(std::uintptr_t number) {
  char text[64];
  std::snprintf(text, sizeof text, "%p", address(number));
  return text;
}

template <class Act>
std::string printed(Act act) {
  testing::internal::CaptureStdout();
  act(SpeakPtr::theSpeaker());
  return testing::internal::GetCapturedStdout();
}

std::string exceptionReport(const std::string& rawType, const std::string& rawBase,
                            const std::string& type, const std::string& base) {
  return "NullPtrException::NullPtrException(" + rawType + ", " + rawBase + ")\n" +
         "\n *** NullPtrException::NullPtrException(type = " + type + ", base class = " + base +
         ") *** \n\n";
}

} // namespace

TEST(SpeakPtr, WritesEveryReportByteForByte) {
  const std::string downcast = ": " + p(0x50) + " (vrfy:" + p(0x60) + ")\n";
  const struct {
    const char* what;
    std::function<void(SpeakPtr&)> report;
    std::string expected;
  } cases[] = {
      // The prefix stands behind the description ...
      {"print null", [](SpeakPtr& s) { s.print(" a%d", "b%s", typeid(Field), false); },
       "b%s a%d: (ptr: " + rawField + ") {NULL}\n"},
      {"print invalid", [](SpeakPtr& s) { s.print("a", "b", typeid(Field), true); },
       "ba: (ptr: " + rawField + ") {INVALID}\n"},
      {"printRS null", [](SpeakPtr& s) { s.printRS("a", "b", typeid(Field), false); },
       "ba: (ptr: " + field + ") {NULL}\n"},
      {"printRS invalid", [](SpeakPtr& s) { s.printRS("a", "b", typeid(Field), true); },
       "ba: (ptr: " + field + ") {INVALID}\n"},
      {"print",
       [](SpeakPtr& s) {
         s.print("a", "b", typeid(Field), 3, -1, typeid(Grid), address(0x10), address(0x20));
       },
       "ba: " + rawField + " [3/-1] from ptr " + rawGrid + " via " + p(0x10) + "->" + p(0x20) +
           "\n"},
      {"printRS",
       [](SpeakPtr& s) {
         s.printRS("", "", typeid(Field), -111, 2147483647, typeid(Grid), nullptr, address(0x20));
       },
       ": " + field + " [-111/2147483647] from ptr " + grid + " via " + p(0) + "->" + p(0x20) +
           "\n"},
      // ... and before it in the others.
      {"DynPtrNoReferer",
       [](SpeakPtr& s) { s.DynPtrNoReferer("a", "b", typeid(Field), typeid(Grid)); },
       "ab: DynPtr<" + rawField + "," + rawGrid + "> is {NULL} (NO internal referer!)\n"},
      {"DynPtrNoRefererRS",
       [](SpeakPtr& s) { s.DynPtrNoRefererRS("a", "b", typeid(Field), typeid(Grid)); },
       "ab: DynPtr<" + field + "," + grid + "> is {NULL} (NO internal referer!)\n"},
      {"DynPtrInvalidReferer",
       [](SpeakPtr& s) { s.DynPtrInvalidReferer("a", "b", typeid(Field), typeid(Grid), -111, 4); },
       "ab:  DynPtr<" + rawField + "," + rawGrid +
           ">: *DESTRUCTED* - INVALID REFERER: -111 refs, 4 weak refs\n"},
      {"DynPtrInvalidRefererRS",
       [](SpeakPtr& s) {
         s.DynPtrInvalidRefererRS("a", "b", typeid(Field), typeid(Grid), -333, 0);
       },
       "ab:  DynPtr<" + field + "," + grid +
           ">: *DESTRUCTED* - INVALID REFERER: -333 refs, 0 weak refs\n"},
      {"DynPtrInfo",
       [](SpeakPtr& s) {
         s.DynPtrInfo("a", "b", typeid(Field), 1, 2, typeid(Grid), address(0x10), address(0x20),
                      typeid(Grid), typeid(Mesh), address(0x50), address(0x60));
       },
       "ab: " + rawField + " [1/2] from ptr " + rawGrid + " via " + p(0x10) + "->" + p(0x20) +
           "\n  Downcast[" + rawGrid + "]-->[" + rawMesh + "]" + downcast},
      {"DynPtrInfoRS",
       [](SpeakPtr& s) {
         s.DynPtrInfoRS("a", "b", typeid(Field), 1, 2, typeid(Grid), address(0x10), address(0x20),
                        typeid(Grid), typeid(Mesh), address(0x50), address(0x60));
       },
       "ab: " + field + " [1/2] from ptr " + grid + " via " + p(0x10) + "->" + p(0x20) +
           "\n  Downcast[" + grid + "]-->[" + mesh + "]" + downcast},
      {"CriticalWarning",
       [](SpeakPtr& s) {
         s.CriticalWarning(typeid(Field), typeid(Grid), address(0x10), address(0x20));
       },
       "CRITICAL WARNING: " + field + " (-> " + grid +
           ") has no strong references... [0 weaks, obj " + p(0x10) + " via " + p(0x20) +
           "] - weakptr destructed with no strong and no weak references!!!\n"},
      {"SelfConstruction",
       [](SpeakPtr& s) { s.SelfConstruction(typeid(Field), address(0x10), address(0x10)); },
       "*** DYNAMIC POINTER SELF-ASSIGNMENT DURING CONSTRUCTION - THIS LOOKS LIKE A RECURSIVE "
       "CONSTRUCTOR CALL,\n"
       "*** CHECK CORRECT CLASS MEMBER INITIALIZATION - PROGRAM TERMINATED\n"},
      {"InconsistentDynPtr",
       [](SpeakPtr& s) {
         s.InconsistentDynPtr(typeid(Field), typeid(Grid), typeid(Mesh), address(0x10),
                              address(0x20), address(0x30), address(0x40), 77);
       },
       "\n\n***\t DYNPTR: Have typeid(TrueObject)=" + mesh +
           ", should have template<Object=" + field + "> as referenced from base " + grid +
           " ***\n"
           "\t      dynamic_cast<Object*>(this->myReferer->myObject) ==> " +
           p(0x10) + "\n\t      dynamic_cast<Object*>(trueObject)\t\t       ==> " + p(0x20) +
           "\n\t\t\t\t    this->myReferer->myObject  ==> " + p(0x30) +
           "\n\t\t\t\t    trueObject\t\t       ==> " + p(0x40) + "\n"},
      {"silent ones",
       [](SpeakPtr& s) {
         for (const int count : {-111, 0, 5}) {
           s.DestructionCancelled(count, 1, typeid(Grid));
           s.DestructionAssertion(count, 1, typeid(Grid));
           s.WarningUnctionChange(count, 1, typeid(Grid));
           s.DynPtrInvalid(address(0x10), nullptr, count, 1, typeid(Grid));
           s.WeakPtrConstructionInfo(count, 1, typeid(Grid), address(0x10));
           s.WeakPtrDestructionInfo(count, 1, typeid(Grid), address(0x10));
           IncrementDeadRefPtr::inc(count, 1, typeid(Field), typeid(Grid));
         }
       },
       ""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(printed(c.report), c.expected) << c.what;
}

TEST(SpeakPtr, AccessThroughNothingIsReportedAndThrown) {
  for (const bool arrow : {true, false}) {
    const std::string text = printed([&](SpeakPtr& s) {
      try {
        s.InvalidPtrAccess(arrow, typeid(Mesh), typeid(Field), typeid(Grid), typeid(int), -3, 4,
                           address(0x10), address(0x20), 77);
      } catch (const NullPtrException& e) {
        EXPECT_EQ(e.type(), typeid(Field));
        EXPECT_EQ(e.base(), typeid(Grid));
        EXPECT_STREQ(e.what(), "Null Ptr Exception - invalid pointer detected!");
        return;
      }
      ADD_FAILURE() << "no exception";
    });
    EXPECT_EQ(text, "\n\n *** NULL POINTER ACCESS FROM [" + mesh +
                        (arrow ? "::operator->()" : "::operator*()") +
                        "]  [-3 strong/4 weak refs] *** \n     Object=" + field +
                        " (desired), ObjectBase=" + grid + ", TrueObject=int32_t (actual) (via " +
                        p(0x20) + ")\n" + exceptionReport(rawField, rawGrid, field, grid));
  }
}

TEST(SpeakPtr, PointersReportTheirAccess) {
  StrongPtr<Field, Grid> strong = new Field;
  const WeakPtr<Field, Grid> weak = strong;
  const void* const record = detail::PointerAccess::referer(weak);
  strong.reset();
  const StrongPtr<Grid> empty;
  const WeakPtr<Grid> emptyWeak;
  const std::string gridPtr = "Tolvane::StrongPtr<" + grid + ", " + grid + ">",
                    gridWeak = "Tolvane::WeakPtr<" + grid + ", " + grid + ">",
                    fieldPtr = "Tolvane::StrongPtr<(anonymous namespace)::Field, " + grid + ">",
                    fieldWeak = "Tolvane::WeakPtr<(anonymous namespace)::Field, " + grid + ">";
  const struct {
    std::function<void()> access;
    std::string from, counts, object, raw;
    const void* via;
  } cases[] = {
      {[&] { empty->instanceNumber(); }, gridPtr + "::operator->()", "0 strong/0", grid, rawGrid,
       nullptr},
      {[&] { (*empty).instanceNumber(); }, gridPtr + "::operator*()", "0 strong/0", grid, rawGrid,
       nullptr},
      {[&] { emptyWeak->instanceNumber(); }, gridWeak + "::operator->()", "0 strong/0", grid,
       rawGrid, nullptr},
      {[&] { strong->instanceNumber(); }, fieldPtr + "::operator->()", "0 strong/0", field,
       rawField, nullptr},
      {[&] { (*weak).instanceNumber(); }, fieldWeak + "::operator*()", "-111 strong/1", field,
       rawField, record},
  };
  for (const auto& c : cases) {
    const std::string text =
        printed([&](SpeakPtr&) { EXPECT_THROW(c.access(), NullPtrException) << c.from; });
    EXPECT_EQ(text, "\n\n *** NULL POINTER ACCESS FROM [" + c.from + "]  [" + c.counts +
                        " weak refs] *** \n     Object=" + c.object +
                        " (desired), ObjectBase=" + grid + ", TrueObject=void (actual) (via " +
                        p(reinterpret_cast<std::uintptr_t>(c.via)) + ")\n" +
                        exceptionReport(c.raw, rawGrid, c.object, grid));
  }
  EXPECT_EQ(weak.weakCount(), 1);
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
  const std::string at = p(reinterpret_cast<std::uintptr_t>(static_cast<Half*>(first))),
                    stored = p(
                        reinterpret_cast<std::uintptr_t>(static_cast<ReferenceBase<Grid>*>(first)));
  bool refers = true;
  const std::string text = printed([&](SpeakPtr&) {
    const WeakPtr<Half, Grid> pointer = static_cast<Half*>(first);
    refers = pointer.weakCount() != 0;
  });
  EXPECT_EQ(text, "\n\n***\t DYNPTR: Have typeid(TrueObject)=(anonymous namespace)::Whole, should "
                  "have template<Object=(anonymous namespace)::Half> as referenced from base " +
                      grid + " ***\n\t      dynamic_cast<Object*>(this->myReferer->myObject) ==> " +
                      p(0) + "\n\t      dynamic_cast<Object*>(trueObject)\t\t       ==> " + at +
                      "\n\t\t\t\t    this->myReferer->myObject  ==> " + stored +
                      "\n\t\t\t\t    trueObject\t\t       ==> " + at + "\n");
  EXPECT_FALSE(refers);
  EXPECT_EQ(whole.self().weakCount(), 1);
  // What casts is silent, and so is a conversion that finds another type.
  EXPECT_EQ(printed([&](SpeakPtr&) {
              const WeakPtr<FirstHalf, Grid> pointer = first;
              EXPECT_EQ(pointer.get(), first);
              const WeakPtr<Half, Grid> half = pointer;
              const WeakPtr<Mesh, Grid> other(pointer);
              EXPECT_FALSE(half || other);
            }),
            "");
}

TEST(SpeakPtr, BreakpointsGetTheWholeReport) {
  const auto outputOf = [](const std::vector<std::string>& arguments) {
    const ProbeResult run =
        runProbe(arguments, {.environment = {{"TOLVANE_ENABLE_BREAKPOINTS", "1"}}});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    return textOf(run.out);
  };
  const std::string access = outputOf({"speak", "InvalidPtrAccess"});
  const std::string expected = "\nREAKPOINT>>> *** NULL POINTER ACCESS FROM [Named%d::operator->()"
                               "]{" +
                               p(0x10) +
                               "} + [-3 strong/4 weak refs] *** with      Object=double (desired), "
                               "ObjectBase=int32_t, TrueObject=bool (actual) id #"
                               "18446744073709551615\n\n#0 ";
  EXPECT_NE(access.find(expected), std::string::npos) << access;
  EXPECT_LT(access.find(" (via " + p(0x20) + ")\n"), access.find(expected));
  EXPECT_LT(access.find(expected), access.find("NullPtrException::NullPtrException(d, i)\n"));

  // A pointer gives its own number.
  const std::string own = outputOf({"point", "access"});
  const std::string id = own.substr(0, own.find('\n') + 1);
  EXPECT_NE(own.find("} + [-111 strong/1 weak refs] *** with      Object=(anonymous namespace)::"
                     "Pointed (desired), ObjectBase=(anonymous namespace)::Pointed, "
                     "TrueObject=void (actual) " +
                     id + "\n#0 "),
            std::string::npos)
      << own;

  const std::string inconsistent = outputOf({"speak", "InconsistentDynPtr"});
  const std::size_t begin = inconsistent.find("***\t DYNPTR: Have typeid(TrueObject)=");
  const std::size_t second = inconsistent.find("\nREAKPOINT>>> ");
  ASSERT_NE(second, std::string::npos) << inconsistent;
  const std::string report = inconsistent.substr(begin, second - begin);
  EXPECT_TRUE(report.ends_with(p(0x40) + "\n")) << report;
  EXPECT_EQ(inconsistent.find(report, second), second + 14) << inconsistent;
}

TEST(SpeakPtr, FlushesWhatMustNotBeLost) {
  const std::pair<const char*, std::string> cases[] = {
      {"CriticalWarning", "weak references!!!\n"},
      {"SelfConstruction", "PROGRAM TERMINATED\n"},
      {"InconsistentDynPtr", p(0x40) + "\n"},
      {"NullPtrException", ") *** \n\n"},
  };
  for (const auto& [report, end] : cases) {
    // A process that ends without emptying its buffers.
    const ProbeResult run = runProbe({"speak", report, "--", "immediate_exit", "7", "file"});
    EXPECT_EQ(run.exitCode, 7) << run.err;
    EXPECT_TRUE(textOf(run.out).ends_with(end)) << run.out;
  }
}

// They print nothing, but ask for a name: in a fresh process the first such request brings the
// readable names of the plain types.
TEST(SpeakPtr, SilentEventsAskForTheName) {
  const std::string asked = "int32_t\n", notAsked = "int\n";
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"speak", "nothing"}, notAsked},
      {{"speak", "DestructionCancelled0"}, notAsked},
      {{"speak", "DestructionCancelled"}, asked},
      {{"speak", "DestructionAssertion"}, asked},
      {{"speak", "WarningUnctionChange"}, asked},
      {{"speak", "DynPtrInvalid"}, asked},
      {{"speak", "WeakPtrConstructionInfo"}, asked},
      {{"speak", "WeakPtrDestructionInfo"}, asked},
      {{"speak", "IncrementDeadRefPtr"}, asked},
      // What the pointers themselves tell.
      {{"point", "live"}, notAsked},
      {{"point", "take back"}, asked},
      {{"point", "copy dead weak"}, notAsked},
      {{"point", "lock dead"}, notAsked},
      {{"point", "copy dead strong"}, asked},
      {{"point", "release without object"}, asked},
  };
  for (const auto& [arguments, expected] : cases) {
    std::vector<std::string> all = arguments;
    all.insert(all.end(), {"--", "type_names", "int"});
    const ProbeResult run = runProbe(all);
    EXPECT_EQ(textOf(run.out), expected) << arguments[1] << run.err;
  }
}

TEST(SpeakPtr, KeepsTheSourceLine) {
  EXPECT_STREQ(getLastKnownSourceCodeLine(), "(none)");
  const char line[] = "main.cpp:3";
  setLastKnownSourceCodeLine(line);
  EXPECT_EQ(getLastKnownSourceCodeLine(), line); // the text itself, no copy
  setLastKnownSourceCodeLine("(none)");

  for (const std::uintptr_t number :
       {std::uintptr_t{0}, std::uintptr_t{0x401000}, ~std::uintptr_t{0}})
    EXPECT_EQ(to_address_string(address(number)), p(number));
}
