#pragma once

/// @file
/// What the tests of the cache share: data objects and creators of several types whose behaviour a
/// test chooses, populations of them named by letters, and ways to watch what the library prints.

#include "../RunProbe.hpp"

#include <tolvane/Cache.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/MutableCacheable.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace cachetest {

using namespace Tolvane;

/// A data object whose size is what the test says.
class Data : public Cacheable {
public:
  explicit Data(memsize_t bytes, const std::string& name = {}) : size(bytes) { setName(name); }
  ~Data() override {
    if (onDeath)
      onDeath();
  }

  memsize_t memsize() const override {
    if (onMemsize)
      onMemsize();
    return size;
  }

  std::atomic<memsize_t> size;
  std::function<void()> onMemsize, onDeath;
};

/// Data of one of several domains.
template <int Domain>
class DataOf : public Data {
  using Data::Data;
};

/// Data that the library asks how large it is.
class Growing : public MutableCacheable {
public:
  explicit Growing(memsize_t bytes) : actual(bytes) { adjustCurrentMemsize(); }
  memsize_t computeMemsize() const override { return actual; }
  void resize(memsize_t bytes) {
    actual = bytes;
    adjustCurrentMemsize();
  }

  std::atomic<memsize_t> actual;
};

/// A creator that answers what the test says; with 2 it lets go of its data first.
class Maker : public Creature {
public:
  explicit Maker(const WeakPtr<Cache, CacheBase>& cache = nullptr) : Creature(cache) {}

  StrongPtr<Cacheable> getCacheable() const override { return data; }
  bool isReproducible() const override { return reproducible; }
  std::string hasProducer() const override { return "a producer"; }

  int release() override {
    ++asked;
    if (onRelease)
      return onRelease();
    if (answer == 2)
      data = nullptr;
    return answer;
  }

  StrongPtr<Cacheable> data;
  int answer = 2;
  bool reproducible = true;
  std::atomic<int> asked{0};
  std::function<int()> onRelease;
};

/// Creators of one of several domains.
template <int Domain>
class MakerOf : public Maker {
  using Maker::Maker;
};

using MakerPtr = StrongPtr<Maker, Creature>;

/// Gives a creator its data, in no queue yet.
template <class D>
MakerPtr made(Maker* creator, D* data) {
  MakerPtr maker = creator;
  maker->data = data;
  maker->data->setCreator(maker->self());
  return maker;
}

/// Objects that are named by letters, each with a creator that alone holds it. They are purged
/// away at the end of a test, in the order of their names.
class Population {
public:
  explicit Population(const WeakPtr<Cache, CacheBase>& cache = nullptr) : cache_(cache) {}

  /// Makes an object; it stands in no queue yet.
  template <int Domain = 0, int Creator = 0>
  WeakPtr<Cacheable> add(char name, memsize_t size, int answer = 2) {
    return adopt(name, new MakerOf<Creator>(cache_), new DataOf<Domain>(size, {name}), answer);
  }

  WeakPtr<Cacheable> adopt(char name, Maker* creator, Cacheable* data, int answer = 2) {
    const MakerPtr maker = made(creator, data);
    maker->answer = answer;
    makers_[name] = maker;
    return objects_[name] = data->self();
  }

  WeakPtr<Cacheable> operator[](char name) const { return objects_.at(name); }
  Maker& maker(char name) const { return *makers_.at(name); }
  Data& data(char name) const { return dynamic_cast<Data&>(*objects_.at(name)); }

  /// The creator goes, and the object with it unless somebody else holds that.
  void drop(char name) { makers_.erase(name); }

  /// The names of those that live.
  std::string alive() const {
    std::string names;
    for (const auto& [name, object] : objects_)
      if (object)
        names += name;
    return names;
  }

  /// The names of those whose creators were asked since the last call, each as often as it was.
  std::string asked() {
    std::string names;
    for (const auto& [name, maker] : makers_)
      names.append(static_cast<std::size_t>(maker->asked.exchange(0)), name);
    return names;
  }

private:
  WeakPtr<Cache, CacheBase> cache_;
  std::map<char, MakerPtr> makers_;
  std::map<char, WeakPtr<Cacheable>> objects_;
};

