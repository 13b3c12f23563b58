// Requests that are ignored, refused or only half work, seen from outside:
// which replies go out, what each daemon traces and what its device runs.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "Harness.hpp"

namespace e2e {
namespace {

using RequestEdge = LcfdBed;

TEST_F(RequestEdge, IgnoredRefusedAndRepeatedRequests) {
    ASSERT_TRUE(up({"arm9", "qmt"}));
    Session arm9("arm9");
    Session qmt("qmt");
    arm9.startup();
    qmt.startup();
    auto both = [&](const std::string& request, bool understood) {
        ASSERT_TRUE(tool().send(request));
        arm9.passes(request, understood);
        qmt.passes(request, understood);
    };

    // Ignored by every device that knows its MAC address.
    both("LCF2#ASSIGN#seqid=9#mac=", true);
    // Replies of daemons: understood, nothing done.
    both("LCF2#ACK#seqid=1#mac=02:4C:43:00:00:01#accept=yes", true);
    both("LCF2#STATUS", true);
    // An unknown command: not understood, unanswered.
    both("LCF2#REBOOT#seqid=1", false);

    // Only the three server keys can be cleared: read again, then refused.
    const std::string clearHostname = "LCF2#CLEAR#seqid=3#mac=02:4C:43:00:00:01#hostname";
    ASSERT_TRUE(tool().send(clearHostname));
    arm9.echo(clearHostname);
    arm9.reading();
    arm9.trace(false);
    qmt.passes(clearHostname);

    // Clearing the time server of a qmt board twice: the second time the
    // file is gone and rm fails (on standard error, which the daemon passes
    // through), and the service is restarted all the same; its failure does
    // not change the answer either.
    const std::string firstClear = "LCF2#CLEAR#seqid=4#mac=02:4C:43:00:00:02#ntpip";
    ASSERT_TRUE(tool().send(firstClear));
    arm9.passes(firstClear);
    qmt.echo(firstClear);
    qmt.ran("rm /etc/systemd/timesyncd.conf");
    qmt.ran("systemctl restart systemd-timesyncd.service");
    qmt.trace(true);
    auto first = tool().receive(Seconds(10));
    ASSERT_TRUE(first.has_value());
    std::vector<std::string> replies = {first->data};

    // The first CLEAR is handled to its end (its trace printed after its restart) before the
    // fault is set, so that its own restart cannot meet the fault.
    ASSERT_TRUE(waitUntil(
        [&] {
            const std::string out = sb().out(2);
            const std::size_t echoed = out.find(firstClear + "\n");
            return echoed != std::string::npos &&
                   out.find("] Message ", echoed) != std::string::npos;
        },
        Seconds(10)));
    sb().setFault(2, "systemctl.restart", "error unit failed");
    const std::string secondClear = "LCF2#CLEAR#seqid=5#mac=02:4C:43:00:00:02#ntpip";
    ASSERT_TRUE(tool().send(secondClear));
    arm9.passes(secondClear);
    qmt.echo(secondClear);
    qmt.ran("rm /etc/systemd/timesyncd.conf");
    qmt.err += "rm: cannot remove '/etc/systemd/timesyncd.conf': No such file or directory\n";
    qmt.ran("systemctl restart systemd-timesyncd.service");
    qmt.trace(true);

    // Once both daemons answered a discovery, they have handled everything
    // before it: the replies up to here are all there will be.
    const std::string query = "LCF2#QUERY#seqid=6";
    ASSERT_TRUE(tool().send(query));
    arm9.queried(query);
    qmt.queried(query);
    for (const auto& d : tool().receiveMany(2, Seconds(15), "LCF2#STATUS#seqid=6#", Others::Kept)) {
        std::string clock;
        replies.push_back(maskClock(d.data, &clock));
    }
    std::sort(replies.begin(), replies.end());
    std::vector<std::string> expected = {
        ackText("3", 1, false),
        ackText("4", 2, true),
        ackText("5", 2, true),
        statusReply("6", 1, "arm9"),
        // The time server is gone from the device.
        statusReply("6", 2, "qmt", {{"ntpip", ""}}),
    };
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(replies, expected);
    expectSessions(sb(), {&arm9, &qmt});
}

TEST_F(RequestEdge, ADeviceThatKnowsNoMacAnswersRequestsWithout) {
    ASSERT_TRUE(upStopped({"arm9", "generic"}));
    // The second board's tool names no MAC address.
    sb().setFault(2, "tarnsetup.getmacaddr", "empty");
    ASSERT_TRUE(startDaemons());
    Session known("arm9");
    Session unnamed("generic");
    known.startup();
    unnamed.startup();

    // An empty address is its address: accepted, nothing to write, the pause.
    const std::string empty = "LCF2#ASSIGN#seqid=9#mac=";
    // A request whose sequence id or MAC field cannot be read has no address
    // either, and is refused with what was read before.
    const std::string badSeqid = "LCF2#ASSIGN#seqid=a;b#mac=02:4C:43:00:00:01#ip=198.18.0.99";
    const std::string badMac = "LCF2#CLEAR#seqid=7#mac=zz:4C:43:00:00:01#ntpip";
    for (const auto& [request, accepted] : std::vector<std::pair<std::string, bool>>{
             {empty, true}, {badSeqid, false}, {badMac, false}}) {
        ASSERT_TRUE(tool().send(request));
        known.passes(request);
        unnamed.echo(request);
        unnamed.reading();
        unnamed.trace(accepted);
    }
    const std::string query = "LCF2#QUERY#seqid=8";
    ASSERT_TRUE(tool().send(query));
    known.queried(query);
    unnamed.queried(query);

    std::vector<std::string> replies;
    for (const auto& d : tool().receiveMany(5, Seconds(20))) {
        std::string clock;
        replies.push_back(maskClock(d.data, &clock));
    }
    std::string status = statusReply("8", 2, "generic");
    status.replace(status.find("#mac=" + controllerMac(2)), 5 + controllerMac(2).size(), "#mac=");
    std::vector<std::string> expected = {
        "LCF2#ACK#seqid=9#mac=#accept=yes",
        "LCF2#ACK#seqid=#mac=#accept=no",
        "LCF2#ACK#seqid=7#mac=#accept=no",
        statusReply("8", 1, "arm9"),
        status,
    };
    std::sort(replies.begin(), replies.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(replies, expected);
    expectSessions(sb(), {&known, &unnamed});
}

}  // namespace
}  // namespace e2e
