// lcf run on the tool side of a sandboxed segment: running it, and what its output is compared
// with.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "Harness.hpp"

namespace e2e {

using Json = nlohmann::ordered_json;

// What a discovery shows in place of a live clock read from the host's clock.
inline constexpr const char* kLiveClock = "YYYYMMDDhhmmss";

// What discover prints on standard output when nothing answered: the empty table.
inline constexpr const char* kNoControllersTable =
    "MAC  IP  NETMASK  GATEWAY  SCHEME  HOSTNAME  CONTROLLER  SDK  UTCCLOCK  INTERFACE  NOTE\n"
    "0 controllers found\n";

struct LcfRun {
    ProcessResult result;
    double seconds = 0.0;
};

inline std::string lcfBinary() {
    return LCF_BINARY;
}

// Runs lcf with `args` in the tool's network namespace of the sandbox.
inline LcfRun runLcf(const Sandbox& sb, const std::vector<std::string>& args,
                     Seconds timeout = Seconds(30)) {
    std::vector<std::string> argv = {"/usr/bin/nsenter", "--net=/run/netns/" + sb.toolNetns(), "--",
                                     lcfBinary()};
    argv.insert(argv.end(), args.begin(), args.end());
    LcfRun run;
    const auto start = Clock::now();
    run.result = runProgram(argv, timeout);
    run.seconds = Seconds(Clock::now() - start).count();
    return run;
}

// Runs the sandbox launcher itself, for what the harness does not wrap.
inline ProcessResult sandboxTool(const Sandbox& sb, const std::vector<std::string>& args) {
    std::vector<std::string> argv = {"/usr/bin/python3", sourceDir() + "/tools/lcfd-sandbox", "-n",
                                     sb.name()};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, Seconds(30));
}

inline bool allDigits(const std::string& text) {
    return text.find_first_not_of("0123456789") == std::string::npos;
}

// Replaces every fourteen-digit clock within [from, to] (YYYYMMDDhhmmss texts compare like
// the times they show) by `mask`, which keeps table columns aligned. Clocks outside the range
// stay and make an exact comparison fail.
inline std::string maskClocks(const std::string& text, const std::string& from,
                              const std::string& to, const std::string& mask = kLiveClock) {
    std::string masked = text;
    for (std::size_t at = 0; at + 14 <= masked.size(); ++at) {
        const std::string candidate = masked.substr(at, 14);
        const bool standsAlone =
            (at == 0 || std::isdigit(static_cast<unsigned char>(masked[at - 1])) == 0) &&
            (at + 14 == masked.size() ||
             std::isdigit(static_cast<unsigned char>(masked[at + 14])) == 0);
        if (standsAlone && allDigits(candidate) && from <= candidate && candidate <= to) {
            masked.replace(at, 14, mask);
            at += 13;
        }
    }
    return masked;
}

inline const std::vector<std::string> kMixed = {"arm9", "imx", "qmt", "generic", "unknown"};

inline std::string hex2(int value) {
    char text[3];
    std::snprintf(text, sizeof text, "%02X", value & 0xFF);
    return text;
}

inline std::string three(int k) {
    char text[4];
    std::snprintf(text, sizeof text, "%03d", k);
    return text;
}

// What controller k of the sandbox's numbering reports, as lcf --json prints it, with the live
// clock masked.
inline Json expectedJson(int k, const std::string& platform, const std::string& interfaceName) {
    Json c = Json::object();
    c["mac"] = controllerMac(k);
    c["ip"] = controllerAddress(k);
    c["netmask"] = "255.255.0.0";
    c["gateway"] = "198.18.255.1";
    c["hostname"] = platform + "-" + three(k);
    c["ipscheme"] = "STATIC";
    c["ntpip"] = "198.18.255.10";
    c["controller"] = "CTRL-" + three(k);
    c["housenames"] = "Hall A,Hall B";
    c["syslogip"] = "198.18.255.20";
    // Only imx boards have a name server query; the others report their syslog server.
    c["nameserver"] = platform == "imx" ? "198.18.255.53" : "198.18.255.20";
    c["ntpsync"] = "yes";
    c["sdusage"] = platform == "qmt" ? "n/a" : std::to_string(30 + k % 60) + "%";
    if (platform == "imx") {
        c["sdkversion"] = "4.2." + std::to_string(k % 10);
        c["mac1"] = controllerMac(k);
        c["mac2"] = "02:4C:43:01:" + hex2(k >> 8) + ":" + hex2(k);
        c["uptime"] = "3605.21 7011.40";
        c["loadavg"] = "0.08 0.03 0.01 1/87 1234";
    }
    c["utcclock"] = kLiveClock;
    c["displaytime"] = platform == "imx" ? "20231114221320" : "";
    c["interface"] = interfaceName;
    c["outside_subnet"] = false;
    c["duplicate_ip"] = false;
    return c;
}

// The objects of lcf's JSON array, each dumped on one line with its live clock masked.
inline std::vector<std::string> maskedObjects(const std::string& output, const std::string& from,
                                              const std::string& to) {
    std::vector<std::string> objects;
    const Json parsed = Json::parse(output, nullptr, false);
    if (!parsed.is_array()) {
        objects.push_back("<not a JSON array: " + output + ">");
        return objects;
    }
    for (const Json& object : parsed) {
        objects.push_back(maskClocks(object.dump(), from, to));
    }
    return objects;
}

inline std::vector<std::string> dumped(const std::vector<Json>& objects) {
    std::vector<std::string> lines;
    lines.reserve(objects.size());
    for (const Json& object : objects) {
        lines.push_back(object.dump());
    }
    return lines;
}

// Whether daemon k has traced the request from the tool side that ends with `requestEnd` with
// `verdict` ("understood" or "not understood"); the daemon's own log lines may stand between
// the request it echoes and its trace line. Waits for it until `timeout`.
inline bool traced(const Sandbox& sb, int k, const std::string& requestEnd,
                   const std::string& verdict, Seconds timeout) {
    const std::string request = requestEnd + "\n";
    const std::string trace =
        std::string("\n[") + kToolAddress + "] Message " + verdict + "... \n\n";
    return waitUntil(
        [&] {
            const std::string out = sb.out(k);
            const std::size_t at = out.find(request);
            return at != std::string::npos && out.find(trace, at) != std::string::npos;
        },
        timeout);
}

inline bool contains(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

inline std::vector<std::string> macsIn(const std::string& jsonOutput) {
    std::vector<std::string> macs;
    const Json parsed = Json::parse(jsonOutput, nullptr, false);
    if (!parsed.is_array()) {
        return {"<not a JSON array: " + jsonOutput + ">"};
    }
    for (const Json& object : parsed) {
        macs.push_back(object.value("mac", "<no mac>"));
    }
    return macs;
}

// How often a discovery probed and how long a command waited depend on the machine's load:
// "probed 3 times" reads "probed <n>", "within 11.2 s" reads "within <t> s".
inline std::string maskCounts(const std::string& text) {
    static const std::regex probes("probed (once|[0-9]+ times)");
    static const std::regex seconds("within [0-9.]+ s");
    return std::regex_replace(std::regex_replace(text, probes, "probed <n>"), seconds,
                              "within <t> s");
}

}  // namespace e2e
