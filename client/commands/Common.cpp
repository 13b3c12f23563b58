#include "client/commands/Common.hpp"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "client/Rendering.hpp"
#include "client/Timing.hpp"
#include "client/Validation.hpp"
#include "wire/MessageFormat.hpp"

namespace lcf::commands {

namespace {

// An hour: anything longer is a typing error, and it keeps the deadline arithmetic in range.
constexpr double kLongestTimeoutSeconds = 3600.0;

}  // namespace

CLI::Validator secondsUpTo(double longestSeconds) {
    return CLI::Validator(
        // cppcheck-suppress constParameter ; the signature CLI11 gives a validator
        [longestSeconds](std::string& text) -> std::string {
            double seconds = 0.0;
            std::size_t used = 0;
            try {
                seconds = std::stod(text, &used);
            } catch (const std::exception&) {
                used = 0;
            }
            if (used != text.size() || text.empty() || !(seconds > 0.0) ||
                seconds > longestSeconds) {
                return "expected seconds above 0 and at most " + formatSeconds(longestSeconds) +
                       ", got '" + text + "'";
            }
            return std::string();
        },
        "SECONDS");
}

void addCommonOptions(CLI::App& command, CommonOptions& options, const std::string& timeoutHelp) {
    // One interface per -i, so that `lcf query -i eth0 MAC` leaves the MAC a positional.
    command
        .add_option("-i,--interface", options.interfaces,
                    "Use only this interface (repeatable); default: every up IPv4 interface "
                    "with broadcast")
        ->allow_extra_args(false);
    command.add_option("-t,--timeout", options.timeoutSeconds, timeoutHelp)
        ->check(secondsUpTo(kLongestTimeoutSeconds));
}

const std::string kRequestTimeoutHelp =
    "Give up on the controller after this many seconds, for each request (default: " +
    formatSeconds(timing::kRequestTimeoutSeconds) +
    ", or longer while other controllers are still answering): time for a controller in its "
    "settling pause that reads slowly, and for sending once more when a datagram was lost";

void addMacArgument(CLI::App& command, std::string& mac) {
    command.add_option("MAC", mac, "The controller's MAC address")->required();
}

CLI::Option* addJsonFlag(CLI::App& command, bool& json) {
    return command.add_flag("--json", json, "Print one JSON array");
}

std::string checkedMac(const std::string& text) {
    if (const auto problem = macProblem(text)) {
        throw UsageError(*problem);
    }
    return lcfd::upperCased(text);
}

std::string complaintLine(const std::string& text) {
    return "lcf: " + text + "\n";
}

void printComplaint(const std::string& text) {
    std::fputs(complaintLine(text).c_str(), stderr);
}

}  // namespace lcf::commands
