#pragma once

#include "Bench.hpp"

#include <algorithm>
#include <atomic>

/// @file
/// The work of the caches, the same for all of them. A contestant has
///   Contestant(std::uint32_t capacity, std::uint32_t objects)
///   insert(key), touch(key), erase(key)   with keys below `objects`, each of `Charge` bytes
/// and prepares what it can of its objects in the constructor.

namespace bench {

constexpr std::size_t Charge = 1000;

template <class Contestant>
struct CacheSetup {
  CacheSetup(std::uint32_t capacity, std::uint32_t objects, std::uint32_t filled)
      : cache(capacity, objects) {
    for (std::uint32_t key = 0; key < filled; ++key) {
      cache.insert(key);
    }
  }
  Contestant cache;
  // The key that each thread inserts next, on cache lines of their own.
  struct alignas(64) Next {
    std::uint32_t key = 0;
  } next[2];
};

/// The set-up of all threads, made by the first one.
template <class Contestant>
CacheSetup<Contestant>& setUp(const benchmark::State& state, const std::string& key,
                              std::uint32_t capacity, std::uint32_t objects, std::uint32_t filled) {
  static std::atomic<CacheSetup<Contestant>*> shared{nullptr};
  static std::atomic<int> taken{0};
  if (state.thread_index() == 0) {
    if constexpr (requires { Contestant::OneAtATime; }) {
      dropOthers(key);
    }
    shared = &kept<CacheSetup<Contestant>>(
        key, [&] { return std::make_shared<CacheSetup<Contestant>>(capacity, objects, filled); });
  }
  CacheSetup<Contestant>* setup = nullptr;
  while ((setup = shared.load()) == nullptr) {
  }
  if (++taken == state.threads()) {
    taken = 0;
    shared = nullptr;
  } else {
    while (shared.load() != nullptr) {
    }
  }
  return *setup;
}

template <class Contestant>
void touchEntries(const std::string& name, std::uint32_t entries, int threads) {
  const std::string full =
      "touch/" + std::to_string(threads) + " threads/" + std::to_string(entries) + "/" + name;
  add(
      full,
      [=](benchmark::State& state) {
        auto& cache = setUp<Contestant>(state, full, entries * 2, entries, entries).cache;
        const std::vector<std::uint32_t>& order = sequence(entries);
        auto at = order.size() / 2 * static_cast<std::size_t>(state.thread_index());
        for (auto _ : state) {
          cache.touch(order[at]);
          at = (at + 1) & (order.size() - 1);
        }
      },
      threads);
}

/// Inserts into a cache with room for all; every round empties it again, which is not timed.
template <class Contestant>
void insertFitting(const std::string& row, const std::string& name, std::uint32_t batch) {
  const std::string full = row + "/" + name;
  add(full, [=](benchmark::State& state) {
    auto& cache = setUp<Contestant>(state, full, batch * 2, batch, 0).cache;
    std::uint32_t key = 0;
    for (auto _ : state) {
      cache.insert(key);
      if (++key == batch) {
        state.PauseTiming();
        while (key > 0) {
          cache.erase(--key);
        }
        state.ResumeTiming();
      }
    }
    while (key > 0) {
      cache.erase(--key);
    }
  });
}

/// Every insertion evicts the entry that is oldest. Each thread has keys of its own, more than the
/// cache has room for, and comes back to each of them long after it went.
template <class Contestant>
void insertEvicting(const std::string& row, const std::string& name, std::uint32_t entries,
                    int threads) {
  const std::string full =
      row + "/" + std::to_string(threads) + " threads/" + std::to_string(entries) + "/" + name;
  const auto number = static_cast<std::uint32_t>(threads);
  const std::uint32_t span = std::min(entries + entries / 4, 1'500'000 / number);
  add(
      full,
      [=](benchmark::State& state) {
        auto& setup = setUp<Contestant>(state, full, entries, span * number, 0);
        const auto thread = static_cast<std::uint32_t>(state.thread_index());
        std::uint32_t& next = setup.next[thread].key;
        if (thread == 0 && next == 0) {
          for (std::uint32_t key = 0; key < entries; ++key) {
            setup.cache.insert(key % number * span + key / number);
          }
          setup.next[0].key = setup.next[1].key = entries / number;
        }
        for (auto _ : state) {
          setup.cache.insert(thread * span + next);
          next = next + 1 < span ? next + 1 : 0;
        }
      },
      threads);
}

template <class Contestant>
void addInsertions(const std::string& name, bool threadSafe = true) {
  for (const std::uint32_t entries : {1'000U, 100'000U, 1'000'000U}) {
    for (int threads = 1; threads <= (threadSafe ? 2 : 1); ++threads) {
      insertEvicting<Contestant>("insert that evicts one", name, entries, threads);
    }
  }
  insertFitting<Contestant>("insert without eviction", name, 100'000);
}

template <class Contestant>
void addCache(const std::string& name, bool threadSafe = true) {
  for (const std::uint32_t entries : {1'000U, 100'000U, 1'000'000U}) {
    for (int threads = 1; threads <= (threadSafe ? 2 : 1); ++threads) {
      touchEntries<Contestant>(name, entries, threads);
    }
  }
  addInsertions<Contestant>(name, threadSafe);
}

} // namespace bench
