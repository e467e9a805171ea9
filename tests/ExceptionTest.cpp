#include "RunProbe.hpp"

#include <tolvane/Exception.hpp>

#include <gtest/gtest.h>
#include <type_traits>

using namespace Tolvane;

namespace {

template <typename Thrown>
std::string whatOfCaught(const Thrown& exception) {
  try {
    throw exception;
  } catch (const std::exception& e) {
    return e.what();
  }
}

} // namespace

TEST(Exception, WhatIsTheTextOfTheClass) {
  EXPECT_EQ(whatOfCaught(Exception()), "Unspecified Tolvane Exception");
  EXPECT_EQ(whatOfCaught(Exception("a description", "file.cpp", 3)),
            "Unspecified Tolvane Exception");
  EXPECT_EQ(whatOfCaught(MemoryException()), "Tolvane::Out Of Memory");
  EXPECT_EQ(whatOfCaught(MaxExceptionCount(1, typeid(int), typeid(int))),
            "Maximal reference count reached, cannot increment further");
  testing::internal::CaptureStdout();
  EXPECT_EQ(whatOfCaught(NullPtrException(typeid(int), typeid(int))),
            "Null Ptr Exception - invalid pointer detected!");
  testing::internal::GetCapturedStdout();
  // Only the general exception and what derives from it is caught as one.
  EXPECT_FALSE((std::is_base_of_v<Exception, NullPtrException>));
  EXPECT_FALSE((std::is_base_of_v<Exception, MemoryException>));
  EXPECT_FALSE((std::is_base_of_v<Exception, MaxExceptionCount>));
}

TEST(Exception, KeepsItsTextsAndItsLine) {
  const std::string withNul("text\0more", 9);
  const struct {
    Exception exception;
    std::string description, file;
    int line;
  } cases[] = {
      {Exception(), "", "", 0},
      {Exception("why", "where.cpp", 12), "why", "where.cpp", 12},
      {Exception(withNul, "where.cpp", -1), withNul, "where.cpp", -1},
      {Exception(static_cast<const char*>(nullptr), nullptr, 5), "", "", 5},
  };
  for (const auto& c : cases) {
    try {
      throw c.exception;
    } catch (const Exception& caught) {
      EXPECT_EQ(caught.description().str(), c.description);
      EXPECT_EQ(caught.sourceFile().str(), c.file);
      EXPECT_EQ(caught.sourceLine(), c.line);
    }
  }
  EXPECT_STREQ(Exception::last_known_description, "");
  EXPECT_STREQ(Exception::last_known_sourcefilename, "");
  EXPECT_EQ(Exception::last_known_sourcefilenumber, 0);
}

TEST(Exception, CountLimitCarriesItsCause) {
  try {
    MaxExceptionCount::throwMaxExceptionCount(2147483647, typeid(int), typeid(double));
  } catch (const MaxExceptionCount& e) {
    EXPECT_EQ(e.count(), 2147483647);
    EXPECT_EQ(e.type(), typeid(int));
    EXPECT_EQ(e.base(), typeid(double));
  }
}

TEST(Exception, NullPointerIsReported) {
  // The first readable name of the process is the demangler's own.
  const std::string report = "NullPtrException::NullPtrException(i, i)\n"
                             "\n *** NullPtrException::NullPtrException(type = int, base class = "
                             "int32_t) *** \n\n";
  const std::string listed = "TOLVANE_NO_ASSERT: don't do assertions on nullptrs\n";
  for (const char* noAssert : {"0", "1"}) {
    const ProbeResult run = runProbe({"null_ptr_exception", "int", "int"},
                                     {.environment = {{"TOLVANE_NO_ASSERT", noAssert}}});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(textOf(run.out), report);
  }
  const ProbeResult twice =
      runProbe({"null_ptr_exception", "int", "int", "--", "null_ptr_exception", "double", "bool"},
               {.environment = {{"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"}}});
  const std::string text = textOf(twice.out);
  EXPECT_TRUE(text.ends_with(report + listed +
                             "NullPtrException::NullPtrException(d, b)\n"
                             "\n *** NullPtrException::NullPtrException(type = double, base class "
                             "= bool) *** \n\n" +
                             listed))
      << text;
}

TEST(Exception, TerminateHandlerAnnouncesAnUncaughtException) {
  const ProbeResult announced = runProbe({"install_terminate_handler", "--", "throw_uncaught"});
  EXPECT_EQ(textOf(announced.out),
            "Tolvane:: C++ terminate handler called - uncaught exception!\n");
  EXPECT_TRUE(announced.aborted()) << announced.exitCode << ' ' << announced.signal;

  const ProbeResult silent = runProbe({"throw_uncaught"});
  EXPECT_EQ(silent.out, "");
  EXPECT_TRUE(silent.aborted()) << silent.exitCode << ' ' << silent.signal;
}
