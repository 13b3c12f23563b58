// lcf: finds every lcfd controller on the segment, reads and changes its settings, and applies
// a plan to a whole fleet.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

#include "client/Apply.hpp"
#include "client/Plan.hpp"
#include "client/Rendering.hpp"
#include "client/Session.hpp"
#include "client/Timing.hpp"
#include "client/Transport.hpp"
#include "client/Validation.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Protocol.hpp"

namespace {

constexpr int kExitSuccess = 0;
constexpr int kExitNoAnswerOrRefused = 1;
constexpr int kExitUsage = 2;
// An hour: anything longer is a typing error, and it keeps the deadline arithmetic in range.
constexpr double kLongestTimeoutSeconds = 3600.0;
constexpr int kDefaultMaxRounds = 10;
constexpr std::size_t kDefaultParallel = 32;
constexpr const char* kCommands[] = {"discover", "query", "assign", "clear", "apply"};
constexpr const char* kCommandList = "discover, query, assign, clear or apply";

const std::string kDiscoverTiming =
    "How long it waits: a controller answers only after it has read its whole device (seconds "
    "on a slow board: up to " +
    lcf::formatSeconds(lcf::timing::kSlowestReadingSeconds) +
    " s are allowed for), and not at all during the " +
    lcf::formatSeconds(lcf::timing::kSettleSeconds) +
    " s it settles after accepting a change. So discover listens for at least " +
    lcf::formatSeconds(lcf::timing::kLongestAnswerSeconds) +
    " s; probes again, in rounds, until rounds in a row bring no new controller (one more "
    "round on a segment that loses nothing, more where answers went missing); and listens on "
    "while answers keep arriving. --timeout caps all of it; --expect ends it as soon as that "
    "many controllers answered.";

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
        return "a command is required (" + std::string(kCommandList) + ")";
    }
    if (argv[1][0] == '-') {
        return std::nullopt;
    }
    for (const char* command : kCommands) {
        if (std::string(argv[1]) == command) {
            return std::nullopt;
        }
    }
    return "unknown command '" + std::string(argv[1]) + "' (" + kCommandList + ")";
}

// What every command has: the interfaces it uses and the user's timeout.
struct Reach {
    std::vector<std::string> interfaces;
    double timeoutSeconds = 0.0;  // 0: not given

    std::optional<double> timeout() const {
        return timeoutSeconds > 0.0 ? std::optional<double>(timeoutSeconds) : std::nullopt;
    }
};

void addReachOptions(CLI::App& command, Reach& reach, const std::string& timeoutText) {
    command.add_option("-i,--interface", reach.interfaces,
                       "Use only this interface (repeatable); default: every up IPv4 interface "
                       "with broadcast");
    command.add_option("-t,--timeout", reach.timeoutSeconds, timeoutText)->check(timeoutSeconds());
}

const std::string kRequestTimeoutText =
    "Give up on the controller after this many seconds, for each request (default: " +
    lcf::formatSeconds(lcf::timing::kRequestTimeoutSeconds) +
    ", or longer while other controllers are still answering): time for a controller in its "
    "settling pause that reads slowly, and for sending once more when a datagram was lost";

std::string checkedMac(const std::string& text) {
    if (const auto problem = lcf::macProblem(text)) {
        throw UsageError(*problem);
    }
    return lcfd::upperCased(text);
}

struct DiscoverArgs {
    Reach reach;
    int rounds = kDefaultMaxRounds;
    int expected = 0;
    bool json = false;
    bool csv = false;
};

