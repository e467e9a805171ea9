#include <tolvane/SimpleString.hpp>

#include <gtest/gtest.h>
#include <utility>

using Tolvane::simplestring;

TEST(SimpleString, KeepsTextAndLength) {
  const struct {
    const char* text;
    std::size_t length;
    std::string expected;
  } cases[] = {
      {nullptr, 0, ""},
      {nullptr, 3, ""},
      {"", 0, ""},
      {"abc", 0, ""},
      {"abc", 2, "ab"},
      {"a\0c", 3, std::string("a\0c", 3)},
      {"\0", 1, std::string(1, '\0')},
  };
  for (const auto& c : cases) {
    const simplestring fromText(c.text, c.length);
    for (const simplestring& s : {fromText, simplestring(c.expected)}) {
      EXPECT_EQ(s.str(), c.expected);
      EXPECT_EQ(s.size(), c.expected.size());
      EXPECT_EQ(s.empty(), c.expected.empty());
      EXPECT_EQ(s.c_str()[s.size()], '\0');
      EXPECT_EQ(s, fromText);
    }
  }
  EXPECT_FALSE(simplestring("a\0b", 3) == simplestring("a\0c", 3));
}

TEST(SimpleString, CopiesAndMovesAreIndependent) {
  simplestring a(std::string("first"));
  simplestring b(a);
  EXPECT_NE(a.c_str(), b.c_str());
  a = simplestring(std::string("second"));
  EXPECT_EQ(b.str(), "first");
  b = a;
  EXPECT_EQ(b.str(), "second");

  const char* text = b.c_str();
  simplestring c(std::move(b));
  EXPECT_EQ(c.c_str(), text);
  EXPECT_TRUE(b.empty());
  EXPECT_EQ(b.str(), "");

  simplestring& same = c;
  c = same;
  c = std::move(same);
  EXPECT_EQ(c.str(), "second");
}
