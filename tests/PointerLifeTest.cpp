#include <tolvane/Counter.hpp>
#include <tolvane/Provenance.hpp>
#include <tolvane/StrongPtr.hpp>

#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <stdexcept>
#include <thread>

using namespace Tolvane;

namespace {

struct Figure : ReferenceBase<Figure> {
  Figure() { ++alive; }
  ~Figure() override { --alive; }
  static inline int alive = 0;
  int number = 3;
};

struct Circle : Figure {};

using FigurePtr = StrongPtr<Figure>;
using FigureWeak = WeakPtr<Figure>;
using CirclePtr = StrongPtr<Circle, Figure>;
using CircleWeak = WeakPtr<Circle, Figure>;

const detail::Referer* recordOf(const FigureWeak& pointer) {
  return detail::PointerAccess::referer(pointer);
}

/// Nothing can be reached through the pointers of a dead object, whatever way is tried.
void expectDead(const FigureWeak& weak, int holders) {
  EXPECT_EQ(weak.strongCount(), -111);
  EXPECT_EQ(weak.weakCount(), holders);
  EXPECT_EQ(weak.get(), nullptr);
  EXPECT_FALSE(weak);
  EXPECT_FALSE(weak.lock());
  EXPECT_EQ(weak.lock().weakCount(), 0); // it does not even hold the record
  EXPECT_EQ(FigurePtr(weak).weakCount(), 0);
  EXPECT_EQ(CirclePtr(weak).weakCount(), 0);
  EXPECT_FALSE(CircleWeak(weak));
  EXPECT_FALSE(FigurePtr::holdIfHeld(weak));
  testing::internal::CaptureStdout();
  EXPECT_THROW(weak->number = 0, NullPtrException);
  EXPECT_THROW((*weak).number = 0, NullPtrException);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(weak.weakCount(), holders);
}

} // namespace

TEST(PointerLife, LastStrongPointerDestroysAtOnce) {
  FigurePtr strong = new Circle;
  FigurePtr second = strong;
  FigureWeak weak = strong;
  CircleWeak circle(strong);
  strong.reset();
  EXPECT_EQ(Figure::alive, 1);
  EXPECT_TRUE(weak && circle);
  second = nullptr;
  EXPECT_EQ(Figure::alive, 0);
  expectDead(weak, 2);
  EXPECT_EQ(recordOf(weak)->object(), nullptr);
  EXPECT_EQ(circle.get(), nullptr);

  // Weak pointers to the dead are copied and dropped like any; the last one frees the record.
  const FigureWeak copy = weak;
  const CircleWeak circleCopy = circle;
  EXPECT_EQ(copy.weakCount(), 4);
  EXPECT_EQ(copy, weak);
  weak.reset();
  circle = CircleWeak();
  EXPECT_EQ(copy.weakCount(), 2);
}

TEST(PointerLife, ObjectsDestroyedByHandAreDeadForTheirPointers) {
  auto* const object = new Circle;
  FigurePtr strong = object;
  CirclePtr circle = object;
  const FigureWeak weak = object;
  EXPECT_EQ(weak.strongCount(), 2);
  delete object;
  EXPECT_EQ(Figure::alive, 0);
  expectDead(weak, 3);
  EXPECT_FALSE(strong || circle);
  EXPECT_EQ(strong, weak);

  // A copy of a dead strong pointer holds the record only.
  FigurePtr copy = strong;
  const CirclePtr circleCopy = circle;
  FigurePtr up = circle;
  FigurePtr assigned;
  assigned = strong;
  EXPECT_EQ(weak.strongCount(), -111);
  EXPECT_EQ(weak.weakCount(), 7);
  EXPECT_FALSE(copy || circleCopy || up || assigned);
  EXPECT_EQ(copy, strong);
  copy.reset();
  up = std::move(assigned);
  strong = circle = nullptr;
  EXPECT_EQ(weak.strongCount(), -111);
  EXPECT_EQ(weak.weakCount(), 3);

  FigureWeak left;
  {
    Circle onTheStack;
    left = &onTheStack;
    EXPECT_TRUE(left);
  }
  expectDead(left, 1);
}

namespace {

struct Watcher {
  FigureWeak weak, weakCircle;
  FigurePtr strong;
};

struct Failing : Figure {
  Failing(Watcher& watcher, bool held) {
    watcher.weak = this;
    watcher.weakCircle = WeakPtr<Failing, Figure>(this);
    EXPECT_TRUE(watcher.weak && watcher.weakCircle);
    if (held)
      watcher.strong = this;
    throw std::runtime_error("not today");
  }
};

} // namespace

