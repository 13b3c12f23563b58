// One controller's requests, resent while their answers are missing, and the way through an
// ASSIGN or CLEAR with its verification: driven by hand with made-up times and replies.
#include <gtest/gtest.h>

#include <cmath>

#include "client/ControllerJob.hpp"
#include "client/Exchange.hpp"

namespace {

using lcf::ArrivalPace;
using lcf::ControllerJob;
using lcf::Exchange;
using lcf::JobOutcome;
using lcf::JobPlan;
using lcf::RequestKind;

const std::string kMac = "02:4C:43:00:00:07";

lcfd::Reply reply(const std::string& text) {
    return lcfd::parseReply(text).value();
}

lcf::NetworkInterface lan0() {
    lcf::NetworkInterface networkInterface;
    networkInterface.name = "lan0";
    networkInterface.address = 0xFEFF12C6;  // 198.18.255.254
    networkInterface.netmask = 0x0000FFFF;  // 255.255.0.0
    return networkInterface;
}

// Seqids 1, 2, 3, ... in the order the job asks for them.
ControllerJob::SeqidSource counting() {
    auto next = std::make_shared<int>(0);
    return [next] { return std::to_string(++*next); };
}

TEST(Exchange, IsSentAtOnceThenAgainAfterADoublingBackoff) {
    const ArrivalPace quiet;
    Exchange query(RequestKind::Query, kMac, "5", "LCF2#QUERY#seqid=5#mac=" + kMac, std::nullopt,
                   std::nullopt);
    EXPECT_TRUE(std::isinf(query.dueAt(quiet)));
    query.sent(10.0);
    EXPECT_DOUBLE_EQ(query.dueAt(quiet), 13.0);
    query.sent(13.0);
    EXPECT_DOUBLE_EQ(query.dueAt(quiet), 19.0);
    EXPECT_DOUBLE_EQ(query.giveUpAt(quiet), 26.0);  // 16 s after the first copy
    EXPECT_EQ(query.attempts(), 2);
}

TEST(Exchange, FollowsTheControllersOwnAnswerTimeAndNeverResendsIntoAPause) {
    const ArrivalPace quiet;
    Exchange query(RequestKind::Query, kMac, "5", "q", std::nullopt, 2.0);
    query.sent(0.0);
    EXPECT_DOUBLE_EQ(query.dueAt(quiet), 4.0);  // twice its answer time
    Exchange assign(RequestKind::Assign, kMac, "6", "a", std::nullopt, 0.2);
    assign.sent(0.0);
    // At least 1.5 s, plus what a lost acknowledgement could hide: applying and the pause.
    EXPECT_DOUBLE_EQ(assign.dueAt(quiet), 7.5);
}

TEST(Exchange, WaitsWhileTheSegmentIsStillAnswering) {
    ArrivalPace busy;
    Exchange query(RequestKind::Query, kMac, "5", "q", std::nullopt, std::nullopt);
    query.sent(0.0);
    for (int tenth = 5; tenth <= 99; ++tenth) {
        busy.arrived(tenth / 10.0);  // an answer every 0.1 s from 0.5 s to 9.9 s
    }
    EXPECT_NEAR(query.dueAt(busy), 9.9 + 1.5, 1e-9);
    EXPECT_DOUBLE_EQ(query.giveUpAt(busy), 16.0);
    // The user's timeout is a hard bound.
    Exchange bounded(RequestKind::Query, kMac, "5", "q", 1.0, std::nullopt);
    bounded.sent(0.0);
    EXPECT_DOUBLE_EQ(bounded.giveUpAt(busy), 1.0);
}

TEST(Exchange, IsAnsweredOnlyByItsKindOfReplyWithItsSeqidAndMac) {
    const Exchange assign(RequestKind::Assign, kMac, "9", "a", std::nullopt, std::nullopt);
    EXPECT_TRUE(assign.answeredBy(reply("LCF2#ACK#seqid=9#mac=" + kMac + "#accept=no")));
    EXPECT_FALSE(assign.answeredBy(reply("LCF2#ACK#seqid=8#mac=" + kMac + "#accept=yes")));
    EXPECT_FALSE(assign.answeredBy(reply("LCF2#ACK#seqid=9#mac=02:4C:43:00:00:08#accept=yes")));
    EXPECT_FALSE(assign.answeredBy(reply("LCF2#STATUS#seqid=9#mac=" + kMac)));
}

TEST(ControllerJob, AReadSendsAQueryAndKeepsTheStatus) {
    JobPlan plan;
    plan.mac = kMac;
    ControllerJob job(plan, std::nullopt, std::nullopt, counting());
    ArrivalPace pace;
    EXPECT_EQ(job.due(0.0, pace), "LCF2#QUERY#seqid=1#mac=" + kMac);
    EXPECT_EQ(job.due(0.1, pace), std::nullopt);
    EXPECT_EQ(job.due(3.0, pace), "LCF2#QUERY#seqid=1#mac=" + kMac);  // the same seqid again
    EXPECT_FALSE(job.offer(reply("LCF2#STATUS#seqid=2#mac=" + kMac), lan0(), 3.1));
    EXPECT_TRUE(job.offer(reply("LCF2#STATUS#seqid=1#mac=" + kMac + "#ip=10.1.1.1"), lan0(), 3.2));
    EXPECT_EQ(job.outcome(), JobOutcome::Read);
    ASSERT_TRUE(job.controller());
    EXPECT_EQ(job.controller()->field("ip"), "10.1.1.1");
    EXPECT_EQ(job.controller()->interfaceName, "lan0");
    EXPECT_TRUE(job.controller()->outsideSubnet);
    EXPECT_NEAR(*job.answerTime(), 0.2, 1e-9);
}

TEST(ControllerJob, GivesUpOnASilentControllerAfterItsTimeout) {
    JobPlan plan;
    plan.mac = kMac;
    ControllerJob job(plan, 1.0, std::nullopt, counting());
    const ArrivalPace pace;
    EXPECT_TRUE(job.due(0.0, pace));
    EXPECT_DOUBLE_EQ(job.wakeAt(pace), 1.0);
    // Woken late, as on a busy machine: the bound kept is still the user's.
    EXPECT_FALSE(job.due(1.07, pace));
    EXPECT_EQ(job.outcome(), JobOutcome::NoAnswer);
    EXPECT_DOUBLE_EQ(job.waitedSeconds(), 1.0);
    EXPECT_EQ(job.unansweredKind(), RequestKind::Query);
}

TEST(ControllerJob, AVerifiedAssignWaitsOutThePauseThenReadsAndCompares) {
    JobPlan plan;
    plan.mac = kMac;
    plan.start = JobPlan::Start::Assign;
    plan.assignments = {{"ip", "10.0.0.7"}, {"gateway", "10.0.0.1"}};
    plan.verify = true;
    ControllerJob job(plan, std::nullopt, std::nullopt, counting());
    ArrivalPace pace;
    EXPECT_EQ(job.due(0.0, pace),
              "LCF2#ASSIGN#seqid=1#mac=" + kMac + "#ip=10.0.0.7#gateway=10.0.0.1");
    EXPECT_TRUE(job.offer(reply("LCF2#ACK#seqid=1#mac=" + kMac + "#accept=yes"), lan0(), 0.4));
    EXPECT_TRUE(job.accepted());
    EXPECT_FALSE(job.done());
    // Nothing is sent until the controller has applied the change and settled.
    EXPECT_DOUBLE_EQ(job.wakeAt(pace), 6.4);
    EXPECT_EQ(job.due(6.3, pace), std::nullopt);
    EXPECT_EQ(job.due(6.4, pace), "LCF2#QUERY#seqid=2#mac=" + kMac);
    EXPECT_TRUE(job.offer(
        reply("LCF2#STATUS#seqid=2#mac=" + kMac + "#ip=10.0.0.5#gateway=10.0.0.1"), lan0(), 6.6));
    EXPECT_EQ(job.outcome(), JobOutcome::DidNotTake);
    ASSERT_EQ(job.mismatches().size(), 1u);
    EXPECT_EQ(lcf::describe(job.mismatches()[0]), "ip: asked 10.0.0.7, reports 10.0.0.5");
}

TEST(ControllerJob, AVerifiedClearIsReadAgainAtOnceAndAnAcceptNoEndsIt) {
    JobPlan plan;
    plan.mac = kMac;
    plan.start = JobPlan::Start::Clear;
    plan.serverKey = "syslogip";
    plan.verify = true;
    ControllerJob job(plan, std::nullopt, std::nullopt, counting());
    ArrivalPace pace;
    EXPECT_EQ(job.due(0.0, pace), "LCF2#CLEAR#seqid=1#mac=" + kMac + "#syslogip");
    EXPECT_TRUE(job.offer(reply("LCF2#ACK#seqid=1#mac=" + kMac + "#accept=yes"), lan0(), 0.1));
    EXPECT_EQ(job.due(0.1, pace), "LCF2#QUERY#seqid=2#mac=" + kMac);
    EXPECT_TRUE(
        job.offer(reply("LCF2#STATUS#seqid=2#mac=" + kMac + "#ntpip=10.0.0.10"), lan0(), 0.3));
    EXPECT_EQ(job.outcome(), JobOutcome::Took);

    plan.start = JobPlan::Start::Assign;
    plan.assignments = {{"ipscheme", "dhcp"}};
    ControllerJob refused(plan, std::nullopt, std::nullopt, counting());
    EXPECT_TRUE(refused.due(0.0, pace));
    EXPECT_TRUE(refused.offer(reply("LCF2#ACK#seqid=1#mac=" + kMac + "#accept=no"), lan0(), 0.1));
    EXPECT_EQ(refused.outcome(), JobOutcome::Refused);
    EXPECT_FALSE(refused.accepted());
}

TEST(ControllerJob, AnUnverifiedAssignEndsWithItsAcknowledgement) {
    JobPlan plan;
    plan.mac = kMac;
    plan.start = JobPlan::Start::Assign;
    plan.assignments = {{"ip", "10.0.0.7"}};
    ControllerJob job(plan, std::nullopt, 0.3, counting());
    ArrivalPace pace;
    EXPECT_TRUE(job.due(0.0, pace));
    EXPECT_DOUBLE_EQ(job.wakeAt(pace), 7.5);  // resent only once a hidden pause would be over
    EXPECT_TRUE(job.offer(reply("LCF2#ACK#seqid=1#mac=" + kMac + "#accept=yes"), lan0(), 0.3));
    EXPECT_EQ(job.outcome(), JobOutcome::Accepted);
}

}  // namespace
