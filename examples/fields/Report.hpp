#pragma once

#include "Player.hpp"

#include <iosfwd>
#include <string>
#include <vector>

/// @file
/// Tells what came of plays: for people, for programs, and as charts.

namespace fields {

/// The table, and below it what has to be said of the budgets.
void printTable(std::ostream& out, const std::vector<PlayResult>& results);

/// The table as JSON.
void writeJson(std::ostream& out, const std::string& file, const std::vector<PlayResult>& results);

/// The memory over time against the budget.
Pixels memoryChart(const PlayResult& result);

/// The time against the budget.
Pixels compareChart(const std::vector<PlayResult>& results);

} // namespace fields
