#pragma once

#include <string>
#include <vector>

#include "client/Controllers.hpp"

namespace lcf {

// An aligned table, one row per controller, and a closing count line.
std::string renderTable(const std::vector<Controller>& controllers);

// One JSON array of objects whose keys are the protocol's keys in reply order (seqid left
// out), plus "interface" and "outside_subnet".
std::string renderJson(const std::vector<Controller>& controllers);

// Every field of one controller, "key: value" per line, aligned.
std::string renderDetails(const Controller& controller);

}  // namespace lcf
