#pragma once

#include <string>
#include <vector>

#include "client/commands/Common.hpp"

// lcf assign: changes settings of one controller.
namespace lcf::commands {

struct AssignArgs {
    CommonOptions common;
    std::string mac;
    std::vector<std::string> assignments;  // key=value, as given
    bool now = false;
    bool unchecked = false;
    bool verify = false;
};

// Registers the command and its options, which parse into `args`.
CLI::App* addAssignCommand(CLI::App& app, AssignArgs& args);

// Sends the ASSIGN, prints its outcome and returns the exit status.
int runAssign(const AssignArgs& args);

}  // namespace lcf::commands
