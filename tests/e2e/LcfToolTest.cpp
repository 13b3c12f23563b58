// lcf, the configuration tool, run on the tool side of a sandboxed segment against real lcfd
// daemons on simulated controllers: what a user types and what the user sees.
#include <gtest/gtest.h>

#include "LcfSupport.hpp"

namespace e2e {
namespace {

using LcfTool = LcfdBed;

TEST_F(LcfTool, DiscoversTwentyMixedControllersEachOnceInTableAndJson) {
    const std::vector<std::string> specs = mixedBoards(20);
    ASSERT_TRUE(upServing(specs));

    // The plain command, with its own timing: however busy the machine, every controller of
    // the segment answers in time for it.
    std::string before = utcNow();
    const LcfRun table = runLcf(sb(), {"discover"}, Seconds(120));
    std::string after = utcNow();
    EXPECT_EQ(table.result.status, 0);
    EXPECT_EQ(maskCounts(table.result.err), "lan0: probed <n>, 20 controllers\n");
    EXPECT_EQ(
        maskClocks(table.result.out, before, after),
        "MAC                IP           NETMASK      GATEWAY       SCHEME  HOSTNAME     CONTROLLER"
        "  SDK    UTCCLOCK        INTERFACE  NOTE\n"
        "02:4C:43:00:00:01  198.18.0.1   255.255.0.0  198.18.255.1  STATIC  arm9-001     CTRL-001 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:02  198.18.0.2   255.255.0.0  198.18.255.1  STATIC  imx-002      CTRL-002 "
        "   4.2.2  YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:03  198.18.0.3   255.255.0.0  198.18.255.1  STATIC  qmt-003      CTRL-003 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:04  198.18.0.4   255.255.0.0  198.18.255.1  STATIC  generic-004  CTRL-004 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:05  198.18.0.5   255.255.0.0  198.18.255.1  STATIC  unknown-005  CTRL-005 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:06  198.18.0.6   255.255.0.0  198.18.255.1  STATIC  arm9-006     CTRL-006 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:07  198.18.0.7   255.255.0.0  198.18.255.1  STATIC  imx-007      CTRL-007 "
        "   4.2.7  YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:08  198.18.0.8   255.255.0.0  198.18.255.1  STATIC  qmt-008      CTRL-008 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:09  198.18.0.9   255.255.0.0  198.18.255.1  STATIC  generic-009  CTRL-009 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:0A  198.18.0.10  255.255.0.0  198.18.255.1  STATIC  unknown-010  CTRL-010 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:0B  198.18.0.11  255.255.0.0  198.18.255.1  STATIC  arm9-011     CTRL-011 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:0C  198.18.0.12  255.255.0.0  198.18.255.1  STATIC  imx-012      CTRL-012 "
        "   4.2.2  YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:0D  198.18.0.13  255.255.0.0  198.18.255.1  STATIC  qmt-013      CTRL-013 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:0E  198.18.0.14  255.255.0.0  198.18.255.1  STATIC  generic-014  CTRL-014 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:0F  198.18.0.15  255.255.0.0  198.18.255.1  STATIC  unknown-015  CTRL-015 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:10  198.18.0.16  255.255.0.0  198.18.255.1  STATIC  arm9-016     CTRL-016 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:11  198.18.0.17  255.255.0.0  198.18.255.1  STATIC  imx-017      CTRL-017 "
        "   4.2.7  YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:12  198.18.0.18  255.255.0.0  198.18.255.1  STATIC  qmt-018      CTRL-018 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:13  198.18.0.19  255.255.0.0  198.18.255.1  STATIC  generic-019  CTRL-019 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "02:4C:43:00:00:14  198.18.0.20  255.255.0.0  198.18.255.1  STATIC  unknown-020  CTRL-020 "
        "   -      YYYYMMDDhhmmss  lan0\n"
        "20 controllers found\n");

    // The same segment as JSON, stopping as soon as all twenty answered.
    before = utcNow();
    const LcfRun json = runLcf(sb(), {"discover", "--json", "--expect", "20"}, Seconds(120));
    after = utcNow();
    EXPECT_EQ(json.result.status, 0);
    EXPECT_EQ(maskCounts(json.result.err), "lan0: probed <n>, 20 controllers\n");
    std::vector<Json> expected;
    for (int k = 1; k <= 20; ++k) {
        expected.push_back(expectedJson(k, specs[static_cast<std::size_t>(k - 1)], "lan0"));
    }
    EXPECT_EQ(maskedObjects(json.result.out, before, after), dumped(expected));
}

// Boards that read their device slowly answer late; the defaults wait for them.
TEST_F(LcfTool, DiscoveryWithDefaultsFindsControllersThatReadForThreeAndSixSeconds) {
    ASSERT_TRUE(upServing({"arm9", "imx", "qmt"}));
    sb().setFault(2, "hostname", "delay 3");
    sb().setFault(3, "hostname", "delay 6");
    const LcfRun run = runLcf(sb(), {"discover", "--json"}, Seconds(120));
    EXPECT_EQ(run.result.status, 0);
    EXPECT_EQ(maskCounts(run.result.err), "lan0: probed <n>, 3 controllers\n");
    EXPECT_EQ(macsIn(run.result.out),
              (std::vector<std::string>{controllerMac(1), controllerMac(2), controllerMac(3)}));
    EXPECT_GT(run.seconds, 6.0);
}

// A controller that has just accepted a change reads nothing for five seconds; the defaults
// wait for it too, while the others have long answered.
TEST_F(LcfTool, DiscoveryWithDefaultsFindsAControllerInItsSettlingPause) {
    ASSERT_TRUE(upServing({"arm9", "imx", "generic"}));
    const LcfRun assign = runLcf(sb(), {"assign", "02:4c:43:00:00:02", "ntpip=198.18.255.11"});
    ASSERT_EQ(assign.result.status, 0) << assign.result.err;
    const LcfRun run = runLcf(sb(), {"discover", "--json"}, Seconds(120));
    EXPECT_EQ(run.result.status, 0);
    EXPECT_EQ(maskCounts(run.result.err), "lan0: probed <n>, 3 controllers\n");
    EXPECT_EQ(macsIn(run.result.out),
              (std::vector<std::string>{controllerMac(1), controllerMac(2), controllerMac(3)}));
    // The paused controller answered with its new time server: it was read after its pause.
    EXPECT_NE(run.result.out.find("\"ntpip\": \"198.18.255.11\""), std::string::npos)
        << run.result.out;
}

// Nothing on the segment: the defaults still wait as long as a paused, slow controller could
// take, then say so.
TEST_F(LcfTool, DiscoveryOfAnEmptySegmentSaysSoAfterTheLongestAnswerTime) {
    ASSERT_TRUE(upStopped({"arm9"}));
    const LcfRun run = runLcf(sb(), {"discover"}, Seconds(60));
    EXPECT_EQ(run.result.status, 1);
    EXPECT_EQ(run.result.out, kNoControllersTable);
    EXPECT_EQ(run.result.err,
              "lan0: probed 2 times, 0 controllers\n"
              "lcf: no controller answered on lan0 within 11 s\n");
    EXPECT_GE(run.seconds, 11.0);
}

TEST_F(LcfTool, QueryShowsEveryFieldOfTheOneAddressedController) {
    ASSERT_TRUE(upServing({"arm9", "imx", "qmt"}));
    for (int k = 1; k <= 3; ++k) {
        sb().clearShellLog(k);
    }
    const std::string before = utcNow();
    const LcfRun details = runLcf(sb(), {"query", "02:4c:43:00:00:02"});
    std::string after = utcNow();
    EXPECT_EQ(details.result.status, 0);
    EXPECT_EQ(details.result.err, "");
    EXPECT_EQ(maskClocks(details.result.out, before, after),
              "mac:         02:4C:43:00:00:02\n"
              "ip:          198.18.0.2\n"
              "netmask:     255.255.0.0\n"
              "gateway:     198.18.255.1\n"
              "hostname:    imx-002\n"
              "ipscheme:    STATIC\n"
              "ntpip:       198.18.255.10\n"
              "controller:  CTRL-002\n"
              "housenames:  Hall A,Hall B\n"
              "syslogip:    198.18.255.20\n"
              "nameserver:  198.18.255.53\n"
              "ntpsync:     yes\n"
              "sdusage:     32%\n"
              "sdkversion:  4.2.2\n"
              "mac1:        02:4C:43:00:00:02\n"
              "mac2:        02:4C:43:01:00:02\n"
              "uptime:      3605.21 7011.40\n"
              "loadavg:     0.08 0.03 0.01 1/87 1234\n"
              "utcclock:    YYYYMMDDhhmmss\n"
              "displaytime: 20231114221320\n"
              "interface:   lan0\n");

    // Only the addressed controller read its device; the others saw the request and let it be.
    const std::string addressed = "#mac=02:4C:43:00:00:02";
    EXPECT_TRUE(traced(sb(), 1, addressed, "understood", Seconds(10))) << sb().out(1);
    EXPECT_TRUE(traced(sb(), 3, addressed, "understood", Seconds(10))) << sb().out(3);
    EXPECT_EQ(sb().shellLog(1), std::vector<std::string>{});
    EXPECT_EQ(sb().shellLog(3), std::vector<std::string>{});
    std::vector<std::string> reading = readingCommands("imx", "br0", "br0");
    reading.push_back("date -u +%Y%m%d%H%M%S");
    EXPECT_EQ(sb().shellLog(2), reading);

    // The same as JSON, for a controller of another platform.
    const LcfRun json = runLcf(sb(), {"query", "--json", "02:4C:43:00:00:03"});
    after = utcNow();
    EXPECT_EQ(json.result.status, 0);
    EXPECT_EQ(json.result.err, "");
    EXPECT_EQ(maskedObjects(json.result.out, before, after),
              dumped({expectedJson(3, "qmt", "lan0")}));
}

TEST_F(LcfTool, AssignChangesTheControllerAndTheNextDiscoveryShowsIt) {
    ASSERT_TRUE(upServing({"arm9", "qmt"}));
    sb().clearShellLog(1);
    sb().clearShellLog(2);

    // Moved to another subnet, with a new gateway and time server.
    const LcfRun moved =
        runLcf(sb(), {"assign", "02:4c:43:00:00:02", "ip=198.19.0.2", "netmask=255.255.0.0",
                      "gateway=198.19.255.1", "ntpip=198.19.255.10"});
    EXPECT_EQ(moved.result.status, 0);
    EXPECT_EQ(moved.result.out, "02:4C:43:00:00:02 accept=yes\n");
    EXPECT_EQ(moved.result.err, "");
    // The clock of the other one set to a fixed time.
    const LcfRun clocked = runLcf(sb(), {"assign", "02:4C:43:00:00:01", "utcclock=20300102030405"});
    EXPECT_EQ(clocked.result.status, 0);
    EXPECT_EQ(clocked.result.out, "02:4C:43:00:00:01 accept=yes\n");
    EXPECT_EQ(clocked.result.err, "");

    // Each controller acknowledges first and then changes its device, then settles for five
    // seconds before it reads the next request; a discovery waits that out.
    const std::string before = utcNow();
    const LcfRun again = runLcf(sb(), {"discover", "--expect", "2"}, Seconds(60));
    const std::string after = utcNow();
    EXPECT_EQ(again.result.status, 0);
    EXPECT_EQ(maskCounts(again.result.err), "lan0: probed <n>, 2 controllers\n");
    EXPECT_GT(again.seconds, 3.0);
    EXPECT_EQ(maskClocks(maskClocks(again.result.out, before, after), "20300102030405",
                         "20300102030435", "2030010203ssss"),
              "MAC                IP          NETMASK      GATEWAY       SCHEME  HOSTNAME  "
              "CONTROLLER  SDK  UTCCLOCK        INTERFACE  NOTE\n"
              "02:4C:43:00:00:01  198.18.0.1  255.255.0.0  198.18.255.1  STATIC  arm9-001  "
              "CTRL-001    -    2030010203ssss  lan0\n"
              "02:4C:43:00:00:02  198.19.0.2  255.255.0.0  198.19.255.1  STATIC  qmt-002   "
              "CTRL-002    -    YYYYMMDDhhmmss  lan0       outside subnet\n"
              "2 controllers found, 1 outside the subnet of its interface\n");

    // What the simulated devices hold now, and the commands that changed them.
    EXPECT_EQ(readFile(sb().dir(2) + "/sim/ip"), "198.19.0.2\n");
    EXPECT_EQ(readFile(sb().dir(2) + "/sim/gateway"), "198.19.255.1\n");
    EXPECT_EQ(readFile(sb().dir(2) + "/etc.upper/systemd/timesyncd.conf"),
              "[Time]\nNTP=198.19.255.10\n");
    const std::vector<std::string> qmtLog = sb().shellLog(2);
    EXPECT_TRUE(contains(qmtLog, "tarnsetup setip 198.19.0.2 255.255.0.0 198.19.255.1 "))
        << ::testing::PrintToString(qmtLog);
    const std::vector<std::string> arm9Log = sb().shellLog(1);
    EXPECT_TRUE(contains(arm9Log, "date -u -D %Y%m%d%H%M%S -s 20300102030405"))
        << ::testing::PrintToString(arm9Log);
    EXPECT_EQ(readFile(sb().dir(1) + "/sim/ip"), "198.18.0.1\n");
}

TEST_F(LcfTool, ClearMakesTheControllerForgetOneServer) {
    ASSERT_TRUE(upServing({"imx", "generic"}));
    sb().clearShellLog(1);
    sb().clearShellLog(2);
    const LcfRun syslog = runLcf(sb(), {"clear", "02:4c:43:00:00:01", "syslogip"});
    EXPECT_EQ(syslog.result.status, 0);
    EXPECT_EQ(syslog.result.out, "02:4C:43:00:00:01 accept=yes\n");
    EXPECT_EQ(syslog.result.err, "");
    EXPECT_EQ(sb().shellLog(1), std::vector<std::string>{"tarnsetup setsyslogserver --delete"});
    EXPECT_FALSE(fileExists(sb().dir(1) + "/sim/syslogserver"));

    const LcfRun ntp = runLcf(sb(), {"clear", "02:4C:43:00:00:02", "ntpip"});
    EXPECT_EQ(ntp.result.status, 0);
    EXPECT_EQ(ntp.result.out, "02:4C:43:00:00:02 accept=yes\n");
    EXPECT_EQ(sb().shellLog(2), std::vector<std::string>{"ubootenv /dev/mtd1 del timeserver"});
    EXPECT_FALSE(fileExists(sb().dir(2) + "/sim/uboot/timeserver"));

    // No pause after a CLEAR: the next query is answered at once, without the server.
    const std::string before = utcNow();
    const LcfRun details = runLcf(sb(), {"query", "02:4C:43:00:00:01"});
    const std::string after = utcNow();
    EXPECT_EQ(details.result.status, 0);
    EXPECT_LT(details.seconds, 4.0);
    EXPECT_EQ(maskClocks(details.result.out, before, after),
              "mac:         02:4C:43:00:00:01\n"
              "ip:          198.18.0.1\n"
              "netmask:     255.255.0.0\n"
              "gateway:     198.18.255.1\n"
              "hostname:    imx-001\n"
              "ipscheme:    STATIC\n"
              "ntpip:       198.18.255.10\n"
              "controller:  CTRL-001\n"
              "housenames:  Hall A,Hall B\n"
              "nameserver:  198.18.255.53\n"
              "ntpsync:     yes\n"
              "sdusage:     31%\n"
              "sdkversion:  4.2.1\n"
              "mac1:        02:4C:43:00:00:01\n"
              "mac2:        02:4C:43:01:00:01\n"
              "uptime:      3605.21 7011.40\n"
              "loadavg:     0.08 0.03 0.01 1/87 1234\n"
              "utcclock:    YYYYMMDDhhmmss\n"
              "displaytime: 20231114221320\n"
              "interface:   lan0\n");
}

// The tool checks what it sends, so a controller's own refusal is seen with --unchecked.
TEST_F(LcfTool, RequestsTheControllerCannotTakeAreAnsweredAcceptNo) {
    ASSERT_TRUE(upServing({"arm9"}));
    sb().clearShellLog(1);
    const LcfRun scheme =
        runLcf(sb(), {"assign", "--unchecked", "02:4c:43:00:00:01", "ipscheme=dhcp"});
    EXPECT_EQ(scheme.result.status, 1);
    EXPECT_EQ(scheme.result.out, "02:4C:43:00:00:01 accept=no\n");
    EXPECT_EQ(scheme.result.err, "");
    EXPECT_TRUE(
        traced(sb(), 1, "#mac=02:4C:43:00:00:01#ipscheme=dhcp", "not understood", Seconds(10)))
        << sb().out(1);
    // A refused ASSIGN reads the device for its reply and changes nothing.
    EXPECT_EQ(sb().shellLog(1), readingCommands("arm9", "br0", "br0"));
    EXPECT_EQ(readFile(sb().dir(1) + "/sim/ipscheme"), "STATIC\n");

    sb().clearShellLog(1);
    const LcfRun server = runLcf(sb(), {"clear", "--unchecked", "02:4C:43:00:00:01", "hostname"});
    EXPECT_EQ(server.result.status, 1);
    EXPECT_EQ(server.result.out, "02:4C:43:00:00:01 accept=no\n");
    EXPECT_EQ(server.result.err, "");
    EXPECT_TRUE(traced(sb(), 1, "#mac=02:4C:43:00:00:01#hostname", "not understood", Seconds(10)))
        << sb().out(1);
    EXPECT_EQ(sb().shellLog(1), readingCommands("arm9", "br0", "br0"));

    // Without the settling pause of an accepted change: the next query is answered at once.
    const LcfRun details = runLcf(sb(), {"query", "02:4C:43:00:00:01"});
    EXPECT_EQ(details.result.status, 0);
    EXPECT_LT(details.seconds, 4.0);
    EXPECT_NE(details.result.out.find("ipscheme:    STATIC\n"), std::string::npos)
        << details.result.out;
}

TEST_F(LcfTool, AControllerThatDoesNotAnswerFailsAfterTheTimeout) {
    ASSERT_TRUE(upServing({"arm9", "imx"}));
    ASSERT_EQ(sb().stop(2).status, 0);

    // Each command with its bound: it fails once the bound has passed, and not much later.
    struct Unanswered {
        std::vector<std::string> args;
        std::string bound;  // as the error shows it
        double seconds;
        double atMost;
    };
    const std::vector<Unanswered> commands = {
        {{"query", "02:4c:43:00:00:02", "--timeout", "1"}, "1", 1.0, 2.5},
        {{"assign", "02:4c:43:00:00:02", "ip=198.18.0.99", "--timeout", "1.5"}, "1.5", 1.5, 3.0},
        {{"clear", "02:4c:43:00:00:02", "ntpip", "-t", "1"}, "1", 1.0, 2.5},
    };
    for (const Unanswered& c : commands) {
        const LcfRun run = runLcf(sb(), c.args);
        const std::string command = c.args.front();
        EXPECT_EQ(run.result.status, 1) << command;
        EXPECT_EQ(run.result.out, "") << command;
        EXPECT_EQ(run.result.err,
                  "lcf: no answer from 02:4C:43:00:00:02 within " + c.bound + " s\n")
            << command;
        EXPECT_GE(run.seconds, c.seconds) << command;
        EXPECT_LT(run.seconds, c.atMost) << command;
    }

    // A discovery lists who answered and fails when it was told to expect more.
    const LcfRun discover = runLcf(sb(), {"discover", "--expect", "2"}, Seconds(60));
    EXPECT_EQ(discover.result.status, 1);
    EXPECT_EQ(maskCounts(discover.result.err),
              "lan0: probed <n>, 1 controller\n"
              "lcf: 1 of 2 expected controllers answered within <t> s\n");
    EXPECT_NE(discover.result.out.find("\n02:4C:43:00:00:01  198.18.0.1  "), std::string::npos)
        << discover.result.out;
    EXPECT_EQ(discover.result.out.find("02:4C:43:00:00:02"), std::string::npos)
        << discover.result.out;
    EXPECT_NE(discover.result.out.find("\n1 controller found\n"), std::string::npos)
        << discover.result.out;
    EXPECT_EQ(readFile(sb().dir(2) + "/sim/ip"), "198.18.0.2\n");

    // Nobody at all, within the user's bound.
    ASSERT_EQ(sb().stop(1).status, 0);
    const LcfRun nobody = runLcf(sb(), {"discover", "--timeout", "0.5"});
    EXPECT_EQ(nobody.result.status, 1);
    EXPECT_EQ(nobody.result.out, kNoControllersTable);
    EXPECT_EQ(nobody.result.err,
              "lan0: probed once, 0 controllers\n"
              "lcf: no controller answered on lan0 within 0.5 s\n");
}

TEST_F(LcfTool, UsageErrorsExitTwoAndSendNothing) {
    ASSERT_TRUE(upServing({"arm9", "qmt"}));
    sb().clearShellLog(1);
    sb().clearShellLog(2);
    const std::string out1 = sb().out(1);
    const std::string out2 = sb().out(2);

    const std::string more = "Run 'lcf --help' or 'lcf COMMAND --help' for more information.\n";
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{},
         "lcf: a command is required (discover, query, assign, clear, apply or watch)\n"
         "Run 'lcf --help' for more information.\n"},
        {{"frob"},
         "lcf: unknown command 'frob' (discover, query, assign, clear, apply or watch)\n"
         "Run 'lcf --help' for more information.\n"},
        {{"discover", "--json", "--csv"}, "lcf: --json excludes --csv\n" + more},
        {{"apply"}, "lcf: PLAN is required\n" + more},
        {{"apply", "/nonexistent/plan.csv"}, "lcf: cannot read the plan /nonexistent/plan.csv\n"},
        {{"discover", "--bogus"}, "lcf: The following argument was not expected: --bogus\n" + more},
        {{"discover", "--timeout", "0"},
         "lcf: --timeout: expected seconds above 0 and at most 3600, got '0'\n" + more},
        {{"discover", "-i", "eth7"},
         "lcf: interface eth7 is not up with an IPv4 broadcast address\n"},
        {{"discover", "-i", "lan0", "eth7"},
         "lcf: The following argument was not expected: eth7\n" + more},
        {{"query"}, "lcf: MAC is required\n" + more},
        {{"query", "02:4c:43:00:00"},
         "lcf: invalid MAC address '02:4c:43:00:00' (expected six hexadecimal pairs like "
         "00:1A:2B:3C:4D:5E)\n"},
        {{"assign", "02:4c:43:00:00:01"},
         "lcf: nothing to assign: give key=value arguments or --now\n"},
        {{"assign", "02:4c:43:00:00:01", "ip=198.18.0.9", "ipscheme=dhcp"},
         "lcf: ipscheme must be STATIC or DHCP, got 'dhcp'\n"},
        {{"assign", "02:4c:43:00:00:01", "hostname=box"},
         "lcf: unknown key 'hostname' (assignable: ip, netmask, gateway, ipscheme, ntpip, "
         "syslogip, nameserver, utcclock)\n"},
        {{"assign", "02:4c:43:00:00:01", "ip=198.18.0.300"},
         "lcf: invalid IPv4 address for ip: '198.18.0.300'\n"},
        {{"assign", "02:4c:43:00:00:01", "utcclock=2030"},
         "lcf: utcclock must be 14 digits YYYYMMDDhhmmss, got '2030'\n"},
        {{"assign", "--unchecked", "02:4c:43:00:00:01", "ip=1.2.3.4#ipscheme=DHCP"},
         "lcf: '#' separates the fields of a request and cannot be sent, got "
         "'ip=1.2.3.4#ipscheme=DHCP'\n"},
        {{"clear", "02:4c:43:00:00:02"}, "lcf: SERVER is required\n" + more},
        {{"clear", "02:4c:43:00:00:02", "hostname"},
         "lcf: unknown server 'hostname' (ntpip, syslogip or nameserver)\n"},
    };
    for (const auto& [args, err] : cases) {
        const LcfRun run = runLcf(sb(), args);
        const std::string line = ::testing::PrintToString(args);
        EXPECT_EQ(run.result.status, 2) << line;
        EXPECT_EQ(run.result.out, "") << line;
        EXPECT_EQ(run.result.err, err) << line;
    }

