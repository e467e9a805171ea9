#include <tolvane/Referer.hpp>

#include <array>
#include <cstddef>
#include <new>

namespace Tolvane::detail {
namespace {

/// Room for one record that went, to be the next one of this thread or of another. Every object
/// needs a record, and the way to the heap and back is a good part of the cost of making one.
struct alignas(64) Shelf {
  std::atomic<void*> record{nullptr};
};

/// The shelf of a thread, by where its stack is: shared with others now and then, and after a deep
/// call another one.
Shelf& shelf() noexcept {
  static constinit std::array<Shelf, 64> shelves;
  const auto stack = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  return shelves[(stack >> 20) % shelves.size()];
}

} // namespace

Referer* Referer::create(void* object) {
  Shelf& own = shelf();
  void* memory = nullptr;
  if (own.record.load(std::memory_order_relaxed) != nullptr) {
    memory = own.record.exchange(nullptr, std::memory_order_acquire);
  }
  return new (memory != nullptr ? memory : ::operator new(sizeof(Referer))) Referer(object);
}

void Referer::destroy(Referer* referer) noexcept {
  Shelf& own = shelf();
  referer->~Referer();
  void* empty = nullptr;
  if (own.record.load(std::memory_order_relaxed) != nullptr ||
      !own.record.compare_exchange_strong(empty, referer, std::memory_order_release,
                                          std::memory_order_relaxed)) {
    ::operator delete(referer);
  }
}

void Referer::markDestructor() noexcept {
  std::uint64_t word = word_.load();
  while (strongOf(word) >= 0 && !word_.compare_exchange_weak(word, withStrong(word, Destroying))) {
  }
  word = word_.load();
  while (strongOf(word) != Destroyed &&
         !word_.compare_exchange_weak(word, withStrong(word, Destroyed))) {
  }
  // Only the destruction itself changes the address by now, and whoever helps to mark it.
  object_.store(object_.load(std::memory_order_relaxed) | Gone, std::memory_order_release);
}

Referer::Raise Referer::addWeakCarefully() noexcept {
  std::uint64_t word = word_.load();
  do {
    if (weakOf(word) == MaxCount) {
      return Raise::AtLimit;
    }
  } while (!word_.compare_exchange_weak(word, word + OneWeak));
  return Raise::Done;
}

Referer::Raise Referer::addStrongCarefully() noexcept {
  std::uint64_t word = word_.load();
  for (;;) {
    const bool dead = strongOf(word) < 0;
    if (weakOf(word) == MaxCount || strongOf(word) == MaxCount) {
      return Raise::AtLimit;
    }
    if (word_.compare_exchange_weak(word, dead ? word + OneWeak : word + OneStrong + OneWeak)) {
      return dead ? Raise::Dead : Raise::Done;
    }
  }
}

} // namespace Tolvane::detail
