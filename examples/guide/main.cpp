// The program of docs/guide.md: the life of a data object, step by step.
#include <tolvane/Cache.hpp>
#include <tolvane/DataCreature.hpp>
#include <tolvane/Typename.hpp>

#include <atomic>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

using namespace Tolvane;

using CachePtr = StrongPtr<Cache, CacheBase>;
using WeakCachePtr = WeakPtr<Cache, CacheBase>;

namespace {

class Curve : public Cacheable {
public:
  explicit Curve(std::vector<float> points) : points_(std::move(points)) {}
  memsize_t memsize() const override { return points_.size() * sizeof(float); }
  const std::vector<float>& points() const { return points_; }

private:
  const std::vector<float> points_;
};

class Parabola : public DataCreature<Curve> {
public:
  Parabola(const WeakCachePtr& cache, float factor) : DataCreature(cache), factor_(factor) {}

protected:
  Pointer create() override {
    std::vector<float> points(1000);
    for (std::size_t i = 0; i < points.size(); ++i) {
      points[i] = factor_ * static_cast<float>(i * i);
    }
    return new Curve(std::move(points));
  }

private:
  const float factor_;
};

using ParabolaPtr = StrongPtr<Parabola, Creature>;

class Window {
public:
  explicit Window(ParabolaPtr source) : source_(std::move(source)) {}

  void draw() {
    const Parabola::Pointer curve = source_->data(); // stays until the end of this function
    std::cout << "a window draws " << curve->points().size() << " points\n";
    shown_ = curve;
  }

  bool showsPresentData() const { return static_cast<bool>(shown_); }

private:
  ParabolaPtr source_;              // what can make the data: held for as long as it is shown
  WeakPtr<Curve, Cacheable> shown_; // the data itself: only watched between two drawings
};

class Sketch : public DataCreature<Curve> {
public:
  using DataCreature::DataCreature;

  bool isReproducible() const override { return saved_; }

  void save() {
    const Pointer curve = data();
    file_ = curve->points();
    saved_ = true;
    if (const CachePtr cache = WeakCachePtr(cacheManager()).lock()) {
      cache->touch(curve); // out of the keepers: from now on it can be asked again
    }
  }

protected:
  Pointer create() override { return new Curve(saved_ ? file_ : std::vector<float>(500)); }

private:
  std::atomic<bool> saved_{false}; // read by the thread that evicts
  std::vector<float> file_;
};

const char* meaning(int answer) {
  return answer == 2 ? "2, it went" : answer == 1 ? "1, not just now" : "0, never";
}

void life(const CachePtr& cache) {
  const ParabolaPtr parabola = new Parabola(cache, 0.5F); // makes nothing yet
  Parabola::Pointer curve = parabola->data();             // made, handed over, in use
  std::cout << "in the cache: " << cache->totalCost(true) << " bytes\n";
  std::cout << "asked while it is used: " << meaning(parabola->release()) << "\n";
  curve = nullptr; // used no more; the creator holds it
  std::cout << "asked when nobody uses it: " << meaning(parabola->release()) << "\n";
  curve = parabola->data(); // made again
  std::cout << "made " << parabola->timesMade() << " times\n";
}

void evictions(const CachePtr& cache) {
  const ParabolaPtr first = new Parabola(cache, 1);
  const ParabolaPtr second = new Parabola(cache, 2);
  Window window(first);
  window.draw();
  second->data(); // there is room for one: the first goes
  std::cout << "its data is " << (window.showsPresentData() ? "there" : "gone") << "\n";
  window.draw();
  std::cout << "the first was made " << first->timesMade() << " times\n";
}

void sketches(const CachePtr& cache) {
  const StrongPtr<Sketch, Creature> sketch = new Sketch(cache);
  sketch->data();
  std::cout << "asked before it is saved: " << meaning(sketch->release()) << "\n";
  sketch->save();
  std::cout << "asked afterwards: " << meaning(sketch->release()) << "\n";
}

void noRoom() {
  const CachePtr cache = new Cache(6000, "small");
  const ParabolaPtr first = new Parabola(cache, 1);
  const ParabolaPtr second = new Parabola(cache, 2);
  const Parabola::Pointer inUse = first->data();
  try {
    second->data();
  } catch (const Cache::OutOfMemory& error) {
    std::cout << error.what() << "\n";
    const Parabola::Pointer uncached(error.object()); // made, but not kept: use it or let it go
    std::cout << "without caching: " << uncached->points().size() << " points\n";
  }
}

void leave(const CachePtr& cache) {
  cache->purge(); // what can go goes while its creators are there
  for (const std::type_info* type : {&typeid(Parabola), &typeid(Sketch), &typeid(Curve)}) {
    cache->forget(*type);
  }
  std::cout << "left in the cache: " << cache->nEntries() << "\n";
}

const DefineTypename<Curve> curveName("Curve"); // goes with the module it stands in

} // namespace

int main() {
  const CachePtr cache = new Cache(6000, "guide");
  life(cache);
  evictions(cache);
  sketches(cache);
  noRoom();
  leave(cache);
}
