// What every phase of the load tool shares: what the host sees of the daemon's process
// (CPU times, memory, state, the CPU it runs on), small statistics, and the report the
// figures go to.
#pragma once

#include <sched.h>
#include <sys/types.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Harness.hpp"

namespace load {

using e2e::Clock;
using e2e::Seconds;

// ---------------------------------------------------------------------------------------------
// Measurement: what the host sees of the daemon's process.

struct ProcessTimes {
    double ownSeconds = 0;       // utime + stime
    double childrenSeconds = 0;  // cutime + cstime of reaped children
    char state = '?';
};

std::optional<ProcessTimes> processTimes(int pid);

// Nanoseconds the (single-threaded) process has run on a CPU: the scheduler's own count,
// finer than the clock ticks of /proc/PID/stat.
std::optional<std::uint64_t> runNanoseconds(int pid);

struct Memory {
    long rssKiB = -1;
    long anonKiB = -1;  // the part of VmRSS that is the process's own (heap, stack, data)
    long pssKiB = -1;
    long pssAnonKiB = -1;  // the process's own pages, whoever else maps its libraries
};

Memory memoryOf(int pid);

// Waits until the process is in the given state of proc(5) ('T' stopped, 'S' sleeping).
bool waitForState(int pid, char state, Seconds timeout);

// Pins a task (a process, or a thread of this one: 0 is the caller) to one CPU; hands out the
// mask it had so that it can be given back.
std::optional<cpu_set_t> pinTo(pid_t task, int cpu);
void restoreAffinity(pid_t task, const std::optional<cpu_set_t>& mask);

// ---------------------------------------------------------------------------------------------
// Statistics.

// The middle value of the samples, the upper one of the two middles for an even count.
template <typename T>
T medianOf(std::vector<T> samples) {
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

struct Spread {
    double mean = 0;
    double median = 0;
    double p95 = 0;
};

// The mean, median and 95th percentile of samples that are not empty.
Spread spreadOf(const std::vector<double>& samples);

// ---------------------------------------------------------------------------------------------
// Report formatting.

// The value with `digits` decimals.
std::string fixed(double value, int digits);

// The figures of the run in order, with the notes that explain what is missing or cut short:
// printed as a table, and written as tab-separated lines for bench/run.
class Report {
  public:
    void add(const std::string& key, const std::string& figure, const std::string& value,
             const std::string& target = "", std::optional<bool> met = std::nullopt);
    void note(const std::string& text) { notes_.push_back(text); }

    void print(std::ostream& out, const std::string& heading) const;
    bool writeTsv(const std::string& path) const;

  private:
    struct Row {
        std::string key;
        std::string figure;
        std::string value;
        std::string target;
        std::string met;  // "yes", "no", or "" when there is no target
    };

    std::vector<Row> rows_;
    std::vector<std::string> notes_;
};

}  // namespace load
