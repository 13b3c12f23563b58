#pragma once

#include <string>

#include "client/commands/Common.hpp"

// lcf clear: makes one controller forget one server.
namespace lcf::commands {

struct ClearArgs {
    CommonOptions common;
    std::string mac;
    std::string serverKey;
    bool unchecked = false;
    bool verify = false;
};

// Registers the command and its options, which parse into `args`.
CLI::App* addClearCommand(CLI::App& app, ClearArgs& args);

// Sends the CLEAR, prints its outcome and returns the exit status.
int runClear(const ClearArgs& args);

}  // namespace lcf::commands
