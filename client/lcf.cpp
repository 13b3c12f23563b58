// lcf: finds every lcfd controller on the segment, reads and changes its settings, and applies
// a plan to a whole fleet. Each command lives in client/commands; this builds the command line,
// parses it and runs the command it names.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "client/Transport.hpp"
#include "client/commands/Apply.hpp"
#include "client/commands/Assign.hpp"
#include "client/commands/Clear.hpp"
#include "client/commands/Common.hpp"
#include "client/commands/Discover.hpp"
#include "client/commands/Query.hpp"
#include "client/commands/Watch.hpp"
#include "wire/Protocol.hpp"

using namespace lcf::commands;

namespace {

// "lcf: " and CLI11's explanation, so that every complaint of the tool reads alike.
std::string usageFailure(const CLI::App*, const CLI::Error& error) {
    return complaintLine(error.what()) +
           "Run 'lcf --help' or 'lcf COMMAND --help' for more information.\n";
}

// The command names for a sentence: "discover, query, assign, clear or apply".
std::string commandList(const std::vector<std::string>& names) {
    std::string list;
    for (std::size_t index = 0; index < names.size(); ++index) {
        if (index > 0) {
            list += index + 1 == names.size() ? " or " : ", ";
        }
        list += names[index];
    }
    return list;
}

// The first argument names the command; CLI11 would only say that one is required.
// Nothing, when it does or is an option such as --help.
std::optional<std::string> commandProblem(int argc, char** argv,
                                          const std::vector<std::string>& names) {
    if (argc < 2) {
        return "a command is required (" + commandList(names) + ")";
    }
    if (argv[1][0] == '-') {
        return std::nullopt;
    }
    for (const std::string& name : names) {
        if (argv[1] == name) {
            return std::nullopt;
        }
    }
    return "unknown command '" + std::string(argv[1]) + "' (" + commandList(names) + ")";
}

}  // namespace

// Parse errors and the commands' own failures are caught below; anything else that throws (out of
// memory while the command line is built) ends the tool through std::terminate, as it should.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    CLI::App app{
        "lcf: find lcfd controllers on the local segment, read and change their "
        "network settings"};
    app.require_subcommand(1);
    app.failure_message(usageFailure);
    app.set_version_flag("--version", std::string("lcf ") + lcfd::kVersion);
    app.footer(
        "Exit status: 0 done; 1 no answer, accept=no, a change that did not take or fewer "
        "controllers than expected; 2 a usage error or a refused plan (no change was sent).");

    // In the order of the help's list of commands.
    DiscoverArgs discoverArgs;
    const CLI::App* discover = addDiscoverCommand(app, discoverArgs);
    QueryArgs queryArgs;
    const CLI::App* query = addQueryCommand(app, queryArgs);
    AssignArgs assignArgs;
    const CLI::App* assign = addAssignCommand(app, assignArgs);
    ClearArgs clearArgs;
    const CLI::App* clear = addClearCommand(app, clearArgs);
    ApplyArgs applyArgs;
    const CLI::App* apply = addApplyCommand(app, applyArgs);
    WatchArgs watchArgs;
    const CLI::App* watch = addWatchCommand(app, watchArgs);

    const std::vector<std::string> names = {discover->get_name(), query->get_name(),
                                            assign->get_name(),   clear->get_name(),
                                            apply->get_name(),    watch->get_name()};
    if (const auto problem = commandProblem(argc, argv, names)) {
        printComplaint(*problem);
        std::fputs("Run 'lcf --help' for more information.\n", stderr);
        return kExitUsage;
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? kExitSuccess : kExitUsage;
    }

    try {
        if (discover->parsed()) {
            return runDiscover(discoverArgs);
        }
        if (query->parsed()) {
            return runQuery(queryArgs);
        }
        if (assign->parsed()) {
            return runAssign(assignArgs);
        }
        if (clear->parsed()) {
            return runClear(clearArgs);
        }
        if (watch->parsed()) {
            return runWatch(watchArgs);
        }
        // require_subcommand(1): the one left.
        return runApply(applyArgs);
    } catch (const UsageError& error) {
        printComplaint(error.what());
        return kExitUsage;
    } catch (const lcf::UnusableInterface& error) {
        printComplaint(error.what());
        return kExitUsage;
    } catch (const std::exception& error) {
        printComplaint(error.what());
        return kExitNoAnswerOrRefused;
    }
}
