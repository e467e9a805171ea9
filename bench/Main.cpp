// The program: one idle thread, so that no contestant leaves out its atomics, then the benchmarks.
#include "Bench.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <malloc.h>
#include <map>
#include <mutex>
#include <random>
#include <thread>

namespace bench {

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

struct Note {
  std::string what;
  std::size_t count;
  std::function<std::shared_ptr<void>()> make;
};

std::vector<Note>& notes() {
  static auto& all = *new std::vector<Note>;
  return all;
}

struct Contestant {
  std::string name;
  Body body;
  int threads;
  Configure configure;

  benchmark::internal::Benchmark& enter() const {
    auto& it = *benchmark::RegisterBenchmark(name.c_str(), body)->Threads(threads);
    if (configure) {
      configure(it);
    } else {
      it.UseRealTime();
    }
    return it;
  }
};

/// By row, in the order of the rows' first contestants.
std::vector<std::vector<Contestant>>& contestants() {
  static auto& all = *new std::vector<std::vector<Contestant>>;
  return all;
}

std::string_view rowOf(const std::string& name) {
  return std::string_view(name).substr(0, name.rfind('/'));
}

std::size_t heapBytes() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// The set-ups that are kept, by key.
std::map<std::string, std::shared_ptr<void>>& setUps() {
  static auto& all = *new std::map<std::string, std::shared_ptr<void>>;
  return all;
}

bool theyTakeTurns = false;

/// Runs one benchmark so many times, for those who count its instructions.
int countOne(const std::string& name, const std::string& times) {
  for (const auto& row : contestants()) {
    for (const Contestant& contestant : row) {
      if (contestant.name == name) {
        contestant.enter().Iterations(std::stoll(times));
      }
    }
  }
  return benchmark::RunSpecifiedBenchmarks() == 1 ? 0 : 1;
}

} // namespace

void add(const std::string& name, Body body, int threads, Configure configure) {
  auto& rows = contestants();
  auto row = std::find_if(rows.begin(), rows.end(), [&](const auto& other) {
    return rowOf(other.front().name) == rowOf(name);
  });
  if (row == rows.end()) {
    row = rows.emplace(row);
  }
  row->push_back({name, std::move(body), threads, std::move(configure)});
}

std::shared_ptr<void>& placeOf(const std::string& key) {
  if (!theyTakeTurns && !setUps().contains(key)) {
    setUps().clear();
  }
  return setUps()[key];
}

void dropOthers(const std::string& key) {
  const std::string_view contestant = std::string_view(key).substr(key.rfind('/'));
  std::erase_if(setUps(), [&](const auto& setUp) {
    return setUp.first != key && setUp.first.ends_with(contestant);
  });
}

void note(const std::string& what, std::size_t count, std::function<std::shared_ptr<void>()> make) {
  notes().push_back({what, count, std::move(make)});
}

} // namespace bench

int main(int count, char** arguments) {
  std::thread idle([] { std::this_thread::sleep_for(std::chrono::hours(24)); });
  idle.detach();
  const std::string first = count > 1 ? arguments[1] : "";
  if (count == 3 && first.starts_with("--count=")) {
    return bench::countOne(first.substr(8), std::string(arguments[2]).substr(8));
  }
  bench::theyTakeTurns = std::any_of(arguments, arguments + count, [](const char* argument) {
    return std::string_view(argument) == "--benchmark_enable_random_interleaving=true";
  });
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) {
    return 1;
  }
  benchmark::AddCustomContext("compiler", "compiler " __VERSION__);
  for (const auto& [what, number, make] : bench::notes()) {
    const std::size_t before = bench::heapBytes();
    const std::shared_ptr<void> made = make();
    benchmark::AddCustomContext("bytes per " + what,
                                std::to_string((bench::heapBytes() - before) / number));
  }
  for (const auto& row : bench::contestants()) {
    for (const auto& contestant : row) {
      contestant.enter();
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  bench::setUps().clear();
  return 0;
}
