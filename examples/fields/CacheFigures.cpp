#include "CacheFigures.hpp"

namespace fields {

CacheFigures cacheFigures(const Tolvane::Cache& cache) {
  CacheFigures figures;
  figures.entries = cache.nEntries();
  figures.bytes = cache.totalCost(true);
  return figures;
}

} // namespace fields
