#pragma once

#include "Bench.hpp"

#include <chrono>
#include <cstdlib>
#include <immintrin.h>
#include <malloc.h>

/// @file
/// The work of the dictionaries: a word list is inserted, asked for words that are in it and words
/// that are not, as fast as they come and each when the one before is answered, and walked over.
/// Times are per word. A contestant has
///   insert(word), bool has(word) const, std::size_t walk() const   the number of letters it saw

namespace bench {

/// Times whole rounds over the word list, each by itself.
template <class Round>
void addRounds(const std::string& name, int rounds, Round round) {
  add(
      name,
      [=](benchmark::State& state) {
        for (auto _ : state) {
          const std::chrono::duration<double> lasted = round();
          state.SetIterationTime(lasted.count() / static_cast<double>(words().size()));
        }
      },
      1, [=](benchmark::internal::Benchmark& it) { it.UseManualTime()->Iterations(rounds); });
}

template <class Contestant>
std::shared_ptr<Contestant> filled() {
  auto made = std::make_shared<Contestant>();
  for (const std::string& word : words()) {
    made->insert(word);
  }
  return made;
}

template <class Contestant>
void addLexicon(const std::string& name, bool growing = true) {
  using Clock = std::chrono::steady_clock;
  const auto lookUp = [=](bool there, bool waiting) {
    return [=](benchmark::State& state) {
      const Contestant& in = kept<Contestant>("lexicon " + name, &filled<Contestant>);
      std::vector<std::string> asked = words();
      for (std::string& word : asked) {
        if (!there) {
          word.back() = '~';
        }
        // However few are timed, none is asked for the first time.
        benchmark::DoNotOptimize(in.has(word));
      }
      std::size_t at = 0;
      for (auto _ : state) {
        if (in.has(asked[at]) != there) {
          std::abort();
        }
        if (waiting) {
          _mm_lfence();
        }
        at = at + 1 < asked.size() ? at + 1 : 0;
      }
    };
  };
  if (growing) {
    addRounds("words, insert/" + name, 3, [] {
      ::malloc_trim(0); // whatever the one before left: all get their memory from the system
      const auto before = Clock::now();
      const auto made = filled<Contestant>();
      return Clock::now() - before;
    });
  }
  // Whether the processor begins the next word before this one is known hangs on how it guesses the
  // ends of words: for the same code the one or the other, at a half or a third of the time.
  add("words, hit/" + name, lookUp(true, false));
  add("words, miss/" + name, lookUp(false, false));
  add("words, hit, one by one/" + name, lookUp(true, true));
  add("words, miss, one by one/" + name, lookUp(false, true));
  addRounds("words, walk/" + name, 5, [=] {
    const Contestant& in = kept<Contestant>("lexicon " + name, &filled<Contestant>);
    const auto before = Clock::now();
    if (in.walk() == 0) {
      std::abort();
    }
    return Clock::now() - before;
  });
}

} // namespace bench
