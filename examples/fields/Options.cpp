#include "Options.hpp"

#include "Refusal.hpp"

#include <tolvane/Environment.hpp>
#include <tolvane/SystemMemory.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <span>
#include <sstream>
#include <string_view>

namespace fields {
namespace {

/// The options that have no value, and those that have one.
constexpr std::array<std::string_view, 3> Switches = {"--help", "--gradient", "--listing"};
constexpr std::array<std::string_view, 19> WithValue = {
    "--along",   "--at",    "--budget", "--budgets",  "--cut",   "--from",   "--map",
    "--modules", "--order", "--out",    "--progress", "--range", "--region", "--seed",
    "--size",    "--time",  "--times",  "--to",       "--name"};

bool contains(std::span<const std::string_view> list, std::string_view word) {
  return std::ranges::find(list, word) != list.end();
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, ',');) {
    parts.push_back(part);
  }
  return parts;
}

Across acrossOf(const std::string& text, const char* option) {
  if (text == "x" || text == "y" || text == "z") {
    return text == "x" ? Across::X : text == "y" ? Across::Y : Across::Z;
  }
  throw Refusal(std::string(option) + " takes x, y or z, not \"" + text + "\"");
}

double real(const std::string& text, const char* option) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !(value > -1e30 && value < 1e30)) {
    throw Refusal(std::string(option) + " takes numbers, not \"" + text + "\"");
  }
  return value;
}

} // namespace

const char* Options::help() {
  return R"(fields: shows what scientific files hold, and plays more of it than memory is given.

usage:
  fields list [FILE]             what a file holds and which loaders took or refused it;
                                 without a file, the modules with their loaders and savers
  fields show FILE [VARIABLES]   one map as a picture
  fields play FILE [VARIABLES]   a range of maps under a budget; ends with a table, a contact
                                 sheet, a chart of the memory, and the table as JSON
  fields compare FILE [VARIABLES]  plays under several budgets, compares the pictures, and
                                 charts the time against the budget
  fields --help                  this text

VARIABLES is the name of one, or of two as in UWND,VWND that are the parts of arrows; the first of
the file by default. Times and slices are counted from 1. SIZE is a number of bytes, or one with
K, M or G.

what is seen:
  --time N         the time, for show and for play --along x, y or z      (1)
  --cut x|y|z      the direction to cut across                            (z)
  --at N           where to cut                 (the first level, or the middle of a volume)
  --gradient       how fast the values change
  --map NAME       colours: grey ramp speed thermal balance terrain labels
  --range LOW:HIGH the values at the ends of the colours
  --region POINTS  a region drawn by hand, as in "150,-10 180,-10 165,10"
  --size N         the longer side of a map in pixels                     (720; play 360)
  --out PATH       show: the picture; play and compare: a folder          (the current one)
  --name NAME      play and compare: what the names of the files begin with  (fields)

how it is played:
  --along time|x|y|z  the direction in which maps follow each other
  --from N, --to N    the first and the last of them                      (all)
  --order LIST        forwards, backwards, random, or a list that the rounds go through
  --times N           how many rounds                                     (2)
  --seed N            of the random order                                 (1)
  --budget SIZE       what the cache may hold                             (TOLVANE_CACHESIZE, or half of what is free)
  --budgets LIST      compare: the sizes to play under
  --listing           what is in the cache, at the end

  --progress auto|bar|lines|none    --modules FOLDER    TOLVANE_VERBOSITY=5 tells more
)";
}

Options::Options(int count, const char* const* arguments) {
  for (int i = 1; i < count; ++i) {
    const std::string word = arguments[i];
    if (contains(Switches, word)) {
      values_[word] = "yes";
    } else if (contains(WithValue, word)) {
      if (i + 1 == count) {
        throw Refusal(word + " needs a value; fields --help tells which");
      }
      values_[word] = arguments[++i];
    } else if (word.starts_with("--")) {
      throw Refusal("there is no option " + word + "; fields --help lists them");
    } else if (command_.empty()) {
      command_ = word;
    } else {
      words_.push_back(word);
    }
  }
}

