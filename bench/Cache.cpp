// The cache of data objects beside floors: what relinking costs without and with mutexes.
#include "CacheBench.hpp"

#include <tolvane/Cache.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/Profiler.hpp>
#include <tolvane/TypeInfo.hpp>

#include <mutex>
#include <unordered_map>

namespace {

using namespace Tolvane;

class Item : public Cacheable {
public:
  explicit Item(const std::type_info& domain) : domain_(domain) {}
  memsize_t memsize() const override { return bench::Charge; }
  const std::type_info& DomainType() const override { return domain_; }

private:
  const std::type_info& domain_;
};

/// Gives its item up without destroying it: to make and destroy objects is not what is measured.
class Maker : public Creature {
public:
  explicit Maker(const WeakPtr<Cache, CacheBase>& cache) : Creature(cache) {}
  Item& make(const std::type_info& domain) {
    item_ = new Item(domain);
    item_->setCreator(self());
    return *item_;
  }
  StrongPtr<Cacheable> getCacheable() const override { return item_; }
  int release() override {
    item_->leaveQueue();
    return 2;
  }

private:
  StrongPtr<Item, Cacheable> item_;
};

template <int N>
struct Tag {};

template <int... N>
std::vector<const std::type_info*> tags(std::integer_sequence<int, N...>) {
  return {&typeid(Tag<N>)...};
}

const std::vector<const std::type_info*>& tags() {
  static const auto& all = *new auto(tags(std::make_integer_sequence<int, 1000>()));
  return all;
}

/// Keys go to the domains in stripes when `Stripes`, for one domain per thread, else in turns. As
/// in a host the creators are there before what they make.
template <std::uint32_t Domains, bool Stripes = false>
class Tolvanes {
public:
  Tolvanes(std::uint32_t capacity, std::uint32_t objects)
      : cache_(new Cache(capacity * bench::Charge, "bench")) {
    while (makers_.size() < objects) {
      makers_.emplace_back(new Maker(cache_));
    }
    for (std::uint32_t key = 0; key < objects; ++key) {
      const std::uint32_t domain = Stripes ? key / (objects / Domains) : key % Domains;
      items_.push_back(&makers_[key]->make(*tags()[domain]));
    }
  }
  ~Tolvanes() {
    for (Item* item : items_) {
      item->leaveQueue();
      item->setCreator(nullptr);
    }
  }
  void insert(std::uint32_t key) { cache_->insert(items_[key]->self(), false); }
  void touch(std::uint32_t key) { items_[key]->markAsUsed(); }
  void touchByCache(std::uint32_t key) { cache_->touch(items_[key]->self()); }
  void erase(std::uint32_t key) { items_[key]->leaveQueue(); }

private:
  StrongPtr<Cache, CacheBase> cache_;
  std::vector<StrongPtr<Maker, Creature>> makers_;
  std::vector<Item*> items_;
};

struct TouchedByCache : Tolvanes<1> {
  using Tolvanes<1>::Tolvanes;
  void touch(std::uint32_t key) { touchByCache(key); }
};

/// A ring of nodes, newest first, as bare as it can be. Mutexes in this order: the queue's, the
/// node's, the ring's.
template <int Mutexes>
class Ring {
public:
  Ring(std::uint32_t capacity, std::uint32_t objects) : capacity_(capacity) {
    for (std::uint32_t key = 0; key < objects; ++key) {
      nodes_.push_back(std::make_unique<Node>());
    }
  }

