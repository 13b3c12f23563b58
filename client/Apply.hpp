#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "client/Plan.hpp"
#include "client/Verification.hpp"

namespace lcf {

struct ApplyOptions {
    std::vector<std::string> interfaces;   // empty: every up IPv4 broadcast interface
    std::optional<double> timeoutSeconds;  // per request; the tool's own timing when not given
    std::size_t parallel = 32;
    bool dryRun = false;
};

enum class ApplyResult { WouldChange, Changed, AlreadyRight, Refused, NoAnswer, DidNotTake };

// What became of one controller of the plan.
struct ApplyRow {
    std::size_t line = 0;
    std::string mac;
    std::vector<Change> changes;
    ApplyResult result = ApplyResult::AlreadyRight;
    std::vector<Mismatch> mismatches;  // DidNotTake
    double waitedSeconds = 0.0;        // NoAnswer
};

struct ApplyReport {
    // Controllers of the plan that did not answer when their state was read: the plan is refused
    // and nothing was changed.
    std::vector<PlanProblem> problems;
    std::vector<ApplyRow> rows;  // in the plan's order
};

// Reads every controller of the plan, all at once; refuses the plan when one does not answer;
// otherwise sends each controller that differs from the plan what differs (`parallel` of them
// under way at a time, each verified after its settling pause) and skips those that match.
// A dry run reads and compares only.
ApplyReport applyPlan(const Plan& plan, const ApplyOptions& options);

// Whether a row ended as the plan wants it.
bool isRight(ApplyResult result);

}  // namespace lcf
