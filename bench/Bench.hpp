#pragma once

#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

/// @file
/// What the benchmarks share. Every name is ROW/CONTESTANT; ratios.py compares the contestants of a
/// row, and "tolvane" is ours.

namespace bench {

using Body = std::function<void(benchmark::State&)>;

/// Adds a benchmark on real time.
inline benchmark::internal::Benchmark* add(const std::string& name, Body body, int threads = 1) {
  return benchmark::RegisterBenchmark(name.c_str(), std::move(body))
      ->Threads(threads)
      ->UseRealTime();
}

/// Random numbers below `limit`, the same in every run and for every contestant; their count is a
/// power of two.
const std::vector<std::uint32_t>& sequence(std::uint32_t limit);

/// Texts of some letters and digits for the codecs. Mixed ones have characters between the words
/// that one codec or the other has to escape, some of them both.
std::vector<std::string> texts(bool mixed, std::size_t wordsEach);

/// The word list, shuffled.
const std::vector<std::string>& words();

/// Drops what kept() keeps.
extern std::function<void()> dropKept;

/// Keeps the set-up of a benchmark between its calls, which are several per measurement; only the
/// last one is kept. Not for use by more than one thread at a time.
template <class T, class Make>
T& kept(const std::string& key, Make make) {
  static std::string& lastKey = *new std::string;
  static std::shared_ptr<T>& last = *new std::shared_ptr<T>;
  if (lastKey != key) {
    if (dropKept) {
      std::exchange(dropKept, nullptr)();
    }
    last = make();
    lastKey = key;
    dropKept = [] {
      last.reset();
      lastKey.clear();
    };
  }
  return *last;
}

/// What the size of something is, for the table of memory figures.
void note(const std::string& what, double bytes);

} // namespace bench
