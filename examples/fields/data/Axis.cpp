#include "Axis.hpp"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace fields {
namespace {

/// The seconds of a unit like "hours since 1980-01-14 14:00:00"; 0 when it is none of time.
double secondsOf(const std::string& unit) {
  static constexpr std::array<std::pair<const char*, double>, 4> Names = {
      {{"sec", 1}, {"min", 60}, {"hour", 3600}, {"day", 86400}}};
  for (const auto& [name, seconds] : Names) {
    if (unit.starts_with(name)) {
      return seconds;
    }
  }
  return 0;
}

/// The calendar day at `value`; empty when the unit names no origin. The years before the calendar
/// reform stand for a mean year, so they are left out.
std::string dateText(const std::string& unit, double value) {
  const std::size_t since = unit.find(" since ");
  const double seconds = secondsOf(unit);
  int year = 0, hour = 0, minute = 0;
  unsigned month = 0, day = 0;
  if (since == std::string::npos || seconds == 0 || std::abs(value) > 1e9 ||
      std::sscanf(unit.c_str() + since, " since %d-%u-%u %d:%d", &year, &month, &day, &hour,
                  &minute) < 3) {
    return {};
  }
  using namespace std::chrono;
  const auto origin =
      sys_days(std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day)) +
      hours(hour) + minutes(minute);
  const auto moment = origin + std::chrono::seconds(std::llround(value * seconds));
  const year_month_day date(floor<days>(moment));
  static constexpr std::array<const char*, 12> Months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::string text =
      std::to_string(unsigned{date.day()}) + ' ' + Months[unsigned{date.month()} - 1];
  if (int{date.year()} > 1582) {
    text += ' ' + std::to_string(int{date.year()});
  }
  return text;
}

} // namespace

std::string numberText(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.5g", value == 0 ? 0.0 : value);
  return text;
}

std::string Axis::label(double value) const {
  if (isLongitude()) {
    double east = std::remainder(value, 360.0);
    if (std::abs(east) == 180.0) {
      return "180";
    }
    return numberText(std::abs(east)) + (east == 0 ? "" : east < 0 ? "W" : "E");
  }
  if (isLatitude()) {
    return numberText(std::abs(value)) + (value == 0 ? "" : value < 0 ? "S" : "N");
  }
  const std::string date = dateText(unit, value);
  return date.empty() ? numberText(value) : date;
}

std::string Axis::unitBehind() const {
  const bool told = isLongitude() || isLatitude() || unit.find(" since ") != std::string::npos;
  return told || unit.empty() ? "" : ' ' + unit;
}

std::string Axis::title() const {
  if (isLongitude() || isLatitude() || unit.empty()) {
    return name;
  }
  return name + " (" + unit + ")";
}

} // namespace fields
