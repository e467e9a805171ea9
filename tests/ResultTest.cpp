#include <tolvane/Result.hpp>

#include <functional>
#include <gtest/gtest.h>
#include <string>

using Tolvane::Result;
using Tolvane::StrongPtr;
using Tolvane::WeakPtr;
using Cluster = Result::Cluster;

namespace {

struct Named : Result {
  explicit Named(char letter, const WeakPtr<Cluster>& owner = nullptr)
      : Result(owner), name(letter) {
    ++alive;
  }
  ~Named() override {
    --alive;
    if (onEnd)
      onEnd();
  }
  static inline int alive = 0;
  const char name;
  std::function<void()> onEnd;
};
struct Visitor : Cluster::Iterator {
  bool visitResult(const StrongPtr<Result>& result) override {
    names += StrongPtr<Named, Result>(result)->name;
    return !onVisit || onVisit();
  }
  std::string names;
  std::function<bool()> onVisit;
};

std::string namesOf(const Cluster& cluster) {
  Visitor all;
  EXPECT_EQ(static_cast<std::size_t>(cluster.iterate(all)), cluster.size());
  return all.names;
}

} // namespace

TEST(Result, ClusterOwnsItsResultsInTheOrderOfTheirMaking) {
  StrongPtr<Cluster> cluster = new Cluster, next = new Cluster;
  const StrongPtr<Result> a = new Named('a'), b = new Named('b', cluster), c = new Named('c');
  EXPECT_TRUE(cluster->empty() && b->cluster() == cluster) << "named, and not put into it";
  EXPECT_TRUE(cluster->insert(c) && cluster->insert(a) && cluster->insert(b));
  EXPECT_FALSE(cluster->insert(b) || cluster->insert(nullptr));
  EXPECT_EQ(namesOf(*cluster), "abc");
  struct Other : Result {};
  EXPECT_TRUE(a->cluster() == cluster && cluster->find(b->instanceNumber()) == b &&
              cluster->find<Named>() == a && !cluster->find<Other>());
  EXPECT_TRUE(cluster->remove(b) && !b->cluster() && !cluster->contains(b));
  EXPECT_FALSE(cluster->remove(b) || cluster->remove(nullptr));
  EXPECT_TRUE(next->insert(cluster->results().front()));
  EXPECT_TRUE(!cluster->contains(a) && a->cluster() == next) << "one cluster at a time";
  cluster->clear();
  EXPECT_TRUE(cluster->empty() && !c->cluster());
  next->insert(new Named('d'));
  next = nullptr;
  EXPECT_TRUE(Named::alive == 3 && !a->cluster()) << "it goes with its cluster, or outlives it";
}

TEST(Result, SurvivesHostileResults) {
  const StrongPtr<Cluster> cluster = new Cluster;
  auto* dead = new Named('d');
  const StrongPtr<Result> pointer = dead;
  cluster->insert(pointer);
  delete dead;
  EXPECT_FALSE(cluster->insert(pointer));
  EXPECT_TRUE(cluster->remove(pointer)) << "a result that was destroyed by hand can be taken out";

  auto* changing = new Named('f');
  cluster->insert(changing);
  const auto replace = [&](char name) {
    cluster->clear();
    cluster->insert(new Named(name));
  };
  changing->onEnd = [&] {
    EXPECT_TRUE(cluster->empty()) << "its own entry is gone when it dies";
    replace('g');
  };
  cluster->remove(cluster->find(changing->instanceNumber()));
  EXPECT_EQ(namesOf(*cluster), "g");

  Visitor clearing;
  clearing.onVisit = [&] { return replace('h'), false; };
  EXPECT_EQ(cluster->iterate(clearing), 0);
  EXPECT_EQ(namesOf(*cluster), "h");
}
