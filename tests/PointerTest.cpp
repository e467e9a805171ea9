#include <tolvane/StrongPtr.hpp>

#include <array>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <unordered_set>

using namespace Tolvane;

namespace {

struct Node : ReferenceBase<Node> {
  int number = 1;
};

struct Leaf : Node {};

struct Mixin {
  virtual ~Mixin() = default;
  int tag = 2;
};

// Its bases lie at different addresses, so that a pointer that forgets to cast is off.
struct Both : Mixin, Leaf {};

struct Stranger : Node {};

struct Left : virtual Node {};
struct Right : virtual Node {};
struct Diamond : Left, Right {};

using NodePtr = StrongPtr<Node>;
using NodeWeak = WeakPtr<Node>;
template <class T>
using Strong = StrongPtr<T, Node>;
template <class T>
using Weak = WeakPtr<T, Node>;

// Plain pointers take two words, those that keep a target three, and the record two.
static_assert(sizeof(NodePtr) == 16 && sizeof(NodeWeak) == 16);
static_assert(sizeof(Strong<Leaf>) == 24 && sizeof(Weak<Leaf>) == 24);
static_assert(sizeof(detail::Referer) == 16);
static_assert(sizeof(ReferenceBase<Node>) == 32);

static_assert(std::is_nothrow_default_constructible_v<NodePtr>);
static_assert(std::is_nothrow_move_constructible_v<NodePtr> &&
              std::is_nothrow_move_constructible_v<Strong<Leaf>> &&
              std::is_nothrow_move_assignable_v<NodeWeak>);

template <class From, class To>
constexpr bool implicit = std::is_convertible_v<From, To>;
template <class From, class To>
constexpr bool onlyExplicit = std::is_constructible_v<To, From> && !implicit<From, To>;

// From an object, and up, by itself; down and across when it is asked for.
static_assert(implicit<Node*, NodePtr> && implicit<Leaf*, NodePtr> && implicit<Node*, NodeWeak> &&
              implicit<std::nullptr_t, NodePtr> && !implicit<const Node*, NodePtr>);
static_assert(implicit<NodeWeak, NodePtr> && implicit<NodePtr, NodeWeak>);
static_assert(implicit<Strong<Both>, NodePtr> && implicit<Strong<Both>, Strong<Leaf>> &&
              implicit<Strong<Both>, Strong<Mixin>> && implicit<Weak<Both>, NodePtr> &&
              implicit<Weak<Both>, Strong<Leaf>> && implicit<Strong<Mixin>, NodeWeak>);
static_assert(onlyExplicit<NodePtr, Strong<Leaf>> && onlyExplicit<NodeWeak, Strong<Leaf>> &&
              onlyExplicit<NodePtr, Weak<Leaf>> && onlyExplicit<Strong<Leaf>, Strong<Mixin>> &&
              onlyExplicit<Strong<Leaf>, Strong<Stranger>>);
static_assert(!implicit<NodePtr, bool> && !implicit<NodePtr, Node*>);
// Constant objects stay constant.
static_assert(implicit<NodePtr, StrongPtr<const Node>> &&
              implicit<const Node*, WeakPtr<const Node>> &&
              !implicit<StrongPtr<const Node>, NodePtr> &&
              !implicit<WeakPtr<const Node>, NodePtr> && !implicit<Strong<const Leaf>, NodeWeak>);

/// An object with a strong and a weak pointer, and what a step does to it.
struct Scene {
  NodePtr strong = new Both;
  NodeWeak weak = strong;
  Strong<Leaf> leaf;
  NodePtr empty;
  NodeWeak emptyWeak;

  // What a step makes stays until the counts were looked at.
  std::vector<std::function<void()>> kept;
  template <class Pointer>
  void keep(Pointer pointer) {
    kept.emplace_back([held = std::make_shared<Pointer>(std::move(pointer))] {});
  }
};

} // namespace