TEST(PointerLife, HalfBuiltObjectsAreDead) {
  for (const bool held : {false, true}) {
    Watcher watcher;
    EXPECT_THROW(FigurePtr(new Failing(watcher, held)), std::runtime_error);
    EXPECT_EQ(Figure::alive, 0);
    EXPECT_FALSE(watcher.strong);
    expectDead(watcher.weak, held ? 3 : 2);
    EXPECT_EQ(watcher.weak, watcher.weakCircle);
  }
}

namespace {

/// Makes pointers to itself in its destructor.
struct Farewell : Figure {
  explicit Farewell(FigureWeak& left) : left_(left) {}
  ~Farewell() override {
    EXPECT_FALSE(self());
    EXPECT_EQ(self().strongCount(), -111);
    FigurePtr strong = this;
    const StrongPtr<Farewell, Figure> derived = this;
    const WeakPtr<Farewell, Figure> weak = this;
    EXPECT_FALSE(strong || derived || weak);
    EXPECT_EQ(strong, weak);
    EXPECT_EQ(derived, weak);
    left_ = this;
  }
  FigureWeak& left_;
};

} // namespace

TEST(PointerLife, DyingObjectsStayDead) {
  FigureWeak left;
  FigurePtr strong = new Farewell(left);
  testing::internal::CaptureStdout();
  strong.reset();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(Figure::alive, 0);
  expectDead(left, 1);
}

namespace {

struct Hooked : ReferenceBase<Hooked> {
  using Hook = std::function<void(Hooked&)>;
  explicit Hooked(Hook hook) : hook_(std::move(hook)) { ++alive; }
  ~Hooked() override { --alive; }
  void unction() override {
    ++calls;
    countSeen = self().strongCount();
    hook_(*this);
  }
  Hook hook_;
  static inline int alive = 0, calls = 0, countSeen = 0;
};

} // namespace

