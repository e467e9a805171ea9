#include "support/Rendezvous.hpp"

#include <tolvane/Counter.hpp>
#include <tolvane/Provenance.hpp>
#include <tolvane/StrongPtr.hpp>

#include <gtest/gtest.h>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

using namespace Tolvane;

namespace {

constexpr int threadCount = 4;
// How often a thread tries in a round; without end they would keep the object alive for each other.
constexpr int attempts = 8;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int roundCount = 2000;
#else
constexpr int roundCount = 10000;
#endif

struct Figure : ReferenceBase<Figure> {
  ~Figure() override {
    value = 0;
    destroyed.fetch_add(1);
    unasked.fetch_add(!asked);
  }
  void unction() override { asked = true; }

  int value = 42;
  std::atomic<bool> asked{false};
  static inline std::atomic<int> destroyed{0};
  // Destroyed without the hook for the last pointer.
  static inline std::atomic<int> unasked{0};
};

struct Tagged {
  virtual ~Tagged() = default;
  int tag = 7;
};

struct Drawn : Tagged, Figure {};

/// Every thread does `work(thread)` once a round, all at the same time; before each round one of
/// them does `prepare()`, and after it `check()`.
template <class Prepare, class Work, class Check>
void race(Prepare prepare, Work work, Check check) {
  Rendezvous together(threadCount);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < threadCount; ++thread)
    threads.emplace_back([&, thread] {
      for (int round = 0; round < roundCount; ++round) {
        if (thread == 0)
          prepare();
        together.arrive_and_wait();
        work(thread);
        together.arrive_and_wait();
        if (thread == 0)
          check();
      }
    });
  for (std::thread& thread : threads)
    thread.join();
}

template <class Work>
void inThreads(Work work) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < threadCount; ++thread)
    threads.emplace_back(work, thread);
  for (std::thread& thread : threads)
    thread.join();
}

} // namespace

TEST(PointerStress, CountsAreExactBesideEachOther) {
  const int before = Figure::destroyed;
  StrongPtr<Figure> shared = new Drawn;
  const WeakPtr<Figure> watching = shared;
  inThreads([&](int) {
    const StrongPtr<Figure> mine = shared;
    for (int i = 0; i < roundCount; ++i) {
      StrongPtr<Figure> copy = mine;
      const WeakPtr<Figure> weak = copy;
      StrongPtr<Figure> moved = std::move(copy);
      const StrongPtr<Figure> locked = weak.lock();
      const StrongPtr<Drawn, Figure> down(weak);
      const WeakPtr<Tagged, Figure> across(moved);
      moved = locked;
      ASSERT_EQ(down->value + across->tag, 49);
    }
  });
  EXPECT_EQ(shared.strongCount(), 1);
  EXPECT_EQ(shared.weakCount(), 3);
  EXPECT_EQ(Figure::destroyed, before);
  shared.reset();
  EXPECT_EQ(Figure::destroyed, before + 1);
  EXPECT_EQ(watching.strongCount(), -111);
  EXPECT_EQ(watching.weakCount(), 1);
}

// One thread lets go of the last pointer while the others make strong ones of weak ones, by every
// way there is.
TEST(PointerStress, LastReleaseBesideWeakToStrong) {
  const int before = Figure::destroyed, unasked = Figure::unasked;
  int round = 0;
  StrongPtr<Figure> last;
  WeakPtr<Figure> weak[threadCount];
  std::atomic<int> wrong{0};
  race(
      [&] {
        last = new Drawn;
        for (WeakPtr<Figure>& one : weak)
          one = last;
      },
      [&](int thread) {
        if (thread == 0) {
          last.reset();
          return;
        }
        const WeakPtr<Figure>& mine = weak[thread];
        for (int i = 0; i < attempts; ++i) {
          const StrongPtr<Figure> locked = mine.lock();
          const StrongPtr<Drawn, Figure> down(mine);
          const WeakPtr<Tagged, Figure> across(mine);
          const StrongPtr<Figure> held = StrongPtr<Figure>::holdIfHeld(mine);
          if (locked && locked->value != 42)
            ++wrong;
          if (down && (down->tag != 7 || down->value != 42))
            ++wrong;
          if (held && held->value != 42)
            ++wrong;
        }
      },
      [&] {
        ++round;
        ASSERT_EQ(Figure::destroyed, before + round);
        ASSERT_EQ(weak[0].strongCount(), -111);
        ASSERT_EQ(weak[0].weakCount(), threadCount);
        ASSERT_FALSE(weak[0].lock());
      });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(Figure::unasked, unasked);
}

