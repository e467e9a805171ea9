// Pointers, provenances, type names, messages and the profiler, used by several threads at once;
// interfaces, attributes and registries as a host serialises them. TOLVANE_TEST_SECONDS=N makes
// every run N seconds long.

#include "support/HostileLoaders.hpp"
#include "support/Rendezvous.hpp"

#include <tolvane/Chunk.hpp>
#include <tolvane/Counter.hpp>
#include <tolvane/LoaderProgress.hpp>
#include <tolvane/Profiler.hpp>
#include <tolvane/Provenance.hpp>
#include <tolvane/StrongPtr.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <gtest/gtest.h>
#include <set>
#include <shared_mutex>

using namespace Tolvane;
using testsupport::LongRun;

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

template <class Work>
void inThreads(const Work& work) {
  testsupport::inThreads(threadCount, [&](int thread, std::mt19937&) { work(thread); });
}

/// Every thread does `work(thread)` once a round, all at the same time; before each round one of
/// them does `prepare()`, and after it `check()`.
template <class Prepare, class Work, class Check>
void race(Prepare prepare, Work work, Check check) {
  Rendezvous together(threadCount);
  LongRun run(threadCount);
  bool goesOn = true;
  inThreads([&](int thread) {
    for (int round = 0;; ++round) {
      if (thread == 0 && (goesOn = run.goesOn(round, roundCount)))
        prepare();
      together.arrive_and_wait();
      if (!goesOn)
        return;
      work(thread);
      together.arrive_and_wait();
      if (thread == 0)
        check();
    }
  });
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
  EXPECT_TRUE(shared.strongCount() == 1 && shared.weakCount() == 3 && Figure::destroyed == before);
  shared.reset();
  EXPECT_EQ(Figure::destroyed, before + 1);
  EXPECT_TRUE(watching.strongCount() == -111 && watching.weakCount() == 1);
}

// One thread lets go of the last pointer while the others make strong ones of weak ones, by every
// way there is, or convert weak ones, which looks at the object.
TEST(PointerStress, LastReleaseBesideWeakPointers) {
  int gone = Figure::destroyed;
  const int unasked = Figure::unasked;
  bool toStrong = false;
  StrongPtr<Figure> last;
  WeakPtr<Figure> weak[threadCount];
  std::atomic<int> wrong{0};
  race(
      [&] {
        toStrong = !toStrong;
        last = new Drawn;
        for (WeakPtr<Figure>& one : weak)
          one = last;
      },
      [&](int thread) {
        if (thread == 0)
          return last.reset();
        const WeakPtr<Figure>& mine = weak[thread];
        for (int i = 0; i < attempts && toStrong; ++i) {
          const StrongPtr<Figure> locked = mine.lock(), held = StrongPtr<Figure>::holdIfHeld(mine);
          const StrongPtr<Drawn, Figure> down(mine);
          const WeakPtr<Tagged, Figure> across(mine);
          wrong += (locked && locked->value != 42) || (held && held->value != 42) ||
                   (down && (down->tag != 7 || down->value != 42));
        }
        for (int i = 0; i < attempts && !toStrong; ++i) {
          const WeakPtr<Drawn, Figure> down(mine);
          const WeakPtr<Tagged, Figure> across(down);
          // What is empty now was dead before, and stays so. A count of 0 is that of an object
          // nobody ever held: seen here, it would be one that is about to go under the cast.
          wrong += (!down && mine) || mine.strongCount() == 0;
        }
      },
      [&] {
        ASSERT_EQ(Figure::destroyed, ++gone);
        ASSERT_TRUE(weak[0].strongCount() == -111 && weak[0].weakCount() == threadCount);
      });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(Figure::unasked, unasked);
}

// All pointers are last: each thread drops its own, and whoever comes last destroys.
TEST(PointerStress, EveryoneLetsGoAtOnce) {
  int gone = Figure::destroyed;
  StrongPtr<Figure> mine[threadCount];
  WeakPtr<Figure> weak;
  race([&] { weak = mine[0] = mine[1] = mine[2] = mine[3] = new Figure; },
       [&](int thread) {
         const StrongPtr<Figure> held = std::move(mine[thread]);
         const WeakPtr<Figure> dropped = held;
       },
       [&] {
         ASSERT_EQ(Figure::destroyed, ++gone);
         ASSERT_EQ(weak.weakCount(), 1);
       });
}

