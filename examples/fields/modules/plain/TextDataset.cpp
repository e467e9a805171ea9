#include "TextDataset.hpp"

#include "../../data/FileError.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace fields {
namespace {

double toNumber(const std::string& text, const std::string& what) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !std::isfinite(number)) {
    throw FileError("is damaged: " + what + " is \"" + text.substr(0, 30) + "\", not a number");
  }
  return number;
}

AxisPtr axis(const char* name, double first, double step, std::size_t count) {
  const auto made = std::make_shared<Axis>();
  made->name = name;
  if (std::abs(first) <= 360 && std::abs(first + step * static_cast<double>(count)) <= 360) {
    made->unit = *name == 'x' ? "degrees_east" : "degrees_north";
    made->name = *name == 'x' ? "longitude" : "latitude";
  }
  for (std::size_t i = 0; i < count; ++i) {
    made->values.push_back(first + step * static_cast<double>(i));
  }
  return made;
}

} // namespace

/// The keywords up to the first number; none at the end of the text.
TextDataset::Header TextDataset::readHeader() {
  Header header;
  std::string key, value;
  while ((file() >> std::ws) && std::isalpha(file().peek()) != 0) {
    if (!(file() >> key) || key.size() > 100 || !std::getline(file(), value)) {
      break;
    }
    std::transform(key.begin(), key.end(), key.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const std::size_t begin = value.find_first_not_of(" \t\r");
    const std::size_t end = value.find_last_not_of(" \t\r");
    header[key] = begin == std::string::npos ? "" : value.substr(begin, end - begin + 1);
  }
  return header;
}

float TextDataset::readValue(const std::optional<float>& missing) {
  std::string text;
  if (!(file() >> text)) {
    throw FileError("is cut off: values are missing at its end; get the file anew");
  }
  const double number = toNumber(text, "a value");
  if (std::abs(number) > std::numeric_limits<float>::max()) {
    throw FileError("is damaged: the value " + text + " is too large");
  }
  const auto value = static_cast<float>(number);
  return missing && value == *missing ? std::numeric_limits<float>::quiet_NaN() : value;
}

TextDataset::TextDataset(const std::string& path) : PlainDataset(path) {
  Header first;
  for (double time = 0;; ++time) {
    Header header = readHeader();
    const auto number = [&](const char* key, double otherwise) {
      return header.contains(key) ? toNumber(header[key], key) : otherwise;
    };
    if (header.empty() && time > 0 && file().eof()) {
      break;
    }
    const double columns = number("ncols", 0), rows = number("nrows", 0);
    if (!(columns >= 1 && rows >= 1 && columns < 1e6 && rows < 1e6)) {
      throw FileError("is no grid: it has to begin with ncols and nrows and their numbers");
    }
    addGrid(static_cast<std::size_t>(columns), static_cast<std::size_t>(rows), file().tellg(),
            number("time", time));
    for (std::size_t i = 0; i < width() * height(); ++i) {
      readValue({});
    }
    if (time == 0) {
      first = header;
      if (const double missing = number("nodata_value", -9999); std::abs(missing) < 1e38) {
        missing_ = static_cast<float>(missing);
      }
    }
  }
  const auto of = [&](const std::string& key, const char* otherwise) {
    return first.contains(key) ? first[key] : std::string(otherwise);
  };
  const double cell = toNumber(of("cellsize", "1"), "cellsize");
  Variable variable;
  variable.name = of("variable", "values");
  variable.title = variable.name;
  variable.unit = of("unit", "");
  const auto begin = [&](const std::string& direction) {
    return first.contains(direction + "llcenter")
               ? toNumber(first[direction + "llcenter"], direction + "llcenter")
               : toNumber(of(direction + "llcorner", "0"), direction + "llcorner") + cell / 2;
  };
  variable.x = axis("x", begin("x"), cell, width());
  const double south = begin("y");
  variable.y = axis("y", south + cell * static_cast<double>(height() - 1), -cell, height());
  finish(variable);
}

Samples::Floats TextDataset::readValues(std::size_t) {
  Samples::Floats values(width() * height());
  std::generate(values.begin(), values.end(), [this] { return readValue(missing_); });
  return values;
}

} // namespace fields
