// The pacing of a discovery, against simulated segments whose controllers answer after their
// reading time (one probe after the other), may be in their settling pause, or may lose probes.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "client/DiscoveryRounds.hpp"

namespace {

using lcf::DiscoveryEnd;
using lcf::DiscoveryLimits;
using lcf::DiscoveryRounds;
using lcf::DiscoveryStep;

struct SimulatedController {
    double readingSeconds = 0.2;
    double pausedUntil = 0.0;  // in its settling pause until then
    std::set<int> lostProbes =
        {};  // the sends (from 1) that never reach it or whose answer is lost
};

struct Timeline {
    std::vector<double> probes;  // when each probe went out
    std::vector<int> probeRounds;
    double stoppedAt = 0.0;
    DiscoveryEnd end = DiscoveryEnd::Running;
    std::size_t found = 0;
};

// Runs the policy against the segment: each controller handles the probes one after the other,
// each costing it a whole reading, as a daemon does.
Timeline discoverOn(std::vector<SimulatedController> segment, DiscoveryLimits limits = {}) {
    DiscoveryRounds rounds(limits);
    std::multimap<double, std::pair<int, std::string>> answers;  // time -> round, MAC
    std::vector<double> busyUntil;
    for (const SimulatedController& controller : segment) {
        busyUntil.push_back(controller.pausedUntil);
    }
    Timeline timeline;
    double now = 0.0;
    for (int steps = 0; steps < 100000; ++steps) {
        const DiscoveryStep step = rounds.next(now);
        if (step.kind == DiscoveryStep::Kind::Stop) {
            timeline.stoppedAt = now;
            break;
        }
        if (step.kind == DiscoveryStep::Kind::Probe) {
            const int send = static_cast<int>(timeline.probes.size()) + 1;
            timeline.probes.push_back(now);
            timeline.probeRounds.push_back(step.round);
            for (std::size_t k = 0; k < segment.size(); ++k) {
                if (segment[k].lostProbes.count(send) != 0) {
                    continue;
                }
                busyUntil[k] = std::max(now, busyUntil[k]) + segment[k].readingSeconds;
                answers.emplace(busyUntil[k], std::make_pair(step.round, "C" + std::to_string(k)));
            }
            rounds.probed(step.round, now);
            continue;
        }
        if (!answers.empty() && answers.begin()->first <= step.until) {
            now = std::max(now, answers.begin()->first);
            rounds.answered(answers.begin()->second.first, answers.begin()->second.second, now);
            answers.erase(answers.begin());
        } else {
            now = std::max(now, step.until);
        }
    }
    timeline.end = rounds.end();
    timeline.found = rounds.found();
    EXPECT_DOUBLE_EQ(rounds.endedAfter(), timeline.stoppedAt);
    return timeline;
}

std::vector<SimulatedController> fast(int count, double first = 0.2, double spacing = 0.05) {
    std::vector<SimulatedController> segment;
    for (int k = 0; k < count; ++k) {
        segment.push_back(SimulatedController{first + spacing * k});
    }
    return segment;
}

TEST(DiscoveryRounds, NothingAnsweringProbesTwiceAndGivesUpAfterTheLongestAnswerTime) {
    const Timeline timeline = discoverOn({});
    EXPECT_EQ(timeline.probes, (std::vector<double>{0.0, 5.5}));
    EXPECT_EQ(timeline.probeRounds, (std::vector<int>{1, 1}));  // the same probe once more
    EXPECT_DOUBLE_EQ(timeline.stoppedAt, 11.0);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Nothing);
    EXPECT_EQ(timeline.found, 0u);
}

TEST(DiscoveryRounds, AFastSegmentIsProbedTwiceAndHeardUntilAPausedControllerCouldAnswer) {
    const Timeline timeline = discoverOn(fast(3));
    // Round one is over 1.5 s after its last answer (0.3 s); round two is answered by all
    // three, so nothing is missing. Listening goes on for the longest answer time.
    ASSERT_EQ(timeline.probes.size(), 2u);
    EXPECT_DOUBLE_EQ(timeline.probes[1], 1.8);
    EXPECT_EQ(timeline.probeRounds, (std::vector<int>{1, 2}));
    EXPECT_DOUBLE_EQ(timeline.stoppedAt, 11.0);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Settled);
    EXPECT_EQ(timeline.found, 3u);
}

