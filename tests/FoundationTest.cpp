// What everything else stands on: environment variables, exceptions and their strings, the
// figures of the system's memory, type names and keys.

#include "RunProbe.hpp"

#include <tolvane/DemanglerAnswerInternal.hpp>
#include <tolvane/Environment.hpp>
#include <tolvane/Exception.hpp>
#include <tolvane/SystemMemory.hpp>
#include <tolvane/TypeInfo.hpp>
#include <tolvane/Typename.hpp>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>

using namespace Tolvane;
using namespace std::string_literals;

namespace {

constexpr const char* variable = "ENVIRONMENT_TEST_VARIABLE";
void unset(const char* name) {
#ifdef _WIN32
  setEnv(name, "", true);
#else
  unsetenv(name);
#endif
}

struct Named {};

} // namespace

TEST(Environment, SetsAndKeepsVariables) {
  unset(variable);
  std::string value = "first";
  EXPECT_TRUE(setEnv(variable, value, false));
  value = "changed afterwards"; // the environment holds a copy
  EXPECT_FALSE(setEnv(variable, "second", false));
  EXPECT_STREQ(std::getenv(variable), "first");
  EXPECT_TRUE(setEnv(variable, "third=3", true));
  EXPECT_STREQ(std::getenv(variable), "third=3");
  EXPECT_TRUE(setEnv(variable, "", true));
#ifdef _WIN32
  EXPECT_EQ(std::getenv(variable), nullptr);
#else
  EXPECT_FALSE(setEnv(variable, "x", false));
  EXPECT_STREQ(std::getenv(variable), "");
  EXPECT_EQ(getEnvInteger(variable, nullptr, 7), 0);
#endif
  unset(variable);
}

TEST(Environment, ListsDescribedReads) {
  const std::string show = "SHOW_ENVIRONMENT_CONTROL_VARIABLES", read = "env string X 'what X is'",
                    on = " -- env_set " + show + " 1 -- ", off = " -- env_set " + show + " 0 -- ",
                    listed = "X: what X is\n5\n";
  const struct {
    std::optional<std::string> show;
    std::string command, expected;
  } cases[] = {
      {std::nullopt, read, "5\n"},
      {"1", read, listed},
      {"1", "env integer X n 3", "X: n\n5\n"},
      {"1", "env long X n", "X: n\n5\n"},
      {"1", "env float X n 0.5", "X: n\n5\n"},
      {"1", "env float Y '' 0.5", "Y: \n0.5\n"},
      {"1", "env integer X - 7 -- " + read, "5\n" + listed}, // without a description
      // Every read is listed; the switch is read once.
      {"1", read + off + read, listed + listed},
      {std::nullopt, read + on + read, "5\n5\n"},
  };
  for (const auto& c : cases) {
    // What the library itself reads while it is loaded is listed before.
    const std::string text = "\n" + outputOf(c.command, {{show, c.show}, {"X", "5"}});
    EXPECT_TRUE(text.ends_with('\n' + c.expected)) << c.command << text;
    const std::size_t first = c.expected.find("X: ");
    EXPECT_EQ(text.find("X: "),
              first == text.npos ? first : text.size() - c.expected.size() + first)
        << c.command << text;
  }
}

TEST(Environment, TellsDirectories) {
  const std::string dir = outputOf("executable_dir");
  ASSERT_GT(dir.size(), 1U);
  namespace fs = std::filesystem;
  EXPECT_TRUE(fs::equivalent(dir.substr(0, dir.size() - 1), fs::path(probePath()).parent_path()));
  EXPECT_NE(dir.find_last_of("/\\") + 1, dir.size() - 1) << dir;
  EXPECT_EQ(outputOf("current_dir"), "[]\n") << "the working directory is hidden";
#ifndef _WIN32
  // Windows itself refuses a working directory that is so deep.
  const auto deep = fs::absolute(std::string(200, 'a') + '/' + std::string(200, 'b'));
  fs::create_directories(deep);
  EXPECT_EQ(probe("current_dir", {.directory = deep.string()}).out,
            "length_error basic_string::_M_create\n");
#endif
}

