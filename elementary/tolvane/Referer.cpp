#include <tolvane/Referer.hpp>

#include <array>
#include <cstddef>
#include <new>

namespace Tolvane::detail {
namespace {

/// Room for one record that went, to be the next one of its thread. Every object needs a record,
/// and the way to the heap and back is a good part of the cost of making one. One thread owns a
/// shelf, as long as the process runs, so neither to take nor to leave a record is an atomic
/// read-modify-write; the order of loads and stores is for threads that follow at its address.
struct alignas(64) Shelf {
  std::atomic<std::uintptr_t> owner{0};
  std::atomic<void*> record{nullptr};
};

/// What tells the threads apart that live: the address of the block that the system keeps for each.
/// A thread whose block lies where that of another one was takes over its shelf.
std::uintptr_t currentThread() noexcept {
  std::uintptr_t thread = 0;
#ifdef _WIN32
  asm volatile("movq %%gs:0x30, %0" : "=r"(thread));
#else
  asm volatile("movq %%fs:0, %0" : "=r"(thread));
#endif
  return thread;
}

/// The shelf of this thread; null where one with the same hash came first, even if it has ended.
Shelf* shelf() noexcept {
  static constinit std::array<Shelf, 64> shelves;
  const std::uintptr_t thread = currentThread();
  Shelf& own = shelves[thread * 0x9E3779B97F4A7C15U >> 58];
  std::uintptr_t owner = own.owner.load(std::memory_order_relaxed);
  if (owner == thread) [[likely]] {
    return &own;
  }
  return owner == 0 && own.owner.compare_exchange_strong(owner, thread) ? &own : nullptr;
}

} // namespace

Referer* Referer::create(void* object) {
  Shelf* const own = shelf();
  void* memory = own != nullptr ? own->record.load(std::memory_order_acquire) : nullptr;
  if (memory != nullptr) [[likely]] {
    own->record.store(nullptr, std::memory_order_relaxed);
  } else {
    memory = ::operator new(sizeof(Referer));
  }
  return new (memory) Referer(object);
}

void Referer::destroy(Referer* referer) noexcept {
  referer->~Referer();
  Shelf* const own = shelf();
  if (own != nullptr && own->record.load(std::memory_order_relaxed) == nullptr) {
    own->record.store(referer, std::memory_order_release);
  } else {
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
