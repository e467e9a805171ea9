// The program: one idle thread, so that no contestant leaves out its atomics, then the benchmarks.
#include "Bench.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <random>
#include <thread>

namespace bench {

std::function<void()> dropKept;

const std::vector<std::uint32_t>& sequence(std::uint32_t limit) {
  static auto& all = *new std::vector<std::pair<std::uint32_t, std::vector<std::uint32_t>>>;
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  all.reserve(100); // what was given out stays where it is
  for (const auto& [of, numbers] : all) {
    if (of == limit) {
      return numbers;
    }
  }
  std::mt19937 random(1);
  std::vector<std::uint32_t> numbers(limit > 10'000 ? 1 << 20 : 1 << 14);
  for (std::uint32_t& number : numbers) {
    number = static_cast<std::uint32_t>(random() % limit);
  }
  return all.emplace_back(limit, std::move(numbers)).second;
}

const std::vector<std::string>& words() {
  static const auto& all = *new auto([] {
    std::ifstream in("/usr/share/dict/words");
    std::vector<std::string> read;
    for (std::string word; std::getline(in, word);) {
      read.push_back(word);
    }
    std::mt19937 random(2);
    for (int number = 0; read.size() < 100'000; ++number) { // where there is no word list
      read.push_back("w" + std::to_string(random() % 10'000'000) + std::to_string(number % 10));
    }
    std::shuffle(read.begin(), read.end(), random);
    return read;
  }());
  return all;
}

std::vector<std::string> texts(bool mixed, std::size_t wordsEach) {
  const char* const between[] = {" ", "-\t", ",\"", ".'"};
  std::vector<std::string> made;
  for (std::size_t at = 0; made.size() < 1000; at += wordsEach) {
    std::string text;
    for (std::size_t word = at; word < at + wordsEach; ++word) {
      for (const char c : words()[word]) {
        if (std::isalnum(static_cast<unsigned char>(c))) {
          text += c;
        }
      }
      text += mixed ? between[word % 4] : "";
    }
    made.push_back(text);
  }
  return made;
}

namespace {

std::vector<std::pair<std::string, double>>& notes() {
  static auto& all = *new std::vector<std::pair<std::string, double>>;
  return all;
}

} // namespace

void note(const std::string& what, double bytes) {
  notes().emplace_back(what, bytes);
}

} // namespace bench

int main(int count, char** arguments) {
  std::thread idle([] { std::this_thread::sleep_for(std::chrono::hours(24)); });
  idle.detach();
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) {
    return 1;
  }
  for (const auto& [what, bytes] : bench::notes()) {
    benchmark::AddCustomContext("bytes per " + what, std::to_string(std::llround(bytes)));
  }
  benchmark::RunSpecifiedBenchmarks();
  if (bench::dropKept) {
    bench::dropKept();
  }
  return 0;
}
