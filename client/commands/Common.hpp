#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
class Validator;
}  // namespace CLI

namespace lcf::commands {

// The exit statuses the tool's footer promises.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitNoAnswerOrRefused = 1;
inline constexpr int kExitUsage = 2;

// A command line that parsed but cannot be carried out; nothing was sent. Exits with kExitUsage.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What every command takes: the interfaces it uses and the user's timeout.
struct CommonOptions {
    std::vector<std::string> interfaces;
    double timeoutSeconds = 0.0;  // 0: not given

    std::optional<double> timeout() const {
        return timeoutSeconds > 0.0 ? std::optional<double>(timeoutSeconds) : std::nullopt;
    }
};

// A number of seconds above 0 and at most `longestSeconds` (a longer one is a typing error, and
// the ceiling keeps the deadline arithmetic in range).
CLI::Validator secondsUpTo(double longestSeconds);

// -i,--interface and -t,--timeout; each command says what its timeout bounds.
void addCommonOptions(CLI::App& command, CommonOptions& options, const std::string& timeoutHelp);

// The --timeout help of the commands that wait for one controller's answers.
extern const std::string kRequestTimeoutHelp;

// The MAC positional of the commands that address one controller.
void addMacArgument(CLI::App& command, std::string& mac);

// --json, for the commands that can print their findings as JSON.
CLI::Option* addJsonFlag(CLI::App& command, bool& json);

// The MAC address the user gave, upper-cased as controllers write it; a UsageError when it is
// not one.
std::string checkedMac(const std::string& text);

// A complaint as the tool words every one: "lcf: " and the text, one line.
std::string complaintLine(const std::string& text);

// Writes complaintLine(text) to standard error.
void printComplaint(const std::string& text);

}  // namespace lcf::commands
