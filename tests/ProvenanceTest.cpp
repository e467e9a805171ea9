#include <tolvane/Provenance.hpp>

#include <gtest/gtest.h>
#include <string>
#include <vector>

using Tolvane::Provenance;
using Tolvane::StrongPtr;

namespace {

StrongPtr<Provenance> chain(const std::vector<std::string>& names) {
  StrongPtr<Provenance> leaf;
  for (const std::string& name : names)
    leaf = new Provenance(name, leaf);
  return leaf;
}

/// Counts itself, and may carry a chain of its own.
struct Counted : Provenance {
  explicit Counted(const StrongPtr<Provenance>& above = nullptr) : Provenance("n", above) {
    ++alive;
  }
  ~Counted() override { --alive; }
  static inline int alive = 0;
  StrongPtr<Provenance> aside;
};

} // namespace

TEST(Provenance, JoinsNames) {
  const struct {
    std::vector<std::string> names;
    char separator;
    const char *path, *withoutRoot;
  } cases[] = {
      {{"A"}, '.', "A", ""},
      {{"A", "B"}, '.', "A.B", ".B"},
      {{"A", "B", "C", "D"}, ':', "A/B/C:D", "/B/C:D"},
      {{"", "", ""}, '.', "/.", "/."},
  };
  for (const auto& c : cases) {
    const StrongPtr<Provenance> leaf = chain(c.names);
    EXPECT_EQ(leaf->getPath(c.separator), c.path);
    EXPECT_EQ(leaf->getPathWithoutRoot(c.separator), c.withoutRoot);
    EXPECT_EQ(leaf->getRoot(), c.names.front());
  }
  const StrongPtr<Provenance> leaf = chain({"A", "B", "C"});
  delete leaf->parent()->parent().get();
  EXPECT_EQ(leaf->getPath('.'), "B.C") << "a record whose parent is destroyed is a root";
}

TEST(Provenance, LongChainsCostNoStackAndReleaseWhatNobodyHolds) {
  constexpr int length = 100000;
  const StrongPtr<Provenance> trunk = new Counted(StrongPtr<Provenance>(new Counted));
  StrongPtr<Provenance> left = trunk, right = trunk;
  for (int i = 0; i < length; ++i) {
    left = new Counted(left);
    auto* forked = new Counted(right);
    right = forked;
    for (int j = 0; j < 3; ++j) // a chain that dies inside a dying chain
      forked->aside = new Counted(forked->aside);
  }
  EXPECT_EQ(left->getPath('.').size(), 2u * length + 3);
  EXPECT_EQ(left->getRoot(), "n");
  left = nullptr;
  EXPECT_EQ(Counted::alive, 2 + 4 * length);
  right = nullptr;
  EXPECT_EQ(Counted::alive, 2);
  EXPECT_EQ(trunk->getPath('.'), "n.n");
}