TEST(DiscoveryRounds, AControllerInItsSettlingPauseAmongFastOnesIsFound) {
    std::vector<SimulatedController> segment = fast(3);
    segment.push_back(SimulatedController{0.3, 5.0});  // paused until 5 s
    const Timeline timeline = discoverOn(segment);
    EXPECT_EQ(timeline.found, 4u);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Settled);
    // Heard at 5.3 s, after the rounds had stopped: they start again, once.
    EXPECT_EQ(timeline.probes.size(), 3u);
    EXPECT_GT(timeline.stoppedAt, 5.3);
    EXPECT_LT(timeline.stoppedAt, 15.0);
}

TEST(DiscoveryRounds, AControllerStillApplyingAChangeWhenProbedIsFound) {
    // It applies a change for a second, then pauses for five and reads slowly.
    std::vector<SimulatedController> segment = fast(3);
    segment.push_back(SimulatedController{2.0, 6.0});
    const Timeline timeline = discoverOn(segment);
    EXPECT_EQ(timeline.found, 4u);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Settled);
}

TEST(DiscoveryRounds, ASlowReaderAmongFastOnesIsFound) {
    std::vector<SimulatedController> segment = fast(3);
    segment.push_back(SimulatedController{6.0});
    const Timeline timeline = discoverOn(segment);
    EXPECT_EQ(timeline.found, 4u);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Settled);
}

TEST(DiscoveryRounds, OnlyPausedControllersAreWaitedForUpToTheLongestAnswerTime) {
    const Timeline timeline = discoverOn({SimulatedController{6.0, 5.0}});  // pause, slow read
    EXPECT_EQ(timeline.found, 1u);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Settled);
    EXPECT_DOUBLE_EQ(timeline.probes[1], 5.5);  // nothing had answered halfway: probed again
}

TEST(DiscoveryRounds, SlowReadersOfThreeAndSixSecondsAreBothFound) {
    const Timeline timeline = discoverOn({SimulatedController{3.0}, SimulatedController{6.0}});
    EXPECT_EQ(timeline.found, 2u);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Settled);
    // Round one is quiet 1.5 s after the first answer; the six-second reader, heard during
    // round two, makes a third round, answered by both at 16.5 and 19.5 s.
    EXPECT_EQ(timeline.probes, (std::vector<double>{0.0, 4.5, 13.5}));
    EXPECT_DOUBLE_EQ(timeline.stoppedAt, 21.0);
}

TEST(DiscoveryRounds, ALongStreamOfAnswersIsFollowedToItsEndBeforeTheNextRound) {
    // A crowded simulated segment on two cores: 200 answers, one every 50 ms from 4 s on.
    const Timeline timeline = discoverOn(fast(200, 4.0, 0.05));
    EXPECT_EQ(timeline.found, 200u);
    ASSERT_GE(timeline.probes.size(), 2u);
    const double lastAnswerOfRoundOne = 4.0 + 0.05 * 199;
    EXPECT_GT(timeline.probes[1], lastAnswerOfRoundOne);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Settled);
}

TEST(DiscoveryRounds, APauseOfSecondsInALongStreamDoesNotEndTheRound) {
    // 300 answers 0.2 s apart; after the 240th (50 s into the round) the stream stalls for
    // 4 s, as a busy machine does now and then. Each answer costs a whole reading: a round
    // ended by the stall would make the 60 controllers still to answer read twice.
    std::vector<SimulatedController> segment = fast(300, 2.0, 0.2);
    for (std::size_t k = 240; k < segment.size(); ++k) {
        segment[k].readingSeconds += 4.0;
    }
    const Timeline timeline = discoverOn(segment);
    EXPECT_EQ(timeline.found, 300u);
    ASSERT_EQ(timeline.probes.size(), 2u);
    EXPECT_GT(timeline.probes[1], 2.0 + 0.2 * 299 + 4.0);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Settled);
}