// Conversions of weak pointers look at the object, so it must not go under the cast.
TEST(PointerStress, LastReleaseBesideWeakConversions) {
  const int before = Figure::destroyed;
  StrongPtr<Figure> last;
  WeakPtr<Figure> weak[threadCount];
  std::atomic<int> wrong{0};
  race(
      [&] {
        last = new Drawn;
        for (WeakPtr<Figure>& one : weak)
          one = last;
      },
      [&](int thread) {
        if (thread == 0) {
          last.reset();
          return;
        }
        for (int i = 0; i < attempts; ++i) {
          const WeakPtr<Drawn, Figure> down(weak[thread]);
          const WeakPtr<Tagged, Figure> across(down);
          // What is empty now was dead before, and stays so. A count of 0 is that of an object
          // nobody ever held: seen here, it would be one that is about to go under the cast.
          if ((!down && weak[thread]) || weak[thread].strongCount() == 0)
            ++wrong;
        }
      },
      [] {});
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(Figure::destroyed, before + roundCount);
}

// All pointers are last: each thread drops its own, and whoever comes last destroys.
TEST(PointerStress, EveryoneLetsGoAtOnce) {
  const int before = Figure::destroyed;
  int round = 0;
  StrongPtr<Figure> mine[threadCount];
  WeakPtr<Figure> weak;
  race(
      [&] {
        mine[0] = new Figure;
        weak = mine[0];
        for (int thread = 1; thread < threadCount; ++thread)
          mine[thread] = mine[0];
      },
      [&](int thread) {
        const StrongPtr<Figure> held = std::move(mine[thread]);
        const WeakPtr<Figure> dropped = held;
      },
      [&] {
        ++round;
        ASSERT_EQ(Figure::destroyed, before + round);
        ASSERT_EQ(weak.weakCount(), 1);
      });
}

namespace {

/// Comes back some times when the last pointer to it goes.
struct Returning : ReferenceBase<Returning> {
  explicit Returning(int times) : left(times) {}
  ~Returning() override { destroyed.fetch_add(1); }

  void unction() override {
    // Two threads may be here: the count allows it where one took a reference and let go again.
    int seen = left.load();
    while (seen > 0 && !left.compare_exchange_weak(seen, seen - 1)) {
    }
    if (seen > 0) {
      const std::lock_guard lock(mutex);
      returned.emplace_back(this);
    }
  }

  static StrongPtr<Returning> takeOne() {
    const std::lock_guard lock(mutex);
    if (returned.empty())
      return nullptr;
    StrongPtr<Returning> one = std::move(returned.back());
    returned.pop_back();
    return one;
  }

  std::atomic<int> left;
  static inline std::atomic<int> destroyed{0};
  static inline std::mutex mutex;
  static inline std::vector<StrongPtr<Returning>> returned;
};

} // namespace

TEST(PointerStress, HookTakesItsObjectBack) {
  constexpr int times = 5;
  int round = 0;
  StrongPtr<Returning> last;
  WeakPtr<Returning> weak[threadCount];
  race(
      [&] {
        last = new Returning(times);
        for (WeakPtr<Returning>& one : weak)
          one = last;
      },
      [&](int thread) {
        if (thread == 0)
          last.reset();
        for (int i = 0; i < attempts && weak[thread]; ++i) {
          // From where the hook put it, or from the weak pointer beside it.
          const StrongPtr<Returning> taken =
              thread % 2 == 0 ? Returning::takeOne() : weak[thread].lock();
        }
      },
      [&] {
        ++round;
        while (Returning::takeOne()) {
        }
        ASSERT_EQ(Returning::destroyed, round);
        ASSERT_EQ(weak[0].strongCount(), -111);
        ASSERT_EQ(weak[0].weakCount(), threadCount);
      });
}