int runDiscover(const DiscoverArgs& args) {
    lcf::DiscoveryOptions options;
    options.interfaces = args.reach.interfaces;
    if (const auto timeout = args.reach.timeout()) {
        options.limits.timeoutSeconds = *timeout;
    }
    options.limits.maxRounds = args.rounds;
    options.limits.expected = static_cast<std::size_t>(args.expected);
    const lcf::DiscoveryReport report = lcf::discover(options);
    const auto& found = report.controllers;
    std::cout << (args.json  ? lcf::renderJson(found)
                  : args.csv ? lcf::renderCsv(found)
                             : lcf::renderTable(found));
    std::cout.flush();
    std::vector<std::string> names;
    for (const lcf::InterfaceSummary& summary : report.interfaces) {
        std::fputs(lcf::renderInterfaceSummary(summary.name, summary.probes, summary.controllers,
                                               summary.doubt)
                       .c_str(),
                   stderr);
        names.push_back(summary.name);
    }
    const std::string waited = lcf::formatSeconds(report.seconds);
    if (found.empty()) {
        std::fprintf(stderr, "lcf: no controller answered on %s within %s s\n",
                     lcf::joinNames(names).c_str(), waited.c_str());
        return kExitNoAnswerOrRefused;
    }
    if (found.size() < options.limits.expected) {
        std::fprintf(stderr, "lcf: %zu of %zu expected controllers answered within %s s\n",
                     found.size(), options.limits.expected, waited.c_str());
        return kExitNoAnswerOrRefused;
    }
    return kExitSuccess;
}

// Runs one job and reports a missing answer the way every single-controller command does.
bool runOne(lcf::ControllerJob& job, const Reach& reach,
            const std::function<void(const lcf::ControllerJob&)>& onAnswer = nullptr) {
    std::vector<lcf::ControllerJob> jobs = {job};
    lcf::runJobs(jobs, reach.interfaces, 1, onAnswer);
    job = jobs.front();
    if (job.outcome() != lcf::JobOutcome::NoAnswer) {
        return true;
    }
    const std::string waited = lcf::formatSeconds(job.waitedSeconds());
    if (job.accepted()) {
        std::fprintf(stderr,
                     "lcf: %s accepted, but did not answer the verifying query within %s s\n",
                     job.plan().mac.c_str(), waited.c_str());
    } else {
        std::fprintf(stderr, "lcf: no answer from %s within %s s\n", job.plan().mac.c_str(),
                     waited.c_str());
    }
    return false;
}

struct QueryArgs {
    Reach reach;
    std::string mac;
    bool json = false;
};

int runQuery(const QueryArgs& args) {
    lcf::JobPlan plan;
    plan.mac = checkedMac(args.mac);
    lcf::ControllerJob job(plan, args.reach.timeout(), std::nullopt, lcf::newSeqid);
    if (!runOne(job, args.reach)) {
        return kExitNoAnswerOrRefused;
    }
    const lcf::Controller& controller = *job.controller();
    std::cout << (args.json ? lcf::renderJson({controller}) : lcf::renderDetails(controller));
    return kExitSuccess;
}

// The outcome of an ASSIGN or CLEAR job, as printed: accept=yes as soon as it arrived, then what
// the verification found.
int reportChange(lcf::ControllerJob& job, const Reach& reach, const std::string& verifiedText) {
    const std::string& mac = job.plan().mac;
    bool announced = false;
    const auto announce = [&](const lcf::ControllerJob& answered) {
        if (answered.accepted() && !announced) {
            std::printf("%s accept=yes\n", mac.c_str());
            std::fflush(stdout);
            announced = true;
        }
    };
    if (!runOne(job, reach, announce)) {
        return kExitNoAnswerOrRefused;
    }
    switch (job.outcome()) {
        case lcf::JobOutcome::Refused:
            std::printf("%s accept=no\n", mac.c_str());
            return kExitNoAnswerOrRefused;
        case lcf::JobOutcome::Took:
            std::printf("%s verified: %s\n", mac.c_str(), verifiedText.c_str());
            return kExitSuccess;
        case lcf::JobOutcome::DidNotTake: {
            for (const lcf::Mismatch& mismatch : job.mismatches()) {
                std::printf("%s\n", lcf::describe(mismatch).c_str());
            }
            const std::size_t asked =
                job.plan().start == lcf::JobPlan::Start::Clear ? 1 : job.plan().assignments.size();
            std::fflush(stdout);
            std::fprintf(stderr, "lcf: %s did not take %zu of %zu %s\n", mac.c_str(),
                         job.mismatches().size(), asked, asked == 1 ? "value" : "values");
            return kExitNoAnswerOrRefused;
        }
        default:
            return kExitSuccess;
    }
}

struct AssignArgs {
    Reach reach;
    std::string mac;
    std::vector<std::string> assignments;
    bool now = false;
    bool unchecked = false;
    bool verify = false;
};

