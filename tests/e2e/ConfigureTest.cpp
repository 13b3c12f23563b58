// ASSIGN and CLEAR: the acknowledgement, the device commands each platform
// runs, and what the next QUERY reports.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "Harness.hpp"

namespace e2e {
namespace {

// Replies starting with `prefix`, by sender, until `count` senders answered.
std::map<std::string, std::string> collect(const ToolSocket& tool, std::size_t count,
                                           const std::string& prefix, Seconds timeout) {
    std::map<std::string, std::string> replies;
    auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    while (replies.size() < count && Clock::now() < deadline) {
        auto d = tool.receive(Seconds(deadline - Clock::now()));
        if (!d) {
            break;
        }
        if (d->data.rfind(prefix, 0) == 0) {
            replies[d->sender] = d->data;
        }
    }
    return replies;
}

std::string ack(const std::string& seqid, int k, const std::string& verdict) {
    return "LCF2#ACK#seqid=" + seqid + "#mac=" + controllerMac(k) + "#accept=" + verdict;
}

TEST(Configure, AssignedStaticAddressIsAppliedAndReported) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    ASSERT_TRUE(tool.ok());
    sb.clearShellLog(1);
    ASSERT_TRUE(
        tool.send("LCF2#ASSIGN#seqid=9#mac=02:4C:43:00:00:01#ip=198.18.0.77"
                  "#netmask=255.255.255.0"));
    auto acked = tool.receive(Seconds(10));
    ASSERT_TRUE(acked.has_value());
    EXPECT_EQ(acked->data, ack("9", 1, "yes"));
    // Waits in the queue until the daemon's pause after the change is over.
    ASSERT_TRUE(tool.send("LCF2#QUERY#seqid=10"));
    auto status = collect(tool, 1, "LCF2#STATUS#seqid=10#", Seconds(15));
    ASSERT_EQ(status.size(), 1u);
    const std::string& reply = status.begin()->second;
    EXPECT_EQ(status.begin()->first, "198.18.0.77");
    EXPECT_NE(reply.find("#ip=198.18.0.77#netmask=255.255.255.0#gateway=198.18.255.1#"),
              std::string::npos)
        << reply;

    std::vector<std::string> expected = readingCommands("arm9", "br0", "br0");
    expected.push_back("tarnsetup setip 198.18.0.77 255.255.255.0 198.18.255.1 ");
    auto second = readingCommands("arm9", "br0", "br0");
    expected.insert(expected.end(), second.begin(), second.end());
    expected.push_back("date -u +%Y%m%d%H%M%S");
    EXPECT_EQ(sb.shellLog(1), expected);
    EXPECT_NE(sb.out(1).find("lcfd:Writing network settings\n"
                             "lcfd:tarnsetup setip 198.18.0.77 255.255.255.0 198.18.255.1 \n"
                             "lcfd:Changed to Static IP...\n"
                             "lcfd:Finished writing network settings\n"),
              std::string::npos)
        << sb.out(1);
    EXPECT_EQ(sb.err(1), "");
}

TEST(Configure, ClearRunsEachPlatformsCommands) {
    E2E_REQUIRE_ROOT();
    const std::vector<std::string> platforms = {"generic", "arm9", "imx", "qmt", "unknown"};
    Sandbox sb(platforms);
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    ASSERT_TRUE(tool.ok());

    const std::map<std::string, std::vector<std::vector<std::string>>> expected = {
        {"ntpip",
         {{"ubootenv /dev/mtd1 del timeserver"},
          {"rm /etc/tarnsetup.d/timeserver"},
          {"tarnsetup settimeserver --delete"},
          {"rm /etc/systemd/timesyncd.conf", "systemctl restart systemd-timesyncd.service"},
          {}}},
        {"syslogip",
         {{"ubootenv /dev/mtd1 del serverip"},
          {"rm /etc/tarnsetup.d/syslogserver"},
          {"tarnsetup setsyslogserver --delete"},
          {"tarnsetup setsyslogserver disabled"},
          {}}},
        {"nameserver", {{}, {}, {"tarnsetup setnameserver --delete"}, {}, {}}},
    };
    int round = 0;
    for (const std::string key : {"ntpip", "syslogip", "nameserver"}) {
        const std::string seqid = std::to_string(++round);
        for (int k = 1; k <= 5; ++k) {
            sb.clearShellLog(k);
        }
        for (int k = 1; k <= 5; ++k) {
            ASSERT_TRUE(
                tool.send("LCF2#CLEAR#seqid=" + seqid + "#mac=" + controllerMac(k) + "#" + key));
        }
        auto acks = collect(tool, 5, "LCF2#ACK#seqid=" + seqid + "#", Seconds(10));
        ASSERT_EQ(acks.size(), 5u) << key;
        for (int k = 1; k <= 5; ++k) {
            EXPECT_EQ(acks[controllerAddress(k)], ack(seqid, k, "yes")) << key;
            EXPECT_EQ(sb.shellLog(k), expected.at(key)[static_cast<std::size_t>(k - 1)])
                << key << " on " << platforms[static_cast<std::size_t>(k - 1)];
        }
    }

    ASSERT_TRUE(tool.send("LCF2#QUERY#seqid=5"));
    auto status = collect(tool, 5, "LCF2#STATUS#seqid=5#", Seconds(10));
    ASSERT_EQ(status.size(), 5u);
    for (int k = 1; k <= 4; ++k) {
        const std::string& reply = status[controllerAddress(k)];
        EXPECT_EQ(reply.find("#ntpip="), std::string::npos) << reply;
        EXPECT_EQ(reply.find("#syslogip="), std::string::npos) << reply;
        EXPECT_EQ(reply.find("#nameserver="), std::string::npos) << reply;
    }
    // A board that cannot name its platform runs no clear command at all.
    EXPECT_NE(status[controllerAddress(5)].find(
                  "#ntpip=198.18.255.10#controller=CTRL-005#housenames=Hall A,Hall B"
                  "#syslogip=198.18.255.20#nameserver=198.18.255.20#"),
              std::string::npos)
        << status[controllerAddress(5)];
}

TEST(Configure, ClearWithABadKeyIsRefused) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"imx"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    ASSERT_TRUE(tool.ok());
    ASSERT_TRUE(tool.send("LCF2#CLEAR#seqid=3#mac=02:4C:43:00:00:01#syslogip#"));
    auto reply = tool.receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->data, ack("3", 1, "no"));
    EXPECT_TRUE(sb.waitOut(1, "Message not understood... \n\n", Seconds(5)));
}

