#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "client/ControllerJob.hpp"
#include "client/Controllers.hpp"
#include "client/DiscoveryRounds.hpp"

namespace lcf {

// A fresh sequence identifier for one exchange.
std::string newSeqid();

struct DiscoveryOptions {
    std::vector<std::string> interfaces;  // empty: every up IPv4 broadcast interface
    DiscoveryLimits limits;
};

// What one interface saw of a discovery.
struct InterfaceSummary {
    std::string name;
    int probes = 0;
    std::size_t controllers = 0;
    std::string doubt;  // why it looks like a virtual or container adapter, if it does
};

struct DiscoveryReport {
    std::vector<Controller> controllers;  // sorted by MAC, duplicate addresses flagged
    std::vector<InterfaceSummary> interfaces;
    DiscoveryEnd end = DiscoveryEnd::Running;
    double seconds = 0.0;  // from the first probe to the deadline or answer that ended it
};

// Broadcasts QUERY rounds on every probed interface and collects the STATUS replies, paced by
// DiscoveryRounds.
DiscoveryReport discover(const DiscoveryOptions& options);

// Runs the jobs on the segments of `interfaces` (every usable one when empty): every request is
// broadcast on each of them. At most `parallel` jobs are under way at once, started in order;
// returns when every job is done. `onAnswer`, when given, sees a job each time an answer moved it
// on.
void runJobs(std::vector<ControllerJob>& jobs, const std::vector<std::string>& interfaces,
             std::size_t parallel,
             const std::function<void(const ControllerJob&)>& onAnswer = nullptr);

}  // namespace lcf
