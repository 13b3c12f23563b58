// lcf: finds every lcfd controller on the segment, reads and changes its settings.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

#include "client/Rendering.hpp"
#include "client/Session.hpp"
#include "client/Transport.hpp"
#include "client/Validation.hpp"
#include "protocol/MessageFormat.hpp"
#include "protocol/Request.hpp"
#include "settings/Settings.hpp"

namespace {

constexpr int kExitSuccess = 0;
constexpr int kExitNoAnswerOrRefused = 1;
constexpr int kExitUsage = 2;
// Long enough to outlast the 5-second settling pause of a controller that is busy with an
// earlier ASSIGN; the tool stops waiting as soon as the answer is there.
constexpr double kAnswerTimeoutSeconds = 8.0;
constexpr double kDiscoveryWindowSeconds = 2.0;
// An hour: anything longer is a typing error, and it keeps the deadline arithmetic in range.
constexpr double kLongestTimeoutSeconds = 3600.0;
constexpr const char* kCommands[] = {"discover", "query", "assign", "clear"};

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A number of seconds above 0 and at most an hour.
const CLI::Validator& timeoutSeconds() {
    static const CLI::Validator validator(
        // cppcheck-suppress constParameter ; the signature CLI11 gives a validator
        [](std::string& text) -> std::string {
            double seconds = 0.0;
            std::size_t used = 0;
            try {
                seconds = std::stod(text, &used);
            } catch (const std::exception&) {
                used = 0;
            }
            if (used != text.size() || text.empty() || !(seconds > 0.0) ||
                seconds > kLongestTimeoutSeconds) {
                return "expected seconds above 0 and at most 3600, got '" + text + "'";
            }
            return std::string();
        },
        "SECONDS");
    return validator;
}

// "lcf: " and CLI11's explanation, so that every complaint of the tool reads alike.
std::string usageFailure(const CLI::App*, const CLI::Error& error) {
    return std::string("lcf: ") + error.what() +
           "\nRun 'lcf --help' or 'lcf COMMAND --help' for more information.\n";
}

// The first argument names the command; CLI11 would only say that one is required.
// Nothing, when it does or is an option such as --help.
std::optional<std::string> commandProblem(int argc, char** argv) {
    if (argc < 2) {
        return std::string("a command is required (discover, query, assign or clear)");
    }
    if (argv[1][0] == '-') {
        return std::nullopt;
    }
    for (const char* command : kCommands) {
        if (std::string(argv[1]) == command) {
            return std::nullopt;
        }
    }
    return "unknown command '" + std::string(argv[1]) + "' (discover, query, assign or clear)";
}

void addProbeOptions(CLI::App& command, lcf::ProbeOptions& options, double defaultTimeout) {
    options.timeoutSeconds = defaultTimeout;
    command.add_option("-i,--interface", options.interfaces,
                       "Probe only on this interface (repeatable); default: every up IPv4 "
                       "interface with broadcast");
    command.add_option("-t,--timeout", options.timeoutSeconds, "Seconds to wait for answers")
        ->check(timeoutSeconds())
        ->capture_default_str();
}

std::string checkedMac(const std::string& text) {
    if (!lcf::isMacAddress(text)) {
        throw UsageError("invalid MAC address '" + text +
                         "' (expected six hexadecimal pairs like 00:1A:2B:3C:4D:5E)");
    }
    return lcfd::upperCased(text);
}

int reportAck(lcf::AckOutcome outcome, const std::string& mac, double timeoutSeconds) {
    switch (outcome) {
        case lcf::AckOutcome::Accepted:
            std::printf("%s accept=yes\n", mac.c_str());
            return kExitSuccess;
        case lcf::AckOutcome::Refused:
            std::printf("%s accept=no\n", mac.c_str());
            return kExitNoAnswerOrRefused;
        case lcf::AckOutcome::NoAnswer:
            break;
    }
    std::fprintf(stderr, "lcf: no answer from %s within %g s\n", mac.c_str(), timeoutSeconds);
    return kExitNoAnswerOrRefused;
}

}  // namespace

