#include "client/commands/SingleController.hpp"

#include <cstdio>
#include <vector>

#include "client/Rendering.hpp"
#include "client/Session.hpp"
#include "client/Verification.hpp"

namespace lcf::commands {

bool runOneJob(ControllerJob& job, const CommonOptions& options,
               const std::function<void(const ControllerJob&)>& onAnswer) {
    std::vector<ControllerJob> jobs = {job};
    runJobs(jobs, options.interfaces, 1, onAnswer);
    job = jobs.front();
    if (job.outcome() != JobOutcome::NoAnswer) {
        return true;
    }
    const std::string waited = formatSeconds(job.waitedSeconds());
    if (job.accepted()) {
        printComplaint(job.plan().mac +
                       " accepted, but did not answer the verifying query within " + waited + " s");
    } else {
        printComplaint("no answer from " + job.plan().mac + " within " + waited + " s");
    }
    return false;
}

int runChangeJob(ControllerJob& job, const CommonOptions& options,
                 const std::string& verifiedText) {
    const std::string& mac = job.plan().mac;
    bool announced = false;
    const auto announce = [&](const ControllerJob& answered) {
        if (answered.accepted() && !announced) {
            std::printf("%s accept=yes\n", mac.c_str());
            // Seen at once, while the verification still waits out the settling pause.
            std::fflush(stdout);
            announced = true;
        }
    };
    if (!runOneJob(job, options, announce)) {
        return kExitNoAnswerOrRefused;
    }
    switch (job.outcome()) {
        case JobOutcome::Refused:
            std::printf("%s accept=no\n", mac.c_str());
            return kExitNoAnswerOrRefused;
        case JobOutcome::Took:
            std::printf("%s verified: %s\n", mac.c_str(), verifiedText.c_str());
            return kExitSuccess;
        case JobOutcome::DidNotTake: {
            for (const Mismatch& mismatch : job.mismatches()) {
                std::printf("%s\n", describe(mismatch).c_str());
            }
            const std::size_t asked =
                job.plan().start == JobPlan::Start::Clear ? 1 : job.plan().assignments.size();
            // The mismatches above come before the complaint, whatever the streams' buffering.
            std::fflush(stdout);
            printComplaint(mac + " did not take " + std::to_string(job.mismatches().size()) +
                           " of " + std::to_string(asked) + (asked == 1 ? " value" : " values"));
            return kExitNoAnswerOrRefused;
        }
        default:
            return kExitSuccess;
    }
}

}  // namespace lcf::commands
