#pragma once

#include "Axis.hpp"
#include "Samples.hpp"

#include <tolvane/LoaderProgress.hpp>
#include <tolvane/StrongPtr.hpp>

#include <string>
#include <vector>

/// @file
/// A file that a loader has opened: the variables that it holds, and the way to read one piece.

namespace fields {

/// One variable of a file: x by y cells, on levels z, at times t.
struct Variable {
  std::string name;
  std::string title;            ///< What people call it.
  std::string unit;             ///< Empty for none.
  AxisPtr x, y;                 ///< Never empty.
  AxisPtr z, t;                 ///< Empty where there is only one level or time.
  std::size_t elementBytes = 4; ///< What one value takes in memory.

  std::size_t levels() const { return z ? z->size() : 1; }
  std::size_t times() const { return t ? t->size() : 1; }
};

/// The piece of a variable that is wanted: one time, one level or several.
struct Piece {
  std::size_t time = 0;
  std::size_t level = 0;
  std::size_t levels = 1;
};

/// Receives how far a long reading is; may be empty.
using ProgressPtr = Tolvane::StrongPtr<Tolvane::LoaderProgress, Tolvane::InterfaceBase>;

/// An opened file. Modules derive from it; it is what the loaders of the domain `Dataset` make.
///
/// Thread safety: none.
class FIELDS_API Dataset : public Tolvane::ReferenceBase<Dataset> {
public:
  ~Dataset() override;

  const std::string& path() const { return path_; }
  const std::vector<Variable>& variables() const { return variables_; }

  /// Whether a single level is read at the cost of one level. Otherwise all are read at once.
  virtual bool readsSingleLevels() const = 0;

  /// Reads that piece and nothing else; the order is x fastest, then y, then z. Throws FileError.
  virtual Samples read(const Variable& variable, const Piece& piece,
                       const ProgressPtr& progress) = 0;

protected:
  explicit Dataset(std::string path);

  void add(Variable variable) { variables_.push_back(std::move(variable)); }

private:
  std::string path_;
  std::vector<Variable> variables_;
};

} // namespace fields
