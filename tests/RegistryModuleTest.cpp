#include "RunProbe.hpp"

#include <gtest/gtest.h>

/// Modules bring loaders and savers and take them out again, whichever comes and goes first: what
/// another module registered for the same type of data stays, and nothing keeps a module mapped. A
/// type that is a module's own goes with it: new types have the registries read all their keys.
TEST(RegistryModule, LoadersAndSaversComeAndGoWithTheirModule) {
  const std::string a = TOLVANE_TEST_MODULE_DIR "/BringsLoadersA" TOLVANE_TEST_MODULE_SUFFIX;
  const std::string b = TOLVANE_TEST_MODULE_DIR "/BringsLoadersB" TOLVANE_TEST_MODULE_SUFFIX;
  const ProbeResult run = runProbe({"registry_modules", "+" + a, "+" + b, "-" + a, "+" + a, "-" + b,
                                    "-" + a, "+" + b, "+" + a, "-" + a, "-" + b});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  const std::string onlyA = "own of A, own saver of A, shared of A, stream of A, no more\n";
  const std::string onlyB = "own of B, own saver of B, shared of B, stream of B, no more\n";
  const std::string both = "own of A, own of B, own saver of A, own saver of B, ";
  EXPECT_EQ(textOf(run.out), onlyA + both + "shared of B, stream of B, no more\n" + onlyB + both +
                                 "shared of A, stream of A, no more\n" + onlyA + "none\n" + onlyB +
                                 both + "shared of A, stream of A, no more\n" +
                                 "own of B, own saver of B, no more\n" + "none\n");
}