TEST(DiscoveryRounds, RoundsGoOnWhileAnswersAreLostUntilNoControllerIsLikelyToBeMissing) {
    // Twenty controllers; every fifth send misses each of them, a different one each time.
    std::vector<SimulatedController> segment = fast(20);
    for (std::size_t k = 0; k < segment.size(); ++k) {
        for (int send = 1; send <= 40; ++send) {
            if ((send + static_cast<int>(k)) % 5 == 0) {
                segment[k].lostProbes.insert(send);
            }
        }
    }
    const Timeline timeline = discoverOn(segment);
    EXPECT_EQ(timeline.found, 20u);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Settled);
    // A fifth of the answers lost: four rounds in a row without a new controller are needed.
    EXPECT_GE(timeline.probes.size(), 5u);
}

TEST(DiscoveryRounds, QuietRoundsNeededFollowTheShareOfAnswers) {
    EXPECT_EQ(DiscoveryRounds::quietRoundsNeeded(1.0, 10), 1);
    EXPECT_EQ(DiscoveryRounds::quietRoundsNeeded(0.99, 10), 2);  // 0.01^2 = 0.0001
    EXPECT_EQ(DiscoveryRounds::quietRoundsNeeded(0.81, 10), 4);  // 0.19^4 = 0.0013
    EXPECT_EQ(DiscoveryRounds::quietRoundsNeeded(0.5, 10), 9);   // 0.5^9 = 0.0020
    EXPECT_EQ(DiscoveryRounds::quietRoundsNeeded(0.1, 10), 10);  // never more than allowed
    EXPECT_EQ(DiscoveryRounds::quietRoundsNeeded(0.0, 7), 7);
}

TEST(DiscoveryRounds, TheUsersTimeoutEndsItWhateverIsStillExpected) {
    DiscoveryLimits limits;
    limits.timeoutSeconds = 3.0;
    const Timeline timeline =
        discoverOn({SimulatedController{1.0}, SimulatedController{6.0}}, limits);
    EXPECT_DOUBLE_EQ(timeline.stoppedAt, 3.0);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Timeout);
    EXPECT_EQ(timeline.found, 1u);
}

TEST(DiscoveryRounds, ExpectingAsManyAsAnsweredEndsAtOnce) {
    DiscoveryLimits limits;
    limits.expected = 3;
    const Timeline timeline = discoverOn(fast(3), limits);
    EXPECT_DOUBLE_EQ(timeline.stoppedAt, 0.3);
    EXPECT_EQ(timeline.end, DiscoveryEnd::Expected);
    EXPECT_EQ(timeline.probes.size(), 1u);
}

TEST(DiscoveryRounds, OneRoundAtMostIsOneProbe) {
    DiscoveryLimits limits;
    limits.maxRounds = 1;
    const Timeline timeline = discoverOn(fast(3), limits);
    EXPECT_EQ(timeline.probes.size(), 1u);
    EXPECT_EQ(timeline.found, 3u);
    EXPECT_DOUBLE_EQ(timeline.stoppedAt, 11.0);
}

TEST(DiscoveryRounds, AnswersToAnotherRoundOrOfUnknownRoundsAreNotCountedTwice) {
    DiscoveryRounds rounds{DiscoveryLimits{}};
    EXPECT_EQ(rounds.next(0.0).kind, DiscoveryStep::Kind::Probe);
    rounds.probed(1, 0.0);
    EXPECT_FALSE(rounds.answered(2, "A", 0.1));  // no round two yet
    EXPECT_TRUE(rounds.answered(1, "A", 0.2));
    EXPECT_FALSE(rounds.answered(1, "A", 0.3));
    EXPECT_EQ(rounds.found(), 1u);
    EXPECT_EQ(rounds.probesSent(), 1);
}

}  // namespace
