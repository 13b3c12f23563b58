#include "IgnorePhase.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "FloodSupport.hpp"
#include "IgnoredMix.hpp"

namespace load {

namespace {

// The minimal receiver listens beside the daemon, on a port of its own.
constexpr std::uint16_t kMinimalPort = 7218;
// The trace that closes every datagram from the tool side in the daemon's standard output.
const std::string kToolTrace = std::string("[") + e2e::kToolAddress + "] Message ";

// Polls every 100 us (finer than waitUntil, the rounds are short) until the predicate holds.
bool pollUntil(const std::function<bool()>& predicate, Clock::time_point deadline) {
    while (!predicate()) {
        if (Clock::now() >= deadline) {
            return predicate();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

// Bytes of a file from `offset` on.
std::string readFrom(const std::string& path, std::size_t offset) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    std::ostringstream rest;
    rest << in.rdbuf();
    return rest.str();
}

std::size_t countOf(const std::string& text, const std::string& what) {
    std::size_t n = 0;
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + what.size())) {
        ++n;
    }
    return n;
}

double perCpuSecond(std::size_t count, std::uint64_t ns) {
    return static_cast<double>(count) / (static_cast<double>(ns) / 1e9);
}

}  // namespace

bool IgnorePhase::measure() {
    const std::vector<std::string> pool = ignoredMix(4096);
    if (!openSockets()) {
        run_.report.note("ignore path: could not open the sockets");
        closeSockets();
        return false;
    }
    // A lost datagram must not hang the loop: recvfrom gives up after two seconds.
    timeval patience{2, 0};
    setsockopt(minimal_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    // The sender on the first CPU, both receivers on the last.
    const long cpus = sysconf(_SC_NPROCESSORS_ONLN);
    std::optional<int> receiverCpu;
    std::optional<cpu_set_t> senderMask;
    std::optional<cpu_set_t> daemonMask;
    if (cpus >= 2) {
        receiverCpu = static_cast<int>(cpus - 1);
        senderMask = pinTo(0, 0);
        daemonMask = pinTo(run_.pid, *receiverCpu);
    }
    std::optional<MinimalReceiver> receiver;
    receiver.emplace(minimal_, receiverCpu);

    perRound_ = stopContinueCost().value_or(0);
    outOffset_ = static_cast<std::size_t>(e2e::readFile(run_.stdoutPath).size());
    run_.sandbox.clearShellLog(1);
    const auto started = Clock::now();
    std::string problem = runRounds(pool, *receiver);
    bool ok = problem.empty();

    receiver.reset();
    restoreAffinity(run_.pid, daemonMask);
    restoreAffinity(0, senderMask);
    closeSockets();
    if (!run_.sandbox.shellLog(1).empty()) {
        problem = "the mix made the daemon read the device; the rate is not the ignore path's";
        ok = false;
    }
    const double seconds = Seconds(Clock::now() - started).count();
    if (!problem.empty()) {
        run_.report.note("ignore path: " + problem);
    }
    if (sent_ < run_.options.datagrams) {
        run_.report.note("ignore path: cut by the time limit after " + std::to_string(sent_) +
                         " datagrams");
    }
    if (total_.daemonNs == 0 || total_.minimalNs == 0 || total_.traced == 0) {
        return false;
    }
    reportFigures(seconds);
    return ok;
}

// The sender in the tool's namespace, the minimal loop's socket in the controller's.
bool IgnorePhase::openSockets() {
    e2e::inNetns(run_.sandbox.toolNetns(),
                 [&] { sender_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); });
    e2e::inNetns(run_.sandbox.controllerNetns(1), [&] {
        minimal_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(kMinimalPort);
        local.sin_addr.s_addr = htonl(INADDR_ANY);
        if (minimal_ >= 0 &&
            bind(minimal_, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
            close(minimal_);
            minimal_ = -1;
        }
    });
    return sender_ >= 0 && minimal_ >= 0;
}

void IgnorePhase::closeSockets() {
    if (sender_ >= 0) {
        close(sender_);
        sender_ = -1;
    }
    if (minimal_ >= 0) {
        close(minimal_);
        minimal_ = -1;
    }
}

// What one stop and continue costs the daemon by itself (woken in recvfrom to stop, resumed,
// blocking again): the median of empty rounds.  Every round of the measurement has exactly
// one of these in its CPU time, so it is taken off.
std::optional<std::uint64_t> IgnorePhase::stopContinueCost() const {
    const int pid = run_.pid;
    std::vector<std::uint64_t> costs;
    for (int i = 0; i < 15; ++i) {
        if (kill(pid, SIGSTOP) != 0 || !waitForState(pid, 'T', Seconds(2))) {
            return std::nullopt;
        }
        const auto before = runNanoseconds(pid);
        kill(pid, SIGCONT);
        const bool blocked = waitForState(pid, 'S', Seconds(2));
        kill(pid, SIGSTOP);
        const bool stopped = waitForState(pid, 'T', Seconds(2));
        const auto after = runNanoseconds(pid);
        kill(pid, SIGCONT);
        if (!blocked || !stopped || !before || !after) {
            return std::nullopt;
        }
        costs.push_back(*after - *before);
    }
    return medianOf(costs);
}

// Rounds until every datagram was sent or the deadline passed; what went wrong, or "".
std::string IgnorePhase::runRounds(const std::vector<std::string>& pool,
                                   MinimalReceiver& receiver) {
    while (sent_ < run_.options.datagrams && run_.timeLeft()) {
        const std::size_t n = std::min(batch_, run_.options.datagrams - sent_);
        const std::size_t from = sent_;
        std::string problem = daemonTurn(pool, n);
        if (problem.empty()) {
            problem = minimalTurn(pool, from, n, receiver);
        }
        if (!problem.empty()) {
            return problem;
        }
        if (rounds_++ == 0) {
            afterFirstBatch_ = memoryOf(run_.pid);
        }
        closeBlockWhenFull();
    }
    return "";
}

// The daemon's turn: n datagrams of the pool from sent_ on, queued while it is stopped, then
// taken by it; its CPU time read with it stopped again, so that all it did for the batch
// (back to its recvfrom) is in it.
std::string IgnorePhase::daemonTurn(const std::vector<std::string>& pool, std::size_t n) {
    const int pid = run_.pid;
    if (kill(pid, SIGSTOP) != 0 || !waitForState(pid, 'T', Seconds(2))) {
        return "the daemon could not be stopped";
    }
    const auto dropsBefore = e2e::udpQueue(pid, e2e::kPort);
    const auto cpuBefore = runNanoseconds(pid);
    const bool sent = sendAll(pool, sent_, n, e2e::kPort);
    waitQueueSettled(e2e::kPort);
    kill(pid, SIGCONT);
    if (!sent || !dropsBefore || !cpuBefore) {
        return "sending to the daemon failed";
    }
    const auto dropsAfter = e2e::udpQueue(pid, e2e::kPort);
    const std::size_t dropped = dropsAfter ? dropsAfter->drops - dropsBefore->drops : 0;
    const std::size_t expected = n - dropped;
    std::size_t traced = 0;
    // Done when every datagram that was queued has its trace in standard output.
    const bool drained = pollUntil(
        [&] {
            auto q = e2e::udpQueue(pid, e2e::kPort);
            if (!q || q->receiveBytes != 0) {
                return false;
            }
            traced = countOf(readFrom(run_.stdoutPath, outOffset_), kToolTrace);
            return traced >= expected;
        },
        Clock::now() + std::chrono::seconds(5));
    kill(pid, SIGSTOP);
    waitForState(pid, 'T', Seconds(2));
    const auto cpuAfter = runNanoseconds(pid);
    kill(pid, SIGCONT);
    const std::string appended = readFrom(run_.stdoutPath, outOffset_);
    traced = countOf(appended, kToolTrace);
    outOffset_ += appended.size();
    if (!drained || !cpuAfter) {
        return "the daemon did not trace a batch within 5 s";
    }
    sent_ += n;
    total_.traced += traced;
    dropped_ += dropped;
    const std::uint64_t roundNs = *cpuAfter - *cpuBefore;
    const std::uint64_t ownNs = roundNs > perRound_ ? roundNs - perRound_ : 0;
    daemonRawNs_ += roundNs;
    total_.daemonNs += ownNs;
    block_.traced += traced;
    block_.daemonNs += ownNs;
    if (dropped > 0 && batch_ > 16) {
        batch_ = batch_ * 3 / 4;  // the queue holds fewer of these than hoped
    }
    return "";
}

// The minimal loop's turn: the same datagrams, `from` on.
std::string IgnorePhase::minimalTurn(const std::vector<std::string>& pool, std::size_t from,
                                     std::size_t n, MinimalReceiver& receiver) {
    const auto minBefore = e2e::udpQueue(run_.pid, kMinimalPort);
    if (!sendAll(pool, from, n, kMinimalPort) || !minBefore) {
        return "sending to the minimal loop failed";
    }
    waitQueueSettled(kMinimalPort);
    const auto minAfter = e2e::udpQueue(run_.pid, kMinimalPort);
    const std::size_t minDropped = minAfter ? minAfter->drops - minBefore->drops : 0;
    const MinimalReceiver::Drain got = receiver.drain(n - minDropped);
    total_.taken += got.taken;
    total_.minimalNs += got.ns;
    block_.taken += got.taken;
    block_.minimalNs += got.ns;
    return "";
}

// A tenth of the datagrams makes a block: its ratio is kept for the spread.
void IgnorePhase::closeBlockWhenFull() {
    if (block_.traced >= run_.options.datagrams / 10 && block_.daemonNs > 0 &&
        block_.minimalNs > 0) {
        blockRatios_.push_back(
            (static_cast<double>(block_.traced) / static_cast<double>(block_.daemonNs)) /
            (static_cast<double>(block_.taken) / static_cast<double>(block_.minimalNs)));
        block_ = Tally{};
    }
}

void IgnorePhase::reportFigures(double seconds) const {
    Report& report = run_.report;
    const double daemonRate = perCpuSecond(total_.traced, total_.daemonNs);
    const double minimalRate = perCpuSecond(total_.taken, total_.minimalNs);
    const double ratio = daemonRate / minimalRate;
    report.add("ignore.daemon_rate", "ignore path: lcfd, datagrams per CPU second",
               fixed(daemonRate, 0));
    report.add("ignore.daemon_us", "ignore path: lcfd, CPU time per datagram",
               fixed(1e6 / daemonRate, 2) + " us");
    report.add(
        "ignore.daemon_raw_us",
        "  with its stop/continue (" + fixed(static_cast<double>(perRound_) / 1e3, 1) +
            " us a round) left in",
        fixed(static_cast<double>(daemonRawNs_) / 1e3 / static_cast<double>(total_.traced), 2) +
            " us");
    report.add("ignore.minimal_rate", "ignore path: minimal recvfrom loop, per CPU second",
               fixed(minimalRate, 0));
    report.add("ignore.minimal_us", "ignore path: minimal loop, CPU time per datagram",
               fixed(1e6 / minimalRate, 2) + " us");
    std::string spread;
    if (!blockRatios_.empty()) {
        const auto [lo, hi] = std::minmax_element(blockRatios_.begin(), blockRatios_.end());
        spread = " (tenths " + fixed(*lo * 100, 0) + "-" + fixed(*hi * 100, 0) + " %)";
    }
    report.add("ignore.ratio", "ignore path: lcfd rate / minimal loop rate",
               fixed(ratio * 100, 1) + " %" + spread, ">= 50 %", ratio >= 0.5);
    report.add("ignore.datagrams", "ignore path: datagrams traced (dropped) / rounds",
               std::to_string(total_.traced) + " (" + std::to_string(dropped_) + ") / " +
                   std::to_string(rounds_) + " in " + fixed(seconds, 1) + " s");
}

// A queue just filled is settled once its size stays the same over a few polls: the senders'
// datagrams have all passed the segment's switch and been queued (or dropped).
bool IgnorePhase::waitQueueSettled(std::uint16_t port) const {
    unsigned long last = ~0UL;
    int same = 0;
    return pollUntil(
        [&] {
            auto q = e2e::udpQueue(run_.pid, port);
            const unsigned long now = q ? q->receiveBytes : 0;
            same = now == last ? same + 1 : 0;
            last = now;
            return same >= 3;
        },
        Clock::now() + std::chrono::seconds(2));
}

// n datagrams of the pool from `from` on (round the pool), to controller 1's port.
bool IgnorePhase::sendAll(const std::vector<std::string>& pool, std::size_t from, std::size_t n,
                          std::uint16_t port) const {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, e2e::controllerAddress(1).c_str(), &to.sin_addr);
    for (std::size_t i = 0; i < n; ++i) {
        const std::string& d = pool[(from + i) % pool.size()];
        if (sendto(sender_, d.data(), d.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                   sizeof to) != static_cast<ssize_t>(d.size())) {
            return false;
        }
    }
    return true;
}

}  // namespace load
