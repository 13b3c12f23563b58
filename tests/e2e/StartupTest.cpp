// Start-up: reading the device, the interface file, the banner, syslog, and
// the end of the process when the service port cannot be had.
#include <gtest/gtest.h>
#include <unistd.h>

#include "Harness.hpp"

namespace e2e {
namespace {

using Startup = LcfdBed;

std::string startupOut(int type) {
    return "lcfd:Detected controller type: " + std::to_string(type) +
           "\nlcfd:Finished reading network settings\n" + kListening;
}

TEST_F(Startup, ReadsTheDeviceThenPrintsTheBanner) {
    ASSERT_TRUE(upServing({"arm9"}));
    EXPECT_EQ(sb().out(1), startupOut(2));
    EXPECT_EQ(sb().err(1), "");
}

TEST_F(Startup, LogsTheDetectedTypeOfEachPlatform) {
    const std::vector<std::pair<std::string, int>> types = {
        {"arm9", 2}, {"imx", 3}, {"qmt", 4}, {"generic", 1}, {"unknown", 0}};
    std::vector<std::string> boards;
    for (const auto& t : types) {
        boards.push_back(t.first);
    }
    ASSERT_TRUE(upServing(boards));
    for (int k = 1; k <= controllers(); ++k) {
        EXPECT_EQ(sb().out(k), startupOut(types[static_cast<std::size_t>(k - 1)].second))
            << "controller " << k;
        EXPECT_EQ(sb().err(k), "") << "controller " << k;
    }
}

TEST_F(Startup, GenericBoardNamesItsOwnSdk) {
    ASSERT_TRUE(upServing({"generic,sdk=imx2", "arm9,sdk="}));
    // Only the exact words name the three known platforms.
    EXPECT_EQ(sb().out(1), startupOut(1));
    EXPECT_EQ(sb().out(2), startupOut(1));
}

TEST_F(Startup, AnnouncesTheInterfaceFromTheFileTwice) {
    ASSERT_TRUE(upServing({"imx,iface=eth0"}));
    EXPECT_EQ(sb().out(1),
              "lcfd:Detected controller type: 3\n"
              "LCFD using interface: eth0\n"
              "lcfd:Finished reading network settings\n"
              "LCFD using interface: eth0\n" +
                  kListening);
    EXPECT_EQ(sb().err(1), "");
}

TEST_F(Startup, SendsTheInformationLinesToSyslog) {
    ASSERT_TRUE(upServing({"arm9"}));
    const std::vector<std::string> expected = {"<30>Detected controller type: 2",
                                               "<30>Finished reading network settings"};
    EXPECT_TRUE(waitUntil([&] { return syslogRecords(sb().syslog(1)).size() >= 2; }, Seconds(5)));
    EXPECT_EQ(syslogRecords(sb().syslog(1)), expected);
}

TEST_F(Startup, RunsEachPlatformsReadingCommands) {
    // Board, platform, and the interface from the address query on: the interface file is
    // first read in the middle of the first reading.
    const std::vector<std::vector<std::string>> boards = {
        {"arm9", "arm9", "br0"},       {"imx", "imx", "br0"},
        {"qmt", "qmt", "br0"},         {"generic", "generic", "br0"},
        {"unknown", "unknown", "br0"}, {"arm9,iface=eth0", "arm9", "eth0"},
    };
    std::vector<std::string> specs;
    for (const auto& b : boards) {
        specs.push_back(b[0]);
    }
    ASSERT_TRUE(upServing(specs));
    for (int k = 1; k <= controllers(); ++k) {
        const auto& b = boards[static_cast<std::size_t>(k - 1)];
        EXPECT_EQ(sb().shellLog(k), readingCommands(b[1], "br0", b[2])) << b[0];
    }
}

TEST_F(Startup, ExitsWithStatusOneWhenThePortIsTaken) {
    ASSERT_TRUE(upStopped({"arm9"}));
    int holder = occupyServicePort(sb(), 1);
    ASSERT_GE(holder, 0);
    ProcessResult started = sb().start(1);
    ASSERT_EQ(started.status, 0) << started.out << started.err;
    std::optional<int> status = sb().waitExit(1, Seconds(10));
    close(holder);
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, 1);
    EXPECT_EQ(sb().err(1), "Error binding socket: 98\n");
    EXPECT_EQ(sb().out(1),
              "lcfd:Detected controller type: 2\nlcfd:Finished reading network settings\n");
}

TEST_F(Startup, ClosedStandardInputIsTakenByTheSyslogConnection) {
    ASSERT_TRUE(upServing({"arm9,stdin=closed", "arm9,stdin=closed,nosyslog"}));
    // With syslog reachable, the first log line connects it on descriptor 0
    // and the service socket gets another one.
    EXPECT_EQ(sb().out(1), startupOut(2));
    EXPECT_EQ(sb().err(1), "");
    EXPECT_FALSE(fileExists(sb().dir(1) + "/exit"));
    // Without it, descriptor 0 is free when the service socket is made, and
    // the number reads as no socket.  The error number is the one left by
    // the failed syslog connection (no such file).
    std::optional<int> status = sb().waitExit(2, Seconds(10));
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, 1);
    EXPECT_EQ(sb().err(2), "Error creating socket: 2\n");
    EXPECT_EQ(sb().out(2),
              "lcfd:Detected controller type: 2\nlcfd:Finished reading network settings\n");
}

}  // namespace
}  // namespace e2e