TEST(Configure, AssignedClockUsesEachPlatformsDateSyntax) {
    E2E_REQUIRE_ROOT();
    const std::vector<std::string> platforms = {"arm9", "imx", "qmt", "generic", "unknown"};
    Sandbox sb(platforms);
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    ASSERT_TRUE(tool.ok());
    for (int k = 1; k <= 5; ++k) {
        sb.clearShellLog(k);
        ASSERT_TRUE(
            tool.send("LCF2#ASSIGN#seqid=4#mac=" + controllerMac(k) + "#utcclock=20231115123045"));
    }
    auto acks = collect(tool, 5, "LCF2#ACK#seqid=4#", Seconds(10));
    ASSERT_EQ(acks.size(), 5u);
    std::string hostBefore = utcNow();
    ASSERT_TRUE(tool.send("LCF2#QUERY#seqid=5"));
    auto status = collect(tool, 5, "LCF2#STATUS#seqid=5#", Seconds(20));
    std::string hostAfter = utcNow();
    ASSERT_EQ(status.size(), 5u);

    const std::vector<std::string> setters = {
        "date -u -D %Y%m%d%H%M%S -s 20231115123045",
        "date -u -s 202311151230.45",
        "date -u -s '2023-11-15 12:30:45'",
        "date -u -D %Y%m%d%H%M%S -s 20231115123045",
        "",
    };
    for (int k = 1; k <= 5; ++k) {
        const auto index = static_cast<std::size_t>(k - 1);
        EXPECT_EQ(acks[controllerAddress(k)], ack("4", k, "yes"));
        // Read, set the clock, set it once more after the network step, then
        // the query's reading and the clock read for the reply.
        std::vector<std::string> expected = readingCommands(platforms[index], "br0", "br0");
        if (!setters[index].empty()) {
            expected.push_back(setters[index]);
            expected.push_back(setters[index]);
        }
        auto again = readingCommands(platforms[index], "br0", "br0");
        expected.insert(expected.end(), again.begin(), again.end());
        expected.push_back("date -u +%Y%m%d%H%M%S");
        EXPECT_EQ(sb.shellLog(k), expected) << platforms[index];

        std::string clock;
        maskClock(status[controllerAddress(k)], &clock);
        if (setters[index].empty()) {
            EXPECT_LE(hostBefore, clock);
            EXPECT_LE(clock, hostAfter);
        } else {
            // The simulated clock was set and has been ticking since.
            EXPECT_LE("20231115123045", clock) << platforms[index];
            EXPECT_LE(clock, "20231115123115") << platforms[index];
        }
    }
}

