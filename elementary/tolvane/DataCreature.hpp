#pragma once

#include <tolvane/Creature.hpp>
#include <tolvane/Typename.hpp>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>

/// @file
/// The short way to write a creature: the host says how the data is made, the template holds it,
/// hands it to the cache, gives it up when the cache asks, and makes it again when it is wanted.
///
/// @code
/// #include <tolvane/DataCreature.hpp>
///
/// class BrickReader : public Tolvane::DataCreature<Brick> {
/// public:
///   BrickReader(const Tolvane::WeakPtr<Tolvane::Cache, Tolvane::CacheBase>& cache, Extent extent)
///       : DataCreature(cache), extent_(extent) {}
///
/// protected:
///   Pointer create() override { return new Brick(readFile(extent_)); }
///
/// private:
///   const Extent extent_;
/// };
///
/// Tolvane::StrongPtr<BrickReader, Tolvane::Creature> reader =
///     new BrickReader(Tolvane::Cache::MemCache(), extent);
/// const BrickReader::Pointer brick = reader->data();   // stays while `brick` refers to it
/// @endcode

namespace Tolvane {

/// A creature that makes one object of class `Data`, as often as it is needed.
///
/// `Data` derives from Cacheable. `Hold` says what keeps the data between two uses: with StrongPtr
/// the creature does, until the cache asks it to let go; with WeakPtr only the users do, and the
/// cache merely counts what is in use.
///
/// The creature is held by a strong pointer before data() is called. When it dies, it takes data
/// that somebody still uses out of the cache; a class that overrides unction() calls the one of
/// this template as well.
///
/// Thread safety: any thread may call any operation. Threads that want missing data wait for the
/// one that makes it. No lock is held while create() runs or while the data goes to the cache, and
/// release() waits for nothing, so creatures may evict each other's data. Inside of a release
/// request, which holds a queue of the cache, call getCacheable() and not data().
template <class Data, template <class, class> class Hold = StrongPtr>
class DataCreature : public Creature {
public:
  /// What data() gives: the data lives as long as one of these refers to it.
  using Pointer = StrongPtr<Data, Cacheable>;

  /// A creature that hands its data to `cache`. An empty pointer means to none: the data is made
  /// and held all the same.
  explicit DataCreature(const WeakPtr<Cache, CacheBase>& cache) : Creature(cache) {
    static_assert(std::is_base_of_v<Cacheable, Data>,
                  "DataCreature makes data of a class that derives from Cacheable");
    static_assert(std::is_same_v<Holder, Pointer> ||
                      std::is_same_v<Holder, WeakPtr<Data, Cacheable>>,
                  "DataCreature holds its data by StrongPtr or by WeakPtr");
  }

  ~DataCreature() override { leaveCache(); }

