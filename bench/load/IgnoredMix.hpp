// Traffic a controller sees on a busy segment and ignores.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace load {

// A fixed-seed pool: other controllers' STATUS replies (the bulk of a discovery), their ACKs,
// QUERY/ASSIGN/CLEAR for other MACs, and a few datagrams that are no request at all.  None
// names controller 1 and none is a QUERY without a MAC, so the device is never read.
std::vector<std::string> ignoredMix(std::size_t count);

}  // namespace load
