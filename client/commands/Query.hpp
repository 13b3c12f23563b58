#pragma once

#include <string>

#include "client/commands/Common.hpp"

// lcf query: shows every setting of one controller.
namespace lcf::commands {

struct QueryArgs {
    CommonOptions common;
    std::string mac;
    bool json = false;
};

// Registers the command and its options, which parse into `args`.
CLI::App* addQueryCommand(CLI::App& app, QueryArgs& args);

// Queries the controller, prints its settings and returns the exit status.
int runQuery(const QueryArgs& args);

}  // namespace lcf::commands
