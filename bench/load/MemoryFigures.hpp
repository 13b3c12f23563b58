// The daemon's memory along the run: the readings the phases took, and what they show.
#pragma once

#include <cstddef>

#include "Options.hpp"
#include "Support.hpp"

namespace load {

struct MemoryReadings {
    Memory atStart;
    Memory afterFirstBatch;  // of the ignore path
    Memory afterIgnored;
    Memory afterWarmup;  // of the QUERYs
    Memory afterQueries;
    std::size_t timedQueries = 0;
};

// VmRSS and Pss at each reading, the change over the ignored datagrams (against its target),
// and what each reading of the device keeps.
void reportMemory(const Options& options, const MemoryReadings& memory, Report& report);

}  // namespace load
