#pragma once

#include "Bench.hpp"

/// @file
/// A hundred loaders of one ending each, asked for in random order.

namespace bench {

constexpr int Loaders = 100;

inline std::string extension(int number) {
  return ".e" + std::to_string(100 + number);
}

template <class Choose>
void overExtensions(benchmark::State& state, Choose choose) {
  const std::vector<std::uint32_t>& order = sequence(Loaders);
  std::size_t at = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(choose(static_cast<int>(order[at])));
    at = (at + 1) & (order.size() - 1);
  }
}

} // namespace bench