  /// The data, made if there is none at the moment, marked as used if there is. Empty when create()
  /// gave none.
  ///
  /// New data gets this creature as its creator, goes to the cache as the newest entry, and has its
  /// DeferredConstructor() called. Data that stands in no queue, for its cache is gone, is handed
  /// to the present one.
  ///
  /// An exception of create() or of the cache passes on to the caller and leaves the creature as
  /// it was; the next call tries anew. Cache::OutOfMemory is the one to expect: the data that found
  /// no room is in the exception, for a caller that can use it without caching. A derived cache
  /// whose handleOutOfMemory() answers false has the data held outside of the cache.
  ///
  /// Throws std::system_error (resource_deadlock_would_occur) when create() or the data's
  /// destructor asks for this very data, and the text (`const char*`) of enableCaching() when there
  /// is a cache and no strong pointer holds the creature.
  Pointer data() {
    StrongPtr<Creature> alive; // while create() may let go of this creature
    std::unique_lock lock(mutex_);
    for (;;) {
      Pointer present = held();
      if (present) {
        lock.unlock();
        if (!present->markAsUsed() && present->NumberOfListEntries() == 0) {
          handOver(present, false);
        }
        return present;
      }
      if (work_ == Work::None) {
        break;
      }
      if (worker_ == std::this_thread::get_id()) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                                "DataCreature: the data is asked for by what makes or destroys it");
      }
      workDone_.wait(lock);
    }
    alive = StrongPtr<Creature>::holdIfHeld(self());
    const Working working(*this, lock, Work::Making);
    lock.unlock();
    Pointer made = create();
    if (made) {
      made_.fetch_add(1, std::memory_order_relaxed);
      made->setCreator(self());
      handOver(made, false);
      made->DeferredConstructor();
      lock.lock();
      data_ = made;
    }
    return made;
  }

  /// How often create() gave data.
  std::uint64_t timesMade() const noexcept { return made_.load(std::memory_order_relaxed); }

  /// Whether data can be made again: true. A class whose data was changed by hand, or whose source
  /// is gone, answers false from then on. Called by any thread, inside of release requests too.
  bool isReproducible() const override { return true; }

  /// Whether create() or the handing over to the cache is under way.
  bool isUnderCreation() const override {
    const std::lock_guard lock(mutex_);
    return work_ == Work::Making;
  }

  /// The provenance path; the readable type of this creature where there is none.
  std::string hasProducer() const override {
    const std::string path = provenancePath();
    return path.empty() ? Typename(typeid(*this)) : path;
  }

  /// The data as it is; empty when there is none at the moment. Never makes it, nor marks it as
  /// used.
  StrongPtr<Cacheable> getCacheable() const override {
    const std::lock_guard lock(mutex_);
    return held();
  }

  /// Answers the request of the cache: 0 when the data cannot be made again, 1 while somebody else
  /// holds it or this creature is busy with it, 2 when it went.
  int release() override {
    if (!isReproducible()) {
      return 0;
    }
    std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock || work_ != Work::None) {
      return 1;
    }
    if constexpr (std::is_same_v<Holder, Pointer>) {
      if (data_.strongCount() == 1) {
        const Working working(*this, lock, Work::Releasing);
        Pointer going = std::move(data_);
        lock.unlock();
        const WeakPtr<Data, Cacheable> watched = going;
        going.reset();
        // A weak pointer elsewhere, or the data's unction(), may have saved it in the last moment.
        Pointer saved = watched.lock();
        lock.lock();
        data_ = std::move(saved);
      }
    }
    return data_ ? 1 : 2;
  }

  /// Takes the data out of the cache when the last strong pointer to the creature goes: the cache
  /// asks nobody who is gone.
  void unction() override { leaveCache(); }

protected:
  /// Makes the data, as a new object; an empty pointer when that cannot be done. Called by one
  /// thread at a time, without a lock. It may ask other creatures for their data, but not in a
  /// circle: threads that enter that at different points wait for each other for ever.
  virtual Pointer create() = 0;

private:
  using Holder = Hold<Data, Cacheable>;

  enum class Work { None, Making, Releasing };

  /// Keeps the other threads away from the data while one works on it without the lock. Made under
  /// the lock; ends with or without it.
  class Working {
  public:
    Working(DataCreature& creature, std::unique_lock<std::mutex>& lock, Work work)
        : creature_(creature), lock_(lock) {
      creature_.work_ = work;
      creature_.worker_ = std::this_thread::get_id();
    }

    ~Working() {
      if (!lock_) {
        lock_.lock();
      }
      creature_.work_ = Work::None;
      creature_.worker_ = {};
      creature_.workDone_.notify_all();
    }

    Working(const Working&) = delete;
    Working& operator=(const Working&) = delete;

  private:
    DataCreature& creature_;
    std::unique_lock<std::mutex>& lock_;
  };

  /// A hold on the data, under the lock.
  Pointer held() const { return Pointer(data_); }

  void leaveCache() {
    StrongPtr<Cacheable> data = getCacheable();
    if (data) {
      data->leaveQueue();
    }
  }

  Holder data_;
  Work work_ = Work::None;
  std::thread::id worker_;
  mutable std::mutex mutex_; // guards the three above; nothing else is waited for under it
  std::condition_variable workDone_;
  std::atomic<std::uint64_t> made_{0};
};

} // namespace Tolvane
