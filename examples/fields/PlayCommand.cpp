#include "Commands.hpp"
#include "DatasetFile.hpp"
#include "OutputFile.hpp"
#include "Player.hpp"
#include "Refusal.hpp"
#include "Report.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>

namespace fields {
namespace {

/// Frames follow in time where there are times, else through the levels.
void chooseDirection(Selection& selection, const Options& options, const Dataset& dataset) {
  if (!options.has("--along") && !dataset.variables().empty() &&
      dataset.variables().front().times() == 1 && dataset.variables().front().levels() > 1) {
    selection.along = Across::Z;
  }
}

PlayPlan planOf(const Options& options) {
  PlayPlan plan;
  plan.first = options.number("--from", 1).value_or(1) - 1;
  plan.last = options.number("--to", 1).value_or(1'000'000) - 1;
  plan.rounds = options.number("--times", 1).value_or(2);
  plan.seed = static_cast<std::uint32_t>(options.number("--seed", 0).value_or(1));
  plan.orders = options.list("--order");
  if (plan.orders.empty()) {
    plan.orders = {"forwards"};
  }
  return plan;
}

std::filesystem::path folderOf(const Options& options) {
  return options.text("--out", ".");
}

/// The beginning of the paths of all files of a play.
std::string prefixOf(const Options& options) {
  const std::filesystem::path folder = folderOf(options);
  std::error_code error;
  if (std::filesystem::exists(folder, error) && !std::filesystem::is_directory(folder, error)) {
    throw Refusal(folder.string() + ": is no folder; choose another with --out");
  }
  return (folder / options.text("--name", "fields")).string();
}

/// Makes the folder, once there is something to be written.
void makeFolder(const Options& options) {
  const std::filesystem::path folder = folderOf(options);
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (!std::filesystem::is_directory(folder, error)) {
    throw Refusal(folder.string() + ": this folder cannot be made; choose another with --out");
  }
}

Player playerOf(const Options& options, const DatasetFile& file, const ProgressBarPtr& progress) {
  Selection selection = options.selection();
  chooseDirection(selection, options, *file.dataset);
  return Player(file.dataset, selection, planOf(options), progress);
}

/// From what one object needs to what all need, in equal steps of a logarithm.
std::vector<Tolvane::memsize_t> budgetsOf(const Options& options, const Player& player) {
  std::vector<Tolvane::memsize_t> budgets;
  for (const std::string& text : options.list("--budgets")) {
    budgets.push_back(parseBytes(text));
  }
  if (budgets.empty()) {
    constexpr int Steps = 6;
    const auto least = static_cast<double>(player.largest().first);
    const double factor = std::max(1.0, static_cast<double>(player.total()) / least);
    for (int i = 0; i < Steps; ++i) {
      // Fits are taken as such only below the limit.
      budgets.push_back(1 + static_cast<Tolvane::memsize_t>(
                                std::ceil(least * std::pow(factor, i / (Steps - 1.0)))));
    }
  }
  std::sort(budgets.begin(), budgets.end());
  requireRoom(player.largest(), budgets.front());
  return budgets;
}

} // namespace

void playCommand(const Options& options, const ProgressBarPtr& progress) {
  const std::string prefix = prefixOf(options), extension = pictureExtension();
  const DatasetFile file(options.file(), progress);
  Player player = playerOf(options, file, progress);
  const CachePtr cache = makeCache(options.bytes("--budget"), "play");
  const PlayResult result = player.play(cache, options.has("--listing"));

  makeFolder(options);
  savePicture(prefix + "-sheet" + extension, result.sheet, "contact sheet of " + options.file());
  savePicture(prefix + "-memory" + extension, memoryChart(result), "memory over time");
  writeFile(prefix + "-table.json",
            [&](std::ostream& out) { writeJson(out, options.file(), {result}); });
  printTable(std::cout, {result});
  std::cout << "contact sheet: " << prefix << "-sheet" << extension << "\nmemory chart:  " << prefix
            << "-memory" << extension << "\ntable as JSON: " << prefix << "-table.json\n";
}

void compareCommand(const Options& options, const ProgressBarPtr& progress) {
  const std::string prefix = prefixOf(options), extension = pictureExtension();
  const DatasetFile file(options.file(), progress);
  Player player = playerOf(options, file, progress);
  std::vector<PlayResult> results;
  for (const Tolvane::memsize_t budget : budgetsOf(options, player)) {
    results.push_back(
        player.play(CachePtr(new Tolvane::Cache(budget, "compare")), options.has("--listing")));
    if (results.back().digests != results.front().digests ||
        results.back().sheet.colours != results.front().sheet.colours) {
      throw Refusal("the pictures with " + bytesText(budget) + " differ from those with " +
                    bytesText(results.front().cache.limit) + "; has the file changed meanwhile?");
    }
  }
  makeFolder(options);
  savePicture(prefix + "-compare" + extension, compareChart(results), "time against budget");
  writeFile(prefix + "-compare.json",
            [&](std::ostream& out) { writeJson(out, options.file(), results); });
  printTable(std::cout, results);
  std::cout << "the pictures are the same, byte for byte, with all " << results.size()
            << " budgets\nchart:         " << prefix << "-compare" << extension
            << "\ntable as JSON: " << prefix << "-compare.json\n";
}

} // namespace fields
