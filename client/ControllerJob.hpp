#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/ArrivalPace.hpp"
#include "client/Controllers.hpp"
#include "client/Exchange.hpp"
#include "client/Verification.hpp"

namespace lcf {

// What is to be done with one controller.
struct JobPlan {
    enum class Start { Read, Assign, Clear };
    std::string mac;  // upper-case, as controllers write it
    Start start = Start::Read;
    std::vector<std::pair<std::string, std::string>> assignments;  // Start::Assign
    std::string serverKey;                                         // Start::Clear
    // After an accepted ASSIGN or CLEAR: read the controller again and compare.
    bool verify = false;
};

enum class JobOutcome {
    Pending,
    Read,        // a read-only job has the controller's STATUS
    Accepted,    // accept=yes, not verified
    Took,        // accept=yes, and the controller reports every value asked
    DidNotTake,  // accept=yes, but it reports otherwise
    Refused,     // accept=no
    NoAnswer,    // no answer within the timeout, to the request or to the verifying QUERY
};

// One controller's way through a command: read its status; or send an ASSIGN or CLEAR, wait for
// the acknowledgement and, to verify, wait out the settling pause an ASSIGN starts, read the
// controller again and compare. A pure state machine: the caller sends the texts it hands out,
// offers it the replies that arrive and tells it the time.
class ControllerJob {
  public:
    using SeqidSource = std::function<std::string()>;

    ControllerJob(JobPlan plan, std::optional<double> userTimeout, std::optional<double> answerTime,
                  SeqidSource seqids);

    // The request text to send now, if one is due; the job counts it as sent.
    std::optional<std::string> due(double now, const ArrivalPace& pace);
    // When the job next needs the caller: a copy due, the end of the pause, giving up.
    double wakeAt(const ArrivalPace& pace) const;
    // Moves on when `reply` is this job's; returns whether it was.
    bool offer(const lcfd::Reply& reply, const NetworkInterface& arrivedOn, double now);

    bool done() const { return outcome_ != JobOutcome::Pending; }
    // Whether the ASSIGN or CLEAR was acknowledged with accept=yes (verification may follow).
    bool accepted() const { return accepted_; }
    // How long the tool waited for the request that went unanswered (NoAnswer).
    double waitedSeconds() const { return waitedSeconds_; }
    JobOutcome outcome() const { return outcome_; }
    const JobPlan& plan() const { return plan_; }
    // The latest STATUS reply, with the interface it came in on.
    const std::optional<Controller>& controller() const { return controller_; }
    const std::vector<Mismatch>& mismatches() const { return mismatches_; }
    // How long the controller took to answer its latest request (from the last copy sent).
    std::optional<double> answerTime() const { return answerTime_; }
    // The request that went unanswered, for a NoAnswer outcome.
    RequestKind unansweredKind() const { return exchange_.kind(); }

  private:
    enum class Step { Requesting, Settling, Verifying };

    Exchange makeExchange(RequestKind kind) const;
    void startVerifying();
    void finishVerifying(const lcfd::Reply& status, double now);

    JobPlan plan_;
    std::optional<double> userTimeout_;
    std::optional<double> answerTime_;
    SeqidSource seqids_;
    Step step_ = Step::Requesting;
    Exchange exchange_;
    double changeSent_ = 0.0;  // when the ASSIGN or CLEAR first went out
    double settledAt_ = 0.0;   // when the controller's settling pause is over
    JobOutcome outcome_ = JobOutcome::Pending;
    bool accepted_ = false;
    double waitedSeconds_ = 0.0;
    std::optional<Controller> controller_;
    std::vector<Mismatch> mismatches_;
};

}  // namespace lcf
