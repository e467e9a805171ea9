// A module with types, data and interfaces of its own in a host's containers. It takes all of them
// out before it is unloaded.

#include "../support/Guest.hpp"

#include <tolvane/Verbose.hpp>

#ifdef _WIN32
#define GUEST_EXPORT extern "C" __declspec(dllexport)
#else
#define GUEST_EXPORT extern "C" __attribute__((visibility("default")))
#endif

using namespace Tolvane;

namespace {

class Brick : public Cacheable {
public:
  explicit Brick(memsize_t bytes) : bytes_(bytes) {}
  memsize_t memsize() const override { return bytes_; }

private:
  const memsize_t bytes_;
};

class BrickMaker : public guest::Maker {
public:
  BrickMaker(const WeakPtr<Cache, CacheBase>& cache, memsize_t bytes) : Maker(cache) {
    data = new Brick(bytes);
    data->setName("from the module");
  }
};

struct Note : Interface<Note> {
  std::string text = "of the module";
};

// Gone with the module, by their destructors.
const DefineTypename<Brick> brickName("guest brick");
const DefineTypename<BrickMaker> makerName("guest maker");

class TheGuest : public guest::Guest {
public:
  std::vector<guest::SeenType> types() const override { return guest::types(); }
  void raise(int kind) const override { guest::raise(kind); }
  std::string caught(const std::function<void()>& act) const override { return guest::caught(act); }

  std::pair<std::uint64_t, std::uint64_t> made() const override {
    return {guest::Shape::instancesMade(), Cacheable::instancesMade()};
  }

  StrongPtr<guest::Shape> makeSquare(double side) const override { return new guest::Square(side); }
  double areaOfSquare(const StrongPtr<guest::Shape>& shape) const override {
    const StrongPtr<guest::Square, guest::Shape> square(shape);
    return square ? square->area() : -1;
  }

  void say(const std::string& text) const override { TOLVANE_VERBOSE(0) << text; }

  StrongPtr<Creature> makeMaker(const WeakPtr<Cache, CacheBase>& cache,
                                memsize_t bytes) const override {
    const StrongPtr<BrickMaker, Creature> maker = new BrickMaker(cache, bytes);
    maker->data->setCreator(maker);
    maker->enableCaching(false);
    return maker;
  }

  void decorate(Intercube& cube) const override { cube.addInterface(new Note); }

  void leave(Cache& cache, Intercube& cube) override {
    cache.forget(typeid(BrickMaker));
    cache.forget(typeid(Brick));
    cube.removeInterface<Note>();
  }
};

} // namespace

GUEST_EXPORT guest::Guest* makeGuest();
GUEST_EXPORT guest::Guest* makeGuest() {
  return new TheGuest;
}

GUEST_EXPORT void endGuest(guest::Guest* guest);
GUEST_EXPORT void endGuest(guest::Guest* guest) {
  delete guest;
}
