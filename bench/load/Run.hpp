// The daemon under measurement, as every phase of the load tool sees it: controller 1 of the
// sandbox, its process and standard output, the options, the report the figures go to, and
// the one deadline all phases share.
#pragma once

#include <chrono>
#include <string>

#include "Harness.hpp"
#include "Options.hpp"
#include "Support.hpp"

namespace load {

struct Run {
    // The deadline runs from here: options.timeLimit seconds.
    Run(const Options& runOptions, const e2e::Sandbox& runSandbox, Report& runReport)
        : options(runOptions),
          sandbox(runSandbox),
          report(runReport),
          pid(std::stoi(e2e::readFile(runSandbox.dir(1) + "/pid"))),
          stdoutPath(runSandbox.dir(1) + "/stdout"),
          deadline(Clock::now() +
                   std::chrono::duration_cast<Clock::duration>(Seconds(runOptions.timeLimit))) {}

    bool timeLeft() const { return Clock::now() < deadline; }
    double secondsLeft() const { return Seconds(deadline - Clock::now()).count(); }

    const Options& options;
    const e2e::Sandbox& sandbox;
    Report& report;
    int pid;
    std::string stdoutPath;
    Clock::time_point deadline;
};

}  // namespace load