  void insert(std::uint32_t key) {
    [[maybe_unused]] const Guard<(Mutexes > 0)> queue(mutex_);
    if (size_ == capacity_) {
      Node& oldest = *anchor_.next;
      [[maybe_unused]] const Guard<(Mutexes > 1)> own(oldest.mutex);
      [[maybe_unused]] const Guard<(Mutexes > 2)> ring(anchor_.mutex);
      unlink(oldest);
      --size_;
    }
    Node& node = *nodes_[key];
    [[maybe_unused]] const Guard<(Mutexes > 1)> own(node.mutex);
    [[maybe_unused]] const Guard<(Mutexes > 2)> ring(anchor_.mutex);
    link(node);
    ++size_;
  }
  void touch(std::uint32_t key) {
    [[maybe_unused]] const Guard<(Mutexes > 0)> queue(mutex_);
    Node& node = *nodes_[key];
    [[maybe_unused]] const Guard<(Mutexes > 1)> own(node.mutex);
    [[maybe_unused]] const Guard<(Mutexes > 2)> ring(anchor_.mutex);
    unlink(node);
    link(node);
  }
  void erase(std::uint32_t key) {
    unlink(*nodes_[key]);
    --size_;
  }

private:
  struct Node {
    Node* next = this;
    Node* prev = this;
    std::mutex mutex;
    std::unique_ptr<std::uint64_t[]> record{new std::uint64_t[2]}; // as all objects have one
    char rest[sizeof(Item) - 64];                                  // an object of the same size
  };
  struct NoGuard {
    explicit NoGuard(std::mutex&) {}
  };
  template <bool Locks>
  using Guard = std::conditional_t<Locks, std::lock_guard<std::mutex>, NoGuard>;

  static void unlink(Node& node) {
    node.next->prev = node.prev;
    node.prev->next = node.next;
    node.next = node.prev = &node;
  }
  void link(Node& node) {
    node.next = &anchor_;
    node.prev = anchor_.prev;
    node.prev->next = &node;
    anchor_.prev = &node;
    benchmark::ClobberMemory();
  }

  Node anchor_;
  std::mutex mutex_;
  std::uint32_t capacity_;
  std::uint32_t size_ = 0;
  std::vector<std::unique_ptr<Node>> nodes_;
};

/// The means of an insertion, and nothing else: the object and its creator are held, the two
/// domains are found in hash maps by type, the queue's mutex, the node's (twice) and the ring's are
/// taken, and the sums of the queue and of the cache are kept. An eviction holds the cache, holds
/// the oldest entry and its creator, notes its size and name for reports, goes on observing the
/// entry only, asks the creator, which takes it out of its ring, looks whether it went, and keeps
/// the queue for the insertion. Sizes, domains, the sum of the cache and its limit are asked by
/// virtual functions, and the three scopes of the profiler are passed. Some of the holds and locks
/// are there because the caller's code runs on the way, on any thread, and may let go of all that
/// is looked at. The objects are as large as ours. With `Domains` the keys are in stripes, each
/// with a queue of its own; with `ByAddress` the domains are found by where their types stand in
/// memory.
template <std::uint32_t Domains, bool ByAddress = false>
class SameMeans {
public:
  SameMeans(std::uint32_t capacity, std::uint32_t objects)
      : owner_(new Budget(capacity * bench::Charge)), budget_(*owner_) {
    maps_.emplace(key(typeid(Creator)), 0);
    for (std::uint32_t domain = 0; domain < Domains; ++domain) {
      domains_.emplace(key(*tags()[domain]), std::make_unique<Queue>());
    }
    while (creators_.size() < objects) {
      creators_.emplace_back(new Creator(*this));
    }
    for (std::uint32_t number = 0; number < objects; ++number) {
      const std::uint32_t domain = number / ((objects + Domains - 1) / Domains);
      nodes_.push_back(&creators_[number]->make(*tags()[domain]));
    }
  }