// Destroyed by hand while others copy the pointers they hold: those are dead from then on, and the
// mark stays what it is.
TEST(PointerStress, DestroyedByHandBesideCopies) {
  const int before = Figure::destroyed;
  int round = 0;
  Figure* object = nullptr;
  StrongPtr<Figure> mine[threadCount];
  race(
      [&] {
        object = new Figure;
        for (StrongPtr<Figure>& one : mine)
          one = object;
      },
      [&](int thread) {
        if (thread == 0) {
          delete object;
          return;
        }
        for (int i = 0; i < 10 * attempts && mine[thread]; ++i) {
          const StrongPtr<Figure> copy = mine[thread];
          const WeakPtr<Figure> weak = copy;
          const StrongPtr<Figure> locked = weak.lock();
        }
      },
      [&] {
        ++round;
        ASSERT_EQ(Figure::destroyed, before + round);
        ASSERT_EQ(mine[1].strongCount(), -111);
        ASSERT_EQ(mine[1].weakCount(), threadCount);
        ASSERT_FALSE(StrongPtr<Figure>(mine[1]));
      });
}

TEST(PointerStress, NumbersOfInstancesAreOneSequence) {
  struct Counted : ReferenceBase<Counted> {};
  const std::uint64_t first = Counted::instancesMade();
  std::vector<std::vector<std::uint64_t>> drawn(threadCount);
  inThreads([&](int thread) {
    for (int i = 0; i < roundCount; ++i) {
      const StrongPtr<Counted> one = new Counted;
      drawn[static_cast<std::size_t>(thread)].push_back(one->instanceNumber());
    }
  });
  std::set<std::uint64_t> all;
  for (const auto& numbers : drawn) {
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    all.insert(numbers.begin(), numbers.end());
  }
  EXPECT_EQ(all.size(), std::size_t{threadCount} * roundCount);
  EXPECT_EQ(*all.begin(), first);
  EXPECT_EQ(*all.rbegin() + 1, first + all.size());
}

TEST(PointerStress, CounterReachesZeroOnce) {
  Counter counter(1);
  std::atomic<int> zeros{0};
  inThreads([&](int) {
    for (int i = 0; i < roundCount; ++i) {
      ++counter;
      if (--counter)
        ++zeros;
    }
  });
  EXPECT_EQ(zeros, 0);
  inThreads([&](int) { ++counter; });
  inThreads([&](int) {
    if (--counter)
      ++zeros;
  });
  EXPECT_TRUE(zeros == 0 && --counter);
  EXPECT_EQ(counter.value(), 0U);
}

// Chains that share their beginning are let go of by several threads at once.
TEST(PointerStress, LongChainsEndInSeveralThreads) {
  constexpr int length = 100000;
  const std::uint64_t before = Provenance::instancesMade();
  StrongPtr<Provenance> stem = new Provenance("root");
  const WeakPtr<Provenance> root = stem;
  for (int i = 0; i < length; ++i)
    stem = new Provenance("stem", stem);
  std::vector<StrongPtr<Provenance>> leaves(threadCount);
  for (StrongPtr<Provenance>& leaf : leaves) {
    leaf = stem;
    for (int i = 0; i < length; ++i)
      leaf = new Provenance("leaf", leaf);
  }
  stem.reset();
  inThreads([&](int thread) { leaves[static_cast<std::size_t>(thread)].reset(); });
  EXPECT_EQ(Provenance::instancesMade() - before, 1U + (threadCount + 1U) * length);
  EXPECT_FALSE(root);
  EXPECT_EQ(root.weakCount(), 1);
}
