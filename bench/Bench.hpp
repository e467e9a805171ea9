#pragma once

#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

/// @file
/// What the benchmarks share. Every name is ROW/CONTESTANT; ratios.py compares the contestants of a
/// row, and "tolvane" is ours.

namespace bench {

using Body = std::function<void(benchmark::State&)>;
using Configure = std::function<void(benchmark::internal::Benchmark&)>;

/// Adds a benchmark on real time, or as `configure` says. The contestants of a row run one after
/// the other, whatever the order they are added in: what slows the machine down for a while slows
/// all of them.
void add(const std::string& name, Body body, int threads = 1, Configure configure = {});

/// Random numbers below `limit`, the same in every run and for every contestant; their count is a
/// power of two.
const std::vector<std::uint32_t>& sequence(std::uint32_t limit);

/// Texts of some letters and digits for the codecs. Mixed ones have characters between the words
/// that one codec or the other has to escape, some of them both.
std::vector<std::string> texts(bool mixed, std::size_t wordsEach);

/// The word list, shuffled.
const std::vector<std::string>& words();

/// Where kept() keeps a set-up; empty at first. All others go, unless the contestants take turns.
std::shared_ptr<void>& placeOf(const std::string& key);

/// Drops the set-ups of the contestant that `key` ends with, but for the one under `key` itself.
void dropOthers(const std::string& key);

/// Keeps the set-up of a benchmark between its calls, which are several per measurement. A thread
/// of its own makes it, in another arena of the heap than the one that the contestants work in: in
/// the pieces that they leave there, objects lie without order, and take up to four times as long
/// to walk over. Not for use by more than one thread at a time.
template <class T, class Make>
T& kept(const std::string& key, Make make) {
  std::shared_ptr<void>& place = placeOf(key);
  if (place == nullptr) {
    std::thread([&] { place = make(); }).join();
  }
  return *static_cast<T*>(place.get());
}

/// Says what `count` of something take on the heap, each; `make` returns what keeps them there.
void note(const std::string& what, std::size_t count, std::function<std::shared_ptr<void>()> make);

} // namespace bench
