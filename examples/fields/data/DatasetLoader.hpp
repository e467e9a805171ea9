#pragma once

#include "Dataset.hpp"

#include <tolvane/LoaderBase.hpp>

#include <list>
#include <string>

/// @file
/// What the loaders of all modules have in common.

namespace fields {

/// Carries what a load of the domain `Dataset` gives.
class FIELDS_API DatasetResult : public Tolvane::LoaderBase::ldrpar {
public:
  ~DatasetResult() override;
  Tolvane::StrongPtr<Dataset> dataset;
};

/// A loader of one file. It takes the file by its extension and says in the status text why not.
class FIELDS_API DatasetLoader : public Tolvane::LoaderBase {
public:
  using Parameters = Tolvane::StrongPtr<Tolvane::LoaderParameters>;

  ~DatasetLoader() override;
  bool isloadable(const Parameters& parameters) override;
  bool load(const Parameters& parameters, ldrpar* result) override;
  Tolvane::StrongPtr<Tolvane::LoaderRequest> loadrequest(const Parameters& parameters,
                                                         ldrpar* special) override;

protected:
  /// `about` says what it reads.
  DatasetLoader(const std::string& about, std::list<std::string> extensions);

  /// Opens the file. Throws FileError.
  virtual Tolvane::StrongPtr<Dataset> open(const std::string& path,
                                           const ProgressPtr& progress) = 0;
};

} // namespace fields