TEST(SimpleString, KeepsTextAndLength) {
  const std::tuple<const char*, std::size_t, std::string> cases[] = {
      {nullptr, 3, ""}, {"abc", 0, ""}, {"abc", 2, "ab"}, {"a\0c", 3, {"a\0c", 3}}};
  for (const auto& [text, length, expected] : cases) {
    const simplestring s(text, length);
    EXPECT_TRUE(s.str() == expected && s.size() == expected.size() && s.c_str()[s.size()] == 0);
    EXPECT_TRUE(s == simplestring(expected) && s.empty() == expected.empty());
  }
  EXPECT_FALSE(simplestring("a\0b", 3) == simplestring("a\0c", 3));

  simplestring a(std::string("first")), b(a);
  a = simplestring(std::string("second"));
  EXPECT_EQ(b.str(), "first");
  b = a;
  simplestring c(std::move(b)), &same = c;
  EXPECT_TRUE(b.empty() && b.str().empty());
  c = same;
  c = std::move(same);
  EXPECT_EQ(c.str(), "second");
}

TEST(Exception, KeepsItsTextsAndItsLine) {
  const std::string withNul("text\0more", 9);
  try {
    throw Exception(withNul, "where.cpp", -1);
  } catch (const Exception& caught) {
    EXPECT_EQ(caught.description().str() + caught.sourceFile().str(), withNul + "where.cpp");
    EXPECT_EQ(caught.sourceLine(), -1);
  }
  const Exception nothing(static_cast<const char*>(nullptr), nullptr, 5);
  EXPECT_EQ(nothing.description().str() + nothing.sourceFile().str(), "");
  EXPECT_STREQ(Exception().what(), "Unspecified Tolvane Exception");
  EXPECT_STREQ(MemoryException().what(), "Tolvane::Out Of Memory");
  EXPECT_STREQ(MaxExceptionCount(1, typeid(int), typeid(int)).what(),
               "Maximal reference count reached, cannot increment further");
  // Only the general exception and what derives from it is caught as one.
  EXPECT_FALSE((std::is_base_of_v<Exception, NullPtrException> ||
                std::is_base_of_v<Exception, MemoryException> ||
                std::is_base_of_v<Exception, MaxExceptionCount>));
}

TEST(Exception, NullPointerIsReported) {
  // The first readable name of the process is the demangler's own.
  const std::string report = "NullPtrException::NullPtrException(i, i)\n"
                             "\n *** NullPtrException::NullPtrException(type = int, base class = "
                             "int32_t) *** \n\n";
  const std::string listed = "TOLVANE_NO_ASSERT: don't do assertions on nullptrs\n";
  EXPECT_EQ(outputOf("null_ptr_exception int int"), report);
  const std::string twice = outputOf("null_ptr_exception int int -- null_ptr_exception double bool",
                                     {{"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"}});
  EXPECT_TRUE(twice.ends_with(report + listed +
                              "NullPtrException::NullPtrException(d, b)\n"
                              "\n *** NullPtrException::NullPtrException(type = double, base class "
                              "= bool) *** \n\n" +
                              listed))
      << twice;
}

