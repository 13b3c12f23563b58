#pragma once

#include <optional>
#include <string>

#include "client/ArrivalPace.hpp"
#include "wire/Replies.hpp"

namespace lcf {

enum class RequestKind { Query, Assign, Clear };

// One request to one controller and its answer: a QUERY answered by a STATUS, an ASSIGN or CLEAR
// answered by an ACK, each carrying the request's seqid and the controller's MAC address. While
// the answer is missing the same text (same seqid, so that a late answer to an earlier copy
// counts) goes out again:
// - after a backoff that doubles with each attempt, starting from twice the controller's own
//   answer time when it is known;
// - never while answers are still arriving on the segment: a crowded segment is slow, not
//   lossy, and every copy costs each controller a whole reading;
// - for an ASSIGN, only once a settling pause that a lost acknowledgement would hide is over, so
//   that no request lands in a controller's pause.
// It gives up once its timeout has passed since the first attempt, or, without a timeout of the
// user's, not before the segment has gone quiet.
class Exchange {
  public:
    Exchange(RequestKind kind, std::string mac, std::string seqid, std::string text,
             std::optional<double> userTimeout, std::optional<double> answerTime);

    RequestKind kind() const { return kind_; }
    const std::string& text() const { return text_; }
    int attempts() const { return attempts_; }
    double firstSent() const { return firstSent_; }
    double lastSent() const { return lastSent_; }

    // When the next copy is due (at once before the first).
    double dueAt(const ArrivalPace& pace) const;
    // When the exchange has failed, unless answered by then.
    double giveUpAt(const ArrivalPace& pace) const;
    void sent(double now);

    // Whether `reply` is the answer: an ACK or STATUS, as the kind wants, with the seqid and MAC.
    bool answeredBy(const lcfd::Reply& reply) const;

  private:
    RequestKind kind_;
    std::string mac_;
    std::string seqid_;
    std::string text_;
    std::optional<double> userTimeout_;
    std::optional<double> answerTime_;
    int attempts_ = 0;
    double firstSent_ = 0.0;
    double lastSent_ = 0.0;
};

}  // namespace lcf
