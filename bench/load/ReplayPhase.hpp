// The device commands' own time: the command lines of one reading, run the way the daemon
// runs them, without the daemon.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Run.hpp"

namespace load {

// The command lines of one reading, run through `sh -c` by popen in a loop inside the
// controller (its mount and network namespaces, working directory and the daemon's own
// environment), reading what the daemon reads of each: the device commands' own time.
class ReplayPhase {
  public:
    // `commandLines` and `wallPerQuery` (seconds) are what the QUERY phase found.
    ReplayPhase(const Run& run, const std::vector<std::string>& commandLines, double wallPerQuery)
        : run_(run), commandLines_(commandLines), wallPerQuery_(wallPerQuery) {}

    // Runs the rounds and reports the figures; false when there was nothing to replay or the
    // replay did not finish.
    bool measure();

  private:
    std::size_t roundsWithinDeadline() const;
    std::optional<std::string> replayInController(std::size_t rounds) const;
    std::string waitForFigures(pid_t child, int resultFd) const;
    void reportFigures(const std::string& figures, std::size_t rounds) const;

    const Run& run_;
    const std::vector<std::string>& commandLines_;
    double wallPerQuery_;
};

}  // namespace load
