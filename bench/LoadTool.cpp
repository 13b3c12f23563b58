// lcfd_load: what the real daemon costs, measured in the sandbox the end-to-end tests use.
//
//  - size: the stripped program (load/SizePhase);
//  - ignore path: CPU time per datagram that is not for the controller (other controllers'
//    replies, requests for other MACs), against a minimal recvfrom loop in the same namespace
//    (load/IgnorePhase);
//  - QUERY: wall time from request to reply (load/QueryPhase), split into the device commands'
//    own time (load/ReplayPhase) and the daemon's own CPU time;
//  - memory: VmRSS and Pss along the run, and what each reading keeps (load/MemoryFigures).
//
// Every phase is bounded in count and by one overall deadline; docs/performance.md explains
// the method of each figure.
#include <cstdlib>
#include <iostream>
#include <string>

#include "Harness.hpp"
#include "load/IgnorePhase.hpp"
#include "load/MemoryFigures.hpp"
#include "load/Options.hpp"
#include "load/QueryPhase.hpp"
#include "load/ReplayPhase.hpp"
#include "load/Run.hpp"
#include "load/SizePhase.hpp"
#include "load/Support.hpp"

namespace {

using load::Clock;
using load::Seconds;

// The phases that need the daemon running, in order, with the memory read between them.
// False when one of them failed or had nothing to report.
bool measureDaemon(const load::Run& run, load::MemoryReadings& memory) {
    bool ok = true;
    memory.atStart = load::memoryOf(run.pid);
    load::IgnorePhase ignore(run);
    ok = ignore.measure() && ok;
    memory.afterFirstBatch = ignore.afterFirstBatch();
    memory.afterIgnored = load::memoryOf(run.pid);

    load::QueryPhase queries(run);
    ok = queries.measure() && ok;
    memory.afterWarmup = queries.afterWarmup();
    memory.afterQueries = queries.afterQueries();
    memory.timedQueries = queries.timedQueries();

    load::ReplayPhase replay(run, queries.commandLines(), queries.wallPerQuery());
    ok = replay.measure() && ok;
    return ok;
}

// How long the whole run took, and the machine's load at its end.
void reportRun(Clock::time_point started, load::Report& report) {
    report.add("run.seconds", "whole run",
               load::fixed(Seconds(Clock::now() - started).count(), 1) + " s");
    double average[3] = {0, 0, 0};
    if (getloadavg(average, 3) == 3) {
        report.add("run.load", "load average at the end (1, 5, 15 min)",
                   load::fixed(average[0], 2) + " " + load::fixed(average[1], 2) + " " +
                       load::fixed(average[2], 2));
    }
}

}  // namespace

int main(int argc, char** argv) {
    const load::Options options = load::parseOptions(argc, argv);
    if (!e2e::runningAsRoot()) {
        std::cerr << "lcfd_load: needs root for the sandbox's network and mount namespaces\n";
        return 2;
    }
    load::chooseLcfd(options);
    const auto started = Clock::now();
    load::Report report;
    report.add("lcfd", "lcfd program", e2e::lcfdBinary());
    load::measureSize(e2e::lcfdBinary(), report);

    bool ok = true;
    {
        e2e::Sandbox sb({options.platform});
        if (!sb.ok()) {
            std::cerr << "lcfd_load: the sandbox did not come up:\n" << sb.upOutput();
            return 1;
        }
        const load::Run run(options, sb, report);
        load::MemoryReadings memory;
        ok = measureDaemon(run, memory);
        load::reportMemory(options, memory, report);
    }
    reportRun(started, report);
    report.print(std::cout, options.label.empty() ? "lcfd_load" : "lcfd_load: " + options.label);
    if (!options.tsv.empty() && !report.writeTsv(options.tsv)) {
        std::cerr << "lcfd_load: cannot write " << options.tsv << "\n";
        return 1;
    }
    return ok ? 0 : 1;
}