std::string Options::text(const std::string& name, const std::string& otherwise) const {
  const auto found = values_.find(name);
  return found != values_.end() ? found->second : otherwise;
}

std::optional<std::size_t> Options::number(const std::string& name, std::size_t least) const {
  if (!has(name)) {
    return std::nullopt;
  }
  const std::string value = text(name);
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size() || number < least ||
      number > 1'000'000) {
    throw Refusal(name + " takes a whole number from " + std::to_string(least) +
                  " to 1000000, not \"" + value + "\"");
  }
  return number;
}

std::optional<Tolvane::memsize_t> Options::bytes(const std::string& name) const {
  return has(name) ? std::optional(parseBytes(text(name))) : std::nullopt;
}

std::vector<std::string> Options::list(const std::string& name) const {
  return split(text(name));
}

std::string Options::file() const {
  if (words_.empty()) {
    throw Refusal(command_ + " needs a file; fields --help tells how to call it");
  }
  return words_.front();
}

void Options::requireWords(std::size_t most) const {
  if (words_.size() > most) {
    throw Refusal("\"" + words_[most] +
                  "\" is one word too many; fields --help tells how to call " + command_);
  }
}

Selection Options::selection() const {
  requireWords(2);
  Selection selection;
  if (words_.size() > 1) {
    selection.variables = split(words_[1]);
  }
  if (has("--cut")) {
    selection.across = acrossOf(text("--cut"), "--cut");
  }
  if (has("--along") && text("--along") != "time") {
    selection.along = acrossOf(text("--along"), "--along");
  }
  selection.time = number("--time", 1).value_or(1) - 1;
  if (const auto at = number("--at", 1)) {
    selection.index = *at - 1;
  }
  selection.gradient = has("--gradient");
  selection.map = text("--map");
  selection.region = text("--region");
  if (has("--range")) {
    const std::string range = text("--range");
    const std::size_t colon = range.find(':');
    selection.range = {real(range.substr(0, colon), "--range"),
                       real(colon == std::string::npos ? "" : range.substr(colon + 1), "--range")};
    if (!(selection.range->low < selection.range->high)) {
      throw Refusal("--range takes the lower value first, as in 0:30");
    }
  }
  const std::size_t size = number("--size", 40).value_or(command_ == "show" ? 720 : 360);
  if (size > 4000) {
    throw Refusal("--size takes up to 4000 pixels");
  }
  selection.size = static_cast<int>(size);
  return selection;
}

CachePtr makeCache(const std::optional<Tolvane::memsize_t>& budget, const std::string& name) {
  if (!budget && !Tolvane::getEnvString("TOLVANE_CACHESIZE", nullptr).empty()) {
    return Tolvane::Cache::MemCache().lock();
  }
  return new Tolvane::Cache(budget.value_or(Tolvane::getAvailableMemory() / 2), name);
}

Tolvane::memsize_t parseBytes(const std::string& text) {
  Tolvane::memsize_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
  if (unit.ends_with('B')) {
    unit.remove_suffix(1);
  }
  const int shift = unit.empty() ? 0 : unit == "K" ? 10 : unit == "M" ? 20 : unit == "G" ? 30 : -1;
  if (error != std::errc() || number == 0 || shift < 0 ||
      number > std::numeric_limits<Tolvane::memsize_t>::max() >> shift) {
    throw Refusal("\"" + text + "\" is no size; give one like 900K, 4M or 1G");
  }
  return number << shift;
}

std::string bytesText(Tolvane::memsize_t bytes) {
  constexpr std::array<const char*, 4> Units = {"B", "KB", "MB", "GB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1024 && unit + 1 < Units.size()) {
    value /= 1024;
    ++unit;
  }
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.2f %s", value, Units[unit]);
  return text.data();
}

} // namespace fields
