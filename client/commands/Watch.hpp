#pragma once

#include <string>
#include <vector>

#include "client/commands/Common.hpp"

// lcf watch: shows every datagram on the service port, as it passes, without sending any.
namespace lcf::commands {

struct WatchArgs {
    std::vector<std::string> interfaces;
    bool json = false;
    double durationSeconds = 0.0;  // 0: until interrupted
};

// Registers the command and its options, which parse into `args`.
CLI::App* addWatchCommand(CLI::App& app, WatchArgs& args);

// Listens and prints until SIGINT or SIGTERM, or for the duration; returns the exit status.
int runWatch(const WatchArgs& args);

}  // namespace lcf::commands