TEST(Configure, AssignedServersAndSchemeUseEachPlatformsVerbs) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9", "imx,iface=eth0", "qmt", "generic"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    ASSERT_TRUE(tool.ok());
    sb.setFault(4, "tarnsetup.setsyslogserver", "exit 2");
    const std::string servers =
        "#ntpip=198.18.255.11#syslogip=198.18.255.21#nameserver=198.18.255.54";
    for (int k = 1; k <= 4; ++k) {
        sb.clearShellLog(k);
        std::string extra = k == 2 ? "#ipscheme=DHCP" : "";
        ASSERT_TRUE(tool.send("LCF2#ASSIGN#seqid=6#mac=" + controllerMac(k) + servers + extra));
    }
    auto acks = collect(tool, 4, "LCF2#ACK#seqid=6#", Seconds(10));
    ASSERT_EQ(acks.size(), 4u);
    ASSERT_TRUE(tool.send("LCF2#QUERY#seqid=7"));
    auto status = collect(tool, 4, "LCF2#STATUS#seqid=7#", Seconds(20));
    ASSERT_EQ(status.size(), 4u);

    const std::vector<std::string> platforms = {"arm9", "imx", "qmt", "generic"};
    const std::vector<std::vector<std::string>> writes = {
        {"tarnsetup settimeserver 198.18.255.11", "tarnsetup setsyslogserver 198.18.255.21",
         "tarnsetup setnameserver 198.18.255.54",
         "tarnsetup setip 198.18.0.1 255.255.0.0 198.18.255.1 "},
        {"tarnsetup settimeserver 198.18.255.11", "tarnsetup setsyslogserver 198.18.255.21",
         "tarnsetup setnameserver 198.18.255.54", "tarnsetup setdhcp eth0"},
        {"tarnsetup timeserver 198.18.255.11", "tarnsetup setsyslogserver 198.18.255.21",
         "tarnsetup setnameserver 198.18.255.54",
         "tarnsetup setip 198.18.0.3 255.255.0.0 198.18.255.1 "},
        {"tarnsetup timeserver 198.18.255.11", "tarnsetup setsyslogserver 198.18.255.21",
         "tarnsetup setnameserver 198.18.255.54",
         "tarnsetup setip 198.18.0.4 255.255.0.0 198.18.255.1 "},
    };
    for (int k = 1; k <= 4; ++k) {
        const auto index = static_cast<std::size_t>(k - 1);
        std::string iface = k == 2 ? "eth0" : "br0";
        EXPECT_EQ(acks[controllerAddress(k)], ack("6", k, "yes"));
        std::vector<std::string> expected = readingCommands(platforms[index], iface, iface);
        expected.insert(expected.end(), writes[index].begin(), writes[index].end());
        auto again = readingCommands(platforms[index], iface, iface);
        expected.insert(expected.end(), again.begin(), again.end());
        expected.push_back("date -u +%Y%m%d%H%M%S");
        EXPECT_EQ(sb.shellLog(k), expected) << platforms[index];
    }
    // Outside imx boards the name server reported is the syslog server's answer.
    EXPECT_NE(status[controllerAddress(1)].find(
                  "#ntpip=198.18.255.11#controller=CTRL-001#housenames=Hall A,Hall B"
                  "#syslogip=198.18.255.21#nameserver=198.18.255.21#"),
              std::string::npos)
        << status[controllerAddress(1)];
    EXPECT_NE(status[controllerAddress(2)].find(
                  "#ipscheme=DHCP#ntpip=198.18.255.11#controller=CTRL-002"
                  "#housenames=Hall A,Hall B#syslogip=198.18.255.21#nameserver=198.18.255.54#"),
              std::string::npos)
        << status[controllerAddress(2)];
    EXPECT_NE(status[controllerAddress(3)].find(
                  "#ntpip=198.18.255.11#controller=CTRL-003#housenames=Hall A,Hall B"
                  "#syslogip=198.18.255.21#nameserver=198.18.255.21#"),
              std::string::npos)
        << status[controllerAddress(3)];
    // The failed syslog command is reported, and the steps after it still ran.
    EXPECT_NE(status[controllerAddress(4)].find(
                  "#ntpip=198.18.255.11#controller=CTRL-004#housenames=Hall A,Hall B"
                  "#syslogip=198.18.255.20#nameserver=198.18.255.20#"),
              std::string::npos)
        << status[controllerAddress(4)];
    EXPECT_EQ(sb.err(4), "lcfd:Error setting syslog IP\n");
    EXPECT_NE(sb.out(4).find("lcfd:tarnsetup setsyslogserver 198.18.255.21\n"
                             "lcfd:Finished writing syslog IP settings\n"
                             "lcfd:tarnsetup setnameserver 198.18.255.54\n"
                             "lcfd:Finished writing nameserver settings\n"
                             "lcfd:Writing network settings\n"),
              std::string::npos)
        << sb.out(4);
    for (int k = 1; k <= 3; ++k) {
        EXPECT_EQ(sb.err(k), "") << platforms[static_cast<std::size_t>(k - 1)];
    }
}

TEST(Configure, AssignWithABadSchemeIsRefusedAndChangesNothing) {
    E2E_REQUIRE_ROOT();
    Sandbox sb({"arm9"});
    ASSERT_TRUE(sb.ok()) << sb.upOutput();
    ToolSocket tool(sb);
    ASSERT_TRUE(tool.ok());
    sb.clearShellLog(1);
    ASSERT_TRUE(tool.send("LCF2#ASSIGN#seqid=9#mac=02:4C:43:00:00:01#ip=198.18.0.7#ipscheme=dhcp"));
    auto reply = tool.receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->data, ack("9", 1, "no"));
    EXPECT_TRUE(sb.waitOut(1, "Message not understood... \n\n", Seconds(5)));
    EXPECT_EQ(sb.shellLog(1), readingCommands("arm9", "br0", "br0"));
}

}  // namespace
}  // namespace e2e
