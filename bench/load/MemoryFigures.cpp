#include "MemoryFigures.hpp"

#include <string>

namespace load {

namespace {

std::string kib(long v) {
    return std::to_string(v) + " KiB";
}
std::string signedKiB(long v) {
    return (v >= 0 ? "+" : "") + std::to_string(v) + " KiB";
}

// The growth of one field from the warm-up to the end of the QUERYs, in bytes per reading.
std::string perReading(const MemoryReadings& m, long Memory::*field) {
    const auto readings = static_cast<double>(m.timedQueries);
    return fixed(
        static_cast<double>(m.afterQueries.*field - m.afterWarmup.*field) * 1024.0 / readings, 0);
}

}  // namespace

void reportMemory(const Options& options, const MemoryReadings& memory, Report& report) {
    report.add("mem.start", "memory at start: VmRSS / Pss",
               kib(memory.atStart.rssKiB) + " / " + kib(memory.atStart.pssKiB));
    report.add(
        "mem.after_ignored",
        "memory after " + std::to_string(options.datagrams) + " ignored datagrams: VmRSS / Pss",
        kib(memory.afterIgnored.rssKiB) + " / " + kib(memory.afterIgnored.pssKiB));
    const long growth = memory.afterIgnored.rssKiB - memory.atStart.rssKiB;
    report.add("mem.ignored_growth", "VmRSS change over the ignored datagrams", signedKiB(growth),
               "+-4 KiB", growth >= -4 && growth <= 4);
    // What the first batch touched for the first time (code and library pages, the stdio
    // buffer) is no growth; from the first batch on, VmRSS and its anonymous part.
    report.add("mem.ignored_growth_warm", "  from the first batch on: VmRSS / RssAnon change",
               signedKiB(memory.afterIgnored.rssKiB - memory.afterFirstBatch.rssKiB) + " / " +
                   signedKiB(memory.afterIgnored.anonKiB - memory.afterFirstBatch.anonKiB));
    report.add("mem.after_queries",
               "memory after " + std::to_string(options.queries) + " QUERYs: VmRSS / Pss",
               kib(memory.afterQueries.rssKiB) + " / " + kib(memory.afterQueries.pssKiB));
    if (memory.timedQueries > 0 && memory.afterWarmup.rssKiB > 0 &&
        memory.afterQueries.rssKiB > 0) {
        // Pss moves with every other process that maps the same libraries; Pss_Anon is the
        // daemon's own heap alone.
        report.add("mem.per_reading", "memory kept per reading: VmRSS / Pss / Pss_Anon growth",
                   perReading(memory, &Memory::rssKiB) + " / " +
                       perReading(memory, &Memory::pssKiB) + " / " +
                       perReading(memory, &Memory::pssAnonKiB) + " bytes",
                   "~1112 (valgrind)", std::nullopt);
    }
}

}  // namespace load
