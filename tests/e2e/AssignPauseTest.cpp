// An imx controller's STATUS reply as the tool receives it, the command lines
// one ASSIGN of address, netmask, gateway and clock makes its device run, and
// the pause after that ASSIGN during which the daemon handles nothing.
#include <gtest/gtest.h>

#include <iostream>

#include "Harness.hpp"

namespace e2e {
namespace {

using AssignPause = LcfdBed;

const std::string kImxStatus =
    "LCF2#STATUS#seqid=1#mac=02:4C:43:00:00:01#ip=198.18.0.1#netmask=255.255.0.0"
    "#gateway=198.18.255.1#hostname=imx-001#ipscheme=STATIC#ntpip=198.18.255.10"
    "#controller=CTRL-001#housenames=Hall A,Hall B#syslogip=198.18.255.20"
    "#nameserver=198.18.255.53#ntpsync=yes#sdusage=31%#sdkversion=4.2.1"
    "#mac1=02:4C:43:00:00:01#mac2=02:4C:43:01:00:01#uptime=3605.21 7011.40"
    "#loadavg=0.08 0.03 0.01 1/87 1234#utcclock=<clock>#displaytime=20231114221320";

const std::string kAssign =
    "LCF2#ASSIGN#seqid=2#mac=02:4C:43:00:00:01#ip=198.18.0.101#netmask=255.255.255.0"
    "#gateway=198.18.0.254#utcclock=20240229235959";

const std::vector<std::string> kImxAssignLog = {
    "tarnsetup getsdk",
    "tarnsetup getmacaddr",
    "tarnsetup getipscheme",
    "tarnsetup getipaddr",
    "route -n | grep ^0.0.0.0 | awk '{ print $2 }'",
    "tarnsetup gettimeserver",
    "tarnsetup getsyslogserver",
    "tarnsetup getnameserver",
    "hostname",
    "ntpq -pn | grep -v LOCL | grep ^*",
    "tarnsetup sdcard info usage",
    "tarnsetup getsdkversion",
    "tarnsetup getmacaddr fromfuses primary",
    "tarnsetup getmacaddr fromfuses secondary",
    "cat /proc/uptime",
    "cat /proc/loadavg",
    // One command line, written on two lines.
    // NOLINTNEXTLINE(bugprone-suspicious-missing-comma)
    "Get $(grep HS_REALTIME_SEC_SINCE_1970_BEFORE /etc/tarn/ConfigurationFiles/HardCodedHSSets.xml"
    " | sed -e 's/.*value=\"\\([^\"]*\\)\".*/\\1/')",
    "date -u -s 202402292359.59",
    "tarnsetup setip 198.18.0.101 255.255.255.0 198.18.0.254 ",
    "date -u -s 202402292359.59",
};

TEST_F(AssignPause, ImxStatusTheAssignCommandLogAndTheFiveSecondPause) {
    ASSERT_TRUE(up({"imx"}));
    Session s("imx");
    s.startup();

    const std::string query = "LCF2#QUERY#seqid=1";
    const std::string before = utcNow();
    ASSERT_TRUE(tool().send(query));
    auto status = tool().receive(Seconds(10));
    const std::string after = utcNow();
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(status->sender, "198.18.0.1");
    std::string clock;
    EXPECT_EQ(maskClock(status->data, &clock), kImxStatus);
    EXPECT_LE(before, clock);
    EXPECT_LE(clock, after);
    std::cout << "imx STATUS as received (" << status->data.size() << " bytes): " << status->data
              << "\n";
    s.queried(query);
    expectSessions(sb(), {&s});
    const std::size_t assignStarts = s.shell.size();

    // The ACK goes out first; the next request waits in the queue until the
    // device was changed and the pause is over.
    ASSERT_TRUE(tool().send(kAssign));
    auto ack = tool().receive(Seconds(10));
    const auto acked = Clock::now();
    ASSERT_TRUE(ack.has_value());
    EXPECT_EQ(ack->data, "LCF2#ACK#seqid=2#mac=02:4C:43:00:00:01#accept=yes");
    const std::string next = "LCF2#QUERY#seqid=3";
    ASSERT_TRUE(tool().send(next));
    auto changed = tool().receive(Seconds(20));
    const Seconds waited = Clock::now() - acked;
    ASSERT_TRUE(changed.has_value());
    EXPECT_GE(waited.count(), 4.995);
    EXPECT_LE(waited.count(), 12.0);
    std::cout << "QUERY after the ACK answered after " << waited.count() << " s\n";

    s.echo(kAssign);
    s.reading();
    // The clock is set when the value is taken, and again after the network.
    s.ran("date -u -s 202402292359.59");
    s.info("Writing network settings");
    s.ranLogged("tarnsetup setip 198.18.0.101 255.255.255.0 198.18.0.254 ");
    s.info("Changed to Static IP...");
    s.info("Finished writing network settings");
    s.ran("date -u -s 202402292359.59");
    s.trace(true);
    s.queried(next);
    expectSessions(sb(), {&s});

    // The same, written out: what the device ran for the ASSIGN alone.
    const auto log = sb().shellLog(1);
    const std::size_t assignEnds = assignStarts + kImxAssignLog.size();
    ASSERT_GE(log.size(), assignEnds);
    const std::vector<std::string> assignLog(
        log.begin() + static_cast<std::ptrdiff_t>(assignStarts),
        log.begin() + static_cast<std::ptrdiff_t>(assignEnds));
    EXPECT_EQ(assignLog, kImxAssignLog);
    std::cout << "shell log of the ASSIGN:\n";
    for (const auto& line : assignLog) {
        std::cout << "  " << line << "\n";
    }

    EXPECT_EQ(changed->sender, "198.18.0.101");
    EXPECT_EQ(maskClock(changed->data, &clock),
              "LCF2#STATUS#seqid=3#mac=02:4C:43:00:00:01#ip=198.18.0.101#netmask=255.255.255.0"
              "#gateway=198.18.0.254#hostname=imx-001#ipscheme=STATIC#ntpip=198.18.255.10"
              "#controller=CTRL-001#housenames=Hall A,Hall B#syslogip=198.18.255.20"
              "#nameserver=198.18.255.53#ntpsync=yes#sdusage=31%#sdkversion=4.2.1"
              "#mac1=02:4C:43:00:00:01#mac2=02:4C:43:01:00:01#uptime=3605.21 7011.40"
              "#loadavg=0.08 0.03 0.01 1/87 1234#utcclock=<clock>#displaytime=20231114221320");
    // The simulated clock was set and has been running since.
    EXPECT_LE("20240229235959", clock);
    EXPECT_LE(clock, "20240301000059");
}

}  // namespace
}  // namespace e2e