    // Datagrams are handled in arrival order: once a query sent now has been traced, anything
    // sent before it would have been too. Only the query reached the daemons.
    const LcfRun marker = runLcf(sb(), {"query", "02:4c:43:00:00:01"});
    EXPECT_EQ(marker.result.status, 0);
    const std::string addressed = "#mac=02:4C:43:00:00:01";
    ASSERT_TRUE(traced(sb(), 1, addressed, "understood", Seconds(10))) << sb().out(1);
    ASSERT_TRUE(traced(sb(), 2, addressed, "understood", Seconds(10))) << sb().out(2);
    for (const auto& [k, earlier] : {std::make_pair(1, out1), std::make_pair(2, out2)}) {
        const std::string added = sb().out(k).substr(earlier.size());
        const std::string firstLine = added.substr(0, added.find('\n'));
        EXPECT_EQ(firstLine.rfind("LCF2#QUERY#seqid=", 0), 0u) << added;
        EXPECT_EQ(firstLine.substr(firstLine.size() - addressed.size()), addressed) << added;
    }
    std::vector<std::string> reading = readingCommands("arm9", "br0", "br0");
    reading.push_back("date -u +%Y%m%d%H%M%S");
    EXPECT_EQ(sb().shellLog(1), reading);
    EXPECT_EQ(sb().shellLog(2), std::vector<std::string>{});

