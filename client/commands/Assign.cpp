#include "client/commands/Assign.hpp"

#include <CLI/CLI.hpp>
#include <optional>
#include <utility>

#include "client/ControllerJob.hpp"
#include "client/Rendering.hpp"
#include "client/Session.hpp"
#include "client/Validation.hpp"
#include "client/Verification.hpp"
#include "client/commands/SingleController.hpp"
#include "wire/Protocol.hpp"

namespace lcf::commands {

CLI::App* addAssignCommand(CLI::App& app, AssignArgs& args) {
    CLI::App* command =
        app.add_subcommand("assign",
                           "Change settings: ip, netmask, gateway, ipscheme (STATIC|DHCP), ntpip, "
                           "syslogip, nameserver, utcclock (YYYYMMDDhhmmss, UTC)");
    addCommonOptions(*command, args.common, kRequestTimeoutHelp);
    addMacArgument(*command, args.mac);
    command->add_option("key=value", args.assignments, "Settings to change");
    command->add_flag("--now", args.now, "Set utcclock from this host's UTC clock");
    command->add_flag("--unchecked", args.unchecked,
                      "Send key=value as given, any key and value, and let the controller judge: "
                      "it answers accept=no to an ipscheme other than STATIC or DHCP, an empty "
                      "key or value, or ';' or '=' in a field it does not use, and takes an "
                      "unknown key or a malformed address without using it");
    command->add_flag("--verify", args.verify,
                      "After accept=yes, wait out the settling pause, read the controller again "
                      "and check that every value took (utcclock within " +
                          formatSeconds(kClockToleranceSeconds) + " s of the time that passed)");
    return command;
}

int runAssign(const AssignArgs& args) {
    JobPlan plan;
    plan.mac = checkedMac(args.mac);
    plan.start = JobPlan::Start::Assign;
    plan.verify = args.verify;
    for (const std::string& argument : args.assignments) {
        std::pair<std::string, std::string> field;
        if (const auto problem = args.unchecked ? splitUncheckedAssignment(argument, field)
                                                : checkAssignment(argument, field)) {
            throw UsageError(*problem);
        }
        plan.assignments.push_back(field);
    }
    if (args.now) {
        plan.assignments.emplace_back(lcfd::key::kUtcClock, hostUtcClock());
    }
    if (plan.assignments.empty()) {
        throw UsageError("nothing to assign: give key=value arguments or --now");
    }
    std::string verified;
    for (const auto& [fieldKey, value] : plan.assignments) {
        verified.append(verified.empty() ? "" : " ").append(fieldKey).append("=").append(value);
    }
    ControllerJob job(plan, args.common.timeout(), std::nullopt, newSeqid);
    return runChangeJob(job, args.common, verified);
}

}  // namespace lcf::commands
