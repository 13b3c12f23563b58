#pragma once

#include <cstddef>
#include <string>

#include "client/commands/Common.hpp"

// lcf apply: brings every controller of a plan to the settings it names.
namespace lcf::commands {

inline constexpr std::size_t kDefaultParallel = 32;

struct ApplyArgs {
    CommonOptions common;
    std::string planPath;  // "-": standard input
    bool dryRun = false;
    int parallel = static_cast<int>(kDefaultParallel);
};

// Registers the command and its options, which parse into `args`.
CLI::App* addApplyCommand(CLI::App& app, ApplyArgs& args);

// Reads and applies the plan, prints what became of each controller and returns the exit
// status.
int runApply(const ApplyArgs& args);

}  // namespace lcf::commands