namespace {

// More threads than spare records are kept for, and others in their places afterwards.
TEST(PointerStress, RecordsGoFromThreadToThread) {
  constexpr int many = 100;
  for (int lot = 0; lot < 3; ++lot) {
    StrongPtr<Figure> handed[many];
    Rendezvous together(many);
    testsupport::inThreads(many, [&](int thread, std::mt19937&) {
      StrongPtr<Figure>& mine = handed[thread];
      StrongPtr<Figure>& next = handed[(thread + 1) % many];
      for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < 100; ++i) {
          mine = new Figure;
          mine->value = thread;
        }
        const StrongPtr<Figure> another = new Figure; // of the spare record, so that one has room
        together.arrive_and_wait();
        EXPECT_EQ(next->value, (thread + 1) % many);
        EXPECT_EQ(next.weakCount(), 2);
        next = nullptr;
        together.arrive_and_wait();
      }
    });
  }
}

/// Comes back some times when the last pointer to it goes.
struct Returning : ReferenceBase<Returning> {
  ~Returning() override { destroyed.fetch_add(1); }
  void unction() override {
    // Two threads may be here: the count allows it where one took a reference and let go again.
    int seen = left.load();
    while (seen > 0 && !left.compare_exchange_weak(seen, seen - 1)) {
    }
    const std::lock_guard lock(mutex);
    if (seen > 0)
      returned.emplace_back(this);
  }
  static StrongPtr<Returning> takeOne() {
    const std::lock_guard lock(mutex);
    if (returned.empty())
      return nullptr;
    StrongPtr<Returning> one = std::move(returned.back());
    returned.pop_back();
    return one;
  }
  std::atomic<int> left = 5;
  static inline std::atomic<int> destroyed{0};
  static inline std::mutex mutex;
  static inline std::vector<StrongPtr<Returning>> returned;
};

} // namespace

TEST(PointerStress, HookTakesItsObjectBack) {
  int gone = 0;
  StrongPtr<Returning> last;
  WeakPtr<Returning> weak[threadCount];
  race(
      [&] {
        last = new Returning;
        for (WeakPtr<Returning>& one : weak)
          one = last;
      },
      [&](int thread) {
        if (thread == 0)
          last.reset();
        // From where the hook put it, or from the weak pointer beside it.
        for (int i = 0; i < attempts && weak[thread]; ++i)
          (thread % 2 == 0 ? Returning::takeOne() : weak[thread].lock()).reset();
      },
      [&] {
        while (Returning::takeOne()) {
        }
        ASSERT_EQ(Returning::destroyed, ++gone);
        ASSERT_TRUE(weak[0].strongCount() == -111 && weak[0].weakCount() == threadCount);
      });
}

// Destroyed by hand while others copy the pointers they hold: those are dead from then on, and the
// mark stays what it is.
TEST(PointerStress, DestroyedByHandBesideCopies) {
  int gone = Figure::destroyed;
  Figure* object = nullptr;
  StrongPtr<Figure> mine[threadCount];
  race([&] { mine[0] = mine[1] = mine[2] = mine[3] = object = new Figure; },
       [&](int thread) {
         if (thread == 0)
           delete object;
         for (int i = 0; i < 10 * attempts && thread != 0 && mine[thread]; ++i) {
           const StrongPtr<Figure> copy = mine[thread];
           const WeakPtr<Figure> weak = copy;
           const StrongPtr<Figure> locked = weak.lock();
         }
       },
       [&] {
         ASSERT_EQ(Figure::destroyed, ++gone);
         ASSERT_TRUE(mine[1].strongCount() == -111 && mine[1].weakCount() == threadCount);
       });
}

