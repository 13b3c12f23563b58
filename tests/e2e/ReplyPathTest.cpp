// How replies leave the controller: the service socket on br0, the
// hand-built raw frame on any other interface and as the fallback.
#include <gtest/gtest.h>

#include "Harness.hpp"

namespace e2e {
namespace {

const std::string kQuery = "LCF2#QUERY#seqid=5";

// Each test on a segment of its own, the tool side also capturing frames.
class ReplyPath : public LcfdBed {
  protected:
    // The segment of one board, its frames captured, and a discovery sent.
    ::testing::AssertionResult queried(const std::string& board) {
        auto result = up({board});
        if (result) {
            result = openCapture();
        }
        if (result && !tool().send(kQuery)) {
            result = ::testing::AssertionFailure() << "the discovery was not sent";
        }
        return result;
    }
};

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

TEST_F(ReplyPath, PlainBroadcastLeavesTheServiceSocketOnBr0) {
    ASSERT_TRUE(queried("arm9"));

    auto reply = tool().receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->sender, controllerAddress(1));
    EXPECT_EQ(reply->senderPort, 7217);
    EXPECT_EQ(reply->data.rfind(statusPrefix(1), 0), 0u) << reply->data;

    auto frame = capture().next(Seconds(5));
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ(frame->payload(), reply->data);
    EXPECT_EQ(frame->destination(), "255.255.255.255");
    EXPECT_EQ(frame->sourcePort(), 7217);
    // The kernel's own UDP path checksums; the hand-built frame does not.
    EXPECT_NE(frame->udpChecksum(), 0);
    EXPECT_EQ(sb().err(1), "");
}

TEST_F(ReplyPath, OtherInterfaceSendsTheHandBuiltFrame) {
    ASSERT_TRUE(queried("arm9,iface=eth0"));

    auto frame = capture().next(Seconds(10));
    ASSERT_TRUE(frame.has_value());
    expectHandBuiltFrame(*frame, 1);
    // Its checksum-less UDP datagram is still delivered.
    auto reply = tool().receive(Seconds(5));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->data, frame->payload());
    EXPECT_EQ(reply->senderPort, 7217);
    EXPECT_EQ(sb().err(1), "");
}

TEST_F(ReplyPath, FailedPlainBroadcastFallsBackToTheRawFrame) {
    ASSERT_TRUE(queried("arm9,nobcast"));

    auto frame = capture().next(Seconds(10));
    ASSERT_TRUE(frame.has_value());
    expectHandBuiltFrame(*frame, 1);
    // No route to 255.255.255.255: the network is unreachable (101).
    EXPECT_TRUE(sb().waitErr(1, "package\n", Seconds(5)));
    EXPECT_EQ(sb().err(1), "Broadcast failed: 101\nTrying to send as raw package\n");
}

TEST_F(ReplyPath, RawFrameLongerThanTheLimitIsDiscarded) {
    // The same device values on both boards, so both replies have one length.
    ASSERT_TRUE(up({"arm9", "arm9,iface=eth0"}));
    for (int k = 1; k <= 2; ++k) {
        sb().setFault(k, "tarnsetup.getsyslogserver", "big");  // 510 bytes, twice in a reply
        sb().setFault(k, "hostname", "big");
    }
    ASSERT_TRUE(tool().send(kQuery));
    auto reply = tool().receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->sender, controllerAddress(1));
    ASSERT_GT(reply->data.size(), 1471u);
    EXPECT_TRUE(sb().waitErr(2, "\n", Seconds(10)));
    EXPECT_EQ(sb().err(2),
              "Discarding oversize message: " + std::to_string(reply->data.size()) + "\n");
}

TEST_F(ReplyPath, RawSocketBindsByTheFirstFourCharacters) {
    // The device is wlan0; the raw socket asks for "wlan", which does not exist.
    ASSERT_TRUE(up({"arm9,iface=wlan0"}));
    ASSERT_TRUE(tool().send(kQuery));
    EXPECT_TRUE(sb().waitErr(1, "\n", Seconds(10)));
    EXPECT_EQ(sb().err(1), "Error binding to wlan0 interface: 19\n");
}

TEST_F(ReplyPath, CarriageReturnInTheInterfaceFileOnlyReachesTheDeviceQueries) {
    ASSERT_TRUE(upStopped({"arm9"}));
    writeFile(sb().dir(1) + "/home/etc/tarnsetup.d/lcfd_interface", "br0\r\n");
    ASSERT_TRUE(startDaemons());
    ASSERT_TRUE(openCapture());
    ASSERT_TRUE(tool().send(kQuery));
    // The transport got the cleaned name br0: a plain broadcast.
    auto frame = capture().next(Seconds(10));
    ASSERT_TRUE(frame.has_value());
    EXPECT_NE(frame->udpChecksum(), 0);
    // The device queries carry the carriage return; the simulated tool knows
    // no such interface, and the netmask lookup finds none either.
    std::string clock;
    EXPECT_EQ(maskClock(frame->payload(), &clock),
              "LCF2#STATUS#seqid=5#mac=02:4C:43:00:00:01#gateway=198.18.255.1#hostname=arm9-001"
              "#ipscheme=STATIC#ntpip=198.18.255.10#controller=CTRL-001#housenames=Hall A,Hall B"
              "#syslogip=198.18.255.20#nameserver=198.18.255.20#ntpsync=yes#sdusage=31%"
              "#utcclock=<clock>#displaytime=");
    const std::string startLines =
        "lcfd:Detected controller type: 2\nLCFD using interface: br0\r\n"
        "lcfd:Finished reading network settings\nLCFD using interface: br0\r\n";
    EXPECT_EQ(sb().out(1).substr(0, startLines.size()), startLines);
    auto log = sb().shellLog(1);
    ASSERT_GE(log.size(), 4u);
    EXPECT_EQ(log[3], "tarnsetup getipaddr br0\r");
    EXPECT_EQ(sb().err(1), "");
}

}  // namespace
}  // namespace e2e
