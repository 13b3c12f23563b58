// Applying an accepted ASSIGN: which device commands each kind of change
// runs, in which order, what is logged at which level when a step cannot
// run or fails, and what the device then reports.  Each controller of a
// segment takes one case, so their pauses overlap.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <map>

#include "Harness.hpp"

namespace e2e {
namespace {

struct Case {
    std::string board;                     // how the sandbox makes the controller
    std::string fields;                    // the assignments after the MAC field
    std::function<void(Session&)> handle;  // what applying them shows, after the reading
    std::string status;                    // the STATUS reply afterwards, clock masked
};

// When the ACK and the STATUS reply of each controller arrived, and the
// clock each reported.
struct Arrivals {
    std::map<int, Clock::time_point> ack;
    std::map<int, Clock::time_point> status;
    std::map<int, std::string> clock;
    Clock::time_point querySent;
};

class WriteSteps : public LcfdBed {
  protected:
    // Brings the cases' daemons up (after `prepare` adjusted their devices), sends each its
    // ASSIGN at once, then one discovery once every ACK is in, and checks the replies and the
    // whole session of every controller.
    Arrivals runCases(const std::vector<Case>& cases,
                      const std::function<void(const Sandbox&)>& prepare);
};

Arrivals WriteSteps::runCases(const std::vector<Case>& cases,
                              const std::function<void(const Sandbox&)>& prepare) {
    Arrivals arrivals;
    std::vector<std::string> boards;
    std::vector<Session> sessions;
    for (const auto& c : cases) {
        boards.push_back(c.board);
        sessions.push_back(Session::forBoard(c.board));
        sessions.back().startup();
    }
    const int count = static_cast<int>(cases.size());
    EXPECT_TRUE(upStopped(boards));
    if (HasFailure()) {
        return arrivals;
    }
    prepare(sb());
    EXPECT_TRUE(startDaemons());
    if (HasFailure()) {
        return arrivals;
    }

    for (int t = 1; t <= count; ++t) {
        const Case& c = cases[static_cast<std::size_t>(t - 1)];
        const std::string assign = "LCF2#ASSIGN#seqid=1#mac=" + controllerMac(t) + c.fields;
        EXPECT_TRUE(tool().send(assign));
        expectRequest(sessions, t, assign, [&c](Session& s) {
            s.reading();
            c.handle(s);
        });
    }
    std::map<std::string, int> byAddress;
    for (int k = 1; k <= count; ++k) {
        byAddress[controllerAddress(k)] = k;
    }
    for (const auto& d : tool().receiveMany(cases.size(), Seconds(15))) {
        const int k = byAddress.count(d.sender) != 0 ? byAddress[d.sender] : 0;
        EXPECT_EQ(d.data, ackText("1", k, true)) << d.sender;
        arrivals.ack[k] = d.arrived;
    }
    EXPECT_EQ(arrivals.ack.size(), cases.size());

    const std::string query = "LCF2#QUERY#seqid=2";
    arrivals.querySent = Clock::now();
    EXPECT_TRUE(tool().send(query));
    for (const auto& d : tool().receiveMany(cases.size(), Seconds(30))) {
        for (int k = 1; k <= count; ++k) {
            if (d.data.rfind("LCF2#STATUS#seqid=2#mac=" + controllerMac(k) + "#", 0) == 0) {
                arrivals.status[k] = d.arrived;
                std::string clock;
                EXPECT_EQ(maskClock(d.data, &clock), cases[static_cast<std::size_t>(k - 1)].status)
                    << "controller " << k;
                arrivals.clock[k] = clock;
            }
        }
    }
    EXPECT_EQ(arrivals.status.size(), cases.size());
    for (Session& s : sessions) {
        s.queried(query);
    }
    expectSessions(sb(), sessions);
    return arrivals;
}

TEST_F(WriteSteps, EachWayTheAddressSchemeIsApplied) {
    const std::vector<Case> cases = {
        // A changed syslog server alone re-applies the address: on br0 the
        // line ends in a blank, on another interface in its name.
        {"arm9", "#syslogip=198.18.255.21",
         [](Session& s) {
             s.ranLogged("tarnsetup setsyslogserver 198.18.255.21");
             s.info("Finished writing syslog IP settings");
             s.info("Writing network settings");
             s.ranLogged("tarnsetup setip 198.18.0.1 255.255.0.0 198.18.255.1 ");
             s.info("Changed to Static IP...");
             s.info("Finished writing network settings");
         },
         statusReply("2", 1, "arm9",
                     {{"syslogip", "198.18.255.21"}, {"nameserver", "198.18.255.21"}})},
        {"imx,iface=eth0", "#syslogip=198.18.255.21",
         [](Session& s) {
             s.ranLogged("tarnsetup setsyslogserver 198.18.255.21");
             s.info("Finished writing syslog IP settings");
             s.info("Writing network settings");
             s.ranLogged("tarnsetup setip 198.18.0.2 255.255.0.0 198.18.255.1 eth0");
             s.info("Changed to Static IP...");
             s.info("Finished writing network settings");
         },
         statusReply("2", 2, "imx", {{"syslogip", "198.18.255.21"}})},
        // DHCP on br0: the bare command.
        {"qmt", "#ipscheme=DHCP",
         [](Session& s) {
             s.info("Writing network settings");
             s.ranLogged("tarnsetup setdhcp");
             s.info("Changed to DHCP...");
             s.info("Finished writing network settings");
         },
         statusReply("2", 3, "qmt", {{"ipscheme", "DHCP"}})},
        // The device calls its scheme "static": neither scheme, no command.
        {"generic", "#ip=198.18.0.44",
         [](Session& s) {
             s.info("Writing network settings");
             s.info("Finished writing network settings");
         },
         statusReply("2", 4, "generic", {{"ipscheme", "static"}})},
        // No default route, so no gateway: the address cannot be set.
        {"arm9", "#ip=198.18.0.55",
         [](Session& s) {
             s.info("Writing network settings");
             s.error("Missing required parameters for setting static IP.");
             s.info("Finished writing network settings");
         },
         statusReply("2", 5, "arm9", {{"gateway", ""}})},
    };
    runCases(cases, [](const Sandbox& sb) {
        sb.setValue(4, "ipscheme", "static");
        EXPECT_EQ(std::remove((sb.dir(5) + "/sim/gateway").c_str()), 0);
    });
}

TEST_F(WriteSteps, OrderFailuresAndAssignmentsThatChangeNothing) {
    const std::vector<Case> cases = {
        // The address command fails: reported as an error, the step closed all
        // the same, and the clock still set after it.
        {"imx", "#ip=198.18.0.11#ntpip=198.18.255.11#utcclock=20240229235959",
         [](Session& s) {
             s.ran("date -u -s 202402292359.59");
             s.ranLogged("tarnsetup settimeserver 198.18.255.11");
             s.info("Finished writing ntp IP settings");
             s.info("Writing network settings");
             s.ranLogged("tarnsetup setip 198.18.0.11 255.255.0.0 198.18.255.1 ");
             s.error("Error setting static IP.");
             s.info("Changed to Static IP...");
             s.info("Finished writing network settings");
             s.ran("date -u -s 202402292359.59");
         },
         statusReply("2", 1, "imx", {{"ntpip", "198.18.255.11"}})},
        // Time server, syslog server, name server, address, clock, whatever
        // the order in the request (here the reverse).
        {"qmt",
         "#utcclock=20240229235959#ip=198.18.0.22#nameserver=198.18.255.55"
         "#syslogip=198.18.255.23#ntpip=198.18.255.13",
         [](Session& s) {
             s.ran("date -u -s '2024-02-29 23:59:59'");
             s.ranLogged("tarnsetup timeserver 198.18.255.13");
             s.info("Finished writing ntp IP settings");
             s.ranLogged("tarnsetup setsyslogserver 198.18.255.23");
             s.info("Finished writing syslog IP settings");
             s.ranLogged("tarnsetup setnameserver 198.18.255.55");
             s.info("Finished writing nameserver settings");
             s.info("Writing network settings");
             s.ranLogged("tarnsetup setip 198.18.0.22 255.255.0.0 198.18.255.1 ");
             s.info("Changed to Static IP...");
             s.info("Finished writing network settings");
             s.ran("date -u -s '2024-02-29 23:59:59'");
         },
         statusReply("2", 2, "qmt",
                     {{"ip", "198.18.0.22"},
                      {"ntpip", "198.18.255.13"},
                      {"syslogip", "198.18.255.23"},
                      {"nameserver", "198.18.255.23"}})},
        // A clock value with a letter: warned about, nothing run.
        {"arm9", "#utcclock=2023-11-15T123",
         [](Session& s) { s.warning("Invalid format for UTC - not numbers"); },
         statusReply("2", 3, "arm9")},
        // An address that only looks like one is dropped; the request counts.
        {"generic", "#ip=10.0.0.999", [](Session&) {}, statusReply("2", 4, "generic")},
        // No assignment at all: accepted, nothing to write, and the pause.
        {"unknown", "", [](Session&) {}, statusReply("2", 5, "unknown")},
        // Every value as the device holds it: only the clock is set, twice,
        // and nothing is logged.
        {"arm9",
         "#ip=198.18.0.6#netmask=255.255.0.0#gateway=198.18.255.1#ipscheme=STATIC"
         "#ntpip=198.18.255.10#syslogip=198.18.255.20#nameserver=198.18.255.20"
         "#utcclock=20240229235959",
         [](Session& s) {
             s.ran("date -u -D %Y%m%d%H%M%S -s 20240229235959");
             s.ran("date -u -D %Y%m%d%H%M%S -s 20240229235959");
         },
         statusReply("2", 6, "arm9")},
    };
    const std::string hostBefore = utcNow();
    Arrivals arrivals =
        runCases(cases, [](const Sandbox& sb) { sb.setFault(1, "tarnsetup.setip", "exit 1"); });
    const std::string hostAfter = utcNow();

    // The clocks that were set have been running since; the others are the host's.
    EXPECT_LE("20240229235959", arrivals.clock[1]);
    EXPECT_LE(arrivals.clock[1], "20240301000059");
    EXPECT_LE("20240229235959", arrivals.clock[2]);
    EXPECT_LE(arrivals.clock[2], "20240301000059");
    EXPECT_LE("20240229235959", arrivals.clock[6]);
    EXPECT_LE(arrivals.clock[6], "20240301000059");
    for (int k = 3; k <= 5; ++k) {
        EXPECT_LE(hostBefore, arrivals.clock[k]) << "controller " << k;
        EXPECT_LE(arrivals.clock[k], hostAfter) << "controller " << k;
    }
    // Even the request that changed nothing holds the next one back. The QUERY goes out once
    // every ACK is in, which on a busy machine can be a few readings after ACK 5; sent within
    // the first half of the settling pause, its STATUS could only come this late because the
    // pause held it.
    ASSERT_EQ(arrivals.ack.count(5), 1u);
    ASSERT_EQ(arrivals.status.count(5), 1u);
    const double settle = lcfd::kSettleSeconds;
    EXPECT_LE(Seconds(arrivals.querySent - arrivals.ack[5]).count(), settle / 2);
    EXPECT_GE(Seconds(arrivals.status[5] - arrivals.ack[5]).count(), settle - 0.005);
}

}  // namespace
}  // namespace e2e
