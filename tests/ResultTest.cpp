#include <tolvane/Result.hpp>

#include <functional>
#include <gtest/gtest.h>
#include <string>

using Tolvane::Result;
using Tolvane::StrongPtr;
using Tolvane::WeakPtr;
using Cluster = Result::Cluster;

namespace {

std::string ended;

struct Named : Result {
  explicit Named(char letter, const WeakPtr<Cluster>& owner = nullptr)
      : Result(owner), name(letter) {}
  ~Named() override {
    ended += name;
    if (onEnd)
      onEnd();
  }
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
  const StrongPtr<Cluster> cluster = new Cluster, next = new Cluster;
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
}

TEST(Result, OutlivesItsClusterOrGoesWithIt) {
  ended.clear();
  StrongPtr<Cluster> cluster = new Cluster;
  for (const char name : {'1', '2', '3'})
    cluster->insert(new Named(name));
  const StrongPtr<Result> kept = new Named('k');
  cluster->insert(kept);
  cluster = nullptr;
  EXPECT_FALSE(kept->cluster());
  EXPECT_EQ(kept.strongCount(), 1);
  EXPECT_EQ(ended, "132") << "2 is the root of the tree, 3 stands over k, which is held";
}

TEST(Result, SurvivesHostileResults) {
  const StrongPtr<Cluster> cluster = new Cluster;
  auto* dead = new Named('d');
  const StrongPtr<Result> pointer = dead;
  cluster->insert(pointer);
  cluster->insert(new Named('e'));
  delete dead;
  EXPECT_FALSE(cluster->insert(pointer));
  EXPECT_TRUE(cluster->remove(pointer)) << "a result that was destroyed by hand can be taken out";
  EXPECT_EQ(namesOf(*cluster), "e");

  auto* changing = new Named('f');
  cluster->insert(changing);
  changing->onEnd = [&] {
    EXPECT_EQ(cluster->size(), 1u) << "its own entry is gone when it dies";
    cluster->clear();
    cluster->insert(new Named('g'));
  };
  cluster->remove(cluster->find(changing->instanceNumber()));
  EXPECT_EQ(namesOf(*cluster), "g");

  Visitor clearing;
  clearing.onVisit = [&] {
    cluster->clear();
    cluster->insert(new Named('h'));
    return false;
  };
  EXPECT_EQ(cluster->iterate(clearing), 0);
  EXPECT_EQ(namesOf(*cluster), "h");
}
