// Following one controller through a whole session: what its daemon is
// expected to print on each stream, send to syslog and run through the shell,
// built up request by request, and compared at the end byte for byte.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Harness.hpp"
#include "wire/Protocol.hpp"

namespace e2e {

inline const std::string kListening =
    std::string("LAN Config Facility ") + lcfd::kVersion + " : Listening for broadcast packets\n";

// The number a daemon logs for the platform it detected.
inline int platformNumber(const std::string& platform) {
    if (platform == "generic") {
        return 1;
    }
    if (platform == "arm9") {
        return 2;
    }
    if (platform == "imx") {
        return 3;
    }
    if (platform == "qmt") {
        return 4;
    }
    return 0;  // a board whose SDK query fails
}

// Standard output without the replies of daemons (other controllers' and the
// daemon's own): they come back as broadcasts in no fixed order against the
// tool's requests.  Each shows as its echo (one line, or more when a value in
// it holds a line feed) and its trace; nothing else is printed between the
// end of the previous datagram (or the banner) and such a trace.
inline std::string withoutDaemonReplies(const std::string& out) {
    const std::string tool = std::string("[") + kToolAddress + "]";
    std::string kept;
    std::size_t at = 0;
    std::size_t blockStart = 0;  // in `kept`: where the current datagram's echo began
    while (at < out.size()) {
        std::size_t end = out.find('\n', at);
        std::string line =
            out.substr(at, end == std::string::npos ? std::string::npos : end - at + 1);
        at += line.size();
        const bool trace = line.rfind('[', 0) == 0 && out.compare(at, 1, "\n") == 0 &&
                           (line.find("] Message understood... \n") != std::string::npos ||
                            line.find("] Message not understood... \n") != std::string::npos);
        if (trace) {
            at += 1;  // the empty line closing the trace
            if (line.rfind(tool, 0) == 0) {
                kept += line + "\n";
            } else {
                kept.erase(blockStart);
            }
            blockStart = kept.size();
            continue;
        }
        kept += line;
        if (line == kListening) {
            blockStart = kept.size();
        }
    }
    return kept;
}

// Everything one controller is expected to have shown, in order.
class Session {
  public:
    // `interfaceFile`: the name the interface file gives (printed as read), or
    // empty when there is no file; `interface`: the name the daemon then uses.
    explicit Session(std::string platform, std::string interfaceFile = "",
                     std::string interface = "br0")
        : platform_(std::move(platform)),
          interfaceFile_(std::move(interfaceFile)),
          interface_(std::move(interface)),
          hasFile_(!interfaceFile_.empty() || interface_ != "br0") {}

    // Marks that the interface file exists even though it names nothing.
    void fileIsPresent() { hasFile_ = true; }

    const std::string& platform() const { return platform_; }

    std::string out;
    std::string err;
    std::vector<std::string> syslog;
    std::vector<std::string> shell;

    void info(const std::string& message) {
        out += "lcfd:" + message + "\n";
        syslog.push_back("<30>" + message);
    }
    void error(const std::string& message) {
        err += "lcfd:" + message + "\n";
        syslog.push_back("<27>" + message);
    }
    void warning(const std::string& message) {
        err += "lcfd:" + message + "\n";
        syslog.push_back("<28>" + message);
    }
    void ran(const std::string& commandLine) { shell.push_back(commandLine); }
    // A command run through `system` that is logged before it runs.
    void ranLogged(const std::string& commandLine) {
        info(commandLine);
        ran(commandLine);
    }

    // Start-up: the first reading (the interface file is first read in its
    // middle), the interface once more for the transport, the banner.
    void startup() {
        reading("br0");
        announce();
        out += kListening;
    }
    // One reading of the device.
    void reading() { reading(interface_); }

    // A datagram from the tool: its echo, then (between echo and trace) what
    // handling it does, then the trace.
    void echo(const std::string& datagram) { out += datagram + "\n"; }
    void trace(bool understood) {
        out += std::string("[") + kToolAddress + "] Message " +
               (understood ? "understood" : "not understood") + "... \n\n";
    }
    // A request that this controller only echoes and traces.
    void passes(const std::string& datagram, bool understood = true) {
        echo(datagram);
        trace(understood);
    }

  private:
    void announce() {
        if (hasFile_) {
            out += "LCFD using interface: " + interfaceFile_ + "\n";
        }
    }
    void reading(const std::string& before) {
        info("Detected controller type: " + std::to_string(platformNumber(platform_)));
        announce();
        info("Finished reading network settings");
        auto commands = readingCommands(platform_, before, interface_);
        shell.insert(shell.end(), commands.begin(), commands.end());
    }