/// Chains that share a stem are let go of by several threads at once, while another takes hold of
/// records on the way, renames them, and must always find all that is above them.
TEST(ProvenanceStress, ThreadsReleaseForkedChains) {
  struct Counted : Provenance {
    Counted(const StrongPtr<Provenance>& above, std::atomic<int>& count)
        : Provenance("n", above), alive(count) {
      ++alive;
    }
    ~Counted() override { --alive; }
    std::atomic<int>& alive;
  };
  std::atomic<int> alive = 0;
  LongRun run(threadCount);
  for (int round = 0; run.goesOn(round, 61); ++round) {
    const int length = round == 0 ? 100000 : 300;
    StrongPtr<Provenance> stem;
    std::vector<WeakPtr<Provenance>> watched;
    for (int i = 0; i < length; ++i) {
      stem = new Counted(stem, alive);
      if (i < 500)
        watched.push_back(stem);
    }
    std::vector<StrongPtr<Provenance>> leaves(threadCount - 1, stem);
    for (StrongPtr<Provenance>& leaf : leaves)
      for (int i = 0; i < length; ++i)
        leaf = new Counted(leaf, alive);
    stem = nullptr;
    inThreads([&](int thread) {
      if (thread > 0) {
        EXPECT_GT(leaves[static_cast<std::size_t>(thread) - 1]->getPath('.').size(), 1u);
        leaves[static_cast<std::size_t>(thread) - 1] = nullptr;
      }
      for (std::size_t i = watched.size(); thread == 0 && i-- > 0;) {
        const StrongPtr<Provenance> held = watched[i].lock();
        ASSERT_TRUE(!held || held->getPath('.').size() == 2 * i + 1);
        if (held)
          held->setName(held->name() == "n" ? "m" : "n");
      }
    });
    ASSERT_EQ(alive, 0);
  }
}

namespace {

struct CountingCatcher : VerboseCatcher {
  ~CountingCatcher() override { alive_ = false; }
  void catchMessage(int, const std::string&, const std::string& text, const std::string&, int depth,
                    char) override {
    EXPECT_TRUE(alive_);
    EXPECT_EQ(text, std::to_string(depth));
    ++caught;
  }
  static inline std::atomic<long> caught{0};

private:
  bool alive_ = true;
};

} // namespace

// Numbers of instances, names and numbers of types, messages to a catcher that comes and goes, and
// profiled scopes.
TEST(ProcessStress, WhatThereIsOnlyOnceServesAllThreads) {
  struct Counted : ReferenceBase<Counted> {};
  constexpr std::size_t count = 1000;
  std::vector<std::uint64_t> instances[threadCount];
  std::vector<std::int64_t> ids[threadCount];
  Counter counter(1);
  std::atomic<int> zeros{0}, working{threadCount};
  Profiler::reset();
  Profiler::enable();
  StrongPtr<CountingCatcher, VerboseCatcher> first = new CountingCatcher;
  VerboseCatcher::theCatcher = first;
  std::thread changing([&] {
    while (working > 0) {
      StrongPtr<CountingCatcher, VerboseCatcher> other = new CountingCatcher;
      VerboseCatcher::theCatcher = other;
      other = nullptr;
      VerboseCatcher::theCatcher = nullptr;
      VerboseCatcher::theCatcher = first;
    }
  });
  inThreads([&](int thread) {
    for (int i = 0; i < roundCount; ++i) { // apart, for what is below has locks
      ++counter;
      instances[thread].push_back(StrongPtr<Counted>(new Counted)->instanceNumber());
      zeros += --counter;
    }
    for (std::size_t i = 0; i < count; ++i) {
      TOLVANE_PROFILE("shared by threads", 1);
      const Profiler other("f.cpp", 1, "f()", ("name " + std::to_string(i % 50)).c_str(), 1);
      const std::type_info& type = hostile::key(i % hostile::keyCount);
      // A name of its own comes and goes meanwhile, for the types that nobody else looks at.
      if (i % threadCount == static_cast<std::size_t>(thread)) {
        DefineTypenameBase::setTypename(type, "own");
        EXPECT_EQ(Typename(type), "own");
        DefineTypenameBase::removeTypename(type);
      }
      ids[thread].push_back(getTypeID(type));
      EXPECT_EQ(Typename(typeid(std::vector<int>)), "std::vector<int, std::allocator<int> >");
      detail::typeByName("own");
      const VerboseStream::Indentator section("f.cpp", 1, "f()", 9, '-', thread, "");
      const std::string file = "file" + std::to_string(i % 7) + ".cpp",
                        text = std::to_string(thread);
      VerboseStream(false, false, 1, file.c_str(), 1, "f()", text, "");
      TOLVANE_VERBOSE_DOMAIN(2, "Mem") << thread;
    }
    --working;
  });
  changing.join();
  Profiler::disable();
  EXPECT_TRUE(zeros == 0 && --counter);
  std::set<std::uint64_t> all;
  for (int thread = 0; thread < threadCount; ++thread) {
    const auto& mine = instances[thread];
    EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
    all.insert(mine.begin(), mine.end());
    EXPECT_EQ(ids[thread], ids[0]);
  }
  EXPECT_EQ(all.size(), std::size_t{threadCount} * roundCount);
  EXPECT_EQ(*all.rbegin() + 1, *all.begin() + all.size());
  EXPECT_EQ(std::set<std::int64_t>(ids[0].begin(), ids[0].end()).size(), hostile::keyCount);
  std::uint64_t shared = 0, others = 0;
  for (const Profiler::Statistic& one : Profiler::statistics())
    (one.name == "shared by threads" ? shared : others) += one.calls;
  EXPECT_TRUE(shared == threadCount * count && others == shared) << shared << ' ' << others;
  CountingCatcher::caught = 0;
  VerboseStream(false, false, 1, "f.cpp", 1, "f()", "0", "");
  EXPECT_EQ(CountingCatcher::caught, 1);
  VerboseCatcher::theCatcher = nullptr;
  Profiler::reset();
}

