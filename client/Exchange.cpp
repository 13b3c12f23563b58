#include "client/Exchange.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "client/Timing.hpp"
#include "wire/MessageFormat.hpp"

namespace lcf {

Exchange::Exchange(RequestKind kind, std::string mac, std::string seqid, std::string text,
                   std::optional<double> userTimeout, std::optional<double> answerTime)
    : kind_(kind),
      mac_(std::move(mac)),
      seqid_(std::move(seqid)),
      text_(std::move(text)),
      userTimeout_(userTimeout),
      answerTime_(answerTime) {}

double Exchange::dueAt(const ArrivalPace& pace) const {
    if (attempts_ == 0) {
        return -std::numeric_limits<double>::infinity();
    }
    const double base = answerTime_ ? std::max(timing::kShortestQuietSeconds, 2.0 * *answerTime_)
                                    : timing::kFirstResendSeconds;
    double backoff = base * std::pow(2.0, attempts_ - 1);
    if (kind_ == RequestKind::Assign) {
        backoff += timing::kSettleSeconds + timing::kApplyingSeconds;
    }
    return std::max(lastSent_ + backoff, pace.quietFrom(lastSent_));
}

double Exchange::giveUpAt(const ArrivalPace& pace) const {
    if (userTimeout_) {
        return firstSent_ + *userTimeout_;
    }
    return std::max(firstSent_ + timing::kRequestTimeoutSeconds, pace.quietFrom(firstSent_));
}

void Exchange::sent(double now) {
    if (attempts_ == 0) {
        firstSent_ = now;
    }
    lastSent_ = now;
    ++attempts_;
}

bool Exchange::answeredBy(const lcfd::Reply& reply) const {
    const char* expected = kind_ == RequestKind::Query ? lcfd::word::kStatus : lcfd::word::kAck;
    if (reply.command != expected) {
        return false;
    }
    const std::string* seqid = reply.find(lcfd::key::kSeqid);
    const std::string* mac = reply.find(lcfd::key::kMac);
    return seqid != nullptr && mac != nullptr && *seqid == seqid_ && *mac == mac_;
}

}  // namespace lcf
