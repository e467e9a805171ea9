#include "support/Rendezvous.hpp"

#include <tolvane/Provenance.hpp>

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using Tolvane::Provenance;
using Tolvane::StrongPtr;
using Tolvane::WeakPtr;

std::atomic<int> alive = 0;

struct Counted : Provenance {
  explicit Counted(const StrongPtr<Provenance>& above) : Provenance("n", above) { ++alive; }
  ~Counted() override { --alive; }
};

/// Chains that share a trunk are released by several threads at once, while another takes hold of
/// records on the way and must always find all that is above them.
TEST(ProvenanceConcurrency, ThreadsReleaseForkedChains) {
  constexpr int Threads = 4;
  constexpr int Trunk = 500;
  constexpr int Branch = 200;
  for (int round = 0; round < 60; ++round) {
    StrongPtr<Provenance> trunk;
    std::vector<WeakPtr<Provenance>> watched;
    for (int i = 0; i < Trunk; ++i) {
      trunk = new Counted(trunk);
      watched.push_back(trunk);
    }
    std::vector<StrongPtr<Provenance>> leaves(Threads, trunk);
    for (StrongPtr<Provenance>& leaf : leaves) {
      for (int i = 0; i < Branch; ++i) {
        leaf = new Counted(leaf);
      }
    }
    trunk = nullptr;
    Rendezvous start(Threads + 1);
    std::vector<std::thread> threads;
    for (StrongPtr<Provenance>& leaf : leaves) {
      threads.emplace_back([&start, &leaf] {
        start.arrive_and_wait();
        leaf = nullptr;
      });
    }
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (std::size_t i = watched.size(); i-- > 0;) {
        if (const StrongPtr<Provenance> held = watched[i].lock()) {
          EXPECT_EQ(held->getPath('.').size(), 2 * i + 1);
        }
      }
    });
    for (std::thread& thread : threads) {
      thread.join();
    }
    ASSERT_EQ(alive, 0);
  }
}

} // namespace
