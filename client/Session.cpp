#include "client/Session.hpp"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>

#include "client/Transport.hpp"
#include "protocol/MessageFormat.hpp"
#include "protocol/Request.hpp"

namespace lcf {
namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point after(double seconds) {
    return Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
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

// Waits for the first reply that `accept` takes, or the deadline.
template <typename Accept>
void collect(ToolSocket& socket, const std::vector<NetworkInterface>& probed,
             Clock::time_point deadline, Accept accept) {
    while (const auto datagram = socket.receive(deadline)) {
        const NetworkInterface* arrivedOn = arrivalInterface(probed, datagram->interfaceIndex);
        const auto reply = lcfd::parseReply(datagram->text);
        if (arrivedOn != nullptr && reply && accept(*reply, *arrivedOn)) {
            return;
        }
    }
}

}  // namespace

std::string newSeqid() {
    std::random_device entropy;
    std::uniform_int_distribution<unsigned> number(100000, 999999999);
    return std::to_string(number(entropy));
}

std::vector<Controller> discover(const ProbeOptions& options) {
    const std::vector<NetworkInterface> probed = probeInterfaces(options.interfaces);
    ToolSocket socket;
    const std::string seqid = newSeqid();
    const std::string probe = lcfd::composeQuery(seqid, "");
    DiscoveryResults results(seqid);

    const Clock::time_point end = after(options.timeoutSeconds);
    const int rounds = options.rounds < 1 ? 1 : options.rounds;
    const double spacing = options.timeoutSeconds / 2.0 / rounds;
    Clock::time_point lastNew = Clock::time_point::min();  // no new controller yet
    const auto complete = [&] {
        return options.expected > 0 && results.size() >= options.expected;
    };
    const auto take = [&](const lcfd::Reply& reply, const NetworkInterface& arrivedOn) {
        if (results.add(reply, arrivedOn)) {
            lastNew = Clock::now();
        }
        return complete();  // otherwise keep listening for the whole window
    };
    for (int round = 0; round < rounds && !complete(); ++round) {
        broadcastOnAll(socket, probed, probe);
        const Clock::time_point nextProbe = round + 1 < rounds ? after(spacing) : end;
        collect(socket, probed, nextProbe < end ? nextProbe : end, take);
    }
    // Controllers that are still answering when the window closes are slow, not gone (each
    // reads its whole device before it answers, and a busy segment answers one after the
    // other): listen on until none is new for a while.
    const auto quiet = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(options.quietSeconds));
    const Clock::time_point limit = end + std::chrono::duration_cast<Clock::duration>(
                                              std::chrono::duration<double>(options.extendSeconds));
    while (!complete() && Clock::now() < lastNew + quiet && Clock::now() < limit) {
        collect(socket, probed, std::min(lastNew + quiet, limit), take);
    }
    return results.sorted();
}

std::optional<Controller> queryOne(const ProbeOptions& options, const std::string& mac) {
    const std::vector<NetworkInterface> probed = probeInterfaces(options.interfaces);
    ToolSocket socket;
    const std::string seqid = newSeqid();
    DiscoveryResults results(seqid);
    broadcastOnAll(socket, probed, lcfd::composeQuery(seqid, mac));
    collect(socket, probed, after(options.timeoutSeconds),
            [&](const lcfd::Reply& reply, const NetworkInterface& arrivedOn) {
                return reply.value(lcfd::key::kMac) == mac && results.add(reply, arrivedOn);
            });
    const std::vector<Controller> found = results.sorted();
    if (found.empty()) {
        return std::nullopt;
    }
    return found.front();
}

AckOutcome requestAndWaitForAck(const ProbeOptions& options, const std::string& mac,
                                const std::string& seqid, const std::string& request) {
    const std::vector<NetworkInterface> probed = probeInterfaces(options.interfaces);
    ToolSocket socket;
    broadcastOnAll(socket, probed, request);
    AckOutcome outcome = AckOutcome::NoAnswer;
    collect(socket, probed, after(options.timeoutSeconds),
            [&](const lcfd::Reply& reply, const NetworkInterface&) {
                if (reply.command != lcfd::word::kAck || reply.value(lcfd::key::kSeqid) != seqid ||
                    reply.value(lcfd::key::kMac) != mac) {
                    return false;
                }
                outcome = reply.value(lcfd::key::kAccept) == std::string("yes")
                              ? AckOutcome::Accepted
                              : AckOutcome::Refused;
                return true;
            });
    return outcome;
}

}  // namespace lcf
