#include "client/commands/Query.hpp"

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>

#include "client/ControllerJob.hpp"
#include "client/Rendering.hpp"
#include "client/Session.hpp"
#include "client/commands/SingleController.hpp"

namespace lcf::commands {

CLI::App* addQueryCommand(CLI::App& app, QueryArgs& args) {
    CLI::App* command = app.add_subcommand("query", "Show every setting of one controller");
    addCommonOptions(*command, args.common, kRequestTimeoutHelp);
    addMacArgument(*command, args.mac);
    addJsonFlag(*command, args.json);
    return command;
}

int runQuery(const QueryArgs& args) {
    JobPlan plan;
    plan.mac = checkedMac(args.mac);
    ControllerJob job(plan, args.common.timeout(), std::nullopt, newSeqid);
    if (!runOneJob(job, args.common)) {
        return kExitNoAnswerOrRefused;
    }
    const Controller& controller = *job.controller();
    std::cout << (args.json ? renderJson({controller}) : renderDetails(controller));
    return kExitSuccess;
}

}  // namespace lcf::commands
