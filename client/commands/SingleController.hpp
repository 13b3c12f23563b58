#pragma once

#include <functional>
#include <string>

#include "client/ControllerJob.hpp"
#include "client/commands/Common.hpp"

// What query, assign and clear share: each runs one job against one controller.
namespace lcf::commands {

// Runs the job and, when the controller did not answer, says so the way every single-controller
// command does. False then; true when the job got its answers. `onAnswer`, when given, sees the
// job each time an answer moved it on.
bool runOneJob(ControllerJob& job, const CommonOptions& options,
               const std::function<void(const ControllerJob&)>& onAnswer = nullptr);

// Runs an ASSIGN or CLEAR job and prints its outcome: accept=yes as soon as it arrived, then what
// the verification found (`verifiedText` when every value took). Returns the exit status.
int runChangeJob(ControllerJob& job, const CommonOptions& options, const std::string& verifiedText);

}  // namespace lcf::commands
