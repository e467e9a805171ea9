// The raster block cache of GDAL, with blocks of one kilobyte that nobody reads.
#include "CacheBench.hpp"

#include <gdal_priv.h>

namespace {

class Raster : public GDALRasterBand {
public:
  Raster(GDALDataset* dataset, int blocks) {
    poDS = dataset;
    nBand = 1;
    eDataType = GDT_Byte;
    nBlockXSize = nRasterXSize = static_cast<int>(bench::Charge);
    nBlockYSize = 1;
    nRasterYSize = blocks;
  }
  ~Raster() override { GDALRasterBand::FlushCache(true); }

protected:
  CPLErr IReadBlock(int, int, void*) override { return CE_None; }
};

class Rasters : public GDALDataset {
public:
  explicit Rasters(int blocks) {
    nRasterXSize = static_cast<int>(bench::Charge);
    nRasterYSize = blocks;
    SetBand(1, new Raster(this, blocks));
  }
};

class Gdal {
public:
  /// The limit is that of the process, so that two of them would share it.
  static constexpr bool OneAtATime = true;

  Gdal(std::uint32_t capacity, std::uint32_t objects)
      : dataset_(std::make_unique<Rasters>(static_cast<int>(objects))),
        band_(dataset_->GetRasterBand(1)) {
    // A block is charged with its overhead, so one of them says what all of them need.
    GDALSetCacheMax64(std::int64_t{1} << 40);
    const std::int64_t before = GDALGetCacheUsed64();
    insert(0);
    GDALSetCacheMax64(before + (GDALGetCacheUsed64() - before) * capacity);
    erase(0);
  }
  void insert(std::uint32_t key) { get(key, TRUE); }
  void touch(std::uint32_t key) { get(key, FALSE); }
  void erase(std::uint32_t key) { band_->FlushBlock(0, static_cast<int>(key), FALSE); }

private:
  void get(std::uint32_t key, int onlyMake) {
    GDALRasterBlock* block = band_->GetLockedBlockRef(0, static_cast<int>(key), onlyMake);
    if (block == nullptr) {
      std::abort();
    }
    block->DropLock();
  }

  std::unique_ptr<GDALDataset> dataset_;
  GDALRasterBand* band_;
};

[[maybe_unused]] const bool added = (bench::addCache<Gdal>("GDAL"), true);

} // namespace
