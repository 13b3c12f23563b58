#pragma once

#include "client/commands/Common.hpp"

// lcf discover: lists every controller that answers on the segment.
namespace lcf::commands {

inline constexpr int kDefaultMaxRounds = 10;

struct DiscoverArgs {
    CommonOptions common;
    int rounds = kDefaultMaxRounds;
    int expected = 0;  // 0: not given
    bool json = false;
    bool csv = false;
};

// Registers the command and its options, which parse into `args`.
CLI::App* addDiscoverCommand(CLI::App& app, DiscoverArgs& args);

// Discovers, prints the controllers found and returns the exit status.
int runDiscover(const DiscoverArgs& args);

}  // namespace lcf::commands
