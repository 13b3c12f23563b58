#include "client/commands/Discover.hpp"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "client/Rendering.hpp"
#include "client/Session.hpp"
#include "client/Timing.hpp"

namespace lcf::commands {

namespace {

const std::string kDiscoverTiming =
    "How long it waits: a controller answers only after it has read its whole device (seconds "
    "on a slow board: up to " +
    formatSeconds(timing::kSlowestReadingSeconds) +
    " s are allowed for), and not at all during the " + formatSeconds(timing::kSettleSeconds) +
    " s it settles after accepting a change. So discover listens for at least " +
    formatSeconds(timing::kLongestAnswerSeconds) +
    " s; probes again, in rounds, until rounds in a row bring no new controller (one more "
    "round on a segment that loses nothing, more where answers went missing); and listens on "
    "while answers keep arriving. --timeout caps all of it; --expect ends it as soon as that "
    "many controllers answered.";

}  // namespace

CLI::App* addDiscoverCommand(CLI::App& app, DiscoverArgs& args) {
    CLI::App* command =
        app.add_subcommand("discover", "List every controller that answers on the segment");
    command->footer(kDiscoverTiming);
    addCommonOptions(*command, args.common,
                     "Stop after this many seconds at the latest (default: no limit; see below)");
    command
        ->add_option("-r,--rounds", args.rounds,
                     "Send the probe in at most this many rounds (a lossy segment needs more)")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    command
        ->add_option("-e,--expect", args.expected,
                     "Stop as soon as this many controllers answered; fewer is a failure")
        ->check(CLI::Range(1, 1000000));
    CLI::Option* json = addJsonFlag(*command, args.json);
    command
        ->add_flag("--csv", args.csv, "Print CSV with a header row: a plan for 'lcf apply' to edit")
        ->excludes(json);
    return command;
}

int runDiscover(const DiscoverArgs& args) {
    DiscoveryOptions options;
    options.interfaces = args.common.interfaces;
    if (const auto timeout = args.common.timeout()) {
        options.limits.timeoutSeconds = *timeout;
    }
    options.limits.maxRounds = args.rounds;
    options.limits.expected = static_cast<std::size_t>(args.expected);
    const DiscoveryReport report = discover(options);
    const auto& found = report.controllers;
    std::cout << (args.json ? renderJson(found) : args.csv ? renderCsv(found) : renderTable(found));
    // The list comes before the summaries on standard error.
    std::cout.flush();
    std::vector<std::string> names;
    for (const InterfaceSummary& summary : report.interfaces) {
        std::fputs(
            renderInterfaceSummary(summary.name, summary.probes, summary.controllers, summary.doubt)
                .c_str(),
            stderr);
        names.push_back(summary.name);
    }
    const std::string waited = formatSeconds(report.seconds);
    if (found.empty()) {
        printComplaint("no controller answered on " + joinNames(names) + " within " + waited +
                       " s");
        return kExitNoAnswerOrRefused;
    }
    if (found.size() < options.limits.expected) {
        printComplaint(std::to_string(found.size()) + " of " +
                       std::to_string(options.limits.expected) +
                       " expected controllers answered within " + waited + " s");
        return kExitNoAnswerOrRefused;
    }
    return kExitSuccess;
}

}  // namespace lcf::commands