    std::string platform_;
    std::string interfaceFile_;
    std::string interface_;
    bool hasFile_;
};

inline bool sessionMatches(const Sandbox& sb, int k, const Session& s) {
    return withoutDaemonReplies(sb.out(k)) == s.out && sb.err(k) == s.err &&
           syslogRecords(sb.syslog(k)) == s.syslog && sb.shellLog(k) == s.shell;
}

inline void compareSession(const Sandbox& sb, int k, const Session& s) {
    const std::string who = "controller " + std::to_string(k) + " (" + s.platform() + ")";
    EXPECT_EQ(withoutDaemonReplies(sb.out(k)), s.out) << who << ": standard output";
    EXPECT_EQ(sb.err(k), s.err) << who << ": standard error";
    EXPECT_EQ(syslogRecords(sb.syslog(k)), s.syslog) << who << ": syslog";
    EXPECT_EQ(sb.shellLog(k), s.shell) << who << ": shell log";
}

// Waits until the streams, syslog records and shell log of controllers 1, 2,
// ... are what their sessions say (or one deadline for all passed), then
// compares each exactly.
inline void expectSessions(const Sandbox& sb, std::initializer_list<const Session*> sessions,
                           Seconds timeout = Seconds(15)) {
    const std::vector<const Session*> all(sessions);
    waitUntil(
        [&] {
            for (std::size_t i = 0; i < all.size(); ++i) {
                if (!sessionMatches(sb, static_cast<int>(i) + 1, *all[i])) {
                    return false;
                }
            }
            return true;
        },
        timeout);
    for (std::size_t i = 0; i < all.size(); ++i) {
        compareSession(sb, static_cast<int>(i) + 1, *all[i]);
    }
}

inline void expectSessions(const Sandbox& sb, const std::vector<Session>& sessions,
                           Seconds timeout = Seconds(15)) {
    waitUntil(
        [&] {
            for (std::size_t i = 0; i < sessions.size(); ++i) {
                if (!sessionMatches(sb, static_cast<int>(i) + 1, sessions[i])) {
                    return false;
                }
            }
            return true;
        },
        timeout);
    for (std::size_t i = 0; i < sessions.size(); ++i) {
        compareSession(sb, static_cast<int>(i) + 1, sessions[i]);
    }
}

// Replies that begin with `prefix`, until `count` of them arrived or the
// timeout passed.
inline std::vector<Datagram> repliesWith(const ToolSocket& tool, const std::string& prefix,
                                         std::size_t count, Seconds timeout) {
    std::vector<Datagram> got;
    auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    while (got.size() < count) {
        auto left = Seconds(deadline - Clock::now());
        if (left.count() <= 0) {
            break;
        }
        auto d = tool.receive(left);
        if (!d) {
            break;
        }
        if (d->data.rfind(prefix, 0) == 0) {
            got.push_back(*d);
        }
    }
    return got;
}

// The STATUS reply of controller k as the sandbox makes it, the live clock
// shown as "<clock>" (see maskClock).  `changes` replaces values by key; an
// empty value leaves an optional field out.
inline std::string statusReply(const std::string& seqid, int k, const std::string& platform,
                               const std::map<std::string, std::string>& changes = {}) {
    char number[8];
    std::snprintf(number, sizeof number, "%03d", k);
    const bool imx = platform == "imx";
    std::string secondMac = controllerMac(k);
    secondMac[10] = '1';  // 02:4C:43:01:HH:LL
    const std::vector<std::pair<std::string, std::string>> fields = {
        {"ip", controllerAddress(k)},
        {"netmask", "255.255.0.0"},
        {"gateway", "198.18.255.1"},
        {"hostname", platform + "-" + number},
        {"ipscheme", "STATIC"},
        {"ntpip", "198.18.255.10"},
        {"controller", std::string("CTRL-") + number},
        {"housenames", "Hall A,Hall B"},
        {"syslogip", "198.18.255.20"},
        {"nameserver", imx ? "198.18.255.53" : "198.18.255.20"},
        {"ntpsync", "yes"},
        {"sdusage", platform == "qmt" ? "n/a" : std::to_string(30 + k % 60) + "%"},
        {"sdkversion", imx ? "4.2." + std::to_string(k % 10) : ""},
        {"mac1", imx ? controllerMac(k) : ""},
        {"mac2", imx ? secondMac : ""},
        {"uptime", imx ? "3605.21 7011.40" : ""},
        {"loadavg", imx ? "0.08 0.03 0.01 1/87 1234" : ""},
    };
    std::string text = "LCF2#STATUS#seqid=" + seqid + "#mac=" + controllerMac(k);
    for (const auto& [key, standard] : fields) {
        auto changed = changes.find(key);
        const std::string& value = changed == changes.end() ? standard : changed->second;
        if (!value.empty()) {
            text += "#" + key + "=" + value;
        }
    }
    auto shown = changes.find("displaytime");
    text += "#utcclock=<clock>#displaytime=";
    text += shown != changes.end() ? shown->second : (imx ? "20231114221320" : "");
    return text;
}

inline std::string ackText(const std::string& seqid, int k, bool accepted) {
    return "LCF2#ACK#seqid=" + seqid + "#mac=" + controllerMac(k) +
           "#accept=" + (accepted ? "yes" : "no");
}

}  // namespace e2e
