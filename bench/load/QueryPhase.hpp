// The cost of a QUERY: wall time from request to reply, and the daemon's own CPU time in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Harness.hpp"
#include "Run.hpp"
#include "Support.hpp"

namespace load {

// QUERYs addressed to the controller's MAC, one at a time, each timed from sending to its
// STATUS reply.  The daemon's own CPU time (utime+stime, children excluded) is the delta over
// all of them.  The first few warm the daemon and the device up and are not timed; they show
// the command lines one reading runs.
class QueryPhase {
  public:
    explicit QueryPhase(const Run& run) : run_(run), mac_(e2e::controllerMac(1)) {}

    // Runs the QUERYs (up to options.queries, within the deadline) and reports the figures;
    // false when there are none to report.
    bool measure();

    // The command lines of one reading (empty when the warm-up failed).
    const std::vector<std::string>& commandLines() const { return commandLines_; }
    // The mean wall time of a timed QUERY in seconds (0 when there is none).
    double wallPerQuery() const { return wallPerQuery_; }
    const Memory& afterWarmup() const { return afterWarmup_; }
    const Memory& afterQueries() const { return afterQueries_; }
    std::size_t timedQueries() const { return timedQueries_; }

  private:
    // What the host sees of the daemon's CPU time at one moment.
    struct CpuReading {
        std::optional<ProcessTimes> times;
        std::optional<std::uint64_t> ns;
    };

    std::optional<double> ask(const e2e::ToolSocket& tool, std::size_t i) const;
    bool warmUp(const e2e::ToolSocket& tool);
    std::vector<double> timeQueries(const e2e::ToolSocket& tool);
    CpuReading cpuNow() const;
    void reportFigures(const std::vector<double>& walls, double elapsed, const CpuReading& before,
                       const CpuReading& after);

    const Run& run_;
    std::string mac_;  // controller 1's, the one every QUERY names
    std::vector<std::string> commandLines_;
    double wallPerQuery_ = 0;
    Memory afterWarmup_;
    Memory afterQueries_;
    std::size_t timedQueries_ = 0;
};

}  // namespace load
