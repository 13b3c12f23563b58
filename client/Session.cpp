#include "client/Session.hpp"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <random>

#include "client/Transport.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Request.hpp"

namespace lcf {
namespace {

using Clock = std::chrono::steady_clock;

// Seconds since `start` on the steady clock, and back.
double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

Clock::time_point atSeconds(Clock::time_point start, double seconds) {
    // An hour past any wait the tool makes: "forever" without overflowing the clock.
    constexpr double kFarFuture = 3600.0 * 24.0;
    return start + std::chrono::duration_cast<Clock::duration>(
                       std::chrono::duration<double>(std::min(seconds, kFarFuture)));
}

const NetworkInterface* arrivalInterface(const std::vector<NetworkInterface>& probed,
                                         unsigned index) {
    for (const NetworkInterface& networkInterface : probed) {
        if (networkInterface.index == index) {
            return &networkInterface;
        }
    }
    return nullptr;  // not one of ours: a reply to somebody else's tool on another segment
}

void broadcastOnAll(ToolSocket& socket, const std::vector<NetworkInterface>& probed,
                    const std::string& text) {
    for (const NetworkInterface& networkInterface : probed) {
        socket.broadcastOn(networkInterface, text);
    }
}

// The round whose probe carried `seqid`, from 1; 0 when it is none of ours.
int roundOf(const std::vector<std::string>& seqids, const std::string* seqid) {
    if (seqid == nullptr) {
        return 0;
    }
    const auto found = std::find(seqids.begin(), seqids.end(), *seqid);
    return found == seqids.end() ? 0 : static_cast<int>(found - seqids.begin()) + 1;
}

}  // namespace

std::string newSeqid() {
    // Seeded by getrandom rather than std::random_device: a static libstdc++'s random device
    // wants arc4random, which would make lcf need glibc 2.36 on a board.
    std::uint32_t seed = 0;
    if (getrandom(&seed, sizeof seed, 0) != static_cast<ssize_t>(sizeof seed)) {
        seed = static_cast<std::uint32_t>(Clock::now().time_since_epoch().count()) ^
               static_cast<std::uint32_t>(getpid());
    }
    std::mt19937 generator(seed);
    std::uniform_int_distribution<unsigned> number(100000, 999999999);
    return std::to_string(number(generator));
}

DiscoveryReport discover(const DiscoveryOptions& options) {
    const std::vector<NetworkInterface> probed = probeInterfaces(options.interfaces);
    ToolSocket socket;
    DiscoveryRounds rounds(options.limits);
    DiscoveryResults results;
    std::vector<std::string> seqids;  // one per round
    const Clock::time_point start = Clock::now();
    for (;;) {
        const DiscoveryStep step = rounds.next(secondsSince(start));
        if (step.kind == DiscoveryStep::Kind::Stop) {
            break;
        }
        if (step.kind == DiscoveryStep::Kind::Probe) {
            while (static_cast<int>(seqids.size()) < step.round) {
                std::string seqid = newSeqid();
                if (std::find(seqids.begin(), seqids.end(), seqid) == seqids.end()) {
                    seqids.push_back(std::move(seqid));
                }
            }
            broadcastOnAll(
                socket, probed,
                lcfd::composeQuery(seqids[static_cast<std::size_t>(step.round - 1)], ""));
            rounds.probed(step.round, secondsSince(start));
            continue;
        }
        const auto datagram = socket.receive(atSeconds(start, step.until));
        if (!datagram) {
            continue;
        }
        const NetworkInterface* arrivedOn = arrivalInterface(probed, datagram->interfaceIndex);
        const auto reply = lcfd::parseReply(datagram->text);
        if (arrivedOn == nullptr || !reply || reply->command != lcfd::word::kStatus) {
            continue;
        }
        const int round = roundOf(seqids, reply->find(lcfd::key::kSeqid));
        const std::string* mac = reply->find(lcfd::key::kMac);
        if (round == 0 || mac == nullptr || mac->empty()) {
            continue;
        }
        results.add(*reply, *arrivedOn);
        rounds.answered(round, *mac, secondsSince(start));
    }

    DiscoveryReport report;
    report.seconds = rounds.endedAfter();
    report.end = rounds.end();
    report.controllers = results.sorted();
    for (const NetworkInterface& networkInterface : probed) {
        InterfaceSummary summary;
        summary.name = networkInterface.name;
        summary.probes = rounds.probesSent();
        summary.controllers = static_cast<std::size_t>(std::count_if(
            report.controllers.begin(), report.controllers.end(),
            [&](const Controller& c) { return c.interfaceName == networkInterface.name; }));
        if (summary.controllers == 0) {
            summary.doubt = adapterDoubt(networkInterface.name);
        }
        report.interfaces.push_back(std::move(summary));
    }
    return report;
}

void runJobs(std::vector<ControllerJob>& jobs, const std::vector<std::string>& interfaces,
             std::size_t parallel, const std::function<void(const ControllerJob&)>& onAnswer) {
    const std::vector<NetworkInterface> probed = probeInterfaces(interfaces);
    ToolSocket socket;
    ArrivalPace pace;
    const Clock::time_point start = Clock::now();
    const std::size_t window = std::max<std::size_t>(parallel, 1);
    std::size_t started = 0;
    const auto underWay = [&] {
        return static_cast<std::size_t>(
            std::count_if(jobs.begin(), jobs.begin() + static_cast<std::ptrdiff_t>(started),
                          [](const ControllerJob& job) { return !job.done(); }));
    };
    for (;;) {
        while (started < jobs.size() && underWay() < window) {
            ++started;
        }
        const double now = secondsSince(start);
        double wake = std::numeric_limits<double>::infinity();
        for (std::size_t i = 0; i < started; ++i) {
            while (const auto text = jobs[i].due(now, pace)) {
                broadcastOnAll(socket, probed, *text);
            }
            wake = std::min(wake, jobs[i].wakeAt(pace));
        }
        if (underWay() == 0 && started == jobs.size()) {
            return;
        }
        if (started < jobs.size() && underWay() < window) {
            continue;  // a job gave up just now: its place goes to the next one at once
        }
        const auto datagram = socket.receive(atSeconds(start, wake));
        if (!datagram) {
            continue;
        }
        const NetworkInterface* arrivedOn = arrivalInterface(probed, datagram->interfaceIndex);
        const auto reply = lcfd::parseReply(datagram->text);
        if (arrivedOn == nullptr || !reply) {
            continue;
        }
        const double arrived = secondsSince(start);
        for (std::size_t i = 0; i < started; ++i) {
            if (jobs[i].offer(*reply, *arrivedOn, arrived)) {
                pace.arrived(arrived);
                if (onAnswer) {
                    onAnswer(jobs[i]);
                }
                break;
            }
        }
    }
}

}  // namespace lcf
