// Three tiles, and room for two: the cache lets go of the one that was not used for longest, and
// its maker makes it again when it is wanted.
#include <tolvane/Cache.hpp>
#include <tolvane/DataCreature.hpp>

#include <iostream>
#include <numeric>
#include <vector>

using namespace Tolvane;

// The data. It says how much memory it takes.
class Tile : public Cacheable {
public:
  explicit Tile(int number) : values_(1000, number) {}
  memsize_t memsize() const override { return values_.size() * sizeof(int); }
  int sum() const { return std::accumulate(values_.begin(), values_.end(), 0); }

private:
  std::vector<int> values_;
};

// The creator of one tile.
class TileMaker : public DataCreature<Tile> {
public:
  TileMaker(const WeakPtr<Cache, CacheBase>& cache, int number)
      : DataCreature(cache), number_(number) {}

  int release() override { // only to watch it: the template answers
    const int answer = DataCreature::release();
    std::cout << "  tile " << number_ << (answer == 2 ? " goes\n" : " stays\n");
    return answer;
  }

protected:
  Pointer create() override {
    std::cout << "  tile " << number_ << " is made\n";
    return new Tile(number_);
  }

private:
  const int number_;
};

int main() {
  const StrongPtr<Cache, CacheBase> cache = new Cache(10'000, "tiles");
  std::vector<StrongPtr<TileMaker, Creature>> makers;
  for (int number = 0; number < 3; ++number) {
    makers.emplace_back(new TileMaker(cache, number));
  }
  for (const unsigned wanted : {0U, 1U, 0U, 2U, 1U}) {
    const TileMaker::Pointer tile = makers[wanted]->data();
    std::cout << "tile " << wanted << " has the sum " << tile->sum() << "; the cache holds "
              << cache->totalCost(true) << " of " << cache->limit() << " bytes\n";
  }
  std::cout << "tile 1 was made " << makers[1]->timesMade() << " times\n";
}
