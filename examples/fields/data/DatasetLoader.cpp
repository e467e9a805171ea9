#include "DatasetLoader.hpp"

#include "FileError.hpp"
#include "Joined.hpp"

#include <tolvane/Chunk.hpp>

#include <utility>

namespace fields {

DatasetResult::~DatasetResult() = default;

DatasetLoader::DatasetLoader(const std::string& about, std::list<std::string> extensions)
    : LoaderBase(std::move(extensions)) {
  attributes().setAttribute("about", Tolvane::makeChunk(about));
}

DatasetLoader::~DatasetLoader() = default;

bool DatasetLoader::isloadable(const Parameters& parameters) {
  return parameters && parameters->files().size() == 1 &&
         checkIfAllExtensionsAreSupported(parameters->files(), extensions());
}

bool DatasetLoader::load(const Parameters& parameters, ldrpar* result) {
  auto* const wanted = dynamic_cast<DatasetResult*>(result);
  if (wanted == nullptr || !isloadable(parameters)) {
    if (parameters) {
      parameters->setStatusText("reads only files that end with " + joined(extensions()));
    }
    return false;
  }
  const std::string& path = parameters->files().front();
  const auto progress = parameters->findInterface<Tolvane::LoaderProgress>();
  if (progress && !progress->OpenFile(path)) {
    return false;
  }
  try {
    wanted->dataset = open(path, progress);
    return static_cast<bool>(wanted->dataset);
  } catch (const FileError& error) {
    parameters->setStatusText(error.what());
    return false;
  }
}

Tolvane::StrongPtr<Tolvane::LoaderRequest> DatasetLoader::loadrequest(const Parameters&, ldrpar*) {
  return nullptr;
}

} // namespace fields
