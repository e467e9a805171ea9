#include "PgmDataset.hpp"

#include "../../data/FileError.hpp"

#include <limits>

namespace fields {
namespace {

AxisPtr pixels(const char* name, std::size_t count, bool fromTheTop) {
  const auto axis = std::make_shared<Axis>();
  axis->name = name;
  axis->unit = "pixels";
  for (std::size_t i = 0; i < count; ++i) {
    axis->values.push_back(static_cast<double>(fromTheTop ? count - 1 - i : i));
  }
  return axis;
}

} // namespace

/// A number behind blanks and comments.
unsigned PgmDataset::readNumber() {
  while ((file() >> std::ws) && file().peek() == '#') {
    file().ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  unsigned number = 0;
  if (!(file() >> number)) {
    throw FileError(file().eof() ? "is cut off: numbers are missing at its end; get the file anew"
                                 : "is damaged: something stands where a number should");
  }
  return number;
}

PgmDataset::PgmDataset(const std::string& path) : PlainDataset(path) {
  file().seekg(0, std::ios::end);
  const std::streamoff length = file().tellg();
  file().seekg(0);
  for (double time = 0; time == 0 || (file() >> std::ws && !file().eof()); ++time) {
    const int mark = file().get();
    const int kind = file().get();
    if (mark != 'P' || (kind != '2' && kind != '5')) {
      throw FileError("is no grey map: P2 or P5 is not where it should be");
    }
    const std::size_t columns = readNumber(), rows = readNumber();
    const unsigned largest = readNumber();
    if (largest < 1 || largest > 65535) {
      throw FileError("is damaged: its brightest value is " + std::to_string(largest));
    }
    bytesPerValue_.push_back(kind == '2' ? 0 : largest < 256 ? 1 : 2);
    file().get();
    addGrid(columns, rows, file().tellg(), time);
    if (kind == '2') {
      for (std::size_t i = 0; i < columns * rows; ++i) {
        readNumber();
      }
    } else {
      const std::streamoff end =
          file().tellg() + static_cast<std::streamoff>(columns * rows * bytesPerValue_.back());
      if (end > length) {
        throw FileError("is cut off: it ends after " + std::to_string(length) + " of " +
                        std::to_string(end) + " bytes; get the file anew");
      }
      file().seekg(end);
    }
  }
  Variable variable;
  variable.name = variable.title = "brightness";
  variable.x = pixels("x", width(), false);
  variable.y = pixels("y", height(), true);
  finish(variable);
}

Samples::Floats PgmDataset::readValues(std::size_t index) {
  Samples::Floats values(width() * height());
  const std::size_t bytes = bytesPerValue_[index];
  for (float& value : values) {
    if (bytes == 0) {
      value = static_cast<float>(readNumber());
      continue;
    }
    int number = file().get();
    if (bytes == 2) {
      number = number * 256 + file().get();
    }
    value = static_cast<float>(number);
  }
  if (!file()) {
    throw FileError("cannot be read any more; has it changed meanwhile?");
  }
  return values;
}

} // namespace fields
