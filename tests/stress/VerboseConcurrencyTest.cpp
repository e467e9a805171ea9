#include <tolvane/Profiler.hpp>
#include <tolvane/Verbose.hpp>

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace Tolvane;

namespace {

template <typename Work>
void onThreads(int count, const Work& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i)
    threads.emplace_back([&work, i] { work(i); });
  for (std::thread& thread : threads)
    thread.join();
}

struct CountingCatcher : VerboseCatcher {
  explicit CountingCatcher(std::atomic<long>& caught) : caught_(caught) {}
  ~CountingCatcher() override { alive_ = false; }
  void catchMessage(int, const std::string&, const std::string& text, const std::string&,
                    int indentDepth, char) override {
    EXPECT_TRUE(alive_);
    EXPECT_EQ(text, std::to_string(indentDepth));
    ++caught_;
  }

private:
  std::atomic<long>& caught_;
  bool alive_ = true;
};

} // namespace

TEST(VerboseConcurrency, MessagesWhileTheCatcherComesAndGoes) {
  constexpr int rounds = 300;
  std::atomic<long> caught{0};
  std::atomic<bool> done{false};
  StrongPtr<CountingCatcher, VerboseCatcher> first = new CountingCatcher(caught);
  VerboseCatcher::theCatcher = first;
  std::thread changing([&] {
    while (!done) {
      StrongPtr<CountingCatcher, VerboseCatcher> other = new CountingCatcher(caught);
      VerboseCatcher::theCatcher = other;
      other = nullptr;
      VerboseCatcher::theCatcher = nullptr;
      VerboseCatcher::theCatcher = first;
    }
  });
  onThreads(4, [&](int thread) {
    for (int i = 0; i < rounds; ++i) {
      const VerboseStream::Indentator section("f.cpp", 1, "f()", 9, '-', thread, "");
      const std::string file = "file" + std::to_string(i % 7) + ".cpp";
      VerboseStream(false, false, 1, file.c_str(), i, "f()", std::to_string(thread), "");
      TOLVANE_VERBOSE_DOMAIN(2, "Mem") << thread;
    }
  });
  done = true;
  changing.join();
  caught = 0;
  VerboseCatcher::theCatcher = first;
  VerboseStream(false, false, 1, "f.cpp", 1, "f()", "0", "");
  EXPECT_EQ(caught, 1);
  VerboseCatcher::theCatcher = nullptr;
}

TEST(VerboseConcurrency, ProfilerCountsEveryScope) {
  Profiler::reset();
  Profiler::enable();
  onThreads(4, [](int) {
    for (int i = 0; i < 1000; ++i) {
      TOLVANE_PROFILE("shared by threads", 1);
      const std::string name = "name " + std::to_string(i % 50);
      const Profiler other("f.cpp", 1, "f()", name.c_str(), 1);
    }
  });
  Profiler::disable();
  std::uint64_t shared = 0, others = 0;
  for (const Profiler::Statistic& one : Profiler::statistics())
    (one.name == "shared by threads" ? shared : others) += one.calls;
  EXPECT_EQ(shared, 4000U);
  EXPECT_EQ(others, 4000U);
  Profiler::reset();
}
