#include <tolvane/Referer.hpp>

namespace Tolvane::detail {

Referer* Referer::create(void* object) {
  return new Referer(object);
}

void Referer::destroy(Referer* referer) noexcept {
  delete referer;
}

void Referer::markDestructor() noexcept {
  std::uint64_t word = word_.load();
  while (strongOf(word) >= 0 && !word_.compare_exchange_weak(word, withStrong(word, Destroying))) {
  }
  word = word_.load();
  while (!word_.compare_exchange_weak(word, withStrong(word, Destroyed))) {
  }
  object_.fetch_or(Gone);
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