  void insert(std::uint32_t number) {
    Node& node = *nodes_[number];
    Held<Creator> creator;
    Held<Node> object(node.self());
    creator = creatorOf(node);
    const memsize_t cost = object->memsize();
    benchmark::DoNotOptimize(maps_.find(key(typeid(*creator))));
    Queue& queue = *domains_.find(key(object->DomainType()))->second;
    Held<CacheBase> cache;
    std::unique_lock<std::mutex> taken(queue.mutex, std::defer_lock);
    if (fits(budget_, cost)) {
      taken.lock();
    } else {
      cache = Held<CacheBase>(budget_.self());
      object.reset();
      TOLVANE_PROFILE("adjust", 5);
      taken.lock();
      makeRoom(queue, cost);
      object = Held<Node>(node.self());
    }
    const memsize_t size = object->memsize();
    const Lock own(node.mutex);
    const Lock ring(queue.anchor.mutex);
    node.unlink();
    node.next = &queue.anchor;
    node.prev = queue.anchor.prev;
    node.prev->next = queue.anchor.prev = &node;
    if (node.queue == nullptr) {
      node.queue = &queue;
      count(queue, size, 1);
    }
  }
  void erase(std::uint32_t number) { remove(*nodes_[number]); }

private:
  template <class T>
  using Held = detail::Held<T>;
  using Lock = std::lock_guard<std::mutex>;
  using Key = std::conditional_t<ByAddress, const std::type_info*, TypeInfo>;

  static Key key(const std::type_info& type) {
    if constexpr (ByAddress) {
      return &type;
    } else {
      return type;
    }
  }

  struct Budget : CacheBase {
    explicit Budget(memsize_t most) : CacheBase("means"), most_(most) {}
    memsize_t totalCost(bool) const override { return total.load(std::memory_order_relaxed); }
    memsize_t limit() const override { return most_; }
    std::atomic<memsize_t> total{0};

  private:
    const memsize_t most_;
  };
  struct Queue;
  struct Creator;
  struct Node : ReferenceBase<Node> {
    explicit Node(const std::type_info& type) : domain(type) {}
    virtual memsize_t memsize() const { return bench::Charge; }
    virtual const std::type_info& DomainType() const { return domain; }
    void unlink() {
      next->prev = prev;
      prev->next = next;
      next = prev = this;
    }
    Node* next = this;
    Node* prev = this;
    Queue* queue = nullptr;
    std::mutex mutex;
    WeakPtr<Creator> creator;
    std::string name;
    const std::type_info& domain;
    std::uint64_t flags = 0;
  };
  struct Queue {
    std::mutex mutex;
    StrongPtr<Node> owner = new Node(typeid(Queue));
    Node& anchor = *owner;
    std::atomic<memsize_t> bytes{0};
    std::atomic<std::uint32_t> entries{0};
  };
  struct Creator : ReferenceBase<Creator>, Intercube {
    explicit Creator(SameMeans& all) : means(all) {}
    Node& make(const std::type_info& domain) {
      owner = node = new Node(domain);
      node->creator = this->self();
      return *node;
    }
    virtual int release() {
      means.remove(*node);
      return 2;
    }
    SameMeans& means;
    StrongPtr<Node> owner;
    Node* node = nullptr;
    char rest[sizeof(Maker) - sizeof(ReferenceBase<Creature>) - sizeof(Intercube) - 32];
  };
  static_assert(sizeof(Node) == sizeof(Item) && sizeof(Creator) == sizeof(Maker));

