// How device answers become STATUS values: answers that are kept out, files
// that are missing or empty, and an interface file that names nothing usable.
#include <gtest/gtest.h>

#include <cstdio>

#include "Harness.hpp"

namespace e2e {
namespace {

using DeviceReading = LcfdBed;

// Hands back the replies to discovery `seqid` by controller, clocks masked.
std::map<int, std::string> discovered(const ToolSocket& tool, const std::string& seqid, int count) {
    std::map<int, std::string> replies;
    for (const auto& d : tool.receiveMany(static_cast<std::size_t>(count), Seconds(15),
                                          "LCF2#STATUS#seqid=" + seqid + "#")) {
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

TEST_F(DeviceReading, AnswersKeptOutAndStatusFilesMissingOrEmpty) {
    ASSERT_TRUE(up({"arm9", "imx"}));
    std::vector<Session> sessions = {Session("arm9"), Session("imx")};
    for (Session& s : sessions) {
        s.startup();
    }
    auto query = [&](const std::string& seqid) {
        const std::string request = "LCF2#QUERY#seqid=" + seqid;
        EXPECT_TRUE(tool().send(request));
        for (Session& s : sessions) {
            s.queried(request);
        }
        return discovered(tool(), seqid, 2);
    };

    // A public resolver as syslog server is not taken as the name server,
    // which keeps the value read before; a missing controller file keeps the
    // old name too.
    ProcessResult set = sb().execInController(1, "tarnsetup setsyslogserver 8.8.8.8");
    ASSERT_EQ(set.status, 0) << set.out << set.err;
    ASSERT_EQ(std::remove((sb().dir(1) + "/run/controller").c_str()), 0);
    // On imx: no SD card, a public resolver as name server, no selected time
    // server, and an address that is not one.
    sb().setValue(2, "sdusage", "");
    sb().setValue(2, "ntpsync", "no");
    sb().setFault(2, "tarnsetup.getnameserver", "print 1.0.0.1");
    sb().setFault(2, "tarnsetup.getipaddr", "print 10.0.0.300");
    auto first = query("1");
    EXPECT_EQ(first[1], statusReply("1", 1, "arm9", {{"syslogip", "8.8.8.8"}}));
    EXPECT_EQ(first[2], statusReply("1", 2, "imx", {{"sdusage", "n/a"}, {"ntpsync", "no"}}));

    // An empty controller file empties the name, and the field is left out.
    writeFile(sb().dir(1) + "/run/controller", "");
    sb().setFault(2, "tarnsetup.getnameserver", "print 10.1.1.5");
    auto second = query("2");
    EXPECT_EQ(second[1],
              statusReply("2", 1, "arm9", {{"syslogip", "8.8.8.8"}, {"controller", ""}}));
    EXPECT_EQ(second[2],
              statusReply("2", 2, "imx",
                          {{"sdusage", "n/a"}, {"ntpsync", "no"}, {"nameserver", "10.1.1.5"}}));
    expectSessions(sb(), sessions);
}

TEST_F(DeviceReading, InterfaceFileThatNamesNothingUsable) {
    // Ten characters is one too many; a lone line feed leaves nothing.
    Session empty("qmt");
    empty.fileIsPresent();
    expectBr0DespiteTheInterfaceFiles(
        {
            {"arm9", "abcdefghij\n", Session("arm9", "abcdefghij", "br0")},
            {"qmt", "\n", empty},
        },
        "1");
}

}  // namespace
}  // namespace e2e
