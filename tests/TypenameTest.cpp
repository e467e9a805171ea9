#include "RunProbe.hpp"

#include <tolvane/TypeInfo.hpp>
#include <tolvane/Typename.hpp>

#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <unordered_map>
#include <vector>

using namespace Tolvane;

namespace {

struct Named {};
struct Other {};

} // namespace

TEST(Typename, FundamentalTypesHaveDefaultNames) {
  demangleSymbol("i");
  const struct {
    const std::type_info& type;
    const char* name;
  } cases[] = {
      {typeid(bool), "bool"},
      {typeid(void), "void"},
      {typeid(double), "double"},
      {typeid(float), "float"},
      {typeid(int), "int32_t"},
      {typeid(long), "long"},
      {typeid(unsigned char), "u_int8_t"},
      {typeid(signed char), "int8_t"},
      {typeid(char), "char"},
      {typeid(short), "int16_t"},
      {typeid(std::string), "std::string"},
      {typeid(unsigned short), "u_int16_t"},
      {typeid(unsigned int), "u_int32_t"},
      {typeid(unsigned long), "u_int32_t"},
      {typeid(unsigned long long), "u_int64_t"},
      {typeid(long long), "int64_t"},
      // Types without a registered name are demangled, with their parts in plain C++.
      {typeid(std::vector<int>), "std::vector<int, std::allocator<int> >"},
      {typeid(const char*), "char const*"},
      {typeid(long double), "long double"},
      {typeid(Named), "(anonymous namespace)::Named"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Typename(c.type), c.name) << c.type.name();
}

TEST(Typename, DefaultNamesComeWithTheFirstDemangling) {
  const struct {
    std::vector<std::string> arguments;
    const char* expected;
  } cases[] = {
      {{"type_names", "int", "int", "bool"}, "int\nint32_t\nbool\n"},
      // A name registered before is found without demangling, until another type is demangled.
      {{"set_type_name", "int", "mine", "--", "type_names", "int", "named", "unsigned", "int"},
       "mine\nnamed while loading\nunsigned int\nint32_t\n"},
      {{"type_names", "unsigned", "--", "set_type_name", "int", "mine", "--", "type_names", "int"},
       "unsigned int\nmine\n"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(textOf(runProbe(c.arguments).out), c.expected);
}

TEST(Typename, RegisteredNamesReplaceAndGo) {
  const std::string plain = Typename(typeid(Named));
  {
    const DefineTypename<Named> name("Named by us");
    EXPECT_EQ(Typename(typeid(Named)), "Named by us");
    EXPECT_EQ(detail::typeByName("Named by us"), typeid(Named));
    DefineTypenameBase::setTypename(typeid(Named), std::string("with\0NUL", 8));
    EXPECT_EQ(Typename(typeid(Named)), std::string("with\0NUL", 8));
    for (const char* absent : {"Named by us", "with", "with ", ""})
      EXPECT_EQ(detail::typeByName(absent), typeid(void)) << absent;
    EXPECT_EQ(detail::typeByName(std::string("with\0NUL", 8)), typeid(Named));
  }
  EXPECT_EQ(Typename(typeid(Named)), plain);
  DefineTypenameBase::removeTypename(typeid(Other)); // never had one

  demangleSymbol("i");
  DefineTypenameBase::removeTypename(typeid(int));
  EXPECT_EQ(Typename(typeid(int)), "int");
  DefineTypenameBase::setTypename(typeid(int), "int32_t");
}

TEST(Typename, ModuleNamesItsTypeWhileLoaded) {
  const std::string module = TOLVANE_TEST_MODULE_DIR "/NamesItsType" TOLVANE_TEST_MODULE_SUFFIX;
  const std::string name = "the module's type";
  EXPECT_EQ(
      textOf(runProbe({"type_is_named", name, "--", "load_module", module, "--", "type_is_named",
                       name, "--", "unload_module", "--", "type_is_named", name})
                 .out),
      "0\n1\n0\n");
  // A process whose threads are stopped inside the table still comes to its end.
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(runProbe({"load_module", module, "--", "name_types_for_ever"}).exitCode, 0);
}

TEST(Typename, DemanglesSymbols) {
  const struct {
    const char* name;
    const char* expected;
  } cases[] = {
      {"i", "int"},
      {"_Z3fooi", "foo(int)"},
      {"_ZN3foo3barEv", "foo::bar()"},
      {"St6vectorIiSaIiEE", "std::vector<int, std::allocator<int> >"},
      {"FvvE", "void ()"},
      {"Z4mainE5Local", "main::Local"},
      {"_Z1fIJiEEvDpT_", "void f<int>(int)"},
      // Plain symbols, and names that are cut or damaged.
      {"printf", "printf [C ABI]"},
      {"", " [C ABI]"},
      {"*i", "*i [C ABI]"},
      {"i ", "i  [C ABI]"},
      {"_Z", "_Z [C ABI]"},
      {"_ZN", "_ZN [C ABI]"},
      {"_ZN3foo3bar", "_ZN3foo3bar [C ABI]"},
      {"St6vectorIiSaIiE", "St6vectorIiSaIiE [C ABI]"},
      {"4foo", "4foo [C ABI]"},
      {"99999999999999999999a", "99999999999999999999a [C ABI]"},
      {"T_", "T_ [C ABI]"},
      {"S_", "S_ [C ABI]"},
      {"S9_", "S9_ [C ABI]"},
      {"DpT_", "DpT_ [C ABI]"},
      {"_ZZ4mainE", "_ZZ4mainE [C ABI]"},
      {"\xff\xfe", "\xff\xfe [C ABI]"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(demangleSymbol(c.name), c.expected) << c.name;
  try {
    demangleSymbol(nullptr);
    FAIL() << "no exception";
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(), "basic_string: construction from null is not valid");
  }
}

// Damaged names must neither upset the demangler nor come back without their text.
TEST(Typename, SurvivesDamagedSymbols) {
  const std::string names[] = {
      "_ZNSt3mapINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESt6vectorIiSaIiEESt4lessIS5_"
      "ESaISt4pairIKS5_S8_EEEixERS9_",
      "_ZZN3foo3barIJidEEEvDpT_ENKUlT_E_clIiEEDaS3_",
      "_ZN12_GLOBAL__N_15NamedC2ERKS0_",
      "M3fooKFvPFiA10_cES_zE",
      "_ZStplIcSt11char_traitsIcESaIcEENSt7__cxx1112basic_stringIT_T0_T1_EEPKS5_OS8_",
  };
  const auto check = [](const std::string& name) {
    const std::string answer = demangleSymbol(name.c_str());
    const std::string seen = name.c_str();
    EXPECT_TRUE(!answer.empty() && answer != seen) << seen;
    // Whatever failed, the damaged text leads the answer.
    for (const char* reason : {" [C ABI]", " - "})
      if (answer.ends_with(reason)) {
        EXPECT_EQ(answer, seen + reason);
      }
  };
  for (const std::string& name : names) {
    EXPECT_FALSE(demangleSymbol(name.c_str()).ends_with(" [C ABI]")) << name;
    for (std::size_t at = 0; at < name.size(); ++at) {
      check(name.substr(0, at));
      check(name.substr(at));
      for (const char c :
           {'\0', '_', 'S', 'I', 'E', 'N', 'T', 'D', 'p', 'L', 'X', '9', '0', '\xff'}) {
        std::string damaged = name;
        damaged[at] = c;
        check(damaged);
        check(name.substr(0, at) + c + name.substr(at));
      }
    }
  }
  check(std::string("_Z1f") + std::string(100000, 'P') + "i");
  check("_Z1f" + std::string(50000, 'I'));
}

TEST(Typename, DemanglerFailuresAreTold) {
  const struct {
    const char* text;
    int status;
    const char* expected;
  } cases[] = {
      {"void", 0, "void"},
      {nullptr, -1, "name - A memory allocation failure occurred on cxa_demangle."},
      {nullptr, -2, "name [C ABI]"},
      {nullptr, -3, "name - One of the arguments is invalid."},
      {nullptr, -4, "name - Unknown cxa demangle error"},
      {"void", 1, "name - Unknown cxa demangle error"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(detail::demanglerAnswer("name", c.text, c.status), c.expected);
}

TEST(Typename, IdsFollowTheFirstRequest) {
  const ProbeResult run = runProbe({"type_ids", "int", "double", "int", "named", "double"});
  EXPECT_EQ(textOf(run.out), "2\n3\n2\n4\n3\n");
  EXPECT_EQ(getTypeID(typeid(Named)), getTypeID(typeid(const Named&)));
  EXPECT_NE(getTypeID(typeid(Named)), getTypeID(typeid(Other)));
}

TEST(TypeInfo, IsAKeyByType) {
  static_assert(sizeof(TypeInfo) == sizeof(void*));
  std::unordered_map<TypeInfo, int> sizes{{typeid(int), 1}, {typeid(double), 2}};
  sizes[typeid(const int)] += 10;
  EXPECT_EQ(sizes.size(), 2U);
  EXPECT_EQ(sizes.at(typeid(int)), 11);
  EXPECT_EQ(std::hash<TypeInfo>()(typeid(int)), typeid(int).hash_code());
  TypeInfo key = typeid(int);
  key = typeid(double);
  EXPECT_EQ(key, TypeInfo(typeid(double)));
  EXPECT_EQ(&key.get(), &typeid(double));
}
