// How replies leave the controller: the service socket on br0, the
// hand-built raw frame on any other interface and as the fallback.
#include <gtest/gtest.h>

#include "Harness.hpp"

namespace e2e {
namespace {

const std::string kQuery = "LCF2#QUERY#seqid=5";

std::string statusPrefix(int k) {
    return "LCF2#STATUS#seqid=5#mac=" + controllerMac(k) + "#";
}

void expectHandBuiltFrame(const IpFrame& frame, int k) {
    EXPECT_EQ(frame.versionIhl(), 0x45);
    EXPECT_EQ(frame.id(), 54321);
    EXPECT_EQ(frame.flagsFragment(), 0x4000);  // don't fragment, offset 0
    EXPECT_EQ(frame.ttl(), 64);
    EXPECT_EQ(frame.protocol(), 17);
    EXPECT_EQ(frame.source(), controllerAddress(k));  // filled in by the kernel
    EXPECT_EQ(frame.destination(), "255.255.255.255");
    EXPECT_EQ(frame.sourcePort(), 7217);
    EXPECT_EQ(frame.destinationPort(), 7217);
    EXPECT_EQ(frame.udpChecksum(), 0);
    EXPECT_EQ(frame.totalLength(), frame.bytes.size());
    EXPECT_EQ(frame.udpLength(), frame.payload().size() + 8);
    EXPECT_TRUE(frame.headerChecksumValid());
    EXPECT_EQ(frame.payload().rfind(statusPrefix(k), 0), 0u) << frame.payload();
    EXPECT_EQ(frame.payload().find('\0'), std::string::npos);
}

TEST(ReplyPath, PlainBroadcastLeavesTheServiceSocketOnBr0) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    FrameCapture capture(sb);
    ASSERT_TRUE(tool.ok());
    ASSERT_TRUE(capture.ok());
    ASSERT_TRUE(tool.send(kQuery));

    auto reply = tool.receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->sender, controllerAddress(1));
    EXPECT_EQ(reply->senderPort, 7217);
    EXPECT_EQ(reply->data.rfind(statusPrefix(1), 0), 0u) << reply->data;

    auto frame = capture.next(Seconds(5));
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ(frame->payload(), reply->data);
    EXPECT_EQ(frame->destination(), "255.255.255.255");
    EXPECT_EQ(frame->sourcePort(), 7217);
    // The kernel's own UDP path checksums; the hand-built frame does not.
    EXPECT_NE(frame->udpChecksum(), 0);
    EXPECT_EQ(sb.err(1), "");
}

TEST(ReplyPath, OtherInterfaceSendsTheHandBuiltFrame) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9,iface=eth0"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    FrameCapture capture(sb);
    ASSERT_TRUE(tool.ok());
    ASSERT_TRUE(capture.ok());
    ASSERT_TRUE(tool.send(kQuery));

    auto frame = capture.next(Seconds(10));
    ASSERT_TRUE(frame.has_value());
    expectHandBuiltFrame(*frame, 1);
    // Its checksum-less UDP datagram is still delivered.
    auto reply = tool.receive(Seconds(5));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->data, frame->payload());
    EXPECT_EQ(reply->senderPort, 7217);
    EXPECT_EQ(sb.err(1), "");
}

TEST(ReplyPath, FailedPlainBroadcastFallsBackToTheRawFrame) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9,nobcast"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    FrameCapture capture(sb);
    ASSERT_TRUE(tool.ok());
    ASSERT_TRUE(capture.ok());
    ASSERT_TRUE(tool.send(kQuery));

    auto frame = capture.next(Seconds(10));
    ASSERT_TRUE(frame.has_value());
    expectHandBuiltFrame(*frame, 1);
    // No route to 255.255.255.255: the network is unreachable (101).
    EXPECT_TRUE(sb.waitErr(1, "package\n", Seconds(5)));
    EXPECT_EQ(sb.err(1), "Broadcast failed: 101\nTrying to send as raw package\n");
}

TEST(ReplyPath, RawFrameLongerThanTheLimitIsDiscarded) {
    E2E_REQUIRE_ROOT();
    // The same device values on both boards, so both replies have one length.
    Sandbox sb({"arm9", "arm9,iface=eth0"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    ASSERT_TRUE(tool.ok());
    for (int k = 1; k <= 2; ++k) {
        sb.setFault(k, "tarnsetup.getsyslogserver", "big");  // 510 bytes, twice in a reply
        sb.setFault(k, "hostname", "big");
    }
    ASSERT_TRUE(tool.send(kQuery));
    auto reply = tool.receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->sender, controllerAddress(1));
    ASSERT_GT(reply->data.size(), 1471u);
    EXPECT_TRUE(sb.waitErr(2, "\n", Seconds(10)));
    EXPECT_EQ(sb.err(2),
              "Discarding oversize message: " + std::to_string(reply->data.size()) + "\n");
}

}  // namespace
}  // namespace e2e
