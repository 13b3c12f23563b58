#include "client/commands/Watch.hpp"

#include <signal.h>
#include <CLI/CLI.hpp>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "client/Rendering.hpp"
#include "client/Watch.hpp"
#include "client/WatchListener.hpp"
#include "client/commands/Common.hpp"
#include "wire/Protocol.hpp"

namespace lcf::commands {

namespace {

// A day: longer is a typing error, and it keeps the deadline arithmetic in range.
constexpr double kLongestDurationSeconds = 86400.0;
volatile std::sig_atomic_t stopRequested = 0;

void requestStop(int) {
    stopRequested = 1;
}

const std::string kWatchFooter =
    "One line per datagram on UDP port " + std::to_string(lcfd::kServicePort) +
    ": local time, interface, sender, command, seqid, MAC ('" + kEveryControllerMark +
    "': a QUERY for every controller) and a summary: the keys an ASSIGN changes, marked "
    "(dropped), (ignored) or (refused) as the controller will take them; a CLEAR's key; "
    "accept of an ACK; ip and hostname of a STATUS; why a daemon would not understand, refuse "
    "or ignore a request. A reply shows the time since the request it answers. Nothing is "
    "sent. The port is shared with the daemon and other tools on this host.";

bool printLine(const std::string& line) {
    // Flushed line by line, so that it can be piped; a reader that went away ends the watch.
    return std::fputs(line.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
}

}  // namespace

CLI::App* addWatchCommand(CLI::App& app, WatchArgs& args) {
    CLI::App* command = app.add_subcommand(
        "watch", "Show every request and reply on the segment as it passes, sending nothing");
    command->footer(kWatchFooter);
    command
        ->add_option("-i,--interface", args.interfaces,
                     "Listen only on this interface (repeatable); default: every interface")
        ->allow_extra_args(false);
    command->add_flag("--json", args.json, "Print one JSON object per datagram, one per line");
    command
        ->add_option("-d,--duration", args.durationSeconds,
                     "Stop after this many seconds (default: at SIGINT or SIGTERM)")
        ->check(secondsUpTo(kLongestDurationSeconds));
    return command;
}

int runWatch(const WatchArgs& args) {
    // The signals are blocked but while waiting: one that comes between a check and the wait
    // still ends the wait.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigset_t waitMask;
    sigprocmask(SIG_BLOCK, &stopSignals, &waitMask);
    sigdelset(&waitMask, SIGINT);
    sigdelset(&waitMask, SIGTERM);
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // A closed pipe is seen as a failed write, not as a signal.
    signal(SIGPIPE, SIG_IGN);

    WatchListener listener(args.interfaces);
    RequestPairing pairing;
    using Steady = std::chrono::steady_clock;
    const bool bounded = args.durationSeconds > 0.0;
    const Steady::time_point deadline =
        Steady::now() + std::chrono::duration_cast<Steady::duration>(
                            std::chrono::duration<double>(args.durationSeconds));
    while (stopRequested == 0) {
        // Without --duration only a datagram or a signal ends the wait; the deadline is on the
        // monotonic clock, which a change of the time of day does not move.
        std::optional<std::chrono::milliseconds> wait;
        if (bounded) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - Steady::now() + std::chrono::microseconds(999));
            if (left.count() <= 0) {
                break;
            }
            wait = left;
        }
        const auto datagram = listener.receive(wait, &waitMask);
        if (!datagram) {
            continue;
        }
        WatchRecord record = takeApart(*datagram);
        pairing.see(record);
        if (!printLine(args.json ? renderWatchJson(record) : renderWatchLine(record))) {
            break;
        }
    }
    return kExitSuccess;
}

}  // namespace lcf::commands
