// The module that reads NIfTI-1 volumes.
#include "../../data/DatasetLoader.hpp"
#include "NiftiDataset.hpp"

#include <tolvane/LoaderRegistry.hpp>
#include <tolvane/Typename.hpp>

namespace fields {
namespace {

class NiftiLoader : public DatasetLoader {
public:
  NiftiLoader() : DatasetLoader("NIfTI-1 volumes", {".nii", ".nii.gz"}) {}

protected:
  Tolvane::StrongPtr<Dataset> open(const std::string& path, const ProgressPtr&) override {
    return new NiftiDataset(path);
  }
};

const Tolvane::DefineTypename<NiftiLoader> niftiLoaderName("NiftiLoader");
const Tolvane::LoaderRegistry<Dataset>::Registration<NiftiLoader> loader;

} // namespace
} // namespace fields
