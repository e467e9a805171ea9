#pragma once

#include "Bench.hpp"

/// @file
/// The work of the pointers, the same for all of them. A contestant has
///   Strong, made by make(); Weak, made from a Strong; lock(weak) for those that have weak ones;
///   Plain, an object like theirs without a count.

namespace bench {

/// What the objects have beside their counts.
struct Payload {
  std::uint64_t values[4] = {1, 2, 3, 4};
};

constexpr std::uint32_t Objects = 1000;

/// Runs `work` with one after the other of a thread's own pointers.
template <class Contestant, class Work>
void overObjects(const std::string& row, const std::string& name, std::uint32_t objects,
                 int threads, Work work) {
  add(
      row + "/" + name,
      [=](benchmark::State& state) {
        std::vector<decltype(Contestant::make())> own;
        while (own.size() < objects) {
          own.push_back(Contestant::make());
        }
        const std::vector<std::uint32_t>& order = sequence(objects);
        std::size_t at = 0;
        for (auto _ : state) {
          work(own[order[at]]);
          at = (at + 1) & (order.size() - 1);
        }
      },
      threads);
}

template <class Contestant>
void addMake(const std::string& name) {
  add("make and destroy/" + name, [](benchmark::State& state) {
    for (auto _ : state) {
      auto made = Contestant::make();
      benchmark::DoNotOptimize(made);
    }
  });
}

template <class Contestant>
void addStrong(const std::string& name) {
  const auto copy = [](auto& pointer) {
    auto other = pointer;
    benchmark::DoNotOptimize(other);
  };
  overObjects<Contestant>("copy and drop", name, Objects, 1, copy);
  overObjects<Contestant>("copy and drop, one object", name, 1, 1, copy);
  overObjects<Contestant>("copy and drop, 2 threads", name, Objects, 2, copy);
  overObjects<Contestant>("move there and back", name, Objects, 1, [](auto& pointer) {
    auto other = std::move(pointer);
    benchmark::DoNotOptimize(other);
    pointer = std::move(other);
    benchmark::DoNotOptimize(pointer);
  });
  overObjects<Contestant>("checked access", name, Objects, 1, [](auto& pointer) {
    benchmark::DoNotOptimize(pointer->values[0]);
    benchmark::ClobberMemory();
  });
  addMake<Contestant>(name);
}

template <class Contestant>
void addWeak(const std::string& name) {
  add("weak to strong and drop/" + name, [](benchmark::State& state) {
    std::vector<decltype(Contestant::make())> own;
    std::vector<decltype(Contestant::weak(own[0]))> weak;
    while (own.size() < Objects) {
      own.push_back(Contestant::make());
      weak.push_back(Contestant::weak(own.back()));
    }
    const std::vector<std::uint32_t>& order = sequence(Objects);
    std::size_t at = 0;
    for (auto _ : state) {
      auto strong = Contestant::lock(weak[order[at]]);
      benchmark::DoNotOptimize(strong);
      at = (at + 1) & (order.size() - 1);
    }
  });
}

} // namespace bench
