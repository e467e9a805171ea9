#include <tolvane/Ageable.hpp>
#include <tolvane/Attributes.hpp>
#include <tolvane/Chunk.hpp>

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace Tolvane;

struct Visitor : Attributes::Iterator {
  bool visitAttribute(const std::string& name, StrongPtr<ChunkBase>& value) override {
    names.push_back(name);
    return !onVisit || onVisit(value);
  }
  std::vector<std::string> names;
  std::function<bool(StrongPtr<ChunkBase>&)> onVisit;
};

TEST(Attributes, KeepsOneValuePerNameInByteOrder) {
  const struct {
    std::vector<std::string> set;
    const char* text;
  } cases[] = {
      {{}, "( )"},
      {{"a"}, "( a )"},
      {{"b", "ab", "a", "ab"}, "( a ab b )"},
      {{"a", "B", "_", ""}, "(  B _ a )"},
      {{"\xe4", "z"}, "( z \xe4 )"},
  };
  for (const auto& c : cases) {
    Attributes attributes;
    for (const std::string& name : c.set) {
      attributes.setAttribute(name, makeChunk(1));
    }
    EXPECT_EQ(attributes.toString(), c.text);
    EXPECT_EQ(std::to_string(attributes), c.text);
  }

  Attributes attributes;
  const StrongPtr<ChunkBase> first = makeChunk(1);
  attributes.setAttribute("n", first);
  attributes.setAttribute("n", attributes.getAttribute("n"));
  EXPECT_EQ(first.strongCount(), 2);
  attributes.setAttribute("n", makeChunk(2));
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_EQ(chunkValue<int>(attributes.getAttribute("n")), 2);
  EXPECT_FALSE(attributes.getAttribute("absent"));
  EXPECT_FALSE(attributes.hasAttribute("absent"));
  attributes.setAttribute("empty", nullptr);
  EXPECT_TRUE(attributes.hasAttribute("empty"));
  EXPECT_FALSE(attributes.getAttribute("empty"));
}

TEST(Attributes, WalksInOrderAndStops) {
  Attributes attributes;
  for (const char* name : {"c", "a", "b"}) {
    attributes.setAttribute(name, nullptr);
  }
  Visitor visitor;
  visitor.onVisit = [&](StrongPtr<ChunkBase>& value) {
    value = makeChunk(visitor.names.size());
    attributes.setAttribute("bb", nullptr); // added on the way, ahead of the walk
    attributes.setAttribute("0", nullptr);  // and behind it
    return visitor.names.size() < 4;
  };
  EXPECT_EQ(attributes.iterate(visitor), 3);
  EXPECT_EQ(visitor.names, (std::vector<std::string>{"a", "b", "bb", "c"}));
  EXPECT_EQ(chunkValue<std::size_t>(attributes.getAttribute("c")), 4u) << "the entry itself";
  visitor.onVisit = [](StrongPtr<ChunkBase>&) { return false; };
  EXPECT_EQ(attributes.iterate(visitor), 0);
}

TEST(Attributes, StampsWhenMade) {
  Attributes first;
  first.setAttribute("a", makeChunk(1));
  ++Ageable::GlobalTime;
  Attributes copy = first;
  EXPECT_EQ(first.stamp() + 1, copy.stamp());
  EXPECT_EQ(first.getAttribute("a"), copy.getAttribute("a"));
  copy.setAttribute("b", nullptr);
  first = copy;
  EXPECT_EQ(first.toString(), "( a b )");
  EXPECT_EQ(first.stamp() + 1, copy.stamp());
}

TEST(Attributes, ReleasesOldChunksWhenTheSetIsWhole) {
  struct Asking : ChunkBase {
    explicit Asking(Attributes& attributes) : owner(attributes) {}
    ~Asking() override {
      EXPECT_EQ(chunkValue<int>(owner.getAttribute("a")), 2);
      owner.setAttribute("from inside", nullptr);
    }
    Attributes& owner;
  };
  Attributes attributes;
  attributes.setAttribute("a", new Asking(attributes));
  attributes.setAttribute("a", makeChunk(2));
  EXPECT_EQ(attributes.toString(), "( a from inside )");
  Attributes next = attributes;
  attributes.setAttribute("b", new Asking(attributes));
  attributes = next;
  EXPECT_EQ(attributes.size(), 2u);
}

TEST(Chunk, AccountsForWhatItHolds) {
  const memsize_t before = ChunkBase::TotalMemsize;
  {
    const auto number = makeChunk(2.5);
    const auto text = makeChunk(std::string_view("abcd", 3)); // owns a copy
    const auto wide = makeChunk(std::u32string(U"ab"));
    EXPECT_EQ(ChunkBase::TotalMemsize - before,
              sizeof(double) + sizeof(std::string) + 3 + sizeof(std::u32string) + 8);
    text->setValue(std::string(1000, 'x'));
    text->setValue("y");
    EXPECT_EQ(text->memsize(), sizeof(std::string) + 1);
    EXPECT_EQ(ChunkBase::TotalMemsize - before,
              number->memsize() + text->memsize() + wide->memsize());
    EXPECT_EQ(chunkValue<std::string>(text), "y");
    EXPECT_FALSE(chunkValue<float>(number)) << "of another type";
    EXPECT_FALSE(chunkValue<float>(nullptr));
  }
  EXPECT_EQ(ChunkBase::TotalMemsize, before);
}

} // namespace
