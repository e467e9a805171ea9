#include <tolvane/Ageable.hpp>

#include <gtest/gtest.h>

namespace {

using Tolvane::Ageable;

const long long clockAtStart = Ageable::GlobalTime;

TEST(Ageable, ClockStartsAtOneAndStampsWhatIsMade) {
  EXPECT_EQ(clockAtStart, 1);
  const Ageable before;
  Ageable::GlobalTime += 5;
  Ageable after;
  EXPECT_EQ(before.stamp() + 5, after.stamp());
  after.setStamp(3);
  EXPECT_EQ(after.stamp(), 3);
}

TEST(Ageable, WritesStamps) {
  const struct {
    long long stamp;
    const char* text;
  } cases[] = {
      {Ageable::Ooooold, "t=-infinitely old"},
      {Ageable::Ooooold + 1, "t=-9223372036854775807"},
      {-7, "t=-7"},
      {0, "t=0"},
      {42, "t=42"},
      {Ageable::InfinitelyNew() - 1, "t=9223372036854775805"},
      {Ageable::InfinitelyNew(), "t=+infinitely new"},
      {Ageable::InfinitelyNew() + 1, "t=9223372036854775807"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Ageable(c.stamp).str(), c.text);
  }
  const long long& oldest = Ageable::Ooooold; // also where a module needs its address
  EXPECT_EQ(oldest, std::numeric_limits<long long>::min());
}

} // namespace
