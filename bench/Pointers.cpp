// Our pointers and those of the standard library, beside floors.
#include "PointersBench.hpp"

#include <tolvane/StrongPtr.hpp>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <memory>

namespace {

using bench::Payload;

struct Ours {
  struct Object : Tolvane::ReferenceBase<Object>, Payload {};
  using Strong = Tolvane::StrongPtr<Object>;
  using Weak = Tolvane::WeakPtr<Object>;
  static Strong make() { return new Object; }
  static Weak weak(const Strong& strong) { return strong; }
  static Strong lock(const Weak& weak) { return weak.lock(); }
};

struct Polymorphic : Payload {
  virtual ~Polymorphic() = default;
};

struct Standard {
  using Strong = std::shared_ptr<Polymorphic>;
  static Strong make() { return std::make_shared<Polymorphic>(); }
  static std::weak_ptr<Polymorphic> weak(const Strong& strong) { return strong; }
  static Strong lock(const std::weak_ptr<Polymorphic>& weak) { return weak.lock(); }
};

struct FromNew : Standard {
  static Strong make() { return Strong(new Polymorphic); }
};

/// One read-modify-write to copy and one to drop, with what else a pointer of ours has to do:
/// nothing, or to draw a serial.
template <bool Serial>
struct Floor {
  struct Object : Polymorphic {
    std::atomic<std::uint64_t> count{1};
  };
  class Strong {
  public:
    explicit Strong(Object* object) : object_(object) { draw(); }
    Strong(const Strong& other) : object_(other.object_) {
      object_->count.fetch_add(1);
      draw();
    }
    Strong(Strong&& other) noexcept : object_(std::exchange(other.object_, nullptr)) { draw(); }
    Strong& operator=(Strong&& other) noexcept {
      std::swap(object_, other.object_);
      return *this;
    }
    ~Strong() {
      if (object_ != nullptr && object_->count.fetch_sub(1) == 1) {
        delete object_;
      }
    }
    Object* operator->() const { return object_; }

  private:
    void draw() {
      if constexpr (Serial) {
        serial_ = Tolvane::nextPointerID();
      }
    }
    std::uint64_t serial_ = 0;
    Object* object_;
  };
  static Strong make() { return Strong(new Object); }
};

template <class Object>
void makeAndDestroy(benchmark::State& state) {
  for (auto _ : state) {
    Object* object = new Object;
    benchmark::DoNotOptimize(object);
    delete object;
  }
}

struct TwoBlocks : Polymorphic {
  std::unique_ptr<std::uint64_t[]> record{new std::uint64_t[2]{1, 1}};
};

/// Two blocks, and the steps on the counts that every object with a record takes: the number of the
/// instance, the first strong pointer, its end, which marks the object as dead, and that of the
/// object's own pointer.
struct SameMeans {
  struct Record {
    std::atomic<std::uint64_t> counts{std::uint64_t{1} << 32};
    void* object;
  };
  struct Object : Polymorphic {
    std::uint64_t serial = Tolvane::nextPointerID();
    Record* record = new Record{.object = this};
    std::uint64_t instance = instances.fetch_add(1);
    ~Object() override {
      if (record->counts.fetch_sub(std::uint64_t{1} << 32) >> 32 == 1) {
        delete record;
      }
    }
  };
  class Strong {
  public:
    explicit Strong(Object* object) : record_(object->record) {
      record_->counts.fetch_add((std::uint64_t{1} << 32) + 1);
    }
    Strong(const Strong&) = delete;
    Strong& operator=(const Strong&) = delete;
    ~Strong() {
      std::uint64_t word = record_->counts.load();
      if (static_cast<std::uint32_t>(word) == 1 &&
          record_->counts.compare_exchange_strong(word, word - 1 + 0xffffff91)) {
        delete static_cast<Object*>(record_->object);
      }
      if (record_->counts.load() >> 32 == 1) {
        delete record_;
      }
    }

  private:
    std::uint64_t serial_ = Tolvane::nextPointerID();
    Record* record_;
  };
  static Strong make() { return Strong(new Object); }
  inline static std::atomic<std::uint64_t> instances{0};
};

/// What a checked access looks at: the record behind the pointer, and the object behind that.
struct TwoHops {
  struct Object : Payload {};
  struct Record {
    std::unique_ptr<Object> object = std::make_unique<Object>();
  };
  struct Strong {
    std::unique_ptr<Record> record = std::make_unique<Record>();
    Object* operator->() const { return record->object.get(); }
  };
  static Strong make() { return {}; }
};

/// What nobody checks.
struct Raw {
  static std::unique_ptr<Payload> make() { return std::make_unique<Payload>(); }
};

[[maybe_unused]] const bool added = [] {
  bench::addStrong<Ours>("tolvane");
  bench::addWeak<Ours>("tolvane");
  bench::addStrong<Standard>("std::shared_ptr, make_shared");
  bench::addWeak<Standard>("std::shared_ptr, make_shared");
  bench::addMake<FromNew>("std::shared_ptr from new");
  bench::addStrong<Floor<false>>("floor, atomic steps");
  bench::addStrong<Floor<true>>("floor, with the serial");
  bench::overObjects<Floor<false>>("weak to strong and drop", "floor, atomic steps", bench::Objects,
                                   1, [](auto& pointer) {
                                     auto other = pointer;
                                     benchmark::DoNotOptimize(other);
                                   });
  const auto access = [](auto& pointer) {
    benchmark::DoNotOptimize(pointer->values[0]);
    benchmark::ClobberMemory();
  };
  bench::overObjects<TwoHops>("checked access", "floor, two hops", bench::Objects, 1, access);
  bench::overObjects<Raw>("checked access", "floor, raw pointer", bench::Objects, 1, access);
  bench::addMake<SameMeans>("floor, the same means");
  bench::add("make and destroy/floor, one block", makeAndDestroy<Polymorphic>);
  bench::add("make and destroy/floor, two blocks", makeAndDestroy<TwoBlocks>);
  bench::note("object of 32 bytes, with its record and a pointer to it", 1000, [] {
    auto made = std::make_shared<std::vector<Ours::Strong>>();
    made->reserve(1000);
    std::generate_n(std::back_inserter(*made), 1000, &Ours::make);
    return made;
  });
  return true;
}();

} // namespace