// What is not locked, with the lock of a host: who changes something is alone with it, who only
// looks is not.
TEST(HostStress, ReadersShareWhatWritersHaveToThemselves) {
  struct Domain {};
  struct Unit : Interface<Unit> {};
  struct Walk : SaveRegistryBase::Iterator, Attributes::Iterator {
    bool visitCreator(TypeInfo, StrongPtr<SaveInterfaceCreatorBase>&) override { return false; }
    bool visitAttribute(const std::string&, StrongPtr<ChunkBase>& value) override {
      return chunkValue<int>(value).has_value();
    }
  };
  using Loaders = LoaderRegistry<Domain>;
  using Savers = SaveRegistry<Domain>;
  std::shared_mutex mutex;
  // Where the first locks of several threads meet, that of MinGW lets a writer and readers in.
  mutex.lock();
  mutex.unlock();
  Intercube cube;
  Attributes attributes;
  const auto makeKnown = [] { // the first question about a type makes an entry
    Loaders::isloadable(nullptr);
    Savers::SaveMethods();
  };
  makeKnown();
  LongRun run(threadCount);
  inThreads([&](int thread) {
    for (int round = 0; run.goesOn(round, 1000); ++round)
      if (round % 16 == 4 * thread) {
        const std::lock_guard alone(mutex);
        round % 32 < 16 ? cube.addInterface(new Unit) : cube.removeInterface<Unit>();
        attributes.setAttribute("n" + std::to_string(round % 5), makeChunk(round));
        Loaders::append(new hostile::PlainLoader({".x"}));
        Savers::getInterfaceCreator<Unit>() = new hostile::PlainCreator;
        if (round % 3 == 0) {
          LoaderRegistryBase::domain_remove(typeid(hostile::PlainLoader), typeid(Domain));
          Savers::removeCreator<Unit>();
          makeKnown(); // again, for a local type goes with its last entry
        }
      } else {
        const std::shared_lock together(mutex);
        Walk walk;
        EXPECT_EQ(cube.hasInterface<Unit>(), static_cast<bool>(cube.findInterface<Unit>()));
        EXPECT_TRUE(cube.const_iterateInterfaces(nullptr));
        EXPECT_EQ(attributes.iterate(walk), static_cast<int>(attributes.size()));
        const StrongPtr<LoaderParameters> parameters = new LoaderParameters({"a.x"});
        parameters->addInterface(new LoaderProgress);
        const bool any = !Loaders::getSupportedExtensions().empty();
        EXPECT_FALSE(Loaders::load(parameters));
        EXPECT_EQ(parameters->statusText(), any ? "refused" : "No loader available. ");
        EXPECT_FALSE(Loaders::loadrequest(parameters));
        EXPECT_EQ(static_cast<bool>(Savers::findInterfaceCreator<Unit>()),
                  !Savers::SaveMethods().empty());
        Savers::iterate(walk);
      }
  });
  LoaderRegistryBase::forget(typeid(Domain));
  SaveRegistryBase::forget(typeid(Domain));
}
