// The registry of readers and writers of OpenSceneGraph.
#include "LoadersBench.hpp"

#include <osgDB/ReaderWriter>
#include <osgDB/Registry>

namespace {

class Reader : public osgDB::ReaderWriter {
public:
  explicit Reader(const std::string& extension) { supportsExtension(extension, "of the bench"); }
};

[[maybe_unused]] const bool added = [] {
  bench::add("loader among 100/osgDB", [](benchmark::State& state) {
    osgDB::Registry& registry = *osgDB::Registry::instance();
    std::vector<osg::ref_ptr<Reader>> readers;
    std::vector<std::string> asked;
    for (int number = 0; number < bench::Loaders; ++number) {
      asked.push_back(bench::extension(number).substr(1));
      readers.emplace_back(new Reader(asked.back()));
      registry.addReaderWriter(readers.back());
    }
    bench::overExtensions(state, [&](int number) {
      return registry.getReaderWriterForExtension(asked[static_cast<std::size_t>(number)]);
    });
    for (const osg::ref_ptr<Reader>& reader : readers) {
      registry.removeReaderWriter(reader);
    }
  });
  return true;
}();

} // namespace
