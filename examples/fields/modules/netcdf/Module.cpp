// The module that reads NetCDF files.
#include "../../data/DatasetLoader.hpp"
#include "NetcdfDataset.hpp"

#include <tolvane/LoaderRegistry.hpp>
#include <tolvane/Typename.hpp>

namespace fields {
namespace {

class NetcdfLoader : public DatasetLoader {
public:
  NetcdfLoader() : DatasetLoader("NetCDF files", {".nc", ".cdf"}) {}

protected:
  Tolvane::StrongPtr<Dataset> open(const std::string& path, const ProgressPtr&) override {
    return new NetcdfDataset(path);
  }
};

const Tolvane::DefineTypename<NetcdfLoader> netcdfLoaderName("NetcdfLoader");
const Tolvane::LoaderRegistry<Dataset>::Registration<NetcdfLoader> loader;

} // namespace
} // namespace fields
