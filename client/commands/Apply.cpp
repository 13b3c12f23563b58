#include "client/commands/Apply.hpp"

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <vector>

#include "client/Apply.hpp"
#include "client/Plan.hpp"
#include "client/Rendering.hpp"
#include "client/Timing.hpp"

namespace lcf::commands {

namespace {

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

int reportPlanProblems(const std::string& path, const std::vector<PlanProblem>& problems) {
    for (const PlanProblem& problem : problems) {
        printComplaint(path + ":" + std::to_string(problem.line) + ": " + problem.message);
    }
    printComplaint("plan refused, nothing was changed");
    return kExitUsage;
}

}  // namespace

CLI::App* addApplyCommand(CLI::App& app, ApplyArgs& args) {
    CLI::App* command = app.add_subcommand(
        "apply",
        "Bring every controller of a plan to the settings it names, and verify each change");
    command->footer(
        "A plan is CSV with a header row of keys (mac,ip,netmask,gateway,ipscheme,ntpip,syslogip,"
        "nameserver; an empty cell leaves the value as it is), or the JSON array that 'lcf "
        "discover --json' prints, edited; 'lcf discover --csv' writes a plan to start from. "
        "Other keys of lcf's output are read over. Every controller is read first; a plan with "
        "an unknown key, a bad value, a repeated MAC address or a controller that does not answer "
        "is refused before anything is changed. Controllers that already match are left alone; "
        "the others get an ASSIGN with what differs, several at a time, and each is read again "
        "after its settling pause to check that every value took.");
    addCommonOptions(*command, args.common, kRequestTimeoutHelp);
    command->add_option("PLAN", args.planPath, "The plan: a CSV or JSON file, - for standard input")
        ->required();
    command->add_flag("--dry-run", args.dryRun,
                      "Read the controllers and show what would change; change nothing");
    command
        ->add_option("-p,--parallel", args.parallel,
                     "Change at most this many controllers at a time (each pauses " +
                         formatSeconds(timing::kSettleSeconds) +
                         " s after a change, independently of the others)")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    return command;
}

int runApply(const ApplyArgs& args) {
    const Plan plan = readPlan(readPlanText(args.planPath));
    if (!plan.problems.empty()) {
        return reportPlanProblems(args.planPath, plan.problems);
    }
    ApplyOptions options;
    options.interfaces = args.common.interfaces;
    options.timeoutSeconds = args.common.timeout();
    options.parallel = static_cast<std::size_t>(args.parallel);
    options.dryRun = args.dryRun;
    const ApplyReport report = applyPlan(plan, options);
    if (!report.problems.empty()) {
        return reportPlanProblems(args.planPath, report.problems);
    }
    std::cout << renderApplyTable(report, args.dryRun);
    for (const ApplyRow& row : report.rows) {
        if (!args.dryRun && !isRight(row.result)) {
            return kExitNoAnswerOrRefused;
        }
    }
    return kExitSuccess;
}

}  // namespace lcf::commands
