#include <tolvane/Ageable.hpp>

#include <gtest/gtest.h>

using Tolvane::Ageable;

namespace {
const long long clockAtStart = Ageable::GlobalTime;
} // namespace

TEST(Ageable, ClockStartsAtOneAndStampsWhatIsMade) {
  EXPECT_EQ(clockAtStart, 1);
  const Ageable before;
  Ageable::GlobalTime += 5;
  EXPECT_EQ(before.stamp() + 5, Ageable().stamp());
}

TEST(Ageable, WritesStamps) {
  const std::pair<long long, const char*> cases[] = {
      {std::numeric_limits<long long>::min(), "t=-infinitely old"},
      {Ageable::Ooooold + 1, "t=-9223372036854775807"},
      {-7, "t=-7"},
      {0, "t=0"},
      {Ageable::InfinitelyNew() - 1, "t=9223372036854775805"},
      {Ageable::InfinitelyNew(), "t=+infinitely new"},
      {Ageable::InfinitelyNew() + 1, "t=9223372036854775807"},
  };
  for (const auto& [stamp, text] : cases)
    EXPECT_EQ(Ageable(stamp).str(), text);
}