TEST(Pointer, StepsChangeTheCountsByWhatTheyHold) {
  const struct {
    const char* what;
    std::function<void(Scene&)> step;
    int strong, weak; // how the counts differ afterwards
  } steps[] = {
      {"nothing", [](Scene&) {}, 0, 0},
      {"strong from an object", [](Scene& s) { s.keep(NodePtr(s.strong.get())); }, 1, 1},
      {"weak from an object", [](Scene& s) { s.keep(NodeWeak(s.strong.get())); }, 0, 1},
      {"strong from a derived object",
       [](Scene& s) { s.keep(Strong<Leaf>(dynamic_cast<Both*>(s.strong.get()))); }, 1, 1},
      {"weak from the object's own", [](Scene& s) { s.keep(NodeWeak(s.strong->self())); }, 0, 1},
      {"strong copy", [](Scene& s) { s.keep(NodePtr(s.strong)); }, 1, 1},
      {"weak copy", [](Scene& s) { s.keep(NodeWeak(s.weak)); }, 0, 1},
      {"strong from weak", [](Scene& s) { s.keep(NodePtr(s.weak)); }, 1, 1},
      {"lock", [](Scene& s) { s.keep(s.weak.lock()); }, 1, 1},
      {"hold of what is held", [](Scene& s) { s.keep(NodePtr::holdIfHeld(s.weak)); }, 1, 1},
      {"weak from strong", [](Scene& s) { s.keep(NodeWeak(s.strong)); }, 0, 1},
      {"strong down", [](Scene& s) { s.keep(Strong<Leaf>(s.strong)); }, 1, 1},
      {"weak down", [](Scene& s) { s.keep(Weak<Both>(s.weak)); }, 0, 1},
      {"strong down from weak", [](Scene& s) { s.keep(Strong<Both>(s.weak)); }, 1, 1},
      {"across", [](Scene& s) { s.keep(Strong<Mixin>(s.strong)); }, 1, 1},
      {"failing down", [](Scene& s) { s.keep(Strong<Stranger>(s.strong)); }, 0, 0},
      {"failing weak down", [](Scene& s) { s.keep(Weak<Stranger>(s.weak)); }, 0, 0},
      {"up", [](Scene& s) { s.keep(NodePtr(Strong<Both>(s.strong))); }, 1, 1},
      {"weak up from strong", [](Scene& s) { s.keep(NodeWeak(Strong<Both>(s.strong))); }, 0, 1},
      {"strong assigned", [](Scene& s) { s.empty = s.strong; }, 1, 1},
      {"strong assigned twice", [](Scene& s) { s.empty = s.empty = s.strong; }, 1, 1},
      {"weak assigned", [](Scene& s) { s.emptyWeak = s.weak; }, 0, 1},
      {"weak assigned from strong", [](Scene& s) { s.emptyWeak = s.strong; }, 0, 1},
      {"strong assigned from weak", [](Scene& s) { s.empty = s.weak; }, 1, 1},
      {"assigned from an object", [](Scene& s) { s.empty = s.strong.get(); }, 1, 1},
      {"assigned to itself", [](Scene& s) { s.strong = *&s.strong; }, 0, 0},
      {"moved to itself", [](Scene& s) { s.strong = std::move(*&s.strong); }, 0, 0},
      {"strong moved", [](Scene& s) { s.keep(std::move(s.strong)); }, 0, 0},
      {"weak moved", [](Scene& s) { s.keep(std::move(s.weak)); }, 0, 0},
      {"strong moved by assignment", [](Scene& s) { s.empty = std::move(s.strong); }, 0, 0},
      {"strong moved down", [](Scene& s) { s.keep(Strong<Leaf>(std::move(s.strong))); }, 0, 0},
      {"failing move", [](Scene& s) { s.keep(Strong<Stranger>(std::move(s.strong))); }, 0, 0},
      {"swapped", [](Scene& s) { s.empty.swap(s.strong); }, 0, 0},
      {"swapped by the library", [](Scene& s) { std::swap(s.emptyWeak, s.weak); }, 0, 0},
      {"weak dropped", [](Scene& s) { s.weak.reset(); }, 0, -1},
      {"weak emptied", [](Scene& s) { s.weak = nullptr; }, 0, -1},
      {"strong replaced", [](Scene& s) { s.keep(s.strong), s.strong = new Node; }, 0, 0},
      {"access", [](Scene& s) { s.strong->number += (*s.weak).number + s.weak->number; }, 0, 0},
      {"questions",
       [](Scene& s) {
         EXPECT_TRUE(s.strong && s.weak && s.strong == s.weak && s.strong.get() == s.weak.get());
       },
       0, 0},
  };
  for (const auto& one : steps) {
    SCOPED_TRACE(one.what);
    Scene scene;
    const NodeWeak watching = scene.weak;
    ASSERT_EQ(watching.strongCount(), 1);
    ASSERT_EQ(watching.weakCount(), 4); // the object's own, the strong one, and two weak ones
    one.step(scene);
    EXPECT_EQ(watching.strongCount(), 1 + one.strong);
    EXPECT_EQ(watching.weakCount(), 4 + one.weak);
    EXPECT_TRUE(watching);
    scene = Scene();
    EXPECT_EQ(watching.strongCount(), -111);
    EXPECT_EQ(watching.weakCount(), 1);
    EXPECT_FALSE(watching);
  }
}

