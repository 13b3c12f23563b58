// One session per platform, side by side on one segment: discovery, a
// refused and an accepted ASSIGN, the STATUS that shows the change, and a
// CLEAR of each server.  Every stream of every daemon, its syslog records and
// every command line its device ran are compared in full at the end.
#include <gtest/gtest.h>

#include <map>

#include "Harness.hpp"

namespace e2e {
namespace {

const std::vector<std::string> kPlatforms = {"generic", "arm9", "imx", "qmt", "unknown"};
constexpr int kCount = 5;

using PlatformSession = LcfdBed;

std::string newAddress(int k) {
    return "198.18.1." + std::to_string(k);
}

std::string timeServerVerb(const std::string& platform) {
    // The tools of generic and qmt boards take the shorter verb.
    return platform == "generic" || platform == "qmt" ? "tarnsetup timeserver "
                                                      : "tarnsetup settimeserver ";
}

// The STATUS reply after the accepted ASSIGN, the clock masked.
std::string statusAfterAssign(int k, const std::string& platform) {
    return statusReply(
        "4", k, platform,
        {{"ip", newAddress(k)}, {"gateway", "198.18.255.2"}, {"ntpip", "198.18.255.12"}});
}

TEST_F(PlatformSession, EveryStreamThroughQueryAssignAndClear) {
    ASSERT_TRUE(up(kPlatforms));
    std::vector<Session> session;
    for (const auto& platform : kPlatforms) {
        session.emplace_back(platform);
        session.back().startup();
    }

    // Discovery: every daemon reads its device, then the clock for the reply.
    const std::string query = "LCF2#QUERY#seqid=1";
    ASSERT_TRUE(tool().send(query));
    for (Session& s : session) {
        s.queried(query);
    }
    auto discovered = bySender(tool().receiveMany(kCount, Seconds(15), "LCF2#STATUS#seqid=1#"));
    ASSERT_EQ(discovered.size(), 5u);
    for (int k = 1; k <= kCount; ++k) {
        EXPECT_EQ(discovered[controllerAddress(k)].rfind(
                      "LCF2#STATUS#seqid=1#mac=" + controllerMac(k) + "#ip=", 0),
                  0u);
    }

    // Refused: the device is read again, answered "no" and left alone.
    for (int t = 1; t <= kCount; ++t) {
        const std::string refused = "LCF2#ASSIGN#seqid=2#mac=" + controllerMac(t) +
                                    "#ip=" + newAddress(t) + "#ipscheme=dhcp";
        ASSERT_TRUE(tool().send(refused));
        expectRequest(
            session, t, refused, [](Session& s) { s.reading(); }, false);
    }
    auto no = bySender(tool().receiveMany(kCount, Seconds(15), "LCF2#ACK#seqid=2#"));
    ASSERT_EQ(no.size(), 5u);
    for (int k = 1; k <= kCount; ++k) {
        EXPECT_EQ(no[controllerAddress(k)], ackText("2", k, false));
    }

    // Accepted: address, gateway and time server change; the clock value is
    // one digit short and only warned about.
    for (int t = 1; t <= kCount; ++t) {
        const std::string accepted = "LCF2#ASSIGN#seqid=3#mac=" + controllerMac(t) +
                                     "#ip=" + newAddress(t) +
                                     "#netmask=255.255.0.0#gateway=198.18.255.2"
                                     "#ntpip=198.18.255.12#utcclock=2023111512304";
        ASSERT_TRUE(tool().send(accepted));
        expectRequest(session, t, accepted, [t](Session& s) {
            s.reading();
            s.warning("Invalid format for UTC - length");
            s.ranLogged(timeServerVerb(s.platform()) + "198.18.255.12");
            s.info("Finished writing ntp IP settings");
            s.info("Writing network settings");
            s.ranLogged("tarnsetup setip " + newAddress(t) + " 255.255.0.0 198.18.255.2 ");
            s.info("Changed to Static IP...");
            s.info("Finished writing network settings");
        });
    }
    auto yes = bySender(tool().receiveMany(kCount, Seconds(15), "LCF2#ACK#seqid=3#"));
    ASSERT_EQ(yes.size(), 5u);
    for (int k = 1; k <= kCount; ++k) {
        // Sent before the change, so still from the old address.
        EXPECT_EQ(yes[controllerAddress(k)], ackText("3", k, true));
    }

    // Answered once each daemon's pause is over, from the new addresses.
    const std::string again = "LCF2#QUERY#seqid=4";
    ASSERT_TRUE(tool().send(again));
    for (Session& s : session) {
        s.queried(again);
    }
    auto status = bySender(tool().receiveMany(kCount, Seconds(30), "LCF2#STATUS#seqid=4#"));
    ASSERT_EQ(status.size(), 5u);
    for (int k = 1; k <= kCount; ++k) {
        const std::string& platform = session[static_cast<std::size_t>(k - 1)].platform();
        std::string clock;
        EXPECT_EQ(maskClock(status[newAddress(k)], &clock), statusAfterAssign(k, platform))
            << platform;
        EXPECT_EQ(clock.size(), 14u) << platform;
    }

    // Clearing runs the platform's commands and answers without reading.
    int seqid = 4;
    for (const std::string key : {"ntpip", "syslogip", "nameserver"}) {
        const std::string id = std::to_string(++seqid);
        for (int t = 1; t <= kCount; ++t) {
            const std::string clear =
                "LCF2#CLEAR#seqid=" + id + "#mac=" + controllerMac(t) + "#" + key;
            ASSERT_TRUE(tool().send(clear));
            expectRequest(session, t, clear, [&key](Session& s) {
                for (const auto& line : clearCommands(key, s.platform())) {
                    s.ran(line);
                }
            });
        }
        auto cleared =
            bySender(tool().receiveMany(kCount, Seconds(15), "LCF2#ACK#seqid=" + id + "#"));
        ASSERT_EQ(cleared.size(), 5u) << key;
        for (int k = 1; k <= kCount; ++k) {
            EXPECT_EQ(cleared[newAddress(k)], ackText(id, k, true)) << key;
        }
    }

    expectSessions(sb(), session);
}

}  // namespace
}  // namespace e2e