int runAssign(const AssignArgs& args) {
    lcf::JobPlan plan;
    plan.mac = checkedMac(args.mac);
    plan.start = lcf::JobPlan::Start::Assign;
    plan.verify = args.verify;
    for (const std::string& argument : args.assignments) {
        std::pair<std::string, std::string> field;
        if (const auto problem = args.unchecked ? lcf::splitUncheckedAssignment(argument, field)
                                                : lcf::checkAssignment(argument, field)) {
            throw UsageError(*problem);
        }
        plan.assignments.push_back(field);
    }
    if (args.now) {
        plan.assignments.emplace_back(lcfd::key::kUtcClock, lcf::hostUtcClock());
    }
    if (plan.assignments.empty()) {
        throw UsageError("nothing to assign: give key=value arguments or --now");
    }
    std::string verified;
    for (const auto& [fieldKey, value] : plan.assignments) {
        verified.append(verified.empty() ? "" : " ").append(fieldKey).append("=").append(value);
    }
    lcf::ControllerJob job(plan, args.reach.timeout(), std::nullopt, lcf::newSeqid);
    return reportChange(job, args.reach, verified);
}

struct ClearArgs {
    Reach reach;
    std::string mac;
    std::string serverKey;
    bool unchecked = false;
    bool verify = false;
};

int runClear(const ClearArgs& args) {
    lcf::JobPlan plan;
    plan.mac = checkedMac(args.mac);
    if (const auto problem = args.unchecked ? lcf::checkUncheckedServerKey(args.serverKey)
                                            : lcf::checkServerKey(args.serverKey)) {
        throw UsageError(*problem);
    }
    plan.start = lcf::JobPlan::Start::Clear;
    plan.serverKey = args.serverKey;
    plan.verify = args.verify;
    lcf::ControllerJob job(plan, args.reach.timeout(), std::nullopt, lcf::newSeqid);
    return reportChange(job, args.reach, args.serverKey + " cleared");
}

struct ApplyArgs {
    Reach reach;
    std::string planPath;
    bool dryRun = false;
    int parallel = static_cast<int>(kDefaultParallel);
};

