#include "support/CacheFixtures.hpp"

using namespace cachetest;

namespace {

// The queues of one domain under a budget of their own.
struct Domain : CacheBase {
  explicit Domain(memsize_t limit) : CacheBase("domain"), bytes(limit) {}
  memsize_t totalCost(bool all) const override { return queues.memsize(all); }
  memsize_t limit() const override { return bytes; }
  bool adjust(memsize_t newCost) { return queues.adjust(*this, newCost); }

  const memsize_t bytes;
  CacheMultiQueue queues;
};

} // namespace

// The end of a zombie may make another one, which waits for the next occasion.
TEST(CacheMultiQueue, AZombieMayLeaveAnother) {
  Population all;
  Domain domain(100);
  domain.queues.insert_zombie(nullptr);
  domain.queues.insert_zombie(all.add('a', 1));
  all.add('b', 1);
  all.data('a').onDeath = [&] { domain.queues.insert_zombie(all['b']); };
  all.drop('a');
  EXPECT_EQ(all.alive(), "ab");
  domain.queues.purge_Hades();
  all.drop('b');
  EXPECT_EQ(all.alive(), "b");
  domain.queues.purge_Hades();
  EXPECT_EQ(all.alive(), "");
}

TEST(CacheMultiQueue, ListsItsQueuesInOrder) {
  Population all;
  Domain domain(0);
  for (const char name : {'a', 'b', 'c'})
    domain.queues.push_front(all.add(name, 10, name == 'c' ? 7 : name - 'a'));
  EXPECT_FALSE(domain.adjust(0)); // c answers nothing that is known
  EXPECT_EQ(order(&domain.queues), "c|b|a");
  const std::string text = printed([&] { domain.queues.list_info(); });
  EXPECT_LT(text.find("{c} "), text.find("{b} "));
  EXPECT_LT(text.find("{b} "), text.find("{a} "));
  EXPECT_NE(text.find(", creator " + Typename(typeid(MakerOf<0>)) + ", 1 strong\n"),
            std::string::npos)
      << text;
  Messages messages;
  EXPECT_FALSE(domain.adjust(0));
  EXPECT_TRUE(messages.contain("  MOVING Temporary Item [b] to Release Candidates."));
}
