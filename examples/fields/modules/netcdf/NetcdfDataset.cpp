#include "NetcdfDataset.hpp"

#include "../../data/FileError.hpp"
#include "ClassicLayout.hpp"

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <netcdf.h>
#include <optional>

namespace fields {
namespace {

void check(int status) {
  if (status != NC_NOERR) {
    throw FileError(std::string("is no NetCDF file that can be read: ") + nc_strerror(status));
  }
}

/// A file that was cut off is refused before anything of it is believed.
void checkLength(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::uint64_t wanted = classicFileLength(file);
  const std::uint64_t length = std::filesystem::file_size(path);
  if (length < wanted) {
    throw FileError("is cut off: it ends after " + std::to_string(length) + " of " +
                    std::to_string(wanted) + " bytes; get the file anew");
  }
}

std::optional<double> number(int file, int variable, const char* attribute) {
  nc_type type = NC_NAT;
  std::size_t length = 0;
  double value = 0;
  if (nc_inq_att(file, variable, attribute, &type, &length) != NC_NOERR || type == NC_CHAR ||
      type > NC_UINT64 || length != 1 ||
      nc_get_att_double(file, variable, attribute, &value) != NC_NOERR) {
    return std::nullopt;
  }
  return value;
}

} // namespace

NetcdfDataset::NetcdfDataset(const std::string& path) : Dataset(path) {
  checkLength(path);
  check(nc_open(path.c_str(), NC_NOWRITE, &file_));
  int count = 0;
  check(nc_inq_nvars(file_, &count));
  for (int id = 0; id < count; ++id) {
    addVariable(id);
  }
}

NetcdfDataset::~NetcdfDataset() {
  if (file_ != -1) {
    nc_close(file_);
  }
}

std::string NetcdfDataset::text(int variable, const char* attribute) const {
  nc_type type = NC_NAT;
  std::size_t length = 0;
  if (nc_inq_att(file_, variable, attribute, &type, &length) != NC_NOERR || type != NC_CHAR) {
    return {};
  }
  std::string value(length, '\0');
  check(nc_get_att_text(file_, variable, attribute, value.data()));
  return value.substr(0, value.find('\0'));
}

/// The coordinates of a dimension: those of the variable of its name, else the numbers of its
/// cells.
AxisPtr NetcdfDataset::axis(int dimension, const std::string& fallback) {
  AxisPtr& known = axes_[dimension];
  if (known) {
    return known;
  }
  std::array<char, NC_MAX_NAME + 1> name{};
  std::size_t length = 0;
  check(nc_inq_dim(file_, dimension, name.data(), &length));
  const auto made = std::make_shared<Axis>();
  made->name = fallback;
  made->values.resize(length);
  int id = 0, rank = 0, own = -1;
  if (nc_inq_varid(file_, name.data(), &id) == NC_NOERR &&
      nc_inq_varndims(file_, id, &rank) == NC_NOERR && rank == 1 &&
      nc_inq_vardimid(file_, id, &own) == NC_NOERR && own == dimension &&
      nc_get_var_double(file_, id, made->values.data()) == NC_NOERR) {
    made->unit = text(id, "units");
    made->down = text(id, "positive") == "down";
  } else {
    for (std::size_t i = 0; i < length; ++i) {
      made->values[i] = static_cast<double>(i);
    }
  }
  if (made->isLongitude()) {
    made->name = "longitude";
  } else if (made->isLatitude()) {
    made->name = "latitude";
  } else if (made->down) {
    made->name = "depth";
  } else if (made->unit.find(" since ") != std::string::npos) {
    made->name = "time";
  }
  return known = made;
}

void NetcdfDataset::addVariable(int id) {
  std::array<char, NC_MAX_NAME + 1> name{};
  std::array<int, NC_MAX_VAR_DIMS> dimensions{};
  nc_type type = NC_NAT;
  int rank = 0;
  check(nc_inq_var(file_, id, name.data(), &type, &rank, dimensions.data(), nullptr));
  if (rank < 2 || rank > 4 || type == NC_CHAR || type > NC_UINT64) {
    return;
  }
  Variable variable;
  variable.name = name.data();
  variable.title = text(id, "long_name");
  variable.unit = text(id, "units");
  const auto last = static_cast<std::size_t>(rank) - 1;
  variable.x = axis(dimensions[last], "x");
  variable.y = axis(dimensions[last - 1], "y");
  if (rank == 4) {
    variable.z = axis(dimensions[1], "level");
    variable.t = axis(dimensions[0], "time");
  } else if (rank == 3) {
    const AxisPtr third = axis(dimensions[0], "level");
    (third->name == "time" ? variable.t : variable.z) = third;
  }
  for (const AxisPtr& each : {variable.x, variable.y, variable.z, variable.t}) {
    if (each && each->values.empty()) {
      return; // nothing was recorded yet
    }
  }
  add(variable);
}

Samples NetcdfDataset::read(const Variable& variable, const Piece& piece,
                            const ProgressPtr& progress) {
  const std::string what = "reading " + variable.name;
  if (progress) {
    progress->progress(what, 0, 1);
  }
  int id = 0;
  check(nc_inq_varid(file_, variable.name.c_str(), &id));
  std::vector<std::size_t> start, count;
  if (variable.t) {
    start.push_back(piece.time);
    count.push_back(1);
  }
  if (variable.z) {
    start.push_back(piece.level);
    count.push_back(piece.levels);
  }
  start.insert(start.end(), {0, 0});
  count.insert(count.end(), {variable.y->size(), variable.x->size()});
  Samples::Floats values(variable.x->size() * variable.y->size() * piece.levels);
  const int status = nc_get_vara_float(file_, id, start.data(), count.data(), values.data());
  if (status != NC_ERANGE) { // a number too large for a float is one that is missing
    check(status);
  }
  const std::array<std::optional<double>, 2> absent = {number(file_, id, "missing_value"),
                                                       number(file_, id, "_FillValue")};
  const double factor = number(file_, id, "scale_factor").value_or(1);
  const double offset = number(file_, id, "add_offset").value_or(0);
  for (float& value : values) {
    const bool missing = !std::isfinite(value) || std::abs(value) >= NC_FILL_FLOAT ||
                         (absent[0] && value == static_cast<float>(*absent[0])) ||
                         (absent[1] && value == static_cast<float>(*absent[1]));
    value = missing ? std::numeric_limits<float>::quiet_NaN()
                    : static_cast<float>(value * factor + offset);
  }
  if (progress) {
    progress->progress(what, 1, 1);
  }
  return {std::move(values)};
}

} // namespace fields