std::string readPlanText(const std::string& path) {
    if (path == "-") {
        return std::string(std::istreambuf_iterator<char>(std::cin),
                           std::istreambuf_iterator<char>());
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw UsageError("cannot read the plan " + path);
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

int reportPlanProblems(const std::string& path, const std::vector<lcf::PlanProblem>& problems) {
    for (const lcf::PlanProblem& problem : problems) {
        std::fprintf(stderr, "lcf: %s:%zu: %s\n", path.c_str(), problem.line,
                     problem.message.c_str());
    }
    std::fprintf(stderr, "lcf: plan refused, nothing was changed\n");
    return kExitUsage;
}

int runApply(const ApplyArgs& args) {
    const lcf::Plan plan = lcf::readPlan(readPlanText(args.planPath));
    if (!plan.problems.empty()) {
        return reportPlanProblems(args.planPath, plan.problems);
    }
    lcf::ApplyOptions options;
    options.interfaces = args.reach.interfaces;
    options.timeoutSeconds = args.reach.timeout();
    options.parallel = static_cast<std::size_t>(args.parallel);
    options.dryRun = args.dryRun;
    const lcf::ApplyReport report = lcf::applyPlan(plan, options);
    if (!report.problems.empty()) {
        return reportPlanProblems(args.planPath, report.problems);
    }
    std::cout << lcf::renderApplyTable(report, args.dryRun);
    for (const lcf::ApplyRow& row : report.rows) {
        if (!args.dryRun && !lcf::isRight(row.result)) {
            return kExitNoAnswerOrRefused;
        }
    }
    return kExitSuccess;
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
    app.set_version_flag("--version", std::string("lcf ") + lcfd::kVersion);
    app.footer(
        "Exit status: 0 done; 1 no answer, accept=no, a change that did not take or fewer "
        "controllers than expected; 2 a usage error or a refused plan (no change was sent).");

    DiscoverArgs discoverArgs;
    CLI::App* discover =
        app.add_subcommand("discover", "List every controller that answers on the segment");
    discover->footer(kDiscoverTiming);
    addReachOptions(*discover, discoverArgs.reach,
                    "Stop after this many seconds at the latest (default: no limit; see below)");
    discover
        ->add_option("-r,--rounds", discoverArgs.rounds,
                     "Send the probe in at most this many rounds (a lossy segment needs more)")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    discover
        ->add_option("-e,--expect", discoverArgs.expected,
                     "Stop as soon as this many controllers answered; fewer is a failure")
        ->check(CLI::Range(1, 1000000));
    CLI::Option* json = discover->add_flag("--json", discoverArgs.json, "Print one JSON array");
    discover
        ->add_flag("--csv", discoverArgs.csv,
                   "Print CSV with a header row: a plan for 'lcf apply' to edit")
        ->excludes(json);

    QueryArgs queryArgs;
    CLI::App* query = app.add_subcommand("query", "Show every setting of one controller");
    addReachOptions(*query, queryArgs.reach, kRequestTimeoutText);
    query->add_option("MAC", queryArgs.mac, "The controller's MAC address")->required();
    query->add_flag("--json", queryArgs.json, "Print one JSON array");

    AssignArgs assignArgs;
    CLI::App* assign =
        app.add_subcommand("assign",
                           "Change settings: ip, netmask, gateway, ipscheme (STATIC|DHCP), ntpip, "
                           "syslogip, nameserver, utcclock (YYYYMMDDhhmmss, UTC)");
    addReachOptions(*assign, assignArgs.reach, kRequestTimeoutText);
    assign->add_option("MAC", assignArgs.mac, "The controller's MAC address")->required();
    assign->add_option("key=value", assignArgs.assignments, "Settings to change");
    assign->add_flag("--now", assignArgs.now, "Set utcclock from this host's UTC clock");
    assign->add_flag("--unchecked", assignArgs.unchecked,
                     "Send key=value as given, any key and value, and let the controller judge "
                     "(it answers accept=no to what it cannot take)");
    assign->add_flag("--verify", assignArgs.verify,
                     "After accept=yes, wait out the settling pause, read the controller again "
                     "and check that every value took (utcclock within " +
                         lcf::formatSeconds(lcf::kClockToleranceSeconds) +
                         " s of the time that passed)");

    ClearArgs clearArgs;
    CLI::App* clear = app.add_subcommand("clear", "Make a controller forget one server");
    addReachOptions(*clear, clearArgs.reach, kRequestTimeoutText);
    clear->add_option("MAC", clearArgs.mac, "The controller's MAC address")->required();
    clear->add_option("SERVER", clearArgs.serverKey, "ntpip, syslogip or nameserver")->required();
    clear->add_flag("--unchecked", clearArgs.unchecked,
                    "Send SERVER as given and let the controller judge (it answers accept=no to "
                    "what it cannot take)");
    clear->add_flag("--verify", clearArgs.verify,
                    "After accept=yes, read the controller again and check that the server is "
                    "gone");

    ApplyArgs applyArgs;
    CLI::App* apply = app.add_subcommand(
        "apply",
        "Bring every controller of a plan to the settings it names, and verify each change");
    apply->footer(
        "A plan is CSV with a header row of keys (mac,ip,netmask,gateway,ipscheme,ntpip,syslogip,"
        "nameserver; an empty cell leaves the value as it is), or the JSON array that 'lcf "
        "discover --json' prints, edited; 'lcf discover --csv' writes a plan to start from. "
        "Other keys of lcf's output are read over. Every controller is read first; a plan with "
        "an unknown key, a bad value, a repeated MAC address or a controller that does not answer "
        "is refused before anything is changed. Controllers that already match are left alone; "
        "the others get an ASSIGN with what differs, several at a time, and each is read again "
        "after its settling pause to check that every value took.");
    addReachOptions(*apply, applyArgs.reach, kRequestTimeoutText);
    apply
        ->add_option("PLAN", applyArgs.planPath,
                     "The plan: a CSV or JSON file, - for standard "
                     "input")
        ->required();
    apply->add_flag("--dry-run", applyArgs.dryRun,
                    "Read the controllers and show what would change; change nothing");
    apply
        ->add_option("-p,--parallel", applyArgs.parallel,
                     "Change at most this many controllers at a time (each pauses " +
                         lcf::formatSeconds(lcf::timing::kSettleSeconds) +
                         " s after a change, independently of the others)")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();

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
        return runApply(applyArgs);
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