TEST(Pointer, NewObjectsHoldTheirRecord) {
  Both object;
  const NodeWeak& self = object.self();
  EXPECT_EQ(self.strongCount(), 0);
  EXPECT_EQ(self.weakCount(), 1);
  EXPECT_EQ(self.get(), &object);
  // Its first member, behind the table of virtual functions.
  EXPECT_EQ(reinterpret_cast<const char*>(&self),
            reinterpret_cast<const char*>(static_cast<ReferenceBase<Node>*>(&object)) + 8);
  const NodeWeak weak = &object;
  EXPECT_EQ(weak.weakCount(), 2);
  EXPECT_EQ(weak, self);
  // An object that nobody holds is not taken hold of by the way.
  EXPECT_FALSE(NodePtr::holdIfHeld(weak));
  EXPECT_EQ(Weak<Both>(weak).get(), &object);
  EXPECT_EQ(weak.strongCount(), 0);

  const NodePtr empty;
  const NodeWeak emptyWeak(nullptr);
  const Strong<Leaf> fromNull(static_cast<Both*>(nullptr));
  EXPECT_FALSE(empty || emptyWeak || fromNull);
  EXPECT_EQ(empty.strongCount() + empty.weakCount() + emptyWeak.weakCount(), 0);
  EXPECT_EQ(empty.get(), nullptr);
  EXPECT_FALSE(emptyWeak.lock());
  EXPECT_FALSE(Strong<Leaf>(emptyWeak) || Weak<Mixin>(empty) || NodePtr(fromNull));
}

TEST(Pointer, CopiesOfAnObjectAreObjectsOfTheirOwn) {
  const StrongPtr<Node> first = new Node;
  first->number = 5;
  const StrongPtr<Node> copy = new Node(*first);
  EXPECT_EQ(copy->number, 5);
  EXPECT_NE(copy, first);
  EXPECT_NE(copy->self().serial(), first->self().serial());
  EXPECT_EQ(copy->instanceNumber(), first->instanceNumber() + 1);
  EXPECT_EQ(copy.strongCount(), 1);
  const std::uint64_t number = copy->instanceNumber();
  *copy = Node();
  EXPECT_EQ(copy->number, 1);
  EXPECT_EQ(copy->instanceNumber(), number);
  EXPECT_EQ(copy.strongCount(), 1);
}

TEST(Pointer, SerialsAreFreshForEveryPointer) {
  const NodePtr strong = new Both;
  const NodeWeak weak = strong;
  const std::pair<const char*, std::function<std::uint64_t()>> makers[] = {
      {"empty", [] { return NodePtr().serial(); }},
      {"empty weak", [] { return Weak<Leaf>(nullptr).serial(); }},
      {"strong copy", [&] { return NodePtr(strong).serial(); }},
      {"weak copy", [&] { return NodeWeak(weak).serial(); }},
      {"lock", [&] { return weak.lock().serial(); }},
      {"down", [&] { return Strong<Leaf>(weak).serial(); }},
      {"failing down", [&] { return Strong<Stranger>(strong).serial(); }},
      {"moved",
       [&] {
         NodePtr copy = strong;
         return NodePtr(std::move(copy)).serial();
       }},
      {"dead",
       [] {
         NodeWeak dead;
         dead = NodePtr(new Node);
         return dead.lock().serial();
       }},
      {"object", [] { return Node().self().serial(); }},
  };
  for (const auto& [what, make] : makers) {
    const std::uint64_t before = PointerID;
    const std::uint64_t first = make(), second = make();
    EXPECT_GT(first, before) << what;
    EXPECT_GT(second, first) << what;
    EXPECT_LE(second, PointerID) << what;
  }
  // The new value is the serial, for an object as well.
  PointerID = 1000;
  const NodePtr next;
  EXPECT_EQ(next.serial(), 1001U);
  const Node object;
  EXPECT_EQ(object.self().serial(), 1002U);
  EXPECT_EQ(PointerID, 1002U);
  // A pointer that is given another object, or loses the one it had, is the same pointer.
  NodePtr assigned;
  const std::uint64_t serial = assigned.serial();
  assigned = strong;
  EXPECT_EQ(assigned.serial(), serial);
  NodePtr other = std::move(assigned);
  assigned.swap(other);
  EXPECT_EQ(assigned.serial(), serial);
  assigned.reset();
  EXPECT_EQ(assigned.serial(), serial);
  EXPECT_EQ(RefererObjectCount, 0);
}