// Parse errors and the commands' own failures are caught below; anything else that throws (out of
// memory while the command line is built) ends the tool through std::terminate, as it should.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    if (const auto problem = commandProblem(argc, argv)) {
        std::fprintf(stderr, "lcf: %s\nRun 'lcf --help' for more information.\n", problem->c_str());
        return kExitUsage;
    }
    CLI::App app{
        "lcf: find lcfd controllers on the local segment, read and change their "
        "network settings"};
    app.require_subcommand(1);
    app.failure_message(usageFailure);
    app.footer(
        "Exit status: 0 done; 1 no answer, accept=no or fewer controllers than expected; 2 a "
        "usage error (nothing was sent).");

    lcf::ProbeOptions discoverOptions;
    bool discoverJson = false;
    CLI::App* discover =
        app.add_subcommand("discover", "List every controller that answers on the segment");
    addProbeOptions(*discover, discoverOptions, kDiscoveryWindowSeconds);
    discover->get_option("--timeout")
        ->description(
            "Seconds to listen for answers, and on while new controllers are still answering "
            "(until none is new for a second)");
    discover
        ->add_option("-r,--rounds", discoverOptions.rounds,
                     "Send the probe this many times (a busy segment may drop some)")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    discover->add_flag("--json", discoverJson, "Print one JSON array");
    int expectedControllers = 0;
    discover
        ->add_option("-e,--expect", expectedControllers,
                     "Stop as soon as this many controllers answered; fewer within the timeout "
                     "is a failure")
        ->check(CLI::Range(1, 1000000));

    lcf::ProbeOptions queryOptions;
    bool queryJson = false;
    std::string queryMac;
    CLI::App* query = app.add_subcommand("query", "Show every setting of one controller");
    addProbeOptions(*query, queryOptions, kAnswerTimeoutSeconds);
    query->add_option("MAC", queryMac, "The controller's MAC address")->required();
    query->add_flag("--json", queryJson, "Print one JSON array");

    lcf::ProbeOptions assignOptions;
    std::string assignMac;
    std::vector<std::string> assignments;
    bool useHostClock = false;
    CLI::App* assign =
        app.add_subcommand("assign",
                           "Change settings: ip, netmask, gateway, ipscheme (STATIC|DHCP), ntpip, "
                           "syslogip, nameserver, utcclock (YYYYMMDDhhmmss, UTC)");
    addProbeOptions(*assign, assignOptions, kAnswerTimeoutSeconds);
    assign->add_option("MAC", assignMac, "The controller's MAC address")->required();
    assign->add_option("key=value", assignments, "Settings to change");
    assign->add_flag("--now", useHostClock, "Set utcclock from this host's UTC clock");
    bool assignUnchecked = false;
    assign->add_flag("--unchecked", assignUnchecked,
                     "Send key=value as given, any key and value, and let the controller judge "
                     "(it answers accept=no to what it cannot take)");

    lcf::ProbeOptions clearOptions;
    std::string clearMac;
    std::string clearKey;
    CLI::App* clear = app.add_subcommand("clear", "Make a controller forget one server");
    addProbeOptions(*clear, clearOptions, kAnswerTimeoutSeconds);
    clear->add_option("MAC", clearMac, "The controller's MAC address")->required();
    clear->add_option("SERVER", clearKey, "ntpip, syslogip or nameserver")->required();
    bool clearUnchecked = false;
    clear->add_flag("--unchecked", clearUnchecked,
                    "Send SERVER as given and let the controller judge (it answers accept=no to "
                    "what it cannot take)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? kExitSuccess : kExitUsage;
    }

    try {
        if (discover->parsed()) {
            discoverOptions.expected = static_cast<std::size_t>(expectedControllers);
            const auto controllers = lcf::discover(discoverOptions);
            std::cout << (discoverJson ? lcf::renderJson(controllers)
                                       : lcf::renderTable(controllers));
            std::cout.flush();
            if (controllers.size() < discoverOptions.expected) {
                std::fprintf(stderr, "lcf: %zu of %zu expected controllers answered within %g s\n",
                             controllers.size(), discoverOptions.expected,
                             discoverOptions.timeoutSeconds);
                return kExitNoAnswerOrRefused;
            }
            return controllers.empty() ? kExitNoAnswerOrRefused : kExitSuccess;
        }
        if (query->parsed()) {
            const std::string mac = checkedMac(queryMac);
            const auto controller = lcf::queryOne(queryOptions, mac);
            if (!controller) {
                std::fprintf(stderr, "lcf: no answer from %s within %g s\n", mac.c_str(),
                             queryOptions.timeoutSeconds);
                return kExitNoAnswerOrRefused;
            }
            std::cout << (queryJson ? lcf::renderJson({*controller})
                                    : lcf::renderDetails(*controller));
            return kExitSuccess;
        }
        if (assign->parsed()) {
            const std::string mac = checkedMac(assignMac);
            std::vector<std::pair<std::string, std::string>> fields;
            for (const std::string& argument : assignments) {
                std::pair<std::string, std::string> field;
                if (const auto problem = assignUnchecked
                                             ? lcf::splitUncheckedAssignment(argument, field)
                                             : lcf::checkAssignment(argument, field)) {
                    throw UsageError(*problem);
                }
                fields.push_back(field);
            }
            if (useHostClock) {
                fields.emplace_back(lcfd::key::kUtcClock, lcf::hostUtcClock());
            }
            if (fields.empty()) {
                throw UsageError("nothing to assign: give key=value arguments or --now");
            }
            const std::string seqid = lcf::newSeqid();
            return reportAck(lcf::requestAndWaitForAck(assignOptions, mac, seqid,
                                                       lcfd::composeAssign(seqid, mac, fields)),
                             mac, assignOptions.timeoutSeconds);
        }
        const std::string mac = checkedMac(clearMac);
        if (const auto problem = clearUnchecked ? lcf::checkUncheckedServerKey(clearKey)
                                                : lcf::checkServerKey(clearKey)) {
            throw UsageError(*problem);
        }
        const std::string seqid = lcf::newSeqid();
        return reportAck(lcf::requestAndWaitForAck(clearOptions, mac, seqid,
                                                   lcfd::composeClear(seqid, mac, clearKey)),
                         mac, clearOptions.timeoutSeconds);
    } catch (const UsageError& error) {
        std::fprintf(stderr, "lcf: %s\n", error.what());
        return kExitUsage;
    } catch (const lcf::UnusableInterface& error) {
        std::fprintf(stderr, "lcf: %s\n", error.what());
        return kExitUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "lcf: %s\n", error.what());
        return kExitNoAnswerOrRefused;
    }
}
