// The driver manager of GDAL: a driver by its name, and the one that says that a file is its own.
#include "LoadersBench.hpp"

#include <gdal_priv.h>

namespace {

GDALDriver* makeDriver(const std::string& extension) {
  auto* driver = new GDALDriver;
  driver->SetDescription(("bench" + extension).c_str());
  driver->SetMetadataItem(GDAL_DCAP_RASTER, "YES");
  driver->SetMetadataItem(GDAL_DMD_EXTENSION, extension.c_str() + 1);
  driver->pfnIdentifyEx = [](GDALDriver* self, GDALOpenInfo* info) -> int {
    return EQUAL(CPLGetExtension(info->pszFilename), self->GetMetadataItem(GDAL_DMD_EXTENSION));
  };
  return driver;
}

void registerDrivers() {
  static const bool registered = [] {
    for (int number = 0; number < bench::Loaders; ++number) {
      GetGDALDriverManager()->RegisterDriver(makeDriver(bench::extension(number)));
    }
    return true;
  }();
  benchmark::DoNotOptimize(registered);
}

[[maybe_unused]] const bool added = [] {
  bench::add("loader among 100/GDAL, by name", [](benchmark::State& state) {
    registerDrivers();
    std::vector<std::string> asked;
    for (int number = 0; number < bench::Loaders; ++number) {
      asked.push_back("bench" + bench::extension(number));
    }
    bench::overExtensions(state, [&](int number) {
      return GDALGetDriverByName(asked[static_cast<std::size_t>(number)].c_str());
    });
  });
  bench::add("loader among 100/GDAL, identify", [](benchmark::State& state) {
    registerDrivers();
    std::vector<std::string> asked;
    for (int number = 0; number < bench::Loaders; ++number) {
      asked.push_back("scan" + bench::extension(number));
    }
    bench::overExtensions(state, [&](int number) {
      return GDALIdentifyDriver(asked[static_cast<std::size_t>(number)].c_str(), nullptr);
    });
  });
  return true;
}();

} // namespace