namespace {

struct FirstKind : ReferenceBase<FirstKind> {};
struct SecondKind : ReferenceBase<SecondKind> {};
struct DerivedKind : FirstKind {};

} // namespace

// A type of the same name in another source.
std::uint64_t instanceNumberOfAnotherFirstKind();

TEST(Pointer, InstancesAreNumberedPerType) {
  EXPECT_EQ(FirstKind::instancesMade(), 0U);
  EXPECT_EQ(FirstKind().instanceNumber(), 0U);
  EXPECT_EQ(SecondKind().instanceNumber(), 0U);
  EXPECT_EQ(DerivedKind().instanceNumber(), 1U);
  EXPECT_EQ(instanceNumberOfAnotherFirstKind(), 0U);
  EXPECT_EQ(FirstKind().instanceNumber(), 2U);
  EXPECT_EQ(FirstKind::instancesMade(), 3U);
  EXPECT_EQ(SecondKind::instancesMade(), 1U);
}

TEST(Pointer, ConversionsFindTheObject) {
  Both* const object = new Both;
  const Strong<Both> both = object;
  const NodePtr node = both;
  const Strong<Leaf> leaf = both;
  const Strong<Mixin> mixin = both;
  EXPECT_EQ(node.get(), object);
  EXPECT_EQ(leaf.get(), object);
  EXPECT_EQ(mixin.get(), object);
  EXPECT_NE(static_cast<const void*>(mixin.get()), static_cast<const void*>(leaf.get()));
  EXPECT_EQ(mixin->tag, 2);
  EXPECT_EQ(leaf->number, 1);

  // From each to each, strong and weak.
  const std::tuple every(node, leaf, mixin, both, NodeWeak(node), Weak<Leaf>(leaf),
                         Weak<Mixin>(node), Weak<Both>(mixin));
  std::apply(
      [&](const auto&... from) {
        const auto checkOne = [&](const auto& pointer) {
          EXPECT_EQ(NodePtr(pointer).get(), object);
          EXPECT_EQ(NodeWeak(pointer).get(), object);
          EXPECT_EQ(Strong<Leaf>(pointer).get(), object);
          EXPECT_EQ(Strong<Mixin>(pointer).get(), object);
          EXPECT_EQ(Weak<Mixin>(pointer).get(), object);
          EXPECT_EQ(Weak<Both>(pointer).lock().get(), object);
          EXPECT_EQ(StrongPtr<const Node>(pointer).get(), object);
          EXPECT_EQ(Weak<const Mixin>(pointer).lock().get(), object);
          EXPECT_FALSE(Strong<Stranger>(pointer));
          EXPECT_FALSE(Weak<Stranger>(pointer));
        };
        (checkOne(from), ...);
      },
      every);
  EXPECT_EQ(both.strongCount(), 4 + 4); // the four and their copies in the tuple

  // Through a virtual base, where only the dynamic cast knows the way.
  const NodePtr diamond = new Diamond;
  EXPECT_EQ(Strong<Left>(diamond).get(), dynamic_cast<Left*>(diamond.get()));
  EXPECT_EQ(Weak<Right>(Strong<Left>(diamond)).get(), dynamic_cast<Right*>(diamond.get()));
  EXPECT_FALSE(Strong<Leaf>(diamond));

  const StrongPtr<const Node> constant = static_cast<const Node*>(diamond.get());
  EXPECT_EQ(constant, diamond);
  EXPECT_EQ(constant->number, 1);
  static_assert(std::is_same_v<decltype(*constant), const Node&>);
}

TEST(Pointer, MovesTakeTheHoldOrLeaveIt) {
  NodePtr node = new Leaf;
  const NodeWeak weak = node;
  Strong<Stranger> wrong(std::move(node));
  EXPECT_FALSE(wrong);
  EXPECT_EQ(node, weak); // still held where it was
  Strong<Leaf> leaf(std::move(node));
  EXPECT_TRUE(leaf);
  EXPECT_EQ(node.get(), nullptr);
  EXPECT_EQ(node.weakCount(), 0);
  node = std::move(leaf);
  EXPECT_EQ(leaf.get(), nullptr);
  EXPECT_EQ(node, weak);
  NodeWeak moved = NodeWeak(weak);
  NodeWeak last = std::move(moved);
  EXPECT_EQ(moved.weakCount(), 0);
  EXPECT_EQ(last, weak);
  EXPECT_EQ(weak.strongCount(), 1);

  // The head of a chain moves down to the rest, whose hold lies in what it lets go of.
  struct Link : ReferenceBase<Link> {
    StrongPtr<Link> next;
  };
  constexpr int length = 1000000;
  StrongPtr<Link> head;
  for (int i = 0; i < length; ++i) {
    StrongPtr<Link> link = new Link;
    link->next = std::move(head);
    head = std::move(link);
  }
  int seen = 0;
  for (; head; head = std::move(head->next))
    ++seen;
  EXPECT_EQ(seen, length);
}