TEST(SystemMemory, FollowsAnAllocation) {
  EXPECT_GT(getMemorySize(), memsize_t{64} << 20);
  EXPECT_GT(getAvailableMemory(), 0U);
  EXPECT_LE(getAvailableMemory(), getMemorySize());
  constexpr memsize_t size = 64ULL << 20, much = size / 4 * 3;
  setInitialMemUsage(2 * getMemUsage());
  EXPECT_LT(getRelativeMemUsage(), 0);
  const memsize_t usage = setInitialMemUsage(), commit = getMemCommitCharge();
  EXPECT_TRUE(commit > 64 << 10 && commit <= getMemUsage());
  const auto block = std::make_unique<char[]>(size); // written to, so that it counts everywhere
  // Wine asks its host for these figures only once a second.
  for (int i = 0; i < 50 && getMemUsage() < usage + much; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(block[size / 2], 0);
  EXPECT_GE(getMemUsage(), usage + much);
  EXPECT_GE(getMemCommitCharge(), commit + much);
  EXPECT_GE(getRelativeMemUsage(), static_cast<long long>(much));
  EXPECT_EQ(setInitialMemUsage(7), usage);
}

TEST(Typename, FundamentalTypesHaveDefaultNames) {
  demangleSymbol("i");
  // Types without a registered name are demangled, with their parts in plain C++.
  for (const auto& [type, name] :
       {std::pair(&typeid(bool), "bool"s), std::pair(&typeid(void), "void"s),
        std::pair(&typeid(double), "double"s), std::pair(&typeid(float), "float"s),
        std::pair(&typeid(int), "int32_t"s), std::pair(&typeid(long), "long"s),
        std::pair(&typeid(unsigned char), "u_int8_t"s), std::pair(&typeid(signed char), "int8_t"s),
        std::pair(&typeid(char), "char"s), std::pair(&typeid(short), "int16_t"s),
        std::pair(&typeid(std::string), "std::string"s),
        std::pair(&typeid(unsigned short), "u_int16_t"s),
        std::pair(&typeid(unsigned int), "u_int32_t"s),
        std::pair(&typeid(unsigned long), "u_int32_t"s),
        std::pair(&typeid(unsigned long long), "u_int64_t"s),
        std::pair(&typeid(long long), "int64_t"s),
        std::pair(&typeid(std::vector<int>), "std::vector<int, std::allocator<int> >"s),
        std::pair(&typeid(Named), "(anonymous namespace)::Named"s)})
    EXPECT_EQ(Typename(*type), name) << type->name();
}

TEST(Typename, FirstRequestsOfAProcess) {
  const std::string module =
                        "'" TOLVANE_TEST_MODULE_DIR "/Lingers" TOLVANE_TEST_MODULE_SUFFIX "' -- ",
                    named = "type_is_named 'the module\\'s type'";
  const std::pair<std::string, const char*> cases[] = {
      // The default names come with the first demangling.
      {"type_names int int bool", "int\nint32_t\nbool\n"},
      // A name registered before is found without demangling, until another type is demangled.
      {"set_type_name int mine -- type_names int named unsigned int",
       "mine\nnamed while loading\nunsigned int\nint32_t\n"},
      {"type_names unsigned -- set_type_name int mine -- type_names int", "unsigned int\nmine\n"},
      {"type_ids int double int named double", "2\n3\n2\n4\n3\n"},
      // A module names its type while it is loaded.
      {named + " -- load_module " + module + named + " -- unload_module -- " + named, "0\n1\n0\n"}};
  for (const auto& [command, expected] : cases)
    EXPECT_EQ(outputOf(command), expected) << command;
}

TEST(Typename, RegisteredNamesReplaceAndGo) {
  const std::string plain = Typename(typeid(Named)), withNul("with\0NUL", 8);
  {
    const DefineTypename<Named> name("Named by us");
    EXPECT_EQ(Typename(typeid(Named)), "Named by us");
    EXPECT_EQ(detail::typeByName("Named by us"), typeid(Named));
    DefineTypenameBase::setTypename(typeid(Named), withNul);
    EXPECT_EQ(Typename(typeid(Named)), withNul);
    for (const char* absent : {"Named by us", "with", "with ", ""})
      EXPECT_EQ(detail::typeByName(absent), typeid(void)) << absent;
    EXPECT_EQ(detail::typeByName(withNul), typeid(Named));
  }
  EXPECT_EQ(Typename(typeid(Named)), plain);
  DefineTypenameBase::removeTypename(typeid(Named)); // has none any more

  demangleSymbol("i");
  DefineTypenameBase::removeTypename(typeid(int));
  EXPECT_EQ(Typename(typeid(int)), "int");
  DefineTypenameBase::setTypename(typeid(int), "int32_t");
}

TEST(Typename, DemanglesSymbols) {
  const std::pair<const char*, const char*> cases[] = {
      {"i", "int"},
      {"_Z3fooi", "foo(int)"},
      {"St6vectorIiSaIiEE", "std::vector<int, std::allocator<int> >"},
      {"Z4mainE5Local", "main::Local"},
      {"_Z1fIJiEEvDpT_", "void f<int>(int)"},
  };
  for (const auto& [name, expected] : cases)
    EXPECT_EQ(demangleSymbol(name), expected);
  // Plain symbols, and names that are cut or damaged.
  for (const std::string name :
       {"printf", "", "*i", "i ", "_Z", "_ZN", "_ZN3foo3bar", "St6vectorIiSaIiE", "4foo", "T_",
        "99999999999999999999a", "S_", "S9_", "DpT_", "_ZZ4mainE", "\xff\xfe"})
    EXPECT_EQ(demangleSymbol(name.c_str()), name + " [C ABI]");
  try {
    demangleSymbol(nullptr);
    FAIL() << "no exception";
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(), "basic_string: construction from null is not valid");
  }
  const std::tuple<const char*, int, const char*> failures[] = {
      {"void", 0, "void"},
      {nullptr, -1, "name - A memory allocation failure occurred on cxa_demangle."},
      {nullptr, -2, "name [C ABI]"},
      {nullptr, -3, "name - One of the arguments is invalid."},
      {"void", 1, "name - Unknown cxa demangle error"}};
  for (const auto& [text, status, expected] : failures)
    EXPECT_EQ(detail::demanglerAnswer("name", text, status), expected);
}
