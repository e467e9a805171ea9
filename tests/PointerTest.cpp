#include <tolvane/Counter.hpp>
#include <tolvane/SpeakPtr.hpp>
#include <tolvane/StrongPtr.hpp>

#include <array>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <unordered_set>

using namespace Tolvane;

// Of a type that has the same name as one of these, in another source.
std::uint64_t instanceNumberOfAnotherFirstKind();

namespace {

struct Node : ReferenceBase<Node> {
  Node() { ++alive; }
  Node(const Node& other) : ReferenceBase(other), number(other.number) { ++alive; }
  Node& operator=(const Node&) = default;
  ~Node() override { --alive; }
  int number = 1;
  static inline int alive = 0;
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
static_assert(sizeof(NodePtr) == 16 && sizeof(NodeWeak) == 16 && sizeof(Strong<Leaf>) == 24 &&
              sizeof(Weak<Leaf>) == 24 && sizeof(detail::Referer) == 16 &&
              sizeof(ReferenceBase<Node>) == 32);
static_assert(std::is_nothrow_default_constructible_v<NodePtr> &&
              std::is_nothrow_move_constructible_v<NodePtr> &&
              std::is_nothrow_move_constructible_v<Strong<Leaf>> &&
              std::is_nothrow_move_assignable_v<NodeWeak>);

template <class From, class To>
constexpr bool implicit = std::is_convertible_v<From, To>;
template <class From, class To>
constexpr bool onlyExplicit = std::is_constructible_v<To, From> && !implicit<From, To>;

// From an object, and up, by itself; down and across when it is asked for.
static_assert(implicit<Node*, NodePtr> && implicit<Leaf*, NodePtr> && implicit<Node*, NodeWeak> &&
              implicit<std::nullptr_t, NodePtr> && !implicit<const Node*, NodePtr> &&
              implicit<NodeWeak, NodePtr> && implicit<NodePtr, NodeWeak> &&
              implicit<Strong<Both>, NodePtr> && implicit<Strong<Both>, Strong<Leaf>> &&
              implicit<Strong<Both>, Strong<Mixin>> && implicit<Weak<Both>, NodePtr> &&
              implicit<Weak<Both>, Strong<Leaf>> && implicit<Strong<Mixin>, NodeWeak>);
static_assert(onlyExplicit<NodePtr, Strong<Leaf>> && onlyExplicit<NodeWeak, Strong<Leaf>> &&
              onlyExplicit<NodePtr, Weak<Leaf>> && onlyExplicit<Strong<Leaf>, Strong<Mixin>> &&
              onlyExplicit<Strong<Leaf>, Strong<Stranger>> && !implicit<NodePtr, bool> &&
              !implicit<NodePtr, Node*> &&
              !std::is_constructible_v<NodePtr, const DynPtr<Node, Node>&>);
// Constant objects stay constant.
static_assert(implicit<NodePtr, StrongPtr<const Node>> &&
              implicit<const Node*, WeakPtr<const Node>> &&
              !implicit<WeakPtr<const Node>, NodePtr> && !implicit<Strong<const Leaf>, NodeWeak>);

/// Nothing can be reached through the pointers of a dead object, whatever way is tried.
void expectDead(const NodeWeak& weak, int holders) {
  EXPECT_EQ(weak.strongCount(), -111);
  EXPECT_EQ(weak.get(), nullptr);
  EXPECT_FALSE(weak || weak.lock() || Weak<Leaf>(weak) || NodePtr::holdIfHeld(weak));
  // What comes of it does not even hold the record.
  EXPECT_EQ(weak.lock().weakCount() + NodePtr(weak).weakCount() + Strong<Leaf>(weak).weakCount(),
            0);
  testing::internal::CaptureStdout();
  EXPECT_THROW(weak->number = 0, NullPtrException);
  EXPECT_THROW((*weak).number = 0, NullPtrException);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(weak.weakCount(), holders);
}

TEST(Pointer, CountsTellWhatIsHeld) {
  NodePtr strong = new Both, empty;
  NodeWeak weak = strong, emptyWeak;
  const NodeWeak watching = weak;
  ASSERT_TRUE(watching.strongCount() == 1 && watching.weakCount() == 4); // with the object's own
  // How the counts differ while what is made stands.
  const auto differ = [&](int strongs, int weaks, auto...) {
    return watching.strongCount() == 1 + strongs && watching.weakCount() == 4 + weaks;
  };
  const NodePtr& s = strong;
  const NodeWeak& w = weak;
  EXPECT_TRUE(differ(1, 1, NodePtr(s.get())));
  EXPECT_TRUE(differ(1, 1, Strong<Leaf>(dynamic_cast<Both*>(s.get()))));
  EXPECT_TRUE(differ(5, 5, NodePtr(s), NodePtr(w), w.lock(), NodePtr::holdIfHeld(w), NodePtr(s)));
  EXPECT_TRUE(differ(3, 3, Strong<Leaf>(s), Strong<Both>(w), Strong<Mixin>(s)));
  EXPECT_TRUE(differ(1, 1, NodePtr(Strong<Both>(s))));
  EXPECT_TRUE(differ(0, 2, NodeWeak(s.get()), NodeWeak(s->self())));
  EXPECT_TRUE(differ(0, 3, NodeWeak(w), NodeWeak(s), Weak<Both>(w)));
  EXPECT_TRUE(differ(1, 2, NodeWeak(Strong<Both>(s)))); // which holds on to the end of the line
  EXPECT_TRUE(differ(0, 0, Strong<Stranger>(s), Weak<Stranger>(w)));
  const struct {
    int strong, weak;
    std::function<void()> step, back;
  } steps[] = {
      {1, 1, [&] { empty = empty = strong; }, [&] { empty = nullptr; }},
      {1, 1, [&] { empty = weak; }, [&] { empty.reset(); }},
      {0, 1, [&] { emptyWeak = weak; }, [&] { emptyWeak = nullptr; }},
      {0, 1, [&] { emptyWeak = strong; }, [&] { emptyWeak.reset(); }},
      {0, 0, [&] { strong = *&strong; }, [&] { strong = std::move(*&strong); }},
      {0, 0, [&] { empty = std::move(strong); }, [&] { empty.swap(strong); }},
      {0, 0, [&] { std::swap(emptyWeak, weak); }, [&] { weak = std::move(emptyWeak); }},
      {0, -1, [&] { weak = nullptr; }, [&] { weak = strong; }},
      {0, 0, [&] { strong->number += (*weak).number + weak->number; }, [] {}},
  };
  for (const auto& one : steps) {
    one.step();
    EXPECT_TRUE(differ(one.strong, one.weak)) << &one - steps;
    one.back();
    EXPECT_TRUE(differ(0, 0)) << &one - steps;
  }
  const Strong<Leaf> down(std::move(strong));
  EXPECT_TRUE(differ(0, 0));
}

TEST(Pointer, NewObjectsHoldTheirRecord) {
  Both object;
  const NodeWeak& self = object.self();
  EXPECT_TRUE(self.strongCount() == 0 && self.weakCount() == 1 && self.get() == &object);
  // An object that nobody holds is not taken hold of by the way.
  EXPECT_FALSE(NodePtr::holdIfHeld(self));
  EXPECT_TRUE(Weak<Both>(self).get() == &object && self.strongCount() == 0);

  const NodePtr empty;
  EXPECT_FALSE(empty || Strong<Leaf>(static_cast<Both*>(nullptr)) || NodeWeak(empty).lock() ||
               Strong<Leaf>(NodeWeak()) || empty.strongCount() + empty.weakCount() > 0);
}

TEST(Pointer, SerialsAreFreshForEveryPointer) {
  const NodePtr strong = new Both;
  const NodeWeak weak = strong;
  // Of whatever kind, and whether they refer to an object or not; the new value is the serial.
  PointerID = 1000;
  const auto isFresh = [](const auto& pointer) { return pointer.serial() == PointerID; };
  EXPECT_TRUE(isFresh(NodePtr()) && isFresh(Weak<Leaf>(nullptr)) && isFresh(NodePtr(strong)) &&
              isFresh(NodeWeak(weak)) && isFresh(weak.lock()) && isFresh(Strong<Leaf>(weak)) &&
              isFresh(Strong<Stranger>(strong)) && isFresh(Node().self()));
  // A pointer that is given another object, or loses the one it had, is the same pointer.
  NodePtr assigned;
  const std::uint64_t serial = assigned.serial();
  assigned = strong;
  assigned.reset();
  EXPECT_TRUE(serial == 1009 && assigned.serial() == serial && RefererObjectCount == 0);
}

struct FirstKind : ReferenceBase<FirstKind> {};
struct DerivedKind : FirstKind {};

TEST(Pointer, InstancesAreNumberedPerType) {
  EXPECT_EQ(FirstKind().instanceNumber(), 0U);
  EXPECT_EQ(DerivedKind().instanceNumber(), 1U);
  EXPECT_EQ(instanceNumberOfAnotherFirstKind(), 0U);
  EXPECT_EQ(FirstKind::instancesMade(), 2U);
  // Copies of an object are objects of their own.
  const NodePtr first = new Node, copy = new Node(*first);
  EXPECT_NE(copy->self().serial(), first->self().serial());
  *copy = Node();
  EXPECT_TRUE(copy->instanceNumber() == first->instanceNumber() + 1 && copy.strongCount() == 1);
}

TEST(Pointer, EveryKindFindsTheObjectAndComparesByItsRecord) {
  Both* const object = new Both;
  const NodePtr node = object, second = new Node, empty;
  const NodeWeak weak = node, emptyWeak;
  const Strong<Leaf> leaf(node), emptyLeaf;
  const Strong<Mixin> mixin(node);
  EXPECT_NE(static_cast<const void*>(mixin.get()), static_cast<const void*>(node.get()));
  EXPECT_EQ(mixin->tag, 2);
  const auto check = [&](const auto& pointer) {
    // To each kind, strong and weak.
    EXPECT_TRUE(NodePtr(pointer).get() == object && NodeWeak(pointer).get() == object &&
                Strong<Leaf>(pointer).get() == object && Strong<Mixin>(pointer).get() == object &&
                Weak<Both>(pointer).lock().get() == object &&
                StrongPtr<const Node>(pointer).get() == object &&
                Weak<const Mixin>(pointer).lock().get() == object);
    EXPECT_FALSE(Strong<Stranger>(pointer) || Weak<Stranger>(pointer));
    EXPECT_TRUE(pointer == node && weak == pointer && pointer == leaf && mixin == pointer &&
                pointer == static_cast<Leaf*>(object) && object == pointer &&
                pointer == node->self());
    EXPECT_TRUE(pointer != second && pointer != second.get() && pointer != empty &&
                emptyWeak != pointer && pointer != nullptr);
    // One order for all of them, which is that of equality.
    EXPECT_TRUE((pointer <=> weak) == 0 && (pointer < second) == (node < second) &&
                (pointer > second) != (node < second) && emptyLeaf < pointer &&
                pointer.hash() == node.hash());
  };
  const auto checkAll = [&](const auto&... pointer) { (check(pointer), ...); };
  checkAll(node, mixin, leaf, Strong<Both>(mixin), weak, Weak<Leaf>(node), Weak<Mixin>(node),
           Weak<Both>(mixin));
  EXPECT_EQ(node.strongCount(), 3);
  EXPECT_TRUE(empty == emptyWeak && emptyLeaf == empty && empty == nullptr &&
              nullptr == emptyWeak && emptyLeaf == static_cast<Node*>(nullptr));
  const std::unordered_set<NodePtr> hashed{node, second, node, NodePtr(weak), empty};
  EXPECT_TRUE(hashed.size() == 3 && hashed.contains(second));

  // Through a virtual base, where only the dynamic cast knows the way.
  const NodePtr diamond = new Diamond;
  EXPECT_EQ(Strong<Left>(diamond).get(), dynamic_cast<Left*>(diamond.get()));
  EXPECT_EQ(Weak<Right>(Strong<Left>(diamond)).get(), dynamic_cast<Right*>(diamond.get()));
  EXPECT_FALSE(Strong<Leaf>(diamond));
  const StrongPtr<const Node> constant = static_cast<const Node*>(diamond.get());
  EXPECT_TRUE(constant == diamond && constant->number == 1);
  static_assert(std::is_same_v<decltype(*constant), const Node&>);
}

TEST(Pointer, MovesTakeTheHoldOrLeaveIt) {
  NodePtr node = new Leaf;
  const NodeWeak weak = node;
  Strong<Leaf> leaf(std::move(node));
  EXPECT_TRUE(!node && node.weakCount() == 0 && leaf == weak);
  Strong<Stranger> stranger(std::move(leaf));
  EXPECT_FALSE(stranger);
  node = std::move(leaf);
  EXPECT_TRUE(!leaf.get() && node == weak) << "a failing conversion left it where it was";

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

// All its objects come to lie at one address.
struct Placed : ReferenceBase<Placed> {
  static void* operator new(std::size_t) { return place.data(); }
  static void operator delete(void*) noexcept { ++deleted; }
  alignas(std::max_align_t) static inline std::array<char, 64> place;
  static inline int deleted = 0;
};
static_assert(sizeof(Placed) <= 64);

TEST(Pointer, IsNotTakenForANewObjectAtItsAddress) {
  StrongPtr<Placed> strong = new Placed;
  const WeakPtr<Placed> old = strong;
  const std::set<WeakPtr<Placed>> known{old};
  strong.reset();
  strong = new Placed;
  EXPECT_TRUE(old != strong && old != strong.get() && old != strong->self());
  EXPECT_TRUE(!known.contains(strong) && known.contains(old)); // also when its object is dead
  // A dead pointer refers to no object, and is still not the same as an empty one.
  EXPECT_TRUE(old == nullptr && old != WeakPtr<Placed>());
  strong = nullptr;
  EXPECT_EQ(Placed::deleted, 2);
}

TEST(PointerLife, LastStrongPointerDestroysAtOnce) {
  NodePtr strong = new Leaf, second = strong;
  NodeWeak weak = strong;
  Weak<Leaf> leaf(strong);
  strong.reset();
  EXPECT_TRUE(Node::alive == 1 && weak && leaf);
  second = nullptr;
  EXPECT_EQ(Node::alive, 0);
  expectDead(weak, 2);
  // Weak pointers to the dead are copied and dropped like any; the last one frees the record.
  const NodeWeak copy = weak, leafCopy = Weak<Leaf>(leaf);
  EXPECT_TRUE(leaf.get() == nullptr && copy.weakCount() == 4 && copy == weak);
  weak.reset();
  leaf = Weak<Leaf>();
  EXPECT_EQ(copy.weakCount(), 2);
}

TEST(PointerLife, ObjectsDestroyedByHandAreDeadForTheirPointers) {
  auto* const object = new Leaf;
  NodePtr strong = object;
  Strong<Leaf> leaf = object;
  const NodeWeak weak = object;
  delete object;
  EXPECT_EQ(Node::alive, 0);
  expectDead(weak, 3);
  // A copy of a dead strong pointer holds the record only.
  NodePtr copy = strong, up = leaf, assigned;
  assigned = strong;
  EXPECT_TRUE(weak.strongCount() == -111 && weak.weakCount() == 6);
  EXPECT_FALSE(strong || leaf || copy || up || assigned);
  EXPECT_TRUE(copy == strong && strong == weak);
  copy.reset();
  up = std::move(assigned);
  strong = leaf = nullptr;
  EXPECT_TRUE(weak.strongCount() == -111 && weak.weakCount() == 2);
}

struct Failing : Node {
  Failing(NodeWeak& weak, NodePtr* strong) {
    weak = Weak<Failing>(this);
    EXPECT_TRUE(weak);
    if (strong)
      *strong = this;
    throw std::runtime_error("not today");
  }
};

/// Makes pointers to itself in its destructor.
struct Farewell : Node {
  explicit Farewell(NodeWeak& left) : left_(left) {}
  ~Farewell() override {
    EXPECT_EQ(self().strongCount(), -111);
    const NodePtr strong = this;
    const Strong<Farewell> derived = this;
    left_ = this;
    EXPECT_FALSE(self() || strong || derived || left_);
    EXPECT_TRUE(strong == left_ && derived == left_);
  }
  NodeWeak& left_;
};

TEST(PointerLife, HalfBuiltAndDyingObjectsAreDead) {
  for (const bool held : {false, true}) {
    NodeWeak weak;
    NodePtr strong;
    EXPECT_THROW(NodePtr(new Failing(weak, held ? &strong : nullptr)), std::runtime_error);
    EXPECT_TRUE(Node::alive == 0 && !strong);
    expectDead(weak, held ? 2 : 1);
  }
  NodeWeak left;
  NodePtr strong = new Farewell(left);
  strong.reset();
  expectDead(left, 1);
}

struct Hooked : ReferenceBase<Hooked> {
  explicit Hooked(std::function<void(Hooked&)> hook) : hook_(std::move(hook)) { ++alive; }
  ~Hooked() override { --alive; }
  void unction() override {
    ++calls;
    EXPECT_EQ(self().strongCount(), 1); // it still holds the object
    hook_(*this);
  }
  std::function<void(Hooked&)> hook_;
  static inline int alive = 0, calls = 0;
};

TEST(PointerLife, HookForTheLastPointer) {
  using Ptr = StrongPtr<Hooked>;
  static Ptr kept;
  static WeakPtr<Hooked> keptWeak;
  const struct {
    int alive; // after the first release
    int weak;  // the count then, with the test's own pointer
    std::function<void(Hooked&)> hook;
  } cases[] = {
      {0, 1, [](Hooked&) {}},
      {0, 1, [](Hooked& object) { object.self().lock().reset(); }},
      {0, 2, [](Hooked& object) { keptWeak = &object; }},
      {1, 3, [](Hooked& object) { kept = &object, Ptr(kept).reset(); }},
      {0, 1, [](Hooked& object) { kept = &object, kept.reset(); }},
      {0, 1, [](Hooked& object) { delete &object; }}, // by hand
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    Hooked::calls = 0;
    bool asked = false;
    // Only the first time; the hook is called again when the object was taken back.
    Ptr strong = new Hooked([hook = &c.hook, &asked](Hooked& object) {
      if (!std::exchange(asked, true))
        (*hook)(object);
    });
    Ptr second = strong;
    const WeakPtr<Hooked> weak = strong;
    strong.reset();
    EXPECT_EQ(Hooked::calls, 0); // not the last one
    second.reset();
    EXPECT_TRUE(Hooked::calls == 1 && Hooked::alive == c.alive && weak.weakCount() == c.weak &&
                weak.strongCount() == (c.alive > 0 ? 1 : -111));
    kept.reset();
    keptWeak.reset();
    EXPECT_TRUE(Hooked::calls == 1 + c.alive && Hooked::alive == 0 && weak.weakCount() == 1);
  }
  // A destruction by hand does not ask.
  Hooked::calls = 0;
  delete new Hooked([](Hooked&) {});
  EXPECT_EQ(Hooked::calls, 0);
}

TEST(PointerLife, ReplacedObjectsSeeWhatReplacedThem) {
  struct Looking : ReferenceBase<Looking> {
    explicit Looking(std::function<void()> look) : look_(std::move(look)) {}
    ~Looking() override { look_(); }
    std::function<void()> look_;
  };
  StrongPtr<Looking> pointer;
  int looks = 0;
  const StrongPtr<Looking> next = new Looking([] {});
  pointer = new Looking([&] { looks += pointer == next; });
  pointer = next;
  pointer = new Looking([&] { looks += pointer == next; });
  pointer = StrongPtr<Looking>(next);
  // It may even take the pointer that loses it for something else.
  pointer = new Looking([&] { pointer = next; });
  pointer.reset();
  EXPECT_TRUE(pointer == next && looks == 2);
}

struct Holder {
  // By a function, lest the compiler tells what the library is to tell.
  template <class Pointer>
  static const Pointer& same(const Pointer& pointer) {
    return pointer;
  }
  Holder() : strong(same(strong)), leaf(same(leaf)), weak(same(weak)) {}
  NodePtr strong;
  Strong<Leaf> leaf;
  NodeWeak weak;
};

constexpr int largest = std::numeric_limits<std::int32_t>::max();

TEST(PointerLife, MembersCopiedFromThemselvesStayEmpty) {
  // The memory looks like a pointer to somewhere, as that of a member before its construction may.
  alignas(Holder) unsigned char memory[sizeof(Holder)];
  std::fill_n(memory, sizeof memory, static_cast<unsigned char>(0xa5));
  testing::internal::CaptureStdout();
  Holder* const holder = new (memory) Holder;
  const std::string once = "*** DYNAMIC POINTER SELF-ASSIGNMENT DURING CONSTRUCTION - THIS LOOKS "
                           "LIKE A RECURSIVE CONSTRUCTOR CALL,\n"
                           "*** CHECK CORRECT CLASS MEMBER INITIALIZATION - PROGRAM TERMINATED\n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(), once + once + once);
  EXPECT_FALSE(holder->strong || holder->leaf || holder->weak);
  EXPECT_EQ(holder->strong.weakCount() + holder->weak.weakCount(), 0);
  EXPECT_NE(holder->strong.serial(), holder->leaf.serial());
  holder->~Holder();
}

TEST(PointerLife, CountsEndAtTheLargestNumber) {
  const NodePtr strong = new Leaf;
  const Strong<Leaf> leaf(strong);
  const NodeWeak weak = strong;
  const struct {
    std::function<void()> raise;
    bool raisesStrong, holdsTheDead, ofLeaf;
  } ways[] = {
      {[&] { const NodePtr copy = strong; }, true, true, false},
      {[&] { const Strong<Leaf> copy = leaf; }, true, true, true},
      {[&] { const NodePtr up = leaf; }, true, true, false},
      {[&] { const Strong<Leaf> down(strong); }, true, false, true},
      {[&] { const NodePtr locked = weak.lock(); }, true, false, false},
      {[&] { NodePtr::holdIfHeld(weak); }, true, false, false},
      {[&] { const NodeWeak copy = weak; }, false, true, false},
      {[&] { const Weak<Leaf> down(weak); }, false, false, true},
  };
  detail::Referer& record = *detail::PointerAccess::referer(strong);
  const detail::Referer::Counts right = record.counts();
  for (const auto& way : ways) {
    // The last ones are around where the counts begin to be looked at before the step.
    for (const auto& [strongs, weaks, throws] :
         {std::tuple(largest, 10, way.raisesStrong), std::tuple(10, largest, true),
          std::tuple(largest - 1, largest - 1, false), std::tuple(-111, largest, way.holdsTheDead),
          std::tuple(largest - 65535, largest - 65535, false),
          std::tuple(largest - 65536, largest - 65536, false)}) {
      record.setCounts({strongs, weaks});
      bool threw = false;
      try {
        way.raise();
      } catch (const MaxExceptionCount& e) {
        threw = e.count() == largest && e.base() == typeid(Node) &&
                e.type() == (way.ofLeaf ? typeid(Leaf) : typeid(Node));
      }
      EXPECT_TRUE(threw == throws && record.counts().strong == strongs &&
                  record.counts().weak == weaks)
          << &way - ways << ' ' << strongs << ' ' << weaks;
      record.setCounts(right);
    }
  }
}

TEST(PointerLife, HoldThatNobodyCountedIsReported) {
  const NodePtr strong = new Node;
  NodeWeak weak = strong;
  detail::Referer* const record = detail::PointerAccess::referer(strong);
  record->setCounts({1, 0});
  testing::internal::CaptureStdout();
  weak.reset();
  EXPECT_TRUE(testing::internal::GetCapturedStdout().ends_with(
      " via " + to_address_string(record) +
      "] - weakptr destructed with no strong and no weak references!!!\n"));
  EXPECT_EQ(record->counts().strong, 1);
  record->setCounts({1, 2});
}

TEST(Counter, TellsWhenItReachesZero) {
  Counter counter;
  ++ ++counter;
  EXPECT_FALSE(--counter);
  EXPECT_TRUE(--counter && counter.value() == 0);
  const std::lock_guard lock(counter_mutex());
  std::thread([] { EXPECT_FALSE(counter_mutex().try_lock()); }).join(); // it is one for all
}

} // namespace
