#include "QueryPhase.hpp"

#include <algorithm>
#include <chrono>

namespace load {

bool QueryPhase::measure() {
    e2e::ToolSocket tool(run_.sandbox);
    if (!tool.ok()) {
        run_.report.note("QUERY: no tool socket");
        return false;
    }
    if (!warmUp(tool)) {
        return false;
    }
    const CpuReading before = cpuNow();
    const auto started = Clock::now();
    const std::vector<double> walls = timeQueries(tool);
    const double elapsed = Seconds(Clock::now() - started).count();
    const CpuReading after = cpuNow();
    afterQueries_ = memoryOf(run_.pid);
    timedQueries_ = walls.size();
    const std::size_t done = run_.options.warmupQueries + walls.size();
    if (done < run_.options.queries) {
        run_.report.note("QUERY: " + std::to_string(done) + " of " +
                         std::to_string(run_.options.queries) + " done (time limit or no reply)");
    }
    if (walls.empty() || !before.times || !after.times || !before.ns || !after.ns) {
        return false;
    }
    reportFigures(walls, elapsed, before, after);
    return true;
}

// QUERY i (its seqid made of it) and the seconds to its reply; nothing when no reply came
// within 10 s.
std::optional<double> QueryPhase::ask(const e2e::ToolSocket& tool, std::size_t i) const {
    const std::string seqid = std::to_string(500000 + i);
    const std::string prefix = "LCF2#STATUS#seqid=" + seqid + "#";
    const auto sentAt = Clock::now();
    if (!tool.send("LCF2#QUERY#seqid=" + seqid + "#mac=" + mac_)) {
        return std::nullopt;
    }
    const auto until = sentAt + std::chrono::seconds(10);
    while (Clock::now() < until) {
        auto reply = tool.receive(Seconds(until - Clock::now()));
        if (!reply) {
            break;
        }
        if (reply->data.rfind(prefix, 0) == 0) {
            return Seconds(Clock::now() - sentAt).count();
        }
    }
    return std::nullopt;
}

// The untimed QUERYs; the device's log of them gives the command lines of one reading.
bool QueryPhase::warmUp(const e2e::ToolSocket& tool) {
    run_.sandbox.clearShellLog(1);
    for (std::size_t i = 0; i < run_.options.warmupQueries; ++i) {
        if (!ask(tool, i)) {
            run_.report.note("QUERY: no reply to a warm-up QUERY");
            return false;
        }
    }
    const auto lines = run_.sandbox.shellLog(1);
    const std::size_t linesPerQuery = lines.size() / run_.options.warmupQueries;
    commandLines_.assign(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(linesPerQuery));
    afterWarmup_ = memoryOf(run_.pid);
    return true;
}

// The timed QUERYs' wall times, up to the first without a reply or the deadline.
std::vector<double> QueryPhase::timeQueries(const e2e::ToolSocket& tool) {
    std::vector<double> walls;
    for (std::size_t i = run_.options.warmupQueries; i < run_.options.queries && run_.timeLeft();
         ++i) {
        auto wall = ask(tool, i);
        if (!wall) {
            run_.report.note("QUERY: no reply within 10 s to QUERY " + std::to_string(i + 1));
            break;
        }
        walls.push_back(*wall);
    }
    return walls;
}

QueryPhase::CpuReading QueryPhase::cpuNow() const {
    CpuReading reading;
    reading.times = processTimes(run_.pid);
    reading.ns = runNanoseconds(run_.pid);
    return reading;
}

void QueryPhase::reportFigures(const std::vector<double>& walls, double elapsed,
                               const CpuReading& before, const CpuReading& after) {
    Report& report = run_.report;
    const auto count = static_cast<double>(walls.size());
    const Spread wall = spreadOf(walls);
    wallPerQuery_ = wall.mean;
    const double ownPerQuery = (after.times->ownSeconds - before.times->ownSeconds) / count;
    const double schedPerQuery = static_cast<double>(*after.ns - *before.ns) / 1e9 / count;
    const double share = ownPerQuery / wallPerQuery_;
    report.add("query.count", "QUERY: timed QUERYs (after warm-up) / command lines each",
               std::to_string(walls.size()) + " in " + fixed(elapsed, 1) + " s / " +
                   std::to_string(commandLines_.size()));
    report.add("query.wall_ms", "QUERY: wall time request to reply, mean (median, p95)",
               fixed(wallPerQuery_ * 1e3, 2) + " ms (" + fixed(wall.median * 1e3, 2) + ", " +
                   fixed(wall.p95 * 1e3, 2) + ")");
    report.add("query.daemon_cpu_ms", "QUERY: lcfd's own CPU time (utime+stime)",
               fixed(ownPerQuery * 1e3, 3) + " ms", "", std::nullopt);
    report.add("query.daemon_cpu_share", "QUERY: lcfd's own CPU time / wall time",
               fixed(share * 100, 2) + " %", "<= 2 %", share <= 0.02);
    report.add("query.daemon_sched_ms", "QUERY: lcfd's run time (schedstat, ns-exact)",
               fixed(schedPerQuery * 1e3, 3) + " ms (" +
                   fixed(schedPerQuery / wallPerQuery_ * 100, 2) + " %)");
    report.add(
        "query.children_cpu_ms", "QUERY: CPU of the commands it ran (cutime+cstime)",
        fixed((after.times->childrenSeconds - before.times->childrenSeconds) / count * 1e3, 2) +
            " ms");
}

}  // namespace load
