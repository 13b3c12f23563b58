#include "client/commands/Clear.hpp"

#include <CLI/CLI.hpp>
#include <optional>

#include "client/ControllerJob.hpp"
#include "client/Session.hpp"
#include "client/Validation.hpp"
#include "client/commands/SingleController.hpp"

namespace lcf::commands {

CLI::App* addClearCommand(CLI::App& app, ClearArgs& args) {
    CLI::App* command = app.add_subcommand("clear", "Make a controller forget one server");
    addCommonOptions(*command, args.common, kRequestTimeoutHelp);
    addMacArgument(*command, args.mac);
    command->add_option("SERVER", args.serverKey, "ntpip, syslogip or nameserver")->required();
    command->add_flag("--unchecked", args.unchecked,
                      "Send SERVER as given and let the controller judge (it answers accept=no to "
                      "anything but ntpip, syslogip or nameserver)");
    command->add_flag("--verify", args.verify,
                      "After accept=yes, read the controller again and check that the server is "
                      "gone");
    return command;
}

int runClear(const ClearArgs& args) {
    JobPlan plan;
    plan.mac = checkedMac(args.mac);
    if (const auto problem = args.unchecked ? checkUncheckedServerKey(args.serverKey)
                                            : checkServerKey(args.serverKey)) {
        throw UsageError(*problem);
    }
    plan.start = JobPlan::Start::Clear;
    plan.serverKey = args.serverKey;
    plan.verify = args.verify;
    ControllerJob job(plan, args.common.timeout(), std::nullopt, newSeqid);
    return runChangeJob(job, args.common, args.serverKey + " cleared");
}

}  // namespace lcf::commands