    const LcfRun help = runLcf(sb(), {"--help"});
    EXPECT_EQ(help.result.status, 0);
    EXPECT_EQ(help.result.err, "");
    EXPECT_EQ(help.result.out.rfind("lcf: find lcfd controllers", 0), 0u) << help.result.out;
}

TEST_F(LcfTool, AToolHostOnTwoSegmentsTagsEachControllerWithItsInterface) {
    ASSERT_TRUE(upServing({"arm9", "imx,seg=2", "qmt", "generic,seg=2", "unknown,seg=2"}));

    std::string before = utcNow();
    const LcfRun both = runLcf(sb(), {"discover", "--expect", "5"}, Seconds(60));
    std::string after = utcNow();
    EXPECT_EQ(both.result.status, 0);
    EXPECT_EQ(maskCounts(both.result.err),
              "lan0: probed <n>, 2 controllers\nlan1: probed <n>, 3 controllers\n");
    EXPECT_EQ(maskClocks(both.result.out, before, after),
              "MAC                IP          NETMASK      GATEWAY       SCHEME  HOSTNAME     "
              "CONTROLLER  SDK    UTCCLOCK        INTERFACE  NOTE\n"
              "02:4C:43:00:00:01  198.18.0.1  255.255.0.0  198.18.255.1  STATIC  arm9-001     "
              "CTRL-001    -      YYYYMMDDhhmmss  lan0\n"
              "02:4C:43:00:00:02  198.18.0.2  255.255.0.0  198.18.255.1  STATIC  imx-002      "
              "CTRL-002    4.2.2  YYYYMMDDhhmmss  lan1\n"
              "02:4C:43:00:00:03  198.18.0.3  255.255.0.0  198.18.255.1  STATIC  qmt-003      "
              "CTRL-003    -      YYYYMMDDhhmmss  lan0\n"
              "02:4C:43:00:00:04  198.18.0.4  255.255.0.0  198.18.255.1  STATIC  generic-004  "
              "CTRL-004    -      YYYYMMDDhhmmss  lan1\n"
              "02:4C:43:00:00:05  198.18.0.5  255.255.0.0  198.18.255.1  STATIC  unknown-005  "
              "CTRL-005    -      YYYYMMDDhhmmss  lan1\n"
              "5 controllers found\n");

    before = utcNow();
    const LcfRun second =
        runLcf(sb(), {"discover", "--json", "--interface", "lan1", "-e", "3"}, Seconds(60));
    after = utcNow();
    EXPECT_EQ(second.result.status, 0);
    EXPECT_EQ(maskCounts(second.result.err), "lan1: probed <n>, 3 controllers\n");
    EXPECT_EQ(maskedObjects(second.result.out, before, after),
              dumped({expectedJson(2, "imx", "lan1"), expectedJson(4, "generic", "lan1"),
                      expectedJson(5, "unknown", "lan1")}));

    before = utcNow();
    const LcfRun first = runLcf(sb(), {"discover", "--json", "-i", "lan0", "-e", "2"}, Seconds(60));
    after = utcNow();
    EXPECT_EQ(first.result.status, 0);
    EXPECT_EQ(maskedObjects(first.result.out, before, after),
              dumped({expectedJson(1, "arm9", "lan0"), expectedJson(3, "qmt", "lan0")}));

    // A controller is reached only through the interface of its own segment.
    const LcfRun elsewhere = runLcf(sb(), {"query", "02:4c:43:00:00:04", "-i", "lan0", "-t", "1"});
    EXPECT_EQ(elsewhere.result.status, 1);
    EXPECT_EQ(elsewhere.result.err, "lcf: no answer from 02:4C:43:00:00:04 within 1 s\n");
    EXPECT_EQ(sb().out(4).find("#mac=02:4C:43:00:00:04\n"), std::string::npos) << sb().out(4);
    // -i takes one interface, so it may also stand before the positionals.
    const LcfRun own = runLcf(sb(), {"clear", "-i", "lan1", "02:4c:43:00:00:04", "syslogip"});
    EXPECT_EQ(own.result.status, 0);
    EXPECT_EQ(own.result.out, "02:4C:43:00:00:04 accept=yes\n");
}

}  // namespace
}  // namespace e2e