/// The names of a queue's entries from the newest to the oldest; "-" for a queue that is not there.
inline std::string order(const CacheQueue* queue) {
  struct Names : CacheQueue::Iterator {
    bool visit(Cacheable& entry) override {
      names += entry.name();
      return true;
    }
    std::string names;
  } names;
  if (!queue)
    return "-";
  const unsigned visited = queue->iterate(names);
  EXPECT_EQ(visited, queue->nEntries());
  return names.names;
}
inline std::string order(const CacheQueue& queue) {
  return order(&queue);
}

/// The orders of the three queues of a domain, as "primary|temporaries|keepers".
inline std::string order(const CacheMultiQueue& queues) {
  return order(queues.primary()) + '|' + order(queues.temporaries()) + '|' +
         order(queues.keepers());
}

/// The same of a domain of a cache; "" when it does not exist.
template <int Domain = 0, int Creator = 0>
std::string order(const Cache& cache) {
  const StrongPtr<CacheMap> map = cache.objects().creatorDomain(typeid(MakerOf<Creator>));
  const CacheMultiQueue* queues = map ? map->domain(typeid(DataOf<Domain>)) : nullptr;
  return queues ? order(*queues) : "";
}

/// A cache manager as far as queues know it, whose releasable data are one or more queues.
class Budget : public CacheBase {
public:
  Budget(memsize_t limit, std::vector<const CacheQueue*> queues)
      : CacheBase("budget"), bytes(limit), counted(std::move(queues)) {}
  memsize_t totalCost(bool) const override {
    memsize_t sum = 0;
    for (const CacheQueue* queue : counted)
      sum += queue->memsize();
    return sum;
  }
  memsize_t limit() const override { return bytes; }

  memsize_t bytes;
  std::vector<const CacheQueue*> counted;
};

/// What goes to standard output while `action` runs.
template <class Action>
std::string printed(const Action& action) {
  testing::internal::CaptureStdout();
  std::exception_ptr failure;
  try {
    action();
  } catch (...) {
    failure = std::current_exception();
  }
  std::fflush(stdout);
  const std::string text = textOf(testing::internal::GetCapturedStdout());
  if (failure)
    std::rethrow_exception(failure);
  return text;
}

/// Expects the report and the exception of a look at an entry without a live creator.
template <class Action>
void expectNullPointerReport(const Action& action) {
  const std::string text = printed([&] { EXPECT_THROW(action(), NullPtrException); });
  EXPECT_NE(text.find(" *** NULL POINTER ACCESS FROM ["), std::string::npos) << text;
}

/// The irregularities that are reported while this lives.
class Reports {
public:
  Reports() : before_(content().size()) {}
  std::string text() const { return content().substr(before_); }
  int count() const {
    int number = 0;
    const std::string reports = text();
    for (auto at = reports.find("** IRREGULARITY"); at != std::string::npos;
         at = reports.find("** IRREGULARITY", at + 1))
      ++number;
    return number;
  }

private:
  static std::string content() {
    std::ostringstream text;
    text << std::ifstream("Irregularities.log", std::ios::binary).rdbuf();
    return textOf(text.str());
  }
  const std::size_t before_;
};

/// Collects the verbose messages of the domain "Mem" while it lives.
class Messages : public VerboseCatcher {
public:
  Messages() { theCatcher = self(); }
  ~Messages() override { theCatcher = nullptr; }
  void catchMessage(int, const std::string&, const std::string& text, const std::string& domain,
                    int, char) override {
    if (domain == "Mem")
      texts.push_back(text);
  }
  bool contain(const std::string& text) const {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }
  std::vector<std::string> texts;
};

/// Ends the process when a test hangs.
class Watchdog {
public:
  explicit Watchdog(std::chrono::seconds patience = std::chrono::seconds(60))
      : thread_([this, patience] {
          std::unique_lock lock(mutex_);
          if (!done_.wait_for(lock, patience, [this] { return finished_; })) {
            std::fprintf(stderr, "the test hangs\n");
            std::abort();
          }
        }) {}
  ~Watchdog() {
    {
      const std::lock_guard lock(mutex_);
      finished_ = true;
    }
    done_.notify_one();
    thread_.join();
  }

private:
  std::mutex mutex_;
  std::condition_variable done_;
  bool finished_ = false;
  std::thread thread_;
};

/// A number from the environment, by which runs are repeated and prolonged.
inline unsigned long long numberFrom(const char* variable, unsigned long long otherwise) {
  const char* text = std::getenv(variable);
  return text && *text ? std::strtoull(text, nullptr, 10) : otherwise;
}

} // namespace cachetest
