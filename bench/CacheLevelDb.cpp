// The block cache of LevelDB.
#include "CacheBench.hpp"

#include <leveldb/cache.h>
#include <leveldb/slice.h>

namespace {

class LevelDb {
public:
  LevelDb(std::uint32_t capacity, std::uint32_t)
      : cache_(leveldb::NewLRUCache(capacity * bench::Charge)) {}
  void insert(std::uint32_t key) {
    cache_->Release(cache_->Insert(slice(key), this, bench::Charge, &destroyed));
  }
  void touch(std::uint32_t key) {
    if (leveldb::Cache::Handle* handle = cache_->Lookup(slice(key))) {
      cache_->Release(handle);
    }
  }
  void erase(std::uint32_t key) { cache_->Erase(slice(key)); }

private:
  static leveldb::Slice slice(const std::uint32_t& key) {
    return {reinterpret_cast<const char*>(&key), sizeof key};
  }
  static void destroyed(const leveldb::Slice&, void*) {}

  std::unique_ptr<leveldb::Cache> cache_;
};

[[maybe_unused]] const bool added = (bench::addCache<LevelDb>("leveldb"), true);

} // namespace
