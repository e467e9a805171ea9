// The block cache of RocksDB, charged for the objects only, as the others are.
#include "CacheBench.hpp"

#include <rocksdb/cache.h>

namespace {

class RocksDb {
public:
  RocksDb(std::uint32_t capacity, std::uint32_t)
      : cache_(rocksdb::NewLRUCache(capacity * bench::Charge, -1, false, 0.5, nullptr, true,
                                    rocksdb::kDontChargeCacheMetadata)) {}
  void insert(std::uint32_t key) {
    if (!cache_->Insert(slice(key), this, bench::Charge, &destroyed).ok()) {
      std::abort();
    }
  }
  void touch(std::uint32_t key) {
    if (rocksdb::Cache::Handle* handle = cache_->Lookup(slice(key))) {
      cache_->Release(handle);
    }
  }
  void erase(std::uint32_t key) { cache_->Erase(slice(key)); }

private:
  static rocksdb::Slice slice(const std::uint32_t& key) {
    return {reinterpret_cast<const char*>(&key), sizeof key};
  }
  static void destroyed(const rocksdb::Slice&, void*) {}

  std::shared_ptr<rocksdb::Cache> cache_;
};

[[maybe_unused]] const bool added = (bench::addCache<RocksDb>("rocksdb"), true);

} // namespace