  static bool fits(const CacheBase& cache, memsize_t cost) {
    return cache.totalCost(false) + cost <= cache.limit();
  }
  static Held<Creator> creatorOf(Node& node) {
    const Lock own(node.mutex);
    return Held<Creator>(node.creator);
  }
  static Held<Node> oldest(Queue& queue) {
    const Lock ring(queue.anchor.mutex);
    return Held<Node>(queue.anchor.next->self());
  }
  void count(Queue& queue, memsize_t bytes, std::uint32_t entries) {
    queue.bytes.store(queue.bytes.load(std::memory_order_relaxed) + bytes,
                      std::memory_order_relaxed);
    queue.entries.store(queue.entries.load(std::memory_order_relaxed) + entries,
                        std::memory_order_relaxed);
    budget_.total.fetch_add(bytes, std::memory_order_relaxed);
  }
  void remove(Node& node) {
    const memsize_t size = node.memsize();
    const Lock own(node.mutex);
    if (node.queue == nullptr) {
      return;
    }
    const Lock ring(node.queue->anchor.mutex);
    node.unlink();
    count(*node.queue, -size, ~0U);
    node.queue = nullptr;
  }
  void makeRoom(Queue& queue, memsize_t cost) {
    while (queue.entries.load(std::memory_order_relaxed) != 0 && !fits(budget_, cost)) {
      TOLVANE_PROFILE("adjust items", 5);
      Held<Node> held = oldest(queue);
      benchmark::DoNotOptimize(held->memsize());
      Held<Creator> creator;
      std::string name;
      {
        const Lock own(held->mutex);
        name = held->name;
        creator = Held<Creator>(held->creator);
      }
      const WeakPtr<Node> candidate = held.observe();
      const std::uint32_t before = queue.entries.load(std::memory_order_relaxed);
      {
        TOLVANE_PROFILE("release", 5);
        creator->release();
      }
      if (queue.anchor.next == candidate.get() ||
          queue.entries.load(std::memory_order_relaxed) != before - 1) {
        std::abort();
      }
      benchmark::DoNotOptimize(name);
    }
  }

  StrongPtr<Budget, CacheBase> owner_;
  Budget& budget_;
  std::unordered_map<Key, int> maps_;
  std::unordered_map<Key, std::unique_ptr<Queue>> domains_;
  std::vector<StrongPtr<Creator>> creators_;
  std::vector<Node*> nodes_;
};

/// Insertions in turns into domains of one cache: with room for all, or evicting one each.
template <std::uint32_t Domains>
void addDomains() {
  using Contestant = Tolvanes<Domains>;
  const std::string number = std::to_string(Domains);
  bench::insertFitting<Contestant>("insert into domains/" + number, "tolvane", 10'000);
  bench::insertEvicting<Contestant>("insert into domains that evicts/" + number, "tolvane", 10'000,
                                    1);
}

[[maybe_unused]] const bool added = [] {
  bench::addCache<Tolvanes<1>>("tolvane");
  for (const std::uint32_t entries : {1'000U, 100'000U, 1'000'000U}) {
    bench::insertEvicting<Tolvanes<2, true>>("insert that evicts one", "tolvane, two domains",
                                             entries, 2);
    bench::insertEvicting<SameMeans<2>>("insert that evicts one",
                                        "floor, the same means, two domains", entries, 2);
    bench::touchEntries<TouchedByCache>("tolvane, Cache::touch", entries, 1);
  }
  for (const std::uint32_t entries : {1'000U, 1'000'000U}) { // again, to run side by side
    bench::insertEvicting<Tolvanes<1>>("insert that evicts one, sizes", "tolvane", entries, 1);
  }
  addDomains<1>();
  addDomains<10>();
  addDomains<100>();
  addDomains<1000>();
  bench::note("cached entry, with its record and a pointer to it", 1000, [] {
    auto made = std::make_shared<std::vector<StrongPtr<Item, Cacheable>>>();
    made->reserve(1000);
    while (made->size() < 1000) {
      made->emplace_back(new Item(typeid(int)));
    }
    return made;
  });
  bench::note("data domain, with one entry and its creator", 1000,
              [] { return std::make_shared<bench::CacheSetup<Tolvanes<1000>>>(2000, 1000, 1000); });
  bench::addCache<Ring<0>>("floor, no lock", false);
  bench::addCache<Ring<1>>("floor, one mutex");
  bench::addCache<Ring<3>>("floor, three mutexes");
  bench::addInsertions<SameMeans<1>>("floor, the same means");
  bench::insertEvicting<SameMeans<1, true>>("insert that evicts one",
                                            "floor, the same means, types by address", 1'000, 1);
  return true;
}();

} // namespace
