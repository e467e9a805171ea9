#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/StrongPtr.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

/// @file
/// Results, and the clusters that own those which belong together.
///
/// @code
/// #include <tolvane/Result.hpp>
///
/// struct Mean : Tolvane::Result {
///   double value = 0;
/// };
///
/// Tolvane::StrongPtr<Tolvane::Result::Cluster> cluster = new Tolvane::Result::Cluster;
/// cluster->insert(new Mean);
/// if (auto mean = cluster->find<Mean>()) {
///   std::cout << mean->value << " of " << cluster->size();
/// }
/// @endcode

namespace Tolvane {

/// One result. It knows its cluster without keeping it alive.
///
/// Thread safety: none beyond that of the pointers; users of one result serialise.
class TOLVANE_API Result : public ReferenceBase<Result> {
public:
  class Cluster;

  /// A result that names `cluster` as its own, or none. It is not put into it: a constructor has no
  /// strong pointer to give. Use Cluster::insert().
  explicit Result(const WeakPtr<Cluster>& cluster = nullptr);
  ~Result() override;

  /// The cluster; reads as empty once that is gone.
  const WeakPtr<Cluster>& cluster() const noexcept { return cluster_; }

private:
  WeakPtr<Cluster> cluster_;
};

/// A set of results, which it owns, in the order in which they were made.
///
/// A result is in one cluster at a time and names that one as its own.
///
/// Thread safety: none; users of one cluster serialise.
class TOLVANE_API Result::Cluster : public ReferenceBase<Result::Cluster> {
public:
  /// Visits the results of a cluster.
  class TOLVANE_API Iterator {
  public:
    virtual ~Iterator();

    /// Called with each result; true goes on, false ends the walk. The cluster may be changed: the
    /// walk goes over the results that were there when it began.
    virtual bool visitResult(const StrongPtr<Result>& result) = 0;
  };

  Cluster();
  Cluster(const Cluster&) = delete;
  Cluster& operator=(const Cluster&) = delete;

  /// Releases the results in post-order of a balanced tree over them: each after the ones that
  /// stand below it.
  ~Cluster() override;

  /// Takes `result` in, out of the cluster where it was. False, and nothing happens, when it is in
  /// already or the pointer is empty. @throws std::bad_alloc when there is no memory for the entry.
  bool insert(const StrongPtr<Result>& result);

  /// Takes `result` out; it then names no cluster. False when it is not in.
  bool remove(const StrongPtr<Result>& result);

  /// Takes all results out.
  void clear();

  /// Whether `result` is in.
  bool contains(const StrongPtr<Result>& result) const noexcept;

  /// The result with that `instanceNumber()`, else an empty pointer.
  StrongPtr<Result> find(std::uint64_t instanceNumber) const;

  /// The first result of class `R`, else an empty pointer.
  template <class R>
  StrongPtr<R, Result> find() const {
    for (const auto& [number, result] : results_) {
      if (StrongPtr<R, Result> found{result}) {
        return found;
      }
    }
    return nullptr;
  }

  /// The number of results.
  std::size_t size() const noexcept { return results_.size(); }
  /// Whether there is none.
  bool empty() const noexcept { return results_.empty(); }

  /// All results, in order; what happens to the cluster meanwhile does not change the list.
  /// @throws std::bad_alloc when there is no memory for it.
  std::vector<StrongPtr<Result>> results() const;

  /// Calls `iterator` for each result until it answers false. Returns how often it answered true.
  int iterate(Iterator& iterator) const;

private:
  using Map = std::map<std::uint64_t, StrongPtr<Result>>;

  Map::const_iterator entryOf(const StrongPtr<Result>& result) const noexcept;

  // The numbers are kept beside the pointers: a result that was destroyed by hand cannot be asked
  // for its own any more, and still has its place.
  Map results_;
};

} // namespace Tolvane
