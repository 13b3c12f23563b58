// QUERY: every addressed daemon reads its device again and answers STATUS.
#include <gtest/gtest.h>

#include <map>

#include "Harness.hpp"

namespace e2e {
namespace {

using Query = LcfdBed;

std::string common(int k, const std::string& hostname) {
    return "LCF2#STATUS#seqid=5#mac=" + controllerMac(k) + "#ip=" + controllerAddress(k) +
           "#netmask=255.255.0.0#gateway=198.18.255.1#hostname=" + hostname +
           "#ipscheme=STATIC#ntpip=198.18.255.10#controller=CTRL-00" + std::to_string(k) +
           "#housenames=Hall A,Hall B#syslogip=198.18.255.20";
}

TEST_F(Query, EachPlatformReportsItsDeviceValues) {
    ASSERT_TRUE(up({"arm9", "imx", "qmt", "generic", "unknown"}));
    std::string before = utcNow();
    ASSERT_TRUE(tool().send("LCF2#QUERY#seqid=5"));
    auto replies = bySender(tool().receiveMany(5, Seconds(15), "LCF2#STATUS#seqid=5#"));
    std::string after = utcNow();
    ASSERT_EQ(replies.size(), 5u);

    const std::map<int, std::string> expected = {
        {1, common(1, "arm9-001") +
                "#nameserver=198.18.255.20#ntpsync=yes#sdusage=31%#utcclock=<clock>#displaytime="},
        {2, common(2, "imx-002") +
                "#nameserver=198.18.255.53#ntpsync=yes#sdusage=32%#sdkversion=4.2.2"
                "#mac1=02:4C:43:00:00:02#mac2=02:4C:43:01:00:02#uptime=3605.21 7011.40"
                "#loadavg=0.08 0.03 0.01 1/87 1234#utcclock=<clock>#displaytime=20231114221320"},
        {3, common(3, "qmt-003") +
                "#nameserver=198.18.255.20#ntpsync=yes#sdusage=n/a#utcclock=<clock>#displaytime="},
        {4, common(4, "generic-004") +
                "#nameserver=198.18.255.20#ntpsync=yes#sdusage=34%#utcclock=<clock>#displaytime="},
        {5, common(5, "unknown-005") +
                "#nameserver=198.18.255.20#ntpsync=yes#sdusage=35%#utcclock=<clock>#displaytime="},
    };
    for (const auto& [k, text] : expected) {
        std::string clock;
        EXPECT_EQ(maskClock(replies[controllerAddress(k)], &clock), text) << "controller " << k;
        EXPECT_EQ(clock.size(), 14u);
        EXPECT_LE(before, clock);
        EXPECT_LE(clock, after);
    }
}

TEST_F(Query, IsAnsweredOnlyByTheAddressedDevice) {
    ASSERT_TRUE(up({"arm9", "qmt", "generic"}));
    ASSERT_TRUE(tool().send("LCF2#QUERY#seqid=7#mac=02:4c:43:00:00:02"));
    ASSERT_TRUE(tool().send("LCF2#QUERY#seqid=7#mac=02:4C:43:00:00:02#x=1"));
    // A discovery afterwards: once every daemon has answered it, each has
    // handled the addressed requests before.
    ASSERT_TRUE(tool().send("LCF2#QUERY#seqid=8"));
    const std::string eight = "LCF2#STATUS#seqid=8#";
    std::vector<std::string> seven;
    std::size_t eights = 0;
    for (const auto& d : tool().receiveMany(3, Seconds(15), eight, Others::Kept)) {
        if (d.data.rfind(eight, 0) == 0) {
            ++eights;
        } else {
            seven.push_back(d.sender + " " + d.data.substr(0, 42));
        }
    }
    EXPECT_EQ(eights, 3u);
    EXPECT_EQ(seven,
              std::vector<std::string>{"198.18.0.2 LCF2#STATUS#seqid=7#mac=02:4C:43:00:00:02#"});
    const std::string understood = "[198.18.255.254] Message understood... \n\n";
    EXPECT_NE(sb().out(1).find("LCF2#QUERY#seqid=7#mac=02:4c:43:00:00:02\n" + understood),
              std::string::npos);
    EXPECT_NE(sb().out(3).find("LCF2#QUERY#seqid=7#mac=02:4C:43:00:00:02#x=1\n" + understood),
              std::string::npos);
}

TEST_F(Query, ReadsTheDeviceAgainForEveryQuery) {
    ASSERT_TRUE(up({"imx,iface=eth0"}));
    sb().clearShellLog(1);
    sb().setValue(1, "hostname", "renamed");
    writeFile(sb().dir(1) + "/run/controller", "Line One\nLine Two\n");
    ASSERT_TRUE(tool().send("LCF2#QUERY#seqid=5"));
    auto reply = tool().receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    EXPECT_NE(reply->data.find("#hostname=renamed#"), std::string::npos) << reply->data;
    EXPECT_NE(reply->data.find("#controller=Line One#"), std::string::npos) << reply->data;
    EXPECT_EQ(sb().shellLog(1), queryCommands("imx", "eth0"));
}

TEST_F(Query, UnusableAnswersKeepTheLastValues) {
    ASSERT_TRUE(up({"arm9"}));
    sb().setFault(1, "hostname", "error no host name");    // unusable: kept
    sb().setFault(1, "tarnsetup.gettimeserver", "empty");  // usable and empty: emptied
    sb().setFault(1, "route", "garbage");                  // not an address: kept
    sb().setFault(1, "tarnsetup.getsyslogserver", "big");  // first 510 bytes taken
    sb().setFault(1, "ntpdc", "missing");                  // nothing printed: not synchronised
    sb().setFault(1, "df", "exit 3");                      // nothing printed: n/a
    ASSERT_TRUE(tool().send("LCF2#QUERY#seqid=5"));
    auto reply = tool().receive(Seconds(10));
    ASSERT_TRUE(reply.has_value());
    const std::string x510(510, 'x');
    std::string clock;
    EXPECT_EQ(maskClock(reply->data, &clock),
              "LCF2#STATUS#seqid=5#mac=02:4C:43:00:00:01#ip=198.18.0.1#netmask=255.255.0.0"
              "#gateway=198.18.255.1#hostname=arm9-001#ipscheme=STATIC#controller=CTRL-001"
              "#housenames=Hall A,Hall B#syslogip=" +
                  x510 + "#nameserver=" + x510 +
                  "#ntpsync=no#sdusage=n/a#utcclock=<clock>#displaytime=");
    EXPECT_EQ(sb().err(1), "sh: 1: ntpdc: not found\n");
}

TEST_F(Query, DisplayTimeIsShownInTheDaemonsTimeZone) {
    ASSERT_TRUE(up({"imx,tz=Europe/Berlin", "imx"}));
    sb().setFault(2, "Get", "print abc");
    ASSERT_TRUE(tool().send("LCF2#QUERY#seqid=5"));
    auto replies = bySender(tool().receiveMany(2, Seconds(15), "LCF2#STATUS#seqid=5#"));
    ASSERT_EQ(replies.size(), 2u);
    // 1700000000 seconds is 2023-11-14 22:13:20 UTC, 23:13:20 in Berlin.
    const std::string berlin = replies[controllerAddress(1)];
    EXPECT_EQ(berlin.substr(berlin.size() - 27), "#displaytime=20231114231320");
    const std::string unreadable = replies[controllerAddress(2)];
    EXPECT_EQ(unreadable.substr(unreadable.size() - 13), "#displaytime=");
}

}  // namespace
}  // namespace e2e
