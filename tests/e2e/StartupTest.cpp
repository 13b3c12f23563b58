// Start-up: reading the device, the interface file, the banner, syslog, and
// the end of the process when the service port cannot be had.
#include <gtest/gtest.h>
#include <unistd.h>

#include "Harness.hpp"
#include "wire/Protocol.hpp"

namespace e2e {
namespace {

const std::string kBanner =
    std::string("LAN Config Facility ") + lcfd::kVersion + " : Listening for broadcast packets\n";

std::string startupOut(int type) {
    return "lcfd:Detected controller type: " + std::to_string(type) +
           "\nlcfd:Finished reading network settings\n" + kBanner;
}

TEST(Startup, ReadsTheDeviceThenPrintsTheBanner) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    EXPECT_EQ(sb.out(1), startupOut(2));
    EXPECT_EQ(sb.err(1), "");
}

TEST(Startup, LogsTheDetectedTypeOfEachPlatform) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9", "imx", "qmt", "generic", "unknown"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    EXPECT_EQ(sb.out(1), startupOut(2));
    EXPECT_EQ(sb.out(2), startupOut(3));
    EXPECT_EQ(sb.out(3), startupOut(4));
    EXPECT_EQ(sb.out(4), startupOut(1));
    EXPECT_EQ(sb.out(5), startupOut(0));
    for (int k = 1; k <= 5; ++k) {
        EXPECT_EQ(sb.err(k), "") << "controller " << k;
    }
}

TEST(Startup, GenericBoardNamesItsOwnSdk) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"generic,sdk=imx2", "arm9,sdk="});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    // Only the exact words name the three known platforms.
    EXPECT_EQ(sb.out(1), startupOut(1));
    EXPECT_EQ(sb.out(2), startupOut(1));
}

TEST(Startup, AnnouncesTheInterfaceFromTheFileTwice) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"imx,iface=eth0"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    EXPECT_EQ(sb.out(1),
              "lcfd:Detected controller type: 3\n"
              "LCFD using interface: eth0\n"
              "lcfd:Finished reading network settings\n"
              "LCFD using interface: eth0\n" +
                  kBanner);
    EXPECT_EQ(sb.err(1), "");
}

TEST(Startup, SendsTheInformationLinesToSyslog) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    const std::vector<std::string> expected = {"<30>Detected controller type: 2",
                                               "<30>Finished reading network settings"};
    EXPECT_TRUE(waitUntil([&] { return syslogRecords(sb.syslog(1)).size() >= 2; }, Seconds(5)));
    EXPECT_EQ(syslogRecords(sb.syslog(1)), expected);
}

TEST(Startup, RunsEachPlatformsReadingCommands) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9", "imx", "qmt", "generic", "unknown", "arm9,iface=eth0"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    EXPECT_EQ(sb.shellLog(1), readingCommands("arm9", "br0", "br0"));
    EXPECT_EQ(sb.shellLog(2), readingCommands("imx", "br0", "br0"));
    EXPECT_EQ(sb.shellLog(3), readingCommands("qmt", "br0", "br0"));
    EXPECT_EQ(sb.shellLog(4), readingCommands("generic", "br0", "br0"));
    EXPECT_EQ(sb.shellLog(5), readingCommands("unknown", "br0", "br0"));
    // The interface file is first read in the middle of the first reading.
    EXPECT_EQ(sb.shellLog(6), readingCommands("arm9", "br0", "eth0"));
}

TEST(Startup, ExitsWithStatusOneWhenThePortIsTaken) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9"}, false);
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    int holder = occupyServicePort(sb, 1);
    ASSERT_GE(holder, 0);
    ProcessResult started = sb.start(1);
    ASSERT_EQ(started.status, 0) << started.out << started.err;
    std::optional<int> status = sb.waitExit(1, Seconds(10));
    close(holder);
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, 1);
    EXPECT_EQ(sb.err(1), "Error binding socket: 98\n");
    EXPECT_EQ(sb.out(1),
              "lcfd:Detected controller type: 2\nlcfd:Finished reading network settings\n");
}

TEST(Startup, ClosedStandardInputIsTakenByTheSyslogConnection) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9,stdin=closed", "arm9,stdin=closed,nosyslog"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    // With syslog reachable, the first log line connects it on descriptor 0
    // and the service socket gets another one.
    EXPECT_EQ(sb.out(1), startupOut(2));
    EXPECT_EQ(sb.err(1), "");
    EXPECT_FALSE(fileExists(sb.dir(1) + "/exit"));
    // Without it, descriptor 0 is free when the service socket is made, and
    // the number reads as no socket.  The error number is the one left by
    // the failed syslog connection (no such file).
    std::optional<int> status = sb.waitExit(2, Seconds(10));
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, 1);
    EXPECT_EQ(sb.err(2), "Error creating socket: 2\n");
    EXPECT_EQ(sb.out(2),
              "lcfd:Detected controller type: 2\nlcfd:Finished reading network settings\n");
}

}  // namespace
}  // namespace e2e
