// ASSIGN and CLEAR: the acknowledgement, the device commands each platform
// runs, and what the next QUERY reports.
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "Harness.hpp"

namespace e2e {
namespace {

class Configure : public LcfdBed {
  protected:
    // The ACK and the STATUS reply of every controller, by sender, and the host's clock just
    // before the discovery went out and just after its replies were in.
    struct Round {
        std::map<std::string, std::string> acks;
        std::map<std::string, std::string> status;
        std::string hostBefore;
        std::string hostAfter;
    };

    // With every shell log cleared, sends each controller k its ASSIGN `seqid` carrying
    // `fields(k)`, then, once every ACK is in, the discovery `querySeqid`.
    Round assignEachThenQuery(const std::string& seqid,
                              const std::function<std::string(int)>& fields,
                              const std::string& querySeqid) {
        Round round;
        const auto count = static_cast<std::size_t>(controllers());
        for (int k = 1; k <= controllers(); ++k) {
            sb().clearShellLog(k);
            EXPECT_TRUE(
                tool().send("LCF2#ASSIGN#seqid=" + seqid + "#mac=" + controllerMac(k) + fields(k)));
        }
        round.acks =
            bySender(tool().receiveMany(count, Seconds(10), "LCF2#ACK#seqid=" + seqid + "#"));
        round.hostBefore = utcNow();
        EXPECT_TRUE(tool().send("LCF2#QUERY#seqid=" + querySeqid));
        round.status = bySender(
            tool().receiveMany(count, Seconds(20), "LCF2#STATUS#seqid=" + querySeqid + "#"));
        round.hostAfter = utcNow();
        return round;
    }
};

// What a device runs for an accepted ASSIGN on `interface`: the reading, the writes, then the
// reading and clock of the QUERY after it.
std::vector<std::string> assignedLog(const std::string& platform, const std::string& interface,
                                     const std::vector<std::string>& writes) {
    std::vector<std::string> log = readingCommands(platform, interface, interface);
    log.insert(log.end(), writes.begin(), writes.end());
    const auto query = queryCommands(platform, interface);
    log.insert(log.end(), query.begin(), query.end());
    return log;
}

TEST_F(Configure, AssignedStaticAddressIsAppliedAndReported) {
    ASSERT_TRUE(up({"arm9"}));
    sb().clearShellLog(1);
    ASSERT_TRUE(
        tool().send("LCF2#ASSIGN#seqid=9#mac=02:4C:43:00:00:01#ip=198.18.0.77"
                    "#netmask=255.255.255.0"));
    auto acked = tool().receive(Seconds(10));
    ASSERT_TRUE(acked.has_value());
    EXPECT_EQ(acked->data, ackText("9", 1, true));
    // Waits in the queue until the daemon's pause after the change is over.
    ASSERT_TRUE(tool().send("LCF2#QUERY#seqid=10"));
    auto status = bySender(tool().receiveMany(1, Seconds(15), "LCF2#STATUS#seqid=10#"));
    ASSERT_EQ(status.size(), 1u);
    const std::string& reply = status.begin()->second;
    EXPECT_EQ(status.begin()->first, "198.18.0.77");
    EXPECT_NE(reply.find("#ip=198.18.0.77#netmask=255.255.255.0#gateway=198.18.255.1#"),
              std::string::npos)
        << reply;

    EXPECT_EQ(
        sb().shellLog(1),
        assignedLog("arm9", "br0", {"tarnsetup setip 198.18.0.77 255.255.255.0 198.18.255.1 "}));
    EXPECT_NE(sb().out(1).find("lcfd:Writing network settings\n"
                               "lcfd:tarnsetup setip 198.18.0.77 255.255.255.0 198.18.255.1 \n"
                               "lcfd:Changed to Static IP...\n"
                               "lcfd:Finished writing network settings\n"),
              std::string::npos)
        << sb().out(1);
    EXPECT_EQ(sb().err(1), "");
}

TEST_F(Configure, ClearRunsEachPlatformsCommands) {
    const std::vector<std::string> platforms = {"generic", "arm9", "imx", "qmt", "unknown"};
    ASSERT_TRUE(up(platforms));

    int round = 0;
    for (const std::string key : {"ntpip", "syslogip", "nameserver"}) {
        const std::string seqid = std::to_string(++round);
        for (int k = 1; k <= 5; ++k) {
            sb().clearShellLog(k);
        }
        for (int k = 1; k <= 5; ++k) {
            ASSERT_TRUE(
                tool().send("LCF2#CLEAR#seqid=" + seqid + "#mac=" + controllerMac(k) + "#" + key));
        }
        auto acks = bySender(tool().receiveMany(5, Seconds(10), "LCF2#ACK#seqid=" + seqid + "#"));
        ASSERT_EQ(acks.size(), 5u) << key;
        for (int k = 1; k <= 5; ++k) {
            EXPECT_EQ(acks[controllerAddress(k)], ackText(seqid, k, true)) << key;
            const std::string& platform = platforms[static_cast<std::size_t>(k - 1)];
            EXPECT_EQ(sb().shellLog(k), clearCommands(key, platform)) << key << " on " << platform;
        }
    }

    ASSERT_TRUE(tool().send("LCF2#QUERY#seqid=5"));
    auto status = bySender(tool().receiveMany(5, Seconds(10), "LCF2#STATUS#seqid=5#"));
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

TEST_F(Configure, ClearWithABadKeyIsRefused) {
    ASSERT_TRUE(up({"imx"}));
    ASSERT_TRUE(tool().send("LCF2#CLEAR#seqid=3#mac=02:4C:43:00:00:01#syslogip#"));
    auto reply = tool().receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->data, ackText("3", 1, false));
    EXPECT_TRUE(sb().waitOut(1, "Message not understood... \n\n", Seconds(5)));
}

// A CLEAR's device command has run by the time its ACK goes out.  The command is made slow
// (it waits two seconds, then does its work): the ACK comes no sooner, and the moment it
// arrives the command line is in the shell log and the value is gone from the device.
TEST_F(Configure, ClearRunsItsDeviceCommandBeforeItsAck) {
    ASSERT_TRUE(up({"imx"}));
    const std::string value = sb().dir(1) + "/sim/syslogserver";
    ASSERT_TRUE(fileExists(value));
    sb().clearShellLog(1);
    sb().setFault(1, "tarnsetup.setsyslogserver", "delay 2");
    const auto sent = Clock::now();
    ASSERT_TRUE(tool().send("LCF2#CLEAR#seqid=8#mac=" + controllerMac(1) + "#syslogip"));
    const auto ack = tool().receive(Seconds(10));
    // Read first, before anything else: what the device had done when the ACK arrived.
    const std::vector<std::string> logAtAck = sb().shellLog(1);
    const bool clearedAtAck = !fileExists(value);
    ASSERT_TRUE(ack.has_value());
    EXPECT_EQ(ack->data, ackText("8", 1, true));
    EXPECT_EQ(logAtAck, clearCommands("syslogip", "imx"));
    EXPECT_TRUE(clearedAtAck);
    EXPECT_GE(Seconds(ack->arrived - sent).count(), 2.0);
}

TEST_F(Configure, AssignedClockUsesEachPlatformsDateSyntax) {
    const std::vector<std::string> platforms = {"arm9", "imx", "qmt", "generic", "unknown"};
    ASSERT_TRUE(up(platforms));
    Round round = assignEachThenQuery(
        "4", [](int) { return "#utcclock=20231115123045"; }, "5");
    ASSERT_EQ(round.acks.size(), 5u);
    ASSERT_EQ(round.status.size(), 5u);

    const std::vector<std::string> setters = {
        "date -u -D %Y%m%d%H%M%S -s 20231115123045",
        "date -u -s 202311151230.45",
        "date -u -s '2023-11-15 12:30:45'",
        "date -u -D %Y%m%d%H%M%S -s 20231115123045",
        "",
    };
    for (int k = 1; k <= 5; ++k) {
        const auto index = static_cast<std::size_t>(k - 1);
        EXPECT_EQ(round.acks[controllerAddress(k)], ackText("4", k, true));
        // Read, set the clock, set it once more after the network step, then
        // the query's reading and the clock read for the reply.
        std::vector<std::string> writes;
        if (!setters[index].empty()) {
            writes = {setters[index], setters[index]};
        }
        EXPECT_EQ(sb().shellLog(k), assignedLog(platforms[index], "br0", writes))
            << platforms[index];

        std::string clock;
        maskClock(round.status[controllerAddress(k)], &clock);
        if (setters[index].empty()) {
            EXPECT_LE(round.hostBefore, clock);
            EXPECT_LE(clock, round.hostAfter);
        } else {
            // The simulated clock was set and has been ticking since.
            EXPECT_LE("20231115123045", clock) << platforms[index];
            EXPECT_LE(clock, "20231115123115") << platforms[index];
        }
    }
}

TEST_F(Configure, AssignedServersAndSchemeUseEachPlatformsVerbs) {
    ASSERT_TRUE(up({"arm9", "imx,iface=eth0", "qmt", "generic"}));
    sb().setFault(4, "tarnsetup.setsyslogserver", "exit 2");
    const std::string servers =
        "#ntpip=198.18.255.11#syslogip=198.18.255.21#nameserver=198.18.255.54";
    Round round = assignEachThenQuery(
        "6", [&servers](int k) { return servers + (k == 2 ? "#ipscheme=DHCP" : ""); }, "7");
    ASSERT_EQ(round.acks.size(), 4u);
    ASSERT_EQ(round.status.size(), 4u);

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
        EXPECT_EQ(round.acks[controllerAddress(k)], ackText("6", k, true));
        EXPECT_EQ(sb().shellLog(k), assignedLog(platforms[index], iface, writes[index]))
            << platforms[index];
    }
    // Outside imx boards the name server reported is the syslog server's answer.
    EXPECT_NE(round.status[controllerAddress(1)].find(
                  "#ntpip=198.18.255.11#controller=CTRL-001#housenames=Hall A,Hall B"
                  "#syslogip=198.18.255.21#nameserver=198.18.255.21#"),
              std::string::npos)
        << round.status[controllerAddress(1)];
    EXPECT_NE(round.status[controllerAddress(2)].find(
                  "#ipscheme=DHCP#ntpip=198.18.255.11#controller=CTRL-002"
                  "#housenames=Hall A,Hall B#syslogip=198.18.255.21#nameserver=198.18.255.54#"),
              std::string::npos)
        << round.status[controllerAddress(2)];
    EXPECT_NE(round.status[controllerAddress(3)].find(
                  "#ntpip=198.18.255.11#controller=CTRL-003#housenames=Hall A,Hall B"
                  "#syslogip=198.18.255.21#nameserver=198.18.255.21#"),
              std::string::npos)
        << round.status[controllerAddress(3)];
    // The failed syslog command is reported, and the steps after it still ran.
    EXPECT_NE(round.status[controllerAddress(4)].find(
                  "#ntpip=198.18.255.11#controller=CTRL-004#housenames=Hall A,Hall B"
                  "#syslogip=198.18.255.20#nameserver=198.18.255.20#"),
              std::string::npos)
        << round.status[controllerAddress(4)];
    EXPECT_EQ(sb().err(4), "lcfd:Error setting syslog IP\n");
    EXPECT_NE(sb().out(4).find("lcfd:tarnsetup setsyslogserver 198.18.255.21\n"
                               "lcfd:Finished writing syslog IP settings\n"
                               "lcfd:tarnsetup setnameserver 198.18.255.54\n"
                               "lcfd:Finished writing nameserver settings\n"
                               "lcfd:Writing network settings\n"),
              std::string::npos)
        << sb().out(4);
    for (int k = 1; k <= 3; ++k) {
        EXPECT_EQ(sb().err(k), "") << platforms[static_cast<std::size_t>(k - 1)];
    }
}

TEST_F(Configure, AssignWithABadSchemeIsRefusedAndChangesNothing) {
    ASSERT_TRUE(up({"arm9"}));
    sb().clearShellLog(1);
    ASSERT_TRUE(
        tool().send("LCF2#ASSIGN#seqid=9#mac=02:4C:43:00:00:01#ip=198.18.0.7#ipscheme=dhcp"));
    auto reply = tool().receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->data, ackText("9", 1, false));
    EXPECT_TRUE(sb().waitOut(1, "Message not understood... \n\n", Seconds(5)));
    EXPECT_EQ(sb().shellLog(1), readingCommands("arm9", "br0", "br0"));
}

}  // namespace
}  // namespace e2e
