// How device answers become STATUS values: answers that are kept out, files
// that are missing or empty, and an interface file that names nothing usable.
#include <gtest/gtest.h>

#include <cstdio>

#include "Harness.hpp"
#include "Session.hpp"

namespace e2e {
namespace {

// Sends a discovery and hands back the replies by controller, clocks masked.
std::map<int, std::string> discover(const ToolSocket& tool, const std::string& seqid, int count) {
    std::map<int, std::string> replies;
    for (const auto& d : repliesWith(tool, "LCF2#STATUS#seqid=" + seqid + "#",
                                     static_cast<std::size_t>(count), Seconds(15))) {
        for (int k = 1; k <= count; ++k) {
            if (d.data.rfind("LCF2#STATUS#seqid=" + seqid + "#mac=" + controllerMac(k) + "#", 0) ==
                0) {
                std::string clock;
                replies[k] = maskClock(d.data, &clock);
            }
        }
    }
    return replies;
}

TEST(DeviceReading, AnswersKeptOutAndStatusFilesMissingOrEmpty) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9", "imx"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    ASSERT_TRUE(tool.ok());
    Session arm9("arm9");
    Session imx("imx");
    arm9.startup();
    imx.startup();
    auto query = [&](const std::string& seqid) {
        const std::string request = "LCF2#QUERY#seqid=" + seqid;
        EXPECT_TRUE(tool.send(request));
        for (Session* s : {&arm9, &imx}) {
            s->echo(request);
            s->reading();
            s->ran("date -u +%Y%m%d%H%M%S");
            s->trace(true);
        }
        return discover(tool, seqid, 2);
    };

    // A public resolver as syslog server is not taken as the name server,
    // which keeps the value read before; a missing controller file keeps the
    // old name too.
    ProcessResult set = sb.execInController(1, "tarnsetup setsyslogserver 8.8.8.8");
    ASSERT_EQ(set.status, 0) << set.out << set.err;
    ASSERT_EQ(std::remove((sb.dir(1) + "/run/controller").c_str()), 0);
    // On imx: no SD card, a public resolver as name server, no selected time
    // server, and an address that is not one.
    sb.setValue(2, "sdusage", "");
    sb.setValue(2, "ntpsync", "no");
    sb.setFault(2, "tarnsetup.getnameserver", "print 1.0.0.1");
    sb.setFault(2, "tarnsetup.getipaddr", "print 10.0.0.300");
    auto first = query("1");
    EXPECT_EQ(first[1], statusReply("1", 1, "arm9", {{"syslogip", "8.8.8.8"}}));
    EXPECT_EQ(first[2], statusReply("1", 2, "imx", {{"sdusage", "n/a"}, {"ntpsync", "no"}}));

    // An empty controller file empties the name, and the field is left out.
    writeFile(sb.dir(1) + "/run/controller", "");
    sb.setFault(2, "tarnsetup.getnameserver", "print 10.1.1.5");
    auto second = query("2");
    EXPECT_EQ(second[1],
              statusReply("2", 1, "arm9", {{"syslogip", "8.8.8.8"}, {"controller", ""}}));
    EXPECT_EQ(second[2],
              statusReply("2", 2, "imx",
                          {{"sdusage", "n/a"}, {"ntpsync", "no"}, {"nameserver", "10.1.1.5"}}));
    expectSessions(sb, {&arm9, &imx});
}

TEST(DeviceReading, InterfaceFileThatNamesNothingUsable) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9", "qmt"}, false);
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    // Ten characters is one too many; a lone line feed leaves nothing.
    writeFile(sb.dir(1) + "/home/etc/tarnsetup.d/lcfd_interface", "abcdefghij\n");
    writeFile(sb.dir(2) + "/home/etc/tarnsetup.d/lcfd_interface", "\n");
    Session tooLong("arm9", "abcdefghij", "br0");
    Session empty("qmt");
    empty.fileIsPresent();
    tooLong.startup();
    empty.startup();
    for (int k = 1; k <= 2; ++k) {
        ASSERT_EQ(sb.start(k).status, 0);
        ASSERT_TRUE(sb.waitOut(k, kListening, Seconds(15)));
    }
    ToolSocket tool(sb);
    FrameCapture capture(sb);
    ASSERT_TRUE(tool.ok());
    ASSERT_TRUE(capture.ok());

    const std::string query = "LCF2#QUERY#seqid=1";
    ASSERT_TRUE(tool.send(query));
    for (Session* s : {&tooLong, &empty}) {
        s->echo(query);
        s->reading();
        s->ran("date -u +%Y%m%d%H%M%S");
        s->trace(true);
    }
    // br0 it is: the netmask is found on it, and the replies leave through
    // the service socket, whose frames the kernel checksums.
    for (int i = 0; i < 2; ++i) {
        auto frame = capture.next(Seconds(10));
        ASSERT_TRUE(frame.has_value());
        EXPECT_NE(frame->udpChecksum(), 0) << frame->source();
        EXPECT_EQ(frame->sourcePort(), kPort);
        std::string clock;
        const std::string reply = maskClock(frame->payload(), &clock);
        if (frame->source() == controllerAddress(1)) {
            EXPECT_EQ(reply, statusReply("1", 1, "arm9"));
        } else {
            EXPECT_EQ(frame->source(), controllerAddress(2));
            EXPECT_EQ(reply, statusReply("1", 2, "qmt"));
        }
    }
    expectSessions(sb, {&tooLong, &empty});
}

}  // namespace
}  // namespace e2e
