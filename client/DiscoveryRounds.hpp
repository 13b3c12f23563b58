#pragma once

#include <cstddef>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "client/ArrivalPace.hpp"

namespace lcf {

struct DiscoveryLimits {
    // The user's hard upper bound, counted from the first probe.
    double timeoutSeconds = std::numeric_limits<double>::infinity();
    int maxRounds = 10;
    // Stop as soon as this many controllers answered (0: not given).
    std::size_t expected = 0;
};

// Why a discovery ended.
enum class DiscoveryEnd {
    Running,
    Settled,   // the rounds brought nothing new for long enough, and nothing more is on its way
    Expected,  // as many controllers answered as were expected
    Timeout,   // the user's upper bound
    Nothing,   // no controller answered within the longest answer time
};

struct DiscoveryStep {
    enum class Kind { Probe, Wait, Stop };
    Kind kind = Kind::Stop;
    int round = 0;       // Probe: the round the probe belongs to, from 1
    double until = 0.0;  // Wait: listen until then, or until the next answer
};

// When a discovery probes and when it stops: a pure policy, fed with the times of its probes and
// answers, that never reads a clock itself.
//
// - A round is one probe (a QUERY with a seqid of its own) broadcast on every interface. It lasts
//   until its answers have stopped arriving for a quiet period derived from their spacing and
//   growing with the time the round has been answered (a long stream may pause); a later round
//   also at least as long as the one before took, unless every known controller answered it.
//   When none of its answers came, it lasts until the longest answer time (first round) or
//   twice the slowest answer seen (later rounds). While nothing at all has answered, the first
//   probe is sent once more halfway, in case it was lost.
// - Probing goes on until K rounds in a row brought no new controller. K follows from how many
//   of the known controllers answered each round: 1 on a segment that lost nothing, more where
//   answers go missing, so that a controller that was never heard is unlikely to exist.
// - However early the rounds are over, listening goes on for the longest answer time after the
//   first probe: a controller that had just begun its settling pause, or that reads slowly, may
//   answer long after the others. A new controller heard then starts the rounds again.
class DiscoveryRounds {
  public:
    explicit DiscoveryRounds(const DiscoveryLimits& limits) : limits_(limits) {}

    DiscoveryStep next(double now);
    // The probe of `round` went out (again) at `now`.
    void probed(int round, double now);
    // An answer to the probe of `round` from `mac` arrived; returns whether it is new.
    bool answered(int round, const std::string& mac, double now);

    DiscoveryEnd end() const { return end_; }
    // How long after the first probe the discovery ended: the deadline that ended it, or the
    // answer that completed it. What the user is told it waited, whatever the machine's delays.
    double endedAfter() const { return endedAt_; }
    std::size_t found() const { return heard_.size(); }
    int probesSent() const { return probesSent_; }
    int roundsStarted() const { return static_cast<int>(rounds_.size()); }

    // How many rounds in a row must bring nothing new, given the share of answers the known
    // controllers gave so far (1.0: none lost).
    static int quietRoundsNeeded(double answerShare, int maxRounds);

  private:
    struct Round {
        double sentAt = 0.0;
        double lastAnswer = 0.0;  // when its latest answer arrived
        std::set<std::string> answered;
        std::size_t newControllers = 0;
    };

    double roundEnd() const;
    double settledAt() const;
    double quietAfterLatest() const;
    void finishRound();
    double answerShare() const;
    DiscoveryStep stop(DiscoveryEnd why, double at);
    DiscoveryStep wait(double until) const;

    DiscoveryLimits limits_;
    std::vector<Round> rounds_;
    std::set<std::string> heard_;  // every MAC that answered
    ArrivalPace pace_;
    double slowestAnswer_ = 0.0;
    int roundsWithoutNew_ = 0;
    bool probing_ = true;
    bool resent_ = false;
    int probesSent_ = 0;
    DiscoveryEnd end_ = DiscoveryEnd::Running;
    double endedAt_ = 0.0;
};

}  // namespace lcf
