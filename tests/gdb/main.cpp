#include <tolvane/CacheMultiQueue.hpp>
#include <tolvane/Intercube.hpp>

#include <vector>

using namespace Tolvane;

namespace shapes {

struct Grid : ReferenceBase<Grid> {};
struct FineGrid : Grid {
  int cells = 8;
};
struct Unit : Interface<Unit> {};

struct Brick : Cacheable {
  Brick(const char* name, memsize_t size) : size_(size) { setName(name); }
  memsize_t memsize() const override { return size_; }
  memsize_t size_;
};

} // namespace shapes

using namespace shapes;

// Where the debugger stops.
void stopHere() {}

// A comment "$ EXPRESSION => PATTERN" says how the debugger is to show something: the whole text
// has to match the regular expression.
int main() {
  StrongPtr<Grid> none;
  StrongPtr<Grid> grid = new FineGrid;
  StrongPtr<FineGrid, Grid> fine(grid);
  WeakPtr<Grid> alive = grid;
  WeakPtr<Grid> dead = StrongPtr<Grid>(new Grid);
  // $ none => empty
  // $ fine => \(shapes::FineGrid \*\) 0x\w+, 2 strong, 4 holders
  // $ alive => \(shapes::FineGrid \*\) 0x\w+, 2 strong, 4 holders
  // $ dead => dead \(destroyed\), 1 holder
  [[maybe_unused]] TypeInfo type = typeid(std::vector<FineGrid>);
  // $ type => std::vector<shapes::FineGrid, std::allocator<shapes::FineGrid> >
  StrongPtr<Brick, Cacheable> oldest = new Brick("oldest", 100);
  StrongPtr<Brick, Cacheable> newest = new Brick("newest", 20);
  CacheMultiQueue domain;
  CacheMultiQueue untouched;
  domain.push_front(oldest);
  domain.push_front(newest);
  // $ domain => 0 zombies = \{primary = 2 entries, 120 bytes = .*\}
  // $ untouched => 0 zombies
  [[maybe_unused]] const CacheQueue& queue = *domain.primary();
  // $ queue => .*2 entries, 120 bytes = \{\[0\] = "newest" \(shapes::Brick .*, \[1\] = "oldest" .*
  Intercube cube;
  cube.addInterface(new Unit);
  cube.registerInterface<Grid>();
  // $ cube => 2 slots = \{.*\[shapes::Unit\] = \(shapes::Unit \*\) 0x\w+, 1 strong, 2 holders.*\}
  // $ cube => 2 slots = \{.*\[shapes::Grid\] = empty.*\}
  stopHere();
}
