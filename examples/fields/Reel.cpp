#include "Reel.hpp"

#include "GradientMaker.hpp"
#include "Refusal.hpp"
#include "SpeedMaker.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <limits>

namespace fields {
namespace {

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

void requireWithin(std::size_t index, std::size_t count, const char* what) {
  if (index >= count) {
    throw Refusal(std::string("there is no ") + what + " " + std::to_string(index + 1) +
                  "; take one from 1 to " + std::to_string(count));
  }
}

} // namespace

Reel::Reel(DatasetPtr dataset, const Selection& selection, Workshop& workshop,
           const ProgressPtr& progress)
    : dataset_(std::move(dataset)), selection_(selection), workshop_(workshop), progress_(progress),
      file_(new Tolvane::Provenance(std::filesystem::path(dataset_->path()).filename().string())) {
  if (dataset_->variables().empty()) {
    throw Refusal("the file holds nothing with two dimensions; try another file");
  }
  for (const std::string& name : selection_.variables) {
    variables_.push_back(variableOf(name));
  }
  if (variables_.empty()) {
    variables_.push_back(dataset_->variables().front());
  }
  const Variable& first = variables_.front();
  for (const Variable& other : variables_) {
    if (other.x != first.x || other.y != first.y || other.z != first.z || other.t != first.t) {
      throw Refusal(first.name + " and " + other.name + " do not lie on the same cells");
    }
  }
  if (variables_.size() > 2) {
    throw Refusal("give one variable, or two that are the parts of arrows");
  }
  const Cut cut = cutOf(0);
  if (cut.across != Across::Z && !first.z) {
    throw Refusal(first.name + " has no levels to cut through; leave --cut and --along x or y out");
  }
  requireWithin(selection_.time, first.times(), "time");
  const AxisPtr through = cut.through(first);
  requireWithin(cut.index, through ? through->size() : 1, "slice");
  if (!selection_.region.empty()) {
    region_ = new RegionHolder(workshop_, selection_.region);
  }
}

const Variable& Reel::variableOf(const std::string& name) const {
  std::string known;
  for (const Variable& variable : dataset_->variables()) {
    if (lowered(variable.name) == lowered(name)) {
      return variable;
    }
    known += (known.empty() ? "" : ", ") + variable.name;
  }
  throw Refusal(dataset_->path() + ": there is no variable \"" + name + "\"; take one of " + known);
}

std::size_t Reel::frames() const {
  if (alongTime()) {
    return variables_.front().times();
  }
  const AxisPtr axis = Cut{*selection_.along, 0}.through(variables_.front());
  return axis ? axis->size() : 1;
}

Cut Reel::cutOf(std::size_t frame) const {
  if (!alongTime()) {
    return {*selection_.along, frame};
  }
  Cut cut{selection_.across, 0};
  const AxisPtr axis = cut.through(variables_.front());
  const bool begin = cut.across == Across::Z && dataset_->readsSingleLevels();
  cut.index = selection_.index.value_or(begin || !axis ? 0 : axis->size() / 2);
  return cut;
}

std::string Reel::label(std::size_t frame) const {
  const Variable& variable = variables_.front();
  const AxisPtr axis = alongTime() ? variable.t : cutOf(frame).through(variable);
  if (!axis) {
    return variable.name;
  }
  const std::string text = axis->label(axis->values[frame]);
  return alongTime() ? text : text + axis->unitBehind();
}

/// One level where the slices lie across the levels and the file has each by itself.
std::size_t Reel::levelsPerField() const {
  return cutOf(0).across == Across::Z && dataset_->readsSingleLevels()
             ? 1
             : variables_.front().levels();
}

PlaneMakerPtr Reel::slice(const Variable& variable, std::size_t frame) {
  const Cut cut = cutOf(frame);
  Piece piece{timeOf(frame), 0, levelsPerField()};
  piece.level = piece.levels == 1 && variable.levels() > 1 ? cut.index : 0;
  FieldReaderPtr& reader = readers_[{variable.name, {piece.time, piece.level}}];
  if (!reader) {
    reader = new FieldReader(workshop_, dataset_, variable, piece, file_);
    reader->addInterface(progress_);
  }
  const std::size_t first = variable.levels() > 1 ? piece.level : 0;
  return new SliceCutter(workshop_, reader, variable, cut, first);
}

const Painter::Sources& Reel::chain(std::size_t frame) {
  const auto known = chains_.find(frame);
  if (known != chains_.end()) {
    return known->second;
  }
  Painter::Sources sources;
  if (variables_.size() == 2) {
    sources.right = slice(variables_[0], frame);
    sources.up = slice(variables_[1], frame);
    sources.values = new SpeedMaker(workshop_, sources.right, sources.up);
  } else {
    sources.values = slice(variables_.front(), frame);
  }
  if (selection_.gradient) {
    sources.values = new GradientMaker(workshop_, sources.values);
  }
  sources.region = region_;
  return chains_[frame] = sources;
}

const PainterPtr& Reel::painter(std::size_t frame) {
  PainterPtr& painter = painters_[frame];
  if (!painter) {
    const auto [x, y] = axes();
    painter = new Painter(workshop_, chain(frame), Layout(*x, *y, selection_.size), map_);
  }
  return painter;
}

Range Reel::scanRange(std::size_t first, std::size_t last) {
  constexpr std::size_t Looks = 8;
  const std::size_t count = last - first + 1, looks = std::min(count, Looks);
  Range range{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
  for (std::size_t i = 0; i < looks; ++i) {
    const std::size_t frame = first + (looks > 1 ? i * (count - 1) / (looks - 1) : 0);
    const Range here = workshop_.obtain(*values(frame))->range();
    range = {std::min(range.low, here.low), std::max(range.high, here.high)};
  }
  if (range.low > range.high) {
    return {0, 1}; // nothing but missing values
  }
  if (variables_.size() == 2 || selection_.gradient) {
    range.low = 0;
  }
  return range;
}

std::string Reel::fittingMap(const Range& range) const {
  const Variable& variable = variables_.front();
  const std::string unit = lowered(variable.unit), name = lowered(variable.name + variable.title);
  const auto has = [](const std::string& text, const char* word) {
    return text.find(word) != std::string::npos;
  };
  if (variables_.size() == 2) {
    return "speed";
  }
  if (selection_.gradient) {
    return "ramp";
  }
  if (name.starts_with("labels")) {
    return "labels";
  }
  if (name.starts_with("brightness")) {
    return "grey";
  }
  if (has(unit, "deg c") || has(unit, "degc") || has(name, "temp")) {
    return "thermal";
  }
  if (has(unit, "met") && range.low < 0 && range.high > 0) {
    return "terrain";
  }
  return range.low < 0 && range.high > 0 && has(name, "wind") ? "balance" : "ramp";
}

void Reel::useMap(const Range& range) {
  const Range wanted = selection_.range.value_or(roundedRange(range));
  std::string name = selection_.map.empty() ? fittingMap(wanted) : selection_.map;
  map_ = new ColourMap(name, wanted);
}

std::pair<AxisPtr, AxisPtr> Reel::axes() const {
  const Cut cut = cutOf(0);
  return {cut.horizontal(variables_.front()), cut.vertical(variables_.front())};
}

std::pair<Tolvane::memsize_t, std::string> Reel::largest() const {
  const Variable& variable = variables_.front();
  const auto [x, y] = axes();
  const Layout layout(*x, *y, selection_.size);
  std::pair<Tolvane::memsize_t, std::string> largest{Field::bytesFor(variable, levelsPerField()),
                                                     "a field as it is read"};
  largest = std::max(largest, {Plane::bytesFor(x->size(), y->size()), "a slice"});
  return std::max(largest, {Picture::bytesFor(layout.width, layout.height), "a picture"});
}

Tolvane::memsize_t Reel::total(std::size_t first, std::size_t last) const {
  const Variable& variable = variables_.front();
  const auto [x, y] = axes();
  const Layout layout(*x, *y, selection_.size);
  const std::size_t frames = last - first + 1, parts = variables_.size();
  const std::size_t planes = parts + (parts == 2 ? 1 : 0) + (selection_.gradient ? 1 : 0);
  const bool ownField = alongTime() || levelsPerField() < variable.levels();
  return Field::bytesFor(variable, levelsPerField()) * parts * (ownField ? frames : 1) +
         frames * (planes * Plane::bytesFor(x->size(), y->size()) +
                   Picture::bytesFor(layout.width, layout.height));
}

} // namespace fields