TEST(PointerLife, HookForTheLastPointer) {
  static StrongPtr<Hooked> kept;
  static WeakPtr<Hooked> keptWeak;
  struct Case {
    const char* what;
    Hooked::Hook hook;
    int alive; // after the first release
    int weak;  // the count then, with the test's own pointer
  };
  const Case cases[] = {
      {"does nothing", [](Hooked&) {}, 0, 1},
      {"takes a pointer and drops it", [](Hooked& o) { const StrongPtr<Hooked> one = &o; }, 0, 1},
      {"locks and drops", [](Hooked& o) { o.self().lock().reset(); }, 0, 1},
      {"converts", [](Hooked& o) { EXPECT_TRUE(StrongPtr<const Hooked>(o.self())); }, 0, 1},
      {"takes a weak pointer", [](Hooked& o) { keptWeak = &o; }, 0, 2},
      {"takes itself back", [](Hooked& o) { kept = &o; }, 1, 3},
      {"takes itself back twice and drops one",
       [](Hooked& o) {
         kept = &o;
         const StrongPtr<Hooked> second = kept;
       },
       1, 3},
      {"takes itself back and thinks better of it",
       [](Hooked& o) {
         kept = &o;
         kept.reset();
       },
       0, 1},
      {"destroys by hand", [](Hooked& o) { delete &o; }, 0, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Hooked::calls = 0;
    bool asked = false;
    // Only the first time; the hook is called again when the object was taken back.
    StrongPtr<Hooked> strong = new Hooked([&](Hooked& object) {
      if (!std::exchange(asked, true)) {
        const Hooked::Hook hook = c.hook; // outlives the object
        hook(object);
      }
    });
    StrongPtr<Hooked> second = strong;
    const WeakPtr<Hooked> weak = strong;
    strong.reset();
    EXPECT_EQ(Hooked::calls, 0); // not the last one
    second.reset();
    EXPECT_EQ(Hooked::calls, 1);
    EXPECT_EQ(Hooked::countSeen, 1); // it still holds the object
    EXPECT_EQ(Hooked::alive, c.alive);
    EXPECT_EQ(weak.strongCount(), c.alive > 0 ? 1 : -111);
    EXPECT_EQ(weak.weakCount(), c.weak);
    kept.reset();
    keptWeak.reset();
    EXPECT_EQ(Hooked::calls, 1 + c.alive);
    EXPECT_EQ(Hooked::alive, 0);
    EXPECT_EQ(weak.strongCount(), -111);
    EXPECT_EQ(weak.weakCount(), 1);
  }
  // Every way to lose the last pointer asks.
  const std::pair<const char*, std::function<void(StrongPtr<Hooked>)>> ways[] = {
      {"end of scope", [](const StrongPtr<Hooked>&) {}},
      {"reset", [](StrongPtr<Hooked> p) { p.reset(); }},
      {"null", [](StrongPtr<Hooked> p) { p = nullptr; }},
      {"another object", [](StrongPtr<Hooked> p) { p = new Hooked([](Hooked&) {}); }},
      {"moved from elsewhere", [](StrongPtr<Hooked> p) { p = StrongPtr<Hooked>(); }},
  };
  for (const auto& [what, lose] : ways) {
    bool asked = false;
    lose(new Hooked([&](Hooked&) { asked = true; }));
    EXPECT_TRUE(asked) << what;
  }
  EXPECT_EQ(Hooked::alive, 0);
  // By hand, nobody is asked.
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
  const auto nothing = [] {};
  const StrongPtr<Looking> next = new Looking(nothing);
  const std::function<void()> steps[] = {
      [&] { pointer = next; },
      [&] { pointer = StrongPtr<Looking>(next); },
      [&] { pointer = next.get(); },
  };
  for (const auto& step : steps) {
    pointer = new Looking([&] {
      ++looks;
      EXPECT_EQ(pointer, next);
    });
    step();
  }
  // It may even take the pointer that loses it for something else.
  pointer = new Looking([&] {
    ++looks;
    EXPECT_FALSE(pointer);
    pointer = next;
  });
  pointer.reset();
  EXPECT_EQ(pointer, next);
  EXPECT_EQ(looks, 4);
}

TEST(PointerLife, ChainsOfRecordsEndWithoutADeepStack) {
  StrongPtr<Provenance> leaf;
  for (int i = 0; i < 1000000; ++i)
    leaf = new Provenance("step", leaf);
  const WeakPtr<Provenance> watching = leaf->parent();
  leaf.reset();
  EXPECT_FALSE(watching);
}

namespace {

struct Holder {
  // By a function, lest the compiler tells what the library is to tell.
  template <class Pointer>
  static const Pointer& same(const Pointer& pointer) {
    return pointer;
  }
  Holder() : strong(same(strong)), circle(same(circle)), weak(same(weak)) {}
  FigurePtr strong;
  CirclePtr circle;
  FigureWeak weak;
};

} // namespace

TEST(PointerLife, MembersCopiedFromThemselvesStayEmpty) {
  // The memory looks like a pointer to somewhere, as that of a member before its construction may.
  alignas(Holder) unsigned char memory[sizeof(Holder)];
  std::fill_n(memory, sizeof memory, static_cast<unsigned char>(0xa5));
  testing::internal::CaptureStdout();
  Holder* const holder = new (memory) Holder;
  const std::string said = testing::internal::GetCapturedStdout();
  const std::string once = "*** DYNAMIC POINTER SELF-ASSIGNMENT DURING CONSTRUCTION - THIS LOOKS "
                           "LIKE A RECURSIVE CONSTRUCTOR CALL,\n"
                           "*** CHECK CORRECT CLASS MEMBER INITIALIZATION - PROGRAM TERMINATED\n";
  EXPECT_EQ(said, once + once + once);
  EXPECT_FALSE(holder->strong || holder->circle || holder->weak);
  EXPECT_EQ(holder->strong.weakCount() + holder->weak.weakCount(), 0);
  EXPECT_NE(holder->strong.serial(), holder->circle.serial());
  holder->~Holder();
}

namespace {

constexpr int largest = std::numeric_limits<std::int32_t>::max();

/// Sets the counts of an object, and sets them right before its pointers are dropped.
class Counts {
public:
  explicit Counts(const FigurePtr& pointer)
      : record_(*detail::PointerAccess::referer(pointer)), right_(record_.counts()) {}
  ~Counts() { record_.setCounts(right_); }
  void set(int strong, int weak) { record_.setCounts({strong, weak}); }
  bool are(int strong, int weak) const {
    return record_.counts().strong == strong && record_.counts().weak == weak;
  }

private:
  detail::Referer& record_;
  const detail::Referer::Counts right_;
};

} // namespace

TEST(PointerLife, CountsEndAtTheLargestNumber) {
  auto* const object = new Circle;
  const FigurePtr strong = object;
  const CirclePtr circle(strong);
  const FigureWeak weak = strong;
  FigurePtr assigned;
  const struct {
    const char* what;
    std::function<void()> raise;
    bool raisesStrong, holdsTheDead;
    const std::type_info& type;
  } ways[] = {
      {"copy", [&] { const FigurePtr copy = strong; }, true, true, typeid(Figure)},
      {"derived copy", [&] { const CirclePtr copy = circle; }, true, true, typeid(Circle)},
      {"assignment", [&] { assigned = strong; }, true, true, typeid(Figure)},
      {"from the object", [&] { const FigurePtr made = object; }, true, true, typeid(Figure)},
      {"up", [&] { const FigurePtr up = circle; }, true, true, typeid(Figure)},
      {"down", [&] { const CirclePtr down(strong); }, true, false, typeid(Circle)},
      {"lock", [&] { const FigurePtr locked = weak.lock(); }, true, false, typeid(Figure)},
      {"down from weak", [&] { const CirclePtr down(weak); }, true, false, typeid(Circle)},
      {"hold", [&] { FigurePtr::holdIfHeld(weak); }, true, false, typeid(Figure)},
      {"weak copy", [&] { const FigureWeak copy = weak; }, false, true, typeid(Figure)},
      {"weak from strong", [&] { const FigureWeak made = circle; }, false, true, typeid(Figure)},
      {"weak down", [&] { const CircleWeak down(weak); }, false, false, typeid(Circle)},
      {"weak from the object", [&] { const FigureWeak made = object; }, false, true,
       typeid(Figure)},
  };
  for (const auto& way : ways) {
    SCOPED_TRACE(way.what);
    const struct {
      int strong, weak;
      bool throws;
    } cases[] = {
        {largest, 10, way.raisesStrong},
        {10, largest, true},
        {largest, largest, true},
        {largest - 1, largest - 1, false},
        // Around where the counts begin to be looked at before the step.
        {largest - 65535, 10, false},
        {largest - 65536, 10, false},
        {10, largest - 65535, false},
        {10, largest - 65536, false},
        {-111, largest, way.holdsTheDead},
    };
    for (const auto& c : cases) {
      Counts counts(strong);
      counts.set(c.strong, c.weak);
      bool threw = false;
      try {
        way.raise();
      } catch (const MaxExceptionCount& e) {
        threw = true;
        EXPECT_EQ(e.count(), largest);
        EXPECT_EQ(e.type(), way.type);
        EXPECT_EQ(e.base(), typeid(Figure));
        EXPECT_EQ(assigned.weakCount(), 0);
      }
      assigned.reset();
      EXPECT_EQ(threw, c.throws) << c.strong << ' ' << c.weak;
      EXPECT_TRUE(counts.are(c.strong, c.weak)) << c.strong << ' ' << c.weak;
    }
  }
  EXPECT_EQ(strong.strongCount(), 2);
  EXPECT_EQ(strong.weakCount(), 4);

  // At the limit a pointer is still moved, used, and dropped.
  Counts counts(strong);
  counts.set(largest - 1, 10);
  FigurePtr last = strong;
  EXPECT_TRUE(counts.are(largest, 11));
  const FigurePtr moved = std::move(last);
  EXPECT_EQ(moved->number, 3);
  counts.set(3, 5);
}

TEST(PointerLife, HoldThatNobodyCountedIsReported) {
  FigurePtr strong = new Figure;
  FigureWeak weak = strong;
  detail::Referer* const record = detail::PointerAccess::referer(strong);
  record->setCounts({1, 0});
  testing::internal::CaptureStdout();
  weak.reset();
  char expected[512];
  const char* const type = "Tolvane::ReferenceBase<(anonymous namespace)::Figure>";
  std::snprintf(expected, sizeof expected,
                "CRITICAL WARNING: %s (-> %s) has no strong references... [0 weaks, obj %p via "
                "%p] - weakptr destructed with no strong and no weak references!!!\n",
                type, type,
                static_cast<const void*>(static_cast<ReferenceBase<Figure>*>(strong.get())),
                static_cast<const void*>(record));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
  EXPECT_EQ(record->counts().strong, 1);
  record->setCounts({1, 2});
}

// What another source holds without knowing the class.
class Unseen : public ReferenceBase<Unseen> {
public:
  ~Unseen() override { ++gone; }
  static inline int gone = 0;
};

StrongPtr<Unseen> makeUnseen();
StrongPtr<Unseen> makeUnseen() {
  return new Unseen;
}

int unseenGone();
int unseenGone() {
  return Unseen::gone;
}

namespace {

struct FirstKind : ReferenceBase<FirstKind> {};

} // namespace

std::uint64_t instanceNumberOfAnotherFirstKind();
std::uint64_t instanceNumberOfAnotherFirstKind() {
  return FirstKind().instanceNumber();
}

TEST(Counter, TellsWhenItReachesZero) {
  static_assert(sizeof(Counter) == 4);
  Counter counter;
  EXPECT_EQ((++counter).value(), 1U);
  ++counter;
  EXPECT_FALSE(--counter);
  EXPECT_TRUE(--counter);
  EXPECT_FALSE(--counter); // below zero it wraps
  EXPECT_EQ(counter.value(), 0xffffffffU);
  ++counter;
  EXPECT_EQ(counter.value(), 0U);
  bool locked = true;
  const std::lock_guard lock(counter_mutex());
  std::thread([&] { locked = counter_mutex().try_lock(); }).join();
  EXPECT_FALSE(locked); // it is one for all
}
