#pragma once

#include "ModuleFolder.hpp"
#include "Options.hpp"
#include "ProgressBar.hpp"

/// @file
/// The commands. Each prints to the standard output and throws Refusal when it cannot be done.

namespace fields {

void listCommand(const Options& options, const ModuleFolder& modules,
                 const ProgressBarPtr& progress);
void showCommand(const Options& options, const ProgressBarPtr& progress);
void playCommand(const Options& options, const ProgressBarPtr& progress);
void compareCommand(const Options& options, const ProgressBarPtr& progress);

} // namespace fields
