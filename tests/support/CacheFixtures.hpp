#pragma once

/// @file
/// What the tests of the cache share: data objects and creators of several types whose behaviour a
/// test chooses, populations of them named by letters, and ways to watch what the library prints.

#include "../RunProbe.hpp"
#include "LongRun.hpp"

#include <tolvane/Cache.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/MutableCacheable.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <algorithm>
#include <atomic>
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
using testsupport::inThreads;
using testsupport::LongRun;
using testsupport::numberFrom;
using testsupport::Watchdog;
using CachePtr = StrongPtr<Cache, CacheBase>;
using WeakCachePtr = WeakPtr<Cache, CacheBase>;

constexpr memsize_t largest = ~memsize_t{0};

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
struct DataOf : Data {
  using Data::Data;
};

/// Data that the library asks how large it is.
struct Growing : MutableCacheable {
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
  explicit Maker(const WeakCachePtr& cache = nullptr) : Creature(cache) {}
  StrongPtr<Cacheable> getCacheable() const override { return data; }
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
  std::atomic<int> asked{0};
  std::function<int()> onRelease;
};

/// Creators of one of several domains.
template <int Domain>
struct MakerOf : Maker {
  using Maker::Maker;
};

using MakerPtr = StrongPtr<Maker, Creature>;

/// Gives a creator its data, in no queue yet.
inline MakerPtr made(Maker* creator, Cacheable* data) {
  MakerPtr maker = creator;
  maker->data = data;
  data->setCreator(maker->self());
  return maker;
}

/// Objects that are named by letters, each with a creator that alone holds it. They go at the end
/// of a test, in the order of their names.
class Population {
public:
  explicit Population(const WeakCachePtr& cache = nullptr) : cache_(cache) {}

  /// Makes an object; it stands in no queue yet.
  template <int Domain = 0, int Creator = 0>
  WeakPtr<Cacheable> add(char name, memsize_t size, int answer = 2) {
    makers_[name] = made(new MakerOf<Creator>(cache_), new DataOf<Domain>(size, {name}));
    makers_[name]->answer = answer;
    return objects_[name] = makers_[name]->data;
  }

  WeakPtr<Cacheable> operator[](char name) const { return objects_.at(name); }
  Maker& maker(char name) const { return *makers_.at(name); }
  Data& data(char name) const { return dynamic_cast<Data&>(*objects_.at(name)); }

  /// The creator goes, and the object with it unless somebody else holds that.
  void drop(char name) { makers_.erase(name); }

  /// All creators answer as they were told again.
  void calm() {
    for (const auto& [name, maker] : makers_)
      maker->onRelease = nullptr;
  }

  /// The names of those that live.
  std::string alive() const {
    std::string names;
    for (const auto& [name, object] : objects_)
      names.append(object ? 1 : 0, name);
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
  WeakCachePtr cache_;
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
  EXPECT_EQ(queue->iterate(names), queue->nEntries());
  return names.names;
}

/// The orders of the three queues of a domain, as "primary|temporaries|keepers"; "" without it.
inline std::string order(const CacheMultiQueue* queues) {
  return !queues ? ""
                 : order(queues->primary()) + '|' + order(queues->temporaries()) + '|' +
                       order(queues->keepers());
}

/// The same of a domain of a cache.
template <int Domain = 0, int Creator = 0>
std::string order(const CreatorCacheMap& objects) {
  const StrongPtr<CacheMap> map = objects.creatorDomain(typeid(MakerOf<Creator>));
  return map ? order(map->domain(typeid(DataOf<Domain>))) : "";
}
template <int Domain = 0, int Creator = 0>
std::string order(const Cache& cache) {
  return order<Domain, Creator>(cache.objects());
}

/// The sums of a cache are those of the objects that stand in it, of which `all` and `others` hold
/// every one, and another thread finds no queue locked.
inline void expectWhole(const Cache& cache, const Population& all,
                        const std::vector<MakerPtr>& others = {}) {
  std::vector<StrongPtr<Cacheable>> objects;
  for (const char name : all.alive())
    objects.emplace_back(all[name]);
  for (const MakerPtr& maker : others)
    objects.push_back(maker->data);
  memsize_t sum = 0;
  std::uint32_t entries = 0;
  for (const auto& object : objects)
    if (object && object->NumberOfListEntries() > 0) {
      sum += object->memsize();
      ++entries;
    }
  EXPECT_EQ(cache.totalCost(true), sum);
  EXPECT_EQ(cache.nEntries(), entries);
  std::thread([&] {
    for (const auto& object : objects)
      if (object)
        object->markAsUsed();
  }).join();
}

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

/// The irregularities that are reported while this lives.
class Reports {
public:
  Reports() : before_(content().size()) {}
  std::string text() const { return content().substr(before_); }
  int count() const {
    const std::string reports = text(), head = "** IRREGULARITY";
    int number = 0;
    for (auto at = reports.find(head); at != std::string::npos; at = reports.find(head, at + 1))
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

} // namespace cachetest
