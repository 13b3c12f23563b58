#include "client/DiscoveryRounds.hpp"

#include <algorithm>
#include <cmath>

#include "client/Timing.hpp"

namespace lcf {
namespace {

// A controller that was on the segment through all the rounds went unheard in every one of them
// with at most this chance.
constexpr double kUnheardChance = 0.002;

// A pause in the answers of a round is waited out for this share of the time the round has
// been answered so far, up to the longest answer time: a controller that is still reading
// answers within that.
constexpr double kPatience = 0.1;

}  // namespace

int DiscoveryRounds::quietRoundsNeeded(double answerShare, int maxRounds) {
    if (answerShare >= 1.0) {
        return 1;
    }
    if (answerShare <= 0.0) {
        return maxRounds;
    }
    const double rounds = std::ceil(std::log(kUnheardChance) / std::log(1.0 - answerShare));
    return static_cast<int>(std::clamp(rounds, 1.0, static_cast<double>(std::max(1, maxRounds))));
}

void DiscoveryRounds::probed(int round, double now) {
    if (round > roundsStarted()) {
        Round started;
        started.sentAt = now;
        rounds_.push_back(started);
    }
    ++probesSent_;
}

bool DiscoveryRounds::answered(int round, const std::string& mac, double now) {
    if (round < 1 || round > roundsStarted()) {
        return false;
    }
    pace_.arrived(now);
    Round& answeredRound = rounds_[static_cast<std::size_t>(round - 1)];
    slowestAnswer_ = std::max(slowestAnswer_, now - answeredRound.sentAt);
    answeredRound.answered.insert(mac);
    answeredRound.lastAnswer = std::max(answeredRound.lastAnswer, now);
    const bool isNew = heard_.insert(mac).second;
    if (isNew) {
        // Counted for the round in progress: the segment is still revealing controllers.
        ++rounds_.back().newControllers;
        if (!probing_ && roundsStarted() < limits_.maxRounds) {
            probing_ = true;
            roundsWithoutNew_ = 0;
        }
    }
    return isNew;
}

double DiscoveryRounds::answerShare() const {
    // Every probe is a broadcast: every known controller was asked in every round.
    std::size_t answers = 0;
    for (const Round& round : rounds_) {
        answers += round.answered.size();
    }
    const double asked = static_cast<double>(heard_.size()) * static_cast<double>(rounds_.size());
    return asked > 0.0 ? static_cast<double>(answers) / asked : 1.0;
}

double DiscoveryRounds::roundEnd() const {
    const Round& round = rounds_.back();
    if (round.answered.empty()) {
        const double deadline =
            rounds_.size() == 1
                ? timing::kLongestAnswerSeconds
                : std::min(timing::kLongestAnswerSeconds,
                           std::max(timing::kShortestQuietSeconds, 2.0 * slowestAnswer_));
        // Answers to earlier probes that are still arriving keep the round open as well.
        return std::max(round.sentAt + deadline, pace_.quietFrom(round.sentAt));
    }
    // An answer of this round has arrived. Unless every known controller has answered it, the
    // round lasts at least as long as the one before took to be answered: that is how long
    // this segment needs, and answers still missing before then are late, not lost.
    const double quietAt = *pace_.last() + quietAfterLatest();
    const bool everyoneAnswered = rounds_.size() > 1 && round.answered.size() >= heard_.size();
    if (rounds_.size() == 1 || everyoneAnswered) {
        return quietAt;
    }
    const Round& before = rounds_[rounds_.size() - 2];
    return std::max(quietAt, round.sentAt + (before.lastAnswer - before.sentAt));
}

double DiscoveryRounds::quietAfterLatest() const {
    // Once every known controller has answered the latest round again, no stream is left to
    // follow: the gaps of the past came from their different reading times.
    const bool everyoneAnswered =
        rounds_.size() > 1 && rounds_.back().answered.size() >= heard_.size();
    if (everyoneAnswered) {
        return timing::kShortestQuietSeconds;
    }
    // The longer a round has been answered, the longer a pause in its stream is waited out:
    // ending it early costs every controller still to answer one more reading.
    const double answeredFor = *pace_.last() - rounds_.back().sentAt;
    return std::max(pace_.quietSeconds(),
                    std::min(timing::kLongestAnswerSeconds, kPatience * answeredFor));
}

double DiscoveryRounds::settledAt() const {
    // However fast the others were, a controller that had just begun its settling pause, or
    // that reads slowly, answers within the longest answer time of the first probe.
    return std::max(rounds_.front().sentAt + timing::kLongestAnswerSeconds,
                    *pace_.last() + quietAfterLatest());
}

void DiscoveryRounds::finishRound() {
    roundsWithoutNew_ = rounds_.back().newControllers > 0 ? 0 : roundsWithoutNew_ + 1;
    const int needed = quietRoundsNeeded(answerShare(), limits_.maxRounds);
    if ((roundsStarted() > 1 && roundsWithoutNew_ >= needed) ||
        roundsStarted() >= limits_.maxRounds) {
        probing_ = false;
    }
}

DiscoveryStep DiscoveryRounds::stop(DiscoveryEnd why, double at) {
    end_ = why;
    endedAt_ = at - rounds_.front().sentAt;
    return DiscoveryStep{DiscoveryStep::Kind::Stop, 0, 0.0};
}

DiscoveryStep DiscoveryRounds::wait(double until) const {
    return DiscoveryStep{DiscoveryStep::Kind::Wait, 0, until};
}

DiscoveryStep DiscoveryRounds::next(double now) {
    if (end_ != DiscoveryEnd::Running) {
        return DiscoveryStep{};
    }
    if (rounds_.empty()) {
        return DiscoveryStep{DiscoveryStep::Kind::Probe, 1, 0.0};
    }
    if (limits_.expected > 0 && found() >= limits_.expected) {
        return stop(DiscoveryEnd::Expected, std::min(now, *pace_.last()));
    }
    const double start = rounds_.front().sentAt;
    const double timeoutAt = start + limits_.timeoutSeconds;
    if (now >= timeoutAt) {
        return stop(DiscoveryEnd::Timeout, timeoutAt);
    }
    if (probing_) {
        double until = timeoutAt;
        if (heard_.empty() && !resent_) {
            // Nothing answered yet: the probe may have been lost. Once more, halfway through.
            const double resendAt = start + timing::kLongestAnswerSeconds / 2.0;
            if (now >= resendAt) {
                resent_ = true;
                return DiscoveryStep{DiscoveryStep::Kind::Probe, 1, 0.0};
            }
            until = std::min(until, resendAt);
        }
        const double roundOver = roundEnd();
        if (now < roundOver) {
            return wait(std::min(until, roundOver));
        }
        if (heard_.empty()) {
            return stop(DiscoveryEnd::Nothing, roundOver);
        }
        finishRound();
        if (probing_) {
            return DiscoveryStep{DiscoveryStep::Kind::Probe, roundsStarted() + 1, 0.0};
        }
    }
    const double settled = settledAt();
    if (now >= settled) {
        return stop(DiscoveryEnd::Settled, settled);
    }
    return wait(std::min(settled, timeoutAt));
}

}  // namespace lcf
