#include <tolvane/CacheStatistics.hpp>

namespace Tolvane {

std::string CacheCounts::str() const {
  const auto number = [](std::uint64_t value) { return std::to_string(value); };
  return number(inserted) + " inserted, " + number(touched) + " touched, " + number(asked) +
         " asked (" + number(released) + " released, " + number(temporary) + " temporary, " +
         number(kept) + " kept, " + number(unusual) + " unusual), " + number(evicted) +
         " evicted with " + number(evictedBytes) + " bytes, " + number(refused) + " refused";
}

CacheCounts& CacheCounts::operator+=(const CacheCounts& other) noexcept {
  entries += other.entries;
  bytes += other.bytes;
  inserted += other.inserted;
  touched += other.touched;
  asked += other.asked;
  released += other.released;
  temporary += other.temporary;
  kept += other.kept;
  unusual += other.unusual;
  evicted += other.evicted;
  evictedBytes += other.evictedBytes;
  refused += other.refused;
  return *this;
}

CacheCounts CacheDomainStatistics::total() const noexcept {
  CacheCounts sum = primary;
  sum += temporaries;
  sum += keepers;
  return sum;
}

} // namespace Tolvane
