// The module that reads grids as text and grey maps. It needs no library.
#include "../../data/DatasetLoader.hpp"
#include "PgmDataset.hpp"
#include "TextDataset.hpp"

#include <tolvane/LoaderRegistry.hpp>
#include <tolvane/Typename.hpp>

namespace fields {
namespace {

class TextLoader : public DatasetLoader {
public:
  TextLoader() : DatasetLoader("grids as text", {".asc", ".txt"}) {}

protected:
  Tolvane::StrongPtr<Dataset> open(const std::string& path, const ProgressPtr&) override {
    return new TextDataset(path);
  }
};

class PgmLoader : public DatasetLoader {
public:
  PgmLoader() : DatasetLoader("grey maps", {".pgm"}) {}

protected:
  Tolvane::StrongPtr<Dataset> open(const std::string& path, const ProgressPtr&) override {
    return new PgmDataset(path);
  }
};

const Tolvane::DefineTypename<TextLoader> textLoaderName("TextLoader");
const Tolvane::DefineTypename<PgmLoader> pgmLoaderName("PgmLoader");
const Tolvane::LoaderRegistry<Dataset>::Registration<TextLoader> textLoader;
const Tolvane::LoaderRegistry<Dataset>::Registration<PgmLoader> pgmLoader;

} // namespace
} // namespace fields
