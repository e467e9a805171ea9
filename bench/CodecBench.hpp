#pragma once

#include "Bench.hpp"

#include <cstdlib>

/// @file
/// The work of the text codecs: texts of sixteen words to be escaped, and tokens of two words.

namespace bench {

/// Adds the encoding of single texts and its reverse; what they give must be what went in.
template <class Encode, class Decode>
void addEscapes(const std::string& name, Encode encode, Decode decode) {
  for (const bool mixed : {false, true}) {
    const std::string kind = mixed ? "mixed/" : "plain/";
    const auto run = [=](benchmark::State& state, const std::vector<std::string>& in,
                         const auto& code) {
      std::size_t at = 0;
      std::int64_t bytes = 0;
      for (auto _ : state) {
        benchmark::DoNotOptimize(code(in[at]));
        bytes += static_cast<std::int64_t>(in[at].size());
        at = (at + 1) % in.size();
      }
      state.SetBytesProcessed(bytes);
    };
    add("escape/" + kind + name,
        [=](benchmark::State& state) { run(state, texts(mixed, 16), encode); });
    add("escape, reverse/" + kind + name, [=](benchmark::State& state) {
      std::vector<std::string> encoded;
      for (const std::string& text : texts(mixed, 16)) {
        encoded.push_back(encode(text));
        if (decode(encoded.back()) != text) {
          std::abort();
        }
      }
      run(state, encoded, decode);
    });
  }
}

/// Adds the writing of all texts into one and the reading back of it.
template <class Write, class Read>
void addTokens(const std::string& name, Write write, Read read) {
  for (const bool mixed : {false, true}) {
    const std::string kind = mixed ? "mixed/" : "plain/";
    const std::vector<std::string> all = texts(mixed, 2);
    std::int64_t bytes = 0;
    for (const std::string& text : all) {
      bytes += static_cast<std::int64_t>(text.size());
    }
    add("tokens, write/" + kind + name, [=](benchmark::State& state) {
      for (auto _ : state) {
        benchmark::DoNotOptimize(write(all));
      }
      state.SetBytesProcessed(bytes * static_cast<std::int64_t>(state.iterations()));
    });
    add("tokens, read/" + kind + name, [=](benchmark::State& state) {
      const std::string written = write(all);
      if (read(written) != all) {
        std::abort();
      }
      for (auto _ : state) {
        benchmark::DoNotOptimize(read(written));
      }
      state.SetBytesProcessed(bytes * static_cast<std::int64_t>(state.iterations()));
    });
  }
}

} // namespace bench
