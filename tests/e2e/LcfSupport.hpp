// lcf run on the tool side of a sandboxed segment: running it, and what its output is compared
// with.  Apart from Harness.hpp because it needs what only the test program has (lcf's path,
// the JSON library), not the bed the load tool links too.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
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

// `count` boards of the mixed platforms in turn.
inline std::vector<std::string> mixedBoards(int count) {
    std::vector<std::string> specs;
    for (int k = 1; k <= count; ++k) {
        specs.push_back(kMixed[static_cast<std::size_t>(k - 1) % kMixed.size()]);
    }
    return specs;
}

// What controller k of the sandbox's numbering reports, as lcf --json prints it, with the live
// clock masked: the device's values (see deviceValues) and what lcf adds.
inline Json expectedJson(int k, const std::string& platform, const std::string& interfaceName) {
    Json c = Json::object();
    c["mac"] = controllerMac(k);
    for (const auto& [key, value] : deviceValues(k, platform)) {
        if (!value.empty()) {
            c[key] = value;
        }
    }
    c["utcclock"] = kLiveClock;
    c["displaytime"] = displayTime(platform);
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
