#include <tolvane/InputString.hpp>

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using Pelko::input_string;
using namespace std::string_literals;

struct Place {
  unsigned long long position;
  std::uint32_t line;
  std::uint32_t column;
  bool operator==(const Place&) const = default;
};

Place place(const input_string& in) {
  return {in.position(), in.line(), in.column()};
}

void PrintTo(const Place& p, std::ostream* out) {
  *out << p.position << " (" << p.line << ':' << p.column << ')';
}

TEST(InputString, GetAndPeek) {
  input_string in("a\n\0"s);
  const std::pair<std::pair<bool, char>, Place> steps[] = {
      {{true, 'a'}, {1, 0, 1}},   {{true, '\n'}, {2, 1, 0}},  {{true, '\0'}, {3, 1, 1}},
      {{false, '\0'}, {3, 1, 1}}, {{false, '\0'}, {3, 1, 1}},
  };
  for (const auto& [expected, after] : steps) {
    EXPECT_EQ(in.peek(), expected);
    EXPECT_EQ(in.atEnd(), !expected.first);
    EXPECT_EQ(in.get(), expected);
    EXPECT_EQ(place(in), after);
  }
}

TEST(InputString, GetlineLeavesTheLineFeed) {
  input_string in("ab\r\ncd");
  EXPECT_EQ(in.getline(), "ab");
  EXPECT_EQ(place(in), (Place{3, 0, 3}));
  EXPECT_EQ(in.getline(), "");
  EXPECT_EQ(place(in), (Place{3, 0, 3}));
  EXPECT_EQ(in.get(), std::make_pair(true, '\n'));
  EXPECT_EQ(place(in), (Place{4, 1, 0}));
  EXPECT_EQ(in.getline(), "cd");
  EXPECT_EQ(place(in), (Place{6, 1, 2}));
  EXPECT_EQ(in.getline(), "");

  input_string odd("\ra\0\rb\r"s);
  EXPECT_EQ(odd.getline(), "a\0b"s);
  EXPECT_EQ(place(odd), (Place{6, 0, 6}));
}

TEST(InputString, Skipspace) {
  struct Case {
    std::string text;
    unsigned long long skipped;
    Place after;
  };
  const Case cases[] = {
      {"", 0, {0, 0, 0}},      {"a b", 0, {0, 0, 0}},
      {"  a", 2, {2, 0, 2}},   {" \t\v\f\r\n \n\ra", 9, {9, 2, 1}},
      {"\r\n", 2, {2, 1, 0}},  {"\0 "s, 0, {0, 0, 0}},
      {" \x80", 1, {1, 0, 1}}, {"\xff", 0, {0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    input_string in(c.text);
    EXPECT_EQ(in.skipspace(), c.skipped);
    EXPECT_EQ(place(in), c.after);
  }
}

// What the three views answer at every position of a text, the end included.
TEST(InputString, LinesAroundThePosition) {
  struct Views {
    std::string previous;
    std::string current;
    std::string peeked;
  };
  struct Case {
    std::string text;
    std::vector<Views> at;
  };
  const Case cases[] = {
      {"", {{"", "", ""}}},
      {"ab", {{"", "ab", "ab"}, {"", "ab", "b"}, {"", "ab", ""}}},
      {"\n", {{"", "", ""}, {"", "", ""}}},
      {"a\n", {{"", "a", "a"}, {"", "a", ""}, {"a", "", ""}}},
      {"\n\nb", {{"", "", ""}, {"", "", ""}, {"", "b", "b"}, {"", "b", ""}}},
      {"a\r\nb\nc",
       {{"", "a\r", "a\r"},
        {"", "a\r", "\r"},
        {"", "a\r", ""},
        {"a\r", "b", "b"},
        {"a\r", "b", ""},
        {"b", "c", "c"},
        {"b", "c", ""}}},
      // A NUL ends what is peeked, not the line.
      {"a\0b\nc"s,
       {{"", "a\0b"s, "a"},
        {"", "a\0b"s, ""},
        {"", "a\0b"s, "b"},
        {"", "a\0b"s, ""},
        {"a\0b"s, "c", "c"},
        {"a\0b"s, "c", ""}}},
  };
  for (const Case& c : cases) {
    input_string in(c.text);
    for (std::size_t i = 0; i < c.at.size(); ++i, in.get()) {
      SCOPED_TRACE(testing::PrintToString(c.text) + " at " + std::to_string(i));
      const Place before = place(in);
      EXPECT_EQ(in.previousline(), c.at[i].previous);
      EXPECT_EQ(in.currentline(), c.at[i].current);
      EXPECT_EQ(in.peekline(), c.at[i].peeked);
      EXPECT_EQ(place(in), before);
    }
  }
}

TEST(InputString, HookSeesEveryLineFeedAndMayReadOn) {
  // Takes the indentation of a line together with the line feed before it.
  struct Indented : input_string {
    using input_string::input_string;
    std::vector<unsigned long long> lineFeeds;
    void newline(unsigned long long position) override {
      EXPECT_EQ(position, this->position());
      EXPECT_EQ(column(), 0u);
      lineFeeds.push_back(position);
      while (peek().second == ' ')
        get();
    }
  };
  Indented in("a\n  b\n\n c");
  EXPECT_EQ(in.getline(), "a");
  EXPECT_EQ(in.skipspace(), 1u);
  EXPECT_EQ(place(in), (Place{4, 1, 2}));
  EXPECT_EQ(in.getline(), "b");
  EXPECT_EQ(in.skipspace(), 2u);
  EXPECT_EQ(place(in), (Place{8, 3, 1}));
  EXPECT_EQ(in.lineFeeds, (std::vector<unsigned long long>{2, 6, 7}));
}

} // namespace
