#include "client/ControllerJob.hpp"

#include <limits>

#include "client/Timing.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Request.hpp"

namespace lcf {
namespace {

RequestKind firstKind(JobPlan::Start start) {
    switch (start) {
        case JobPlan::Start::Assign:
            return RequestKind::Assign;
        case JobPlan::Start::Clear:
            return RequestKind::Clear;
        case JobPlan::Start::Read:
            break;
    }
    return RequestKind::Query;
}

}  // namespace

ControllerJob::ControllerJob(JobPlan plan, std::optional<double> userTimeout,
                             std::optional<double> answerTime, SeqidSource seqids)
    : plan_(std::move(plan)),
      userTimeout_(userTimeout),
      answerTime_(answerTime),
      seqids_(std::move(seqids)),
      exchange_(makeExchange(firstKind(plan_.start))) {}

Exchange ControllerJob::makeExchange(RequestKind kind) const {
    const std::string seqid = seqids_();
    std::string text;
    switch (kind) {
        case RequestKind::Query:
            text = lcfd::composeQuery(seqid, plan_.mac);
            break;
        case RequestKind::Assign:
            text = lcfd::composeAssign(seqid, plan_.mac, plan_.assignments);
            break;
        case RequestKind::Clear:
            text = lcfd::composeClear(seqid, plan_.mac, plan_.serverKey);
            break;
    }
    return Exchange(kind, plan_.mac, seqid, std::move(text), userTimeout_, answerTime_);
}

std::optional<std::string> ControllerJob::due(double now, const ArrivalPace& pace) {
    if (done()) {
        return std::nullopt;
    }
    if (step_ == Step::Settling) {
        if (now < settledAt_) {
            return std::nullopt;
        }
        startVerifying();
    }
    if (now >= exchange_.giveUpAt(pace) && exchange_.attempts() > 0) {
        outcome_ = JobOutcome::NoAnswer;
        // The bound that was kept, not how late this wake-up came on a busy machine.
        waitedSeconds_ = exchange_.giveUpAt(pace) - exchange_.firstSent();
        return std::nullopt;
    }
    if (now < exchange_.dueAt(pace)) {
        return std::nullopt;
    }
    exchange_.sent(now);
    if (exchange_.attempts() == 1 && exchange_.kind() != RequestKind::Query) {
        changeSent_ = now;
    }
    return exchange_.text();
}

double ControllerJob::wakeAt(const ArrivalPace& pace) const {
    if (done()) {
        return std::numeric_limits<double>::infinity();
    }
    if (step_ == Step::Settling) {
        return settledAt_;
    }
    return std::min(exchange_.dueAt(pace), exchange_.giveUpAt(pace));
}

void ControllerJob::startVerifying() {
    step_ = Step::Verifying;
    exchange_ = makeExchange(RequestKind::Query);
}

bool ControllerJob::offer(const lcfd::Reply& reply, const NetworkInterface& arrivedOn, double now) {
    if (done() || step_ == Step::Settling || exchange_.attempts() == 0 ||
        !exchange_.answeredBy(reply)) {
        return false;
    }
    answerTime_ = now - exchange_.lastSent();
    if (exchange_.kind() == RequestKind::Query) {
        Controller read;
        read.status = reply;
        read.interfaceName = arrivedOn.name;
        read.outsideSubnet = isOutsideSubnet(read.field(lcfd::key::kIp), arrivedOn);
        controller_ = std::move(read);
        if (step_ == Step::Verifying) {
            finishVerifying(reply, now);
        } else {
            outcome_ = JobOutcome::Read;
        }
        return true;
    }
    const std::string* accept = reply.find(lcfd::key::kAccept);
    if (accept == nullptr || *accept != "yes") {
        outcome_ = JobOutcome::Refused;
        return true;
    }
    accepted_ = true;
    if (!plan_.verify) {
        outcome_ = JobOutcome::Accepted;
        return true;
    }
    if (exchange_.kind() == RequestKind::Assign) {
        // The controller applies the change after acknowledging it and then settles: a request
        // sent before that is over would only wait in its queue.
        step_ = Step::Settling;
        settledAt_ = now + timing::kApplyingSeconds + timing::kSettleSeconds;
    } else {
        startVerifying();  // a CLEAR is applied before its acknowledgement, with no pause
    }
    return true;
}

void ControllerJob::finishVerifying(const lcfd::Reply& status, double now) {
    if (plan_.start == JobPlan::Start::Clear) {
        if (auto mismatch = checkCleared(plan_.serverKey, status)) {
            mismatches_.push_back(*mismatch);
        }
    } else {
        mismatches_ = checkAssigned(plan_.assignments, status, now - changeSent_);
    }
    outcome_ = mismatches_.empty() ? JobOutcome::Took : JobOutcome::DidNotTake;
}

}  // namespace lcf
