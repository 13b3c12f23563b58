// No text from the network ever reaches a shell.  Values carrying command
// substitutions, backquotes, pipes, "&&", quotes, ";" and line feeds, under
// every key a request can carry, leave each device running exactly the
// commands of its readings and nothing else, and no command they hold ever
// runs: each would leave a marker file in the controller's /run.  ("#" and
// "=" cannot stand in a value: they end it.)
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

#include "Harness.hpp"

namespace e2e {
namespace {

using Injection = LcfdBed;

const std::vector<std::string> kAddressKeys = {"ip",    "netmask",  "gateway",
                                               "ntpip", "syslogip", "nameserver"};

// The marker a command smuggled in under an address key would leave.
std::string markerOf(const std::string& key) {
    const std::map<std::string, std::string> markers = {
        {"ip", "ip"},    {"netmask", "nm"},  {"gateway", "gw"},
        {"ntpip", "ts"}, {"syslogip", "ls"}, {"nameserver", "ns"},
    };
    return markers.at(key);
}

// One way of smuggling a command into a value, on one controller.
struct Family {
    std::string board;  // how the sandbox makes the controller
    std::function<std::string(const std::string& marker)> payload;
    std::string clock;         // a utcclock value carrying a command
    std::string clockWarning;  // what the daemon says about it
};

const std::vector<Family>& families() {
    static const std::vector<Family> all = {
        {"generic", [](const std::string& m) { return "$(touch /run/" + m + ")"; },
         "$(touch /run/u)", "Invalid format for UTC - length"},
        {"arm9", [](const std::string& m) { return "`touch /run/" + m + "`"; }, "`touch /run/u`",
         "Invalid format for UTC - not numbers"},
        {"imx", [](const std::string& m) { return "|touch /run/" + m; }, "1|touch /run/u",
         "Invalid format for UTC - not numbers"},
        {"qmt", [](const std::string& m) { return "&&touch /run/" + m; }, "1&&touch /run/u",
         "Invalid format for UTC - length"},
        {"unknown", [](const std::string& m) { return "'\"$(touch /run/" + m + ")\"'"; },
         "1;touch /run/u", "Invalid format for UTC - not numbers"},
        {"arm9,iface=eth0", [](const std::string& m) { return "\ntouch /run/" + m; },
         "1\ntouch /run/u", "Invalid format for UTC - not numbers"},
    };
    return all;
}

struct Request {
    std::string text;
    int target = 0;         // the addressed controller, 0 for none
    bool accepted = false;  // answered "yes" (else "no")
    std::string clockWarning;
    std::string seqid;
};

std::string assignTo(const std::string& seqid, int k, const std::string& fields) {
    return "LCF2#ASSIGN#seqid=" + seqid + "#mac=" + controllerMac(k) + fields;
}

std::set<std::string> entries(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

TEST_F(Injection, NoValueFromTheNetworkReachesAShell) {
    std::vector<std::string> boards;
    std::vector<Session> sessions;
    for (const auto& f : families()) {
        boards.push_back(f.board);
        sessions.push_back(Session::forBoard(f.board));
        sessions.back().startup();
    }
    const int count = static_cast<int>(families().size());
    ASSERT_TRUE(up(boards));

    std::vector<Request> requests;
    auto refused = [&](const std::string& seqid, int k, const std::string& text) {
        requests.push_back({text, k, false, "", seqid});
    };
    auto unaddressed = [&](const std::string& text) {
        requests.push_back({text, 0, false, "", ""});
    };

    // Refused: the addresses and the scheme each family's way.  The address
    // fields are dropped as they are read; the scheme refuses the request.
    for (int k = 1; k <= count; ++k) {
        const Family& f = families()[static_cast<std::size_t>(k - 1)];
        std::string fields;
        for (const auto& key : kAddressKeys) {
            fields += "#" + key + "=" + f.payload(markerOf(key));
        }
        fields += "#ipscheme=" + f.payload("p");
        refused("r" + std::to_string(k), k, assignTo("r" + std::to_string(k), k, fields));
    }
    // Refused: ";" wherever a value is checked for it, a scheme in quotes or
    // followed by a command, a CLEAR key that is more than a key.
    int n = 0;
    auto spread = [&](const std::string& fields) {
        const std::string seqid = "x" + std::to_string(++n);
        const int k = n % count + 1;
        refused(seqid, k, assignTo(seqid, k, fields));
    };
    for (const auto& key : kAddressKeys) {
        spread("#" + key + "=198.18.0.99;touch /run/x");
    }
    spread("#foo=a;touch /run/x");
    spread("#hostname=b;touch /run/x");
    spread("#a;touch /run/x=1");
    spread("#ipscheme='STATIC'");
    spread("#ipscheme=\"DHCP\"");
    spread("#ipscheme=STATIC\ntouch /run/x");
    spread("#ipscheme=DHCP;touch /run/x");
    spread("#ipscheme=DHCP`touch /run/x`");
    for (const std::string key : {"ntpip;touch /run/x", "$(touch /run/x)", "syslogip\ntouch /run/x",
                                  "`touch /run/x`", "nameserver|touch /run/x"}) {
        const std::string seqid = "c" + std::to_string(++n);
        const int k = n % count + 1;
        refused(seqid, k, "LCF2#CLEAR#seqid=" + seqid + "#mac=" + controllerMac(k) + "#" + key);
    }
    // Addressed to no device: a command in the MAC field.
    unaddressed("LCF2#QUERY#seqid=q#mac=$(touch /run/x)");
    unaddressed("LCF2#ASSIGN#seqid=a#mac=`touch /run/x`#ip=198.18.0.99");
    unaddressed("LCF2#CLEAR#seqid=c#mac=|touch /run/x#ntpip");

    // Accepted: every address key with a command behind a well-formed
    // address (read as an address, refused by the setting), the clock, keys
    // the daemon ignores, a command as a key, and one as the sequence id.
    for (int k = 1; k <= count; ++k) {
        const Family& f = families()[static_cast<std::size_t>(k - 1)];
        std::string fields;
        for (const auto& key : kAddressKeys) {
            fields += "#" + key + "=198.18.0.99." + f.payload(markerOf(key));
        }
        fields += "#foo=" + f.payload("f") + "#hostname=" + f.payload("h") + "#" + f.payload("k") +
                  "=1#utcclock=" + f.clock;
        const std::string seqid = f.payload("s");
        const std::string text = assignTo(seqid, k, fields);
        EXPECT_LE(text.size(), 512u) << text;
        requests.push_back({text, k, true, f.clockWarning, seqid});
    }

    std::vector<std::string> expectedReplies;
    for (const auto& r : requests) {
        ASSERT_TRUE(tool().send(r.text));
        expectRequest(
            sessions, r.target, r.text,
            [&r](Session& s) {
                s.reading();
                if (r.accepted) {
                    s.warning(r.clockWarning);
                }
            },
            r.accepted);
        if (r.target != 0) {
            expectedReplies.push_back(ackText(r.seqid, r.target, r.accepted));
        }
    }

    // Each controller reads the device before each answer, one request after another: the
    // busiest one answers last, after as many readings as it was sent requests, each allowed
    // the slowest reading a board may take.
    std::map<int, int> requestsPerController;
    for (const auto& r : requests) {
        ++requestsPerController[r.target];
    }
    int busiest = 0;
    for (const auto& [target, sent] : requestsPerController) {
        busiest = target != 0 ? std::max(busiest, sent) : busiest;
    }
    constexpr double kSlowestReadingSeconds = 6.0;
    std::vector<std::string> replies;
    for (const auto& d :
         tool().receiveMany(expectedReplies.size(), Seconds(busiest * kSlowestReadingSeconds))) {
        replies.push_back(d.data);
    }
    std::sort(replies.begin(), replies.end());
    std::sort(expectedReplies.begin(), expectedReplies.end());
    EXPECT_EQ(replies, expectedReplies);

    // Only the devices' readings ran, one per addressed request.
    expectSessions(sb(), sessions);
    for (int k = 1; k <= count; ++k) {
        EXPECT_EQ(entries(sb().dir(k) + "/run"),
                  (std::set<std::string>{".lcfd-sim", "controller", "housenames"}))
            << "controller " << k;
    }
}

}  // namespace
}  // namespace e2e
