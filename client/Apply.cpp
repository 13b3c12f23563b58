#include "client/Apply.hpp"

#include "client/ControllerJob.hpp"
#include "client/Rendering.hpp"
#include "client/Session.hpp"

namespace lcf {
namespace {

ApplyResult resultOf(JobOutcome outcome) {
    switch (outcome) {
        case JobOutcome::Took:
        case JobOutcome::Accepted:
            return ApplyResult::Changed;
        case JobOutcome::Refused:
            return ApplyResult::Refused;
        case JobOutcome::DidNotTake:
            return ApplyResult::DidNotTake;
        case JobOutcome::Pending:
        case JobOutcome::Read:
        case JobOutcome::NoAnswer:
            break;
    }
    return ApplyResult::NoAnswer;
}

}  // namespace

bool isRight(ApplyResult result) {
    return result == ApplyResult::Changed || result == ApplyResult::AlreadyRight;
}

ApplyReport applyPlan(const Plan& plan, const ApplyOptions& options) {
    ApplyReport report;
    // Every controller's present state first: nothing is sent to any of them before the whole
    // plan is known to fit the segment.
    std::vector<ControllerJob> reads;
    reads.reserve(plan.rows.size());
    for (const PlanRow& row : plan.rows) {
        JobPlan read;
        read.mac = row.mac;
        reads.emplace_back(read, options.timeoutSeconds, std::nullopt, newSeqid);
    }
    runJobs(reads, options.interfaces, reads.size());
    for (std::size_t i = 0; i < reads.size(); ++i) {
        if (reads[i].outcome() != JobOutcome::Read) {
            report.problems.push_back(
                PlanProblem{plan.rows[i].line, plan.rows[i].mac + " did not answer within " +
                                                   formatSeconds(reads[i].waitedSeconds()) +
                                                   " s: it is not on the segment"});
        }
    }
    if (!report.problems.empty()) {
        return report;
    }

    std::vector<ControllerJob> changes;
    std::vector<std::size_t> changedRows;  // the row of each change job
    for (std::size_t i = 0; i < plan.rows.size(); ++i) {
        ApplyRow row;
        row.line = plan.rows[i].line;
        row.mac = plan.rows[i].mac;
        row.changes = planChanges(plan.rows[i], reads[i].controller()->status);
        if (row.changes.empty()) {
            row.result = ApplyResult::AlreadyRight;
        } else if (options.dryRun) {
            row.result = ApplyResult::WouldChange;
        } else {
            JobPlan assign;
            assign.mac = row.mac;
            assign.start = JobPlan::Start::Assign;
            assign.verify = true;
            for (const Change& change : row.changes) {
                assign.assignments.emplace_back(change.key, change.to);
            }
            changes.emplace_back(assign, options.timeoutSeconds, reads[i].answerTime(), newSeqid);
            changedRows.push_back(report.rows.size());
        }
        report.rows.push_back(std::move(row));
    }
    if (!changes.empty()) {
        runJobs(changes, options.interfaces, options.parallel);
    }
    for (std::size_t j = 0; j < changes.size(); ++j) {
        ApplyRow& row = report.rows[changedRows[j]];
        row.result = resultOf(changes[j].outcome());
        row.mismatches = changes[j].mismatches();
        row.waitedSeconds = changes[j].waitedSeconds();
    }
    return report;
}

}  // namespace lcf
