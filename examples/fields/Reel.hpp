#pragma once

#include "Painter.hpp"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// @file
/// The frames of a play.

namespace fields {

/// What somebody wants to see.
struct Selection {
  std::vector<std::string> variables; ///< None for the first; two for the parts of arrows.
  std::optional<Across> along;        ///< Frames follow each other in this direction, else in time.
  Across across = Across::Z;          ///< How frames that follow in time are cut.
  std::size_t time = 0;               ///< Of frames that do not follow in time.
  std::optional<std::size_t> index;   ///< Where frames that follow in time are cut.
  bool gradient = false;
  std::string map;            ///< A colour map; empty for one that fits.
  std::optional<Range> range; ///< Of the colours; else it is looked for.
  std::string region;         ///< Drawn by hand; empty for none.
  int size = 720;             ///< The longer side of the maps, in pixels.
};

/// The chains of creators from the file to the pictures, one chain for each frame.
class Reel {
public:
  /// Throws Refusal when the file does not hold what is selected.
  Reel(DatasetPtr dataset, const Selection& selection, Workshop& workshop,
       const ProgressPtr& progress);

  std::size_t frames() const;
  /// What a frame shows, in words: its time or its place.
  std::string label(std::size_t frame) const;

  /// The values of a frame.
  const PlaneMakerPtr& values(std::size_t frame) { return chain(frame).values; }
  /// The picture of a frame; useMap() comes first.
  const PainterPtr& painter(std::size_t frame);
  /// The region; empty when none was drawn.
  const RegionHolderPtr& region() const { return region_; }

  /// The range of the values, from some of the frames between two.
  Range scanRange(std::size_t first, std::size_t last);
  /// Sets the colours, those that fit where none were selected.
  void useMap(const Range& range);
  const ColourMap& map() const { return *map_; }

  /// The largest single object that a frame needs, and what it is.
  std::pair<Tolvane::memsize_t, std::string> largest() const;
  /// What all objects take together of the frames between two.
  Tolvane::memsize_t total(std::size_t first, std::size_t last) const;

private:
  Cut cutOf(std::size_t frame) const;
  std::size_t timeOf(std::size_t frame) const { return alongTime() ? frame : selection_.time; }
  bool alongTime() const { return !selection_.along; }
  std::size_t levelsPerField() const;
  std::pair<AxisPtr, AxisPtr> axes() const; // across and up, the same for all frames
  const Variable& variableOf(const std::string& name) const;
  std::string fittingMap(const Range& range) const;
  PlaneMakerPtr slice(const Variable& variable, std::size_t frame);
  const Painter::Sources& chain(std::size_t frame);

  const DatasetPtr dataset_;
  const Selection selection_;
  Workshop& workshop_;
  const ProgressPtr progress_;
  const Origin file_;
  std::vector<Variable> variables_; // one, or the two parts of arrows
  ColourMapPtr map_;
  RegionHolderPtr region_;
  std::map<std::pair<std::string, std::pair<std::size_t, std::size_t>>, FieldReaderPtr> readers_;
  std::map<std::size_t, Painter::Sources> chains_;
  std::map<std::size_t, PainterPtr> painters_;
};

} // namespace fields
