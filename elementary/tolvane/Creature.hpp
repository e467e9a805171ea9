#pragma once

#include <tolvane/Ageable.hpp>
#include <tolvane/CacheBase.hpp>
#include <tolvane/Cacheable.hpp>
#include <tolvane/Exception.hpp>
#include <tolvane/Intercube.hpp>
#include <tolvane/Provenance.hpp>

#include <list>
#include <mutex>
#include <string>

/// @file
/// The producer of a data object: it makes the object, hands it to the cache, gives it up when
/// the cache asks, and makes it again. `DataCreature` is the short way to write one.
///
/// @code
/// #include <tolvane/Creature.hpp>
///
/// class BrickReader : public Tolvane::Creature {
/// public:
///   using Creature::Creature;
///   Tolvane::StrongPtr<Tolvane::Cacheable> getCacheable() const override { return brick_; }
///   bool isReproducible() const override { return true; }
///   int release() override {
///     if (brick_.strongCount() > 1) {
///       return 1;          // somebody uses it just now
///     }
///     brick_ = nullptr;
///     return 2;            // gone
///   }
///   void unction() override {
///     if (brick_) {
///       brick_->leaveQueue(); // a brick that somebody still uses must not stay without its reader
///     }
///   }
///
/// private:
///   Tolvane::StrongPtr<Tolvane::Cacheable> brick_;
/// };
/// @endcode

namespace Tolvane {

class Cache;

/// The producer and holder of one data object.
///
/// A creature carries interfaces, a time stamp, and the provenance of its data. Its data can be
/// cached only while a strong pointer holds the creature.
///
/// Thread safety: the cache manager and the provenance may be read and set by any thread. release()
/// may be called by any thread that makes room in the cache, also while another one is in the
/// creature; for what it must not do see CacheQueue. The interfaces are those of Intercube.
class TOLVANE_API Creature : public ReferenceBase<Creature>, public Intercube, public Ageable {
public:
  /// What creators throw for reasons of their own.
  class TOLVANE_API Exception : public Tolvane::Exception {
  public:
    using Tolvane::Exception::Exception;
    /// Throws std::bad_alloc.
    Exception(const Exception& other);
    ~Exception() override;
    /// "Unspecified Tolvane::Creature Exception".
    const char* what() const noexcept override;
  };

  /// A creature that hands its data to `cache`; an empty pointer means to none.
  explicit Creature(const WeakPtr<Cache, CacheBase>& cache);

  ~Creature() override;

  void unction() override;

  /// Asked by the cache to give the data up. Returns
  /// - 2 when the data went: the object is destroyed now;
  /// - 1 when it cannot go just now, because somebody uses it;
  /// - 0 when it can never be made again and must be kept.
  ///
  /// Any other answer counts as none. 0 by default.
  virtual int release();

  /// The data object as it is; empty when there is none at the moment. Never makes it.
  virtual StrongPtr<Cacheable> getCacheable() const = 0;

  /// Whether there is a live data object.
  virtual bool hasData() const;

  /// Whether the data could be made again after a release. False by default.
  virtual bool isReproducible() const;

  /// Whether the data is being made at this moment. False by default.
  virtual bool isUnderCreation() const;

  /// Gives up the making of the data that is under way. Returns whether it did. False by default.
  virtual bool discardCreation();

  /// A description of what this creature's data is made from; empty by default.
  virtual std::string hasProducer() const;

  /// Where the data is handed to; empty for nowhere.
  WeakPtr<Cache, CacheBase> cacheManager() const;
  /// Replaces it.
  void setCacheManager(const WeakPtr<Cache, CacheBase>& cache);

  /// Hands the data object to the cache manager: as its oldest entry with `asOldest`, else as its
  /// newest. Does nothing without data. While the cache has no room, its handleOutOfMemory()
  /// decides whether to try again; that of Cache throws Cache::OutOfMemory.
  ///
  /// Throws the text (`const char*`) "No strong references for Creature!" when no strong pointer
  /// holds the creature, and "No Cache!", after a line on standard output, when there is data but
  /// no cache manager.
  void enableCaching(bool asOldest) const;

  /// Prints what the default cache holds of this type of creature.
  void list_info() const;
  /// Prints what the default cache holds of the data of `type` of this type of creature.
  void list_info(const std::type_info& type) const;

  /// A text that identifies the data: the address of the live object, "[invalid:" and the address
  /// of the record when the object is gone, "[No Data Available]" when there is none.
  std::string addrstr() const;

  /// Adds a record of where the data comes from.
  void appendProvenance(const StrongPtr<Provenance>& provenance);
  /// Adds a new root record of that name.
  void appendProvenance(const std::string& name);

  /// Renames the last record; adds a new root record when there is none, and puts one in the place
  /// of a last record that is no longer valid.
  void setProvenance(const std::string& name);
  /// Makes the record the only one.
  void setProvenance(const StrongPtr<Provenance>& provenance);

  /// The records in the order in which they were added.
  std::list<StrongPtr<Provenance>> provenance() const;

  /// The path of the last record, from the root on; empty when there is none.
  std::string provenancePath(char separator = '/') const;

protected:
  /// Hands `data`, made by this creature, to the cache manager if there is one, as enableCaching()
  /// does and with its exceptions. Returns whether the data is in the cache now: false without a
  /// cache, or when the handleOutOfMemory() of a derived one wants the data used without caching.
  bool handOver(const StrongPtr<Cacheable>& data, bool asOldest) const;

private:
  bool offer(Cache& cache, const StrongPtr<Cacheable>& data, bool asOldest) const;

  WeakPtr<Cache, CacheBase> cache_;
  std::list<StrongPtr<Provenance>> provenance_;
  // Guards the two above.
  mutable detail::PosixMutex mutex_{detail::PosixMutex::Kind::Plain};
};

} // namespace Tolvane