TEST(Pointer, ComparesByRecord) {
  const NodePtr first = new Both, second = new Node, empty;
  const NodeWeak firstWeak = first, secondWeak = second, emptyWeak;
  const Strong<Leaf> firstLeaf(first), emptyLeaf;
  const Weak<Mixin> firstMixin(first);
  Node* const object = first.get();
  const Both* const derived = dynamic_cast<Both*>(object);

  EXPECT_TRUE(first == first && first == firstWeak && firstWeak == first && first == firstLeaf &&
              firstMixin == firstLeaf && firstWeak == firstMixin);
  EXPECT_TRUE(first == object && object == first && firstWeak == object && firstLeaf == object &&
              firstMixin == derived && derived == first && first->self() == first);
  EXPECT_TRUE(first != second && first != secondWeak && firstLeaf != second && second != object &&
              firstMixin != second.get() && first != empty && emptyWeak != first);
  EXPECT_TRUE(empty == emptyWeak && emptyLeaf == empty && empty == nullptr &&
              nullptr == emptyWeak && emptyLeaf == static_cast<Node*>(nullptr));
  EXPECT_TRUE(first != nullptr && firstWeak != nullptr && first != static_cast<Leaf*>(nullptr));

  // One order for all of them, which is that of equality.
  EXPECT_TRUE((first < second) != (second < first));
  EXPECT_EQ(first < second, firstWeak < secondWeak);
  EXPECT_EQ(first < second, firstMixin < second);
  EXPECT_EQ(first<second, second> firstLeaf);
  EXPECT_TRUE(empty < first && emptyWeak < secondWeak && empty <= emptyWeak && first <= firstWeak &&
              !(first < firstMixin) && (first <=> firstWeak) == 0);
  const std::set<NodeWeak> ordered{firstWeak, secondWeak, NodeWeak(first), emptyWeak};
  EXPECT_EQ(ordered.size(), 3U);

  EXPECT_EQ(first.hash(), firstMixin.hash());
  EXPECT_EQ(std::hash<NodePtr>()(first), std::hash<NodeWeak>()(firstWeak));
  EXPECT_EQ(std::hash<Strong<Leaf>>()(firstLeaf), std::hash<Weak<Mixin>>()(firstMixin));
  const std::unordered_set<NodePtr> hashed{first, second, first, NodePtr(firstWeak), empty};
  EXPECT_EQ(hashed.size(), 3U);
  EXPECT_TRUE(hashed.contains(second));
}

namespace {

// All its objects come to lie at one address.
struct Placed : ReferenceBase<Placed> {
  static void* operator new(std::size_t) { return place.data(); }
  static void operator delete(void*) noexcept { ++deleted; }
  alignas(std::max_align_t) static inline std::array<char, 64> place;
  static inline int deleted = 0;
};

} // namespace

TEST(Pointer, IsNotTakenForANewObjectAtItsAddress) {
  static_assert(sizeof(Placed) <= 64);
  StrongPtr<Placed> strong = new Placed;
  const WeakPtr<Placed> old = strong;
  std::set<WeakPtr<Placed>> known{old};
  strong.reset();
  strong = new Placed;
  EXPECT_EQ(static_cast<void*>(strong.get()), Placed::place.data());
  EXPECT_TRUE(old != strong && old != strong.get() && old != strong->self());
  EXPECT_FALSE(known.contains(strong));
  EXPECT_TRUE(known.contains(old)); // also when its object is dead
  // A dead pointer refers to no object, and is still not the same as an empty one.
  EXPECT_TRUE(old == nullptr && old != WeakPtr<Placed>());
  strong = nullptr;
  EXPECT_EQ(Placed::deleted, 2);
}

class Unseen;
StrongPtr<Unseen> makeUnseen();
int unseenGone();

TEST(Pointer, IsHeldWhereItsClassIsOnlyNamed) {
  StrongPtr<Unseen> strong = makeUnseen(), other;
  std::swap(strong, other);
  EXPECT_TRUE(other && !strong && other.strongCount() == 1);
  const StrongPtr<Unseen> last = std::move(other);
  EXPECT_EQ(unseenGone(), 0);
  strong = makeUnseen();
  EXPECT_TRUE(last != strong);
  strong.reset();
  EXPECT_EQ(unseenGone(), 1);
}
