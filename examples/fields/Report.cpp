#include "Report.hpp"

#include "Chart.hpp"
#include "Options.hpp"
#include "data/Axis.hpp"

#include <tolvane/Typename.hpp>

#include <iomanip>
#include <ostream>
#include <sstream>
#include <utility>

namespace fields {
namespace {

constexpr double Mega = 1024.0 * 1024.0;

std::string secondsText(double seconds) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << seconds;
  return text.str();
}

std::string quoted(const std::string& text) {
  std::ostringstream out;
  out << '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out << '\\' << c;
    } else if (static_cast<unsigned char>(c) < ' ') {
      out << "\\u" << std::hex << std::setw(4) << std::setfill('0') << int{c} << std::dec;
    } else {
      out << c;
    }
  }
  out << '"';
  return out.str();
}

/// How many pictures were there when they were to be shown.
std::uint64_t pictureHits(const PlayResult& result) {
  std::uint64_t hits = 0;
  for (const Tolvane::CacheDomainStatistics& domain : result.cache.domains) {
    hits += domain.data == Tolvane::TypeInfo(typeid(Picture)) ? domain.total().touched : 0;
  }
  return hits;
}

/// The columns of the table, for people.
std::vector<std::pair<std::string, std::string>> columns(const PlayResult& result) {
  return {{"budget", bytesText(result.cache.limit)},
          {"cache peak", bytesText(result.cache.peak)},
          {"process peak", bytesText(result.peakProcess)},
          {"shown", std::to_string(result.shown)},
          {"from cache", std::to_string(pictureHits(result))},
          {"hits", std::to_string(result.cache.total.touched)},
          {"made again", std::to_string(result.madeAgain.count)},
          {"of bytes", bytesText(result.madeAgain.bytes)},
          {"in s", secondsText(result.madeAgain.seconds)},
          {"refused", std::to_string(result.cache.total.refused)},
          {"seconds", secondsText(result.seconds)}};
}

void writeCounts(std::ostream& out, const Tolvane::CacheCounts& counts) {
  out << "\"entries\": " << counts.entries << ", \"bytes\": " << counts.bytes
      << ", \"inserted\": " << counts.inserted << ", \"hits\": " << counts.touched
      << ", \"asked\": " << counts.asked << ", \"released\": " << counts.released
      << ", \"not_now\": " << counts.temporary << ", \"never\": " << counts.kept
      << ", \"evicted\": " << counts.evicted << ", \"evicted_bytes\": " << counts.evictedBytes
      << ", \"refused\": " << counts.refused;
}

std::string passed(const PlayResult& result) {
  return "the cache's peak of " + bytesText(result.cache.peak) + " passed the budget of " +
         bytesText(result.cache.limit);
}

} // namespace

void printTable(std::ostream& out, const std::vector<PlayResult>& results) {
  for (std::size_t row = 0; row <= results.size(); ++row) {
    for (const auto& [head, value] : columns(results[row > 0 ? row - 1 : 0])) {
      out << std::setw(
                 head == "shown" || head == "hits" || head == "in s" || head == "refused" ? 9 : 13)
          << (row > 0 ? value : head);
    }
    out << '\n';
  }
  for (const PlayResult& result : results) {
    if (result.passedBudget()) {
      out << "note: " << passed(result) << '\n';
    }
  }
}

void writeJson(std::ostream& out, const std::string& file, const std::vector<PlayResult>& results) {
  out << "{\n  \"file\": " << quoted(file) << ",\n  \"plays\": [";
  const char* separator = "\n";
  for (const PlayResult& result : results) {
    out << separator << "    {\"budget\": " << result.cache.limit
        << ", \"peak_counted\": " << result.cache.peak
        << ", \"peak_process\": " << result.peakProcess
        << ", \"passed_budget\": " << (result.passedBudget() ? "true" : "false")
        << ", \"shown\": " << result.shown << ", \"made_again\": " << result.madeAgain.count
        << ", \"made_again_bytes\": " << result.madeAgain.bytes
        << ", \"made_again_seconds\": " << result.madeAgain.seconds
        << ", \"seconds\": " << result.seconds << ",\n     \"cache\": {";
    writeCounts(out, result.cache.total);
    out << "},\n     \"domains\": [";
    const char* next = "\n";
    for (const Tolvane::CacheDomainStatistics& domain : result.cache.domains) {
      out << next << "      {\"creator\": " << quoted(Tolvane::Typename(domain.creator.get()))
          << ", \"data\": " << quoted(Tolvane::Typename(domain.data.get())) << ", ";
      writeCounts(out, domain.total());
      out << "}";
      next = ",\n";
    }
    out << "]}";
    separator = ",\n";
  }
  out << "\n  ]\n}\n";
}

Pixels memoryChart(const PlayResult& result) {
  Chart chart;
  chart.title = "Memory counted by the cache";
  chart.subtitle = result.passedBudget() ? "NOTE: " + passed(result)
                                         : "peak " + bytesText(result.cache.peak) + " of " +
                                               bytesText(result.cache.limit);
  chart.xTitle = "seconds";
  chart.yTitle = "MB";
  chart.limit = static_cast<double>(result.cache.limit) / Mega;
  chart.limitName = "budget " + bytesText(result.cache.limit);
  if (result.cache.limit > 20 * result.cache.peak) {
    chart.limit = 0; // it would leave no room for the line
    chart.subtitle += ", far above this chart";
  }
  for (const Workshop::Sample& sample : result.samples) {
    chart.points.push_back({sample.seconds, static_cast<double>(sample.bytes) / Mega});
  }
  return chart.draw();
}

Pixels compareChart(const std::vector<PlayResult>& results) {
  Chart chart;
  chart.title = "Time against budget";
  chart.xTitle = "budget in MB";
  chart.yTitle = "seconds";
  chart.marks = chart.logarithmic = true;
  std::size_t over = 0;
  for (const PlayResult& result : results) {
    over += result.passedBudget() ? 1U : 0U;
    chart.points.push_back({static_cast<double>(result.cache.limit) / Mega, result.seconds});
  }
  chart.subtitle = over > 0 ? "NOTE: with " + std::to_string(over) +
                                  " of the budgets the cache's peak passed the budget"
                            : "the same pictures with every budget, which none passed";
  return chart.draw();
}

} // namespace fields
