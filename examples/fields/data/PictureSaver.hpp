#pragma once

#include "Picture.hpp"

#include <tolvane/InterfaceBase.hpp>
#include <tolvane/SaveInterfaceCreatorBase.hpp>

#include <iosfwd>
#include <list>
#include <string>

/// @file
/// How a module saves pictures: the interface that writes one, and what makes the interface.

namespace fields {

/// Writes a picture in one format. Each format is a type of interface of its own.
class FIELDS_API PictureSaver : public Tolvane::InterfaceBase {
public:
  ~PictureSaver() override;

  /// Writes; `text` is kept in the file where the format has a place for it. Whether the stream
  /// took it all is for the caller to see. Throws FileError.
  virtual void write(std::ostream& out, const Pixels& pixels, const std::string& text) = 0;
};

/// A format, found in the save registry under `Picture`.
class FIELDS_API PictureFormat : public Tolvane::SaveInterfaceCreatorBase {
public:
  ~PictureFormat() override;

  /// The endings of file names, in lower case; the first is the preferred one.
  const std::list<std::string>& extensions() const { return extensions_; }

  /// A saver for a file with that ending.
  virtual Tolvane::StrongPtr<PictureSaver, Tolvane::InterfaceBase>
  saver(const std::string& extension) = 0;

protected:
  PictureFormat(const std::string& name, const std::string& about,
                std::list<std::string> extensions);

private:
  const std::list<std::string> extensions_;
};

} // namespace fields
