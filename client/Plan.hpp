#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "wire/Replies.hpp"

namespace lcf {

// One controller of a plan: what it is to hold, and the line of the plan that says so.
struct PlanRow {
    std::size_t line = 0;
    std::string mac;  // upper-case
    // The keys a plan sets, each with a value; a key left empty is not here ("leave as it is").
    std::vector<std::pair<std::string, std::string>> values;
};

struct PlanProblem {
    std::size_t line = 0;
    std::string message;
};

struct Plan {
    std::vector<PlanRow> rows;
    std::vector<PlanProblem> problems;  // a plan with any is refused as a whole
};

// The keys a plan sets, in the order an ASSIGN carries them: ip, netmask, gateway, ipscheme,
// ntpip, syslogip, nameserver. A plan does not set clocks.
const std::vector<std::string>& plannedKeys();

// Reads a plan: the JSON array that `lcf discover --json` prints (a text that begins with "["),
// or CSV with a header row of protocol keys. Every key of a STATUS reply and of lcf's own output
// (interface, outside_subnet, duplicate_ip) may stand in it and is read over; other keys, bad
// values, malformed or repeated MAC addresses are problems, each with its line.
Plan readPlan(std::string_view text);

// A value the plan changes on a controller.
struct Change {
    std::string key;
    std::string from;  // what the controller reports now ("" when nothing)
    std::string to;
};

// What the plan changes on the controller whose current STATUS reply is `status`.
std::vector<Change> planChanges(const PlanRow& row, const lcfd::Reply& status);

// "ip 198.18.0.1 -> 198.18.1.1, gateway - -> 198.18.255.2"
std::string describeChanges(const std::vector<Change>& changes);

}  // namespace lcf
