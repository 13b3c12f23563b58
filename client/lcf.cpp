// lcf: finds every lcfd controller on the segment, reads and changes its settings.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <stdexcept>

#include "client/Rendering.hpp"
#include "client/Session.hpp"
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

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void addProbeOptions(CLI::App& command, lcf::ProbeOptions& options, double defaultTimeout) {
    options.timeoutSeconds = defaultTimeout;
    command.add_option("-i,--interface", options.interfaces,
                       "Probe only on this interface (repeatable); default: every up IPv4 "
                       "interface with broadcast");
    command.add_option("-t,--timeout", options.timeoutSeconds, "Seconds to wait for answers")
        ->check(CLI::PositiveNumber)
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

int main(int argc, char** argv) {
    CLI::App app{
        "lcf: find lcfd controllers on the local segment, read and change their "
        "network settings"};
    app.require_subcommand(1);

    lcf::ProbeOptions discoverOptions;
    bool discoverJson = false;
    CLI::App* discover =
        app.add_subcommand("discover", "List every controller that answers on the segment");
    addProbeOptions(*discover, discoverOptions, kDiscoveryWindowSeconds);
    discover
        ->add_option("-r,--rounds", discoverOptions.rounds,
                     "Send the probe this many times (a busy segment may drop some)")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    discover->add_flag("--json", discoverJson, "Print one JSON array");

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

    lcf::ProbeOptions clearOptions;
    std::string clearMac;
    std::string clearKey;
    CLI::App* clear = app.add_subcommand("clear", "Make a controller forget one server");
    addProbeOptions(*clear, clearOptions, kAnswerTimeoutSeconds);
    clear->add_option("MAC", clearMac, "The controller's MAC address")->required();
    clear->add_option("SERVER", clearKey, "ntpip, syslogip or nameserver")
        ->required()
        ->check(CLI::IsMember({lcfd::key::kNtpIp, lcfd::key::kSyslogIp, lcfd::key::kNameserver}));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? kExitSuccess : kExitUsage;
    }

    try {
        if (discover->parsed()) {
            const auto controllers = lcf::discover(discoverOptions);
            std::cout << (discoverJson ? lcf::renderJson(controllers)
                                       : lcf::renderTable(controllers));
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
                if (const auto problem = lcf::checkAssignment(argument, field)) {
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
        const std::string seqid = lcf::newSeqid();
        return reportAck(lcf::requestAndWaitForAck(clearOptions, mac, seqid,
                                                   lcfd::composeClear(seqid, mac, clearKey)),
                         mac, clearOptions.timeoutSeconds);
    } catch (const UsageError& error) {
        std::fprintf(stderr, "lcf: %s\n", error.what());
        return kExitUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "lcf: %s\n", error.what());
        return kExitNoAnswerOrRefused;
    }
}
