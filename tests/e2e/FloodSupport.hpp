// Helpers for flooding a daemon: a fixed-seed mix of datagrams that never make
// it read the device, and what the host sees of the daemon's process.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <regex>
#include <sstream>
#include <string>

namespace e2e {

inline std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    });
    return text;
}

// Datagrams for a controller whose MAC is `ownMac`: other daemons' replies,
// requests for other MACs, random bytes and mutated requests, up to 600 bytes.
// None addresses the controller and none is a QUERY without MAC.
class FloodMix {
  public:
    FloodMix(std::uint32_t seed, std::string ownMac)
        : rng_(seed), ownMac_(lowered(std::move(ownMac))) {}

    std::string next() {
        for (;;) {
            std::string candidate = make();
            if (safe(candidate)) {
                return candidate;
            }
        }
    }

  private:
    std::size_t below(std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng_);
    }
    char byte() { return static_cast<char>(below(256)); }

    std::string otherMac() {
        std::size_t n = 2 + below(0xfffd);
        char text[48];
        std::snprintf(text, sizeof text, "02:4C:43:00:%02zX:%02zX", n >> 8, n & 0xff);
        return text;
    }
    std::string seqid() { return std::to_string(below(100000)); }

    std::string valid(std::size_t kind) {
        const std::string mac = otherMac();
        switch (kind) {
            case 0:
                return "LCF2#STATUS#seqid=" + seqid() + "#mac=" + mac +
                       "#ip=198.18.3.7#netmask=255.255.0.0#hostname=imx-" +
                       std::to_string(below(1000)) +
                       "#ntpsync=yes#sdusage=n/a#utcclock=20240101000000#displaytime=";
            case 1:
                return "LCF2#ACK#seqid=" + seqid() + "#mac=" + mac +
                       "#accept=" + (below(2) != 0 ? "yes" : "no");
            case 2:
                return "LCF2#QUERY#seqid=" + seqid() + "#mac=" + mac;
            case 3:
                return "LCF2#ASSIGN#seqid=" + seqid() + "#mac=" + mac +
                       "#ip=10.0.0.5#ntpip=10.0.0.9#utcclock=20240101000000";
            default:
                return "LCF2#CLEAR#seqid=" + seqid() + "#mac=" + mac + "#ntpip#syslogip";
        }
    }

    std::string make() {
        const std::size_t kind = below(8);
        if (kind < 5) {
            return valid(kind);
        }
        if (kind == 5) {
            std::string random(1 + below(600), '\0');
            for (auto& c : random) {
                c = byte();
            }
            return random;
        }
        const std::size_t base = below(4);
        std::string text = valid(base == 2 ? 4 : base);  // a QUERY is never mutated
        const std::size_t changes = 1 + below(6);
        for (std::size_t i = 0; i < changes && !text.empty(); ++i) {
            switch (below(4)) {
                case 0:
                    text[below(text.size())] = byte();
                    break;
                case 1:
                    text.insert(below(text.size() + 1), 1, byte());
                    break;
                case 2:
                    text.resize(1 + below(text.size()));
                    break;
                default:
                    while (text.size() < 600 && below(64) != 0) {
                        text.push_back(byte());
                    }
                    break;
            }
        }
        if (text.size() > 600) {
            text.resize(600);
        }
        return text;
    }

    // Nothing that names this controller; a QUERY only with its MAC field
    // whole: "#mac=" and seventeen characters, then "#" or the end.
    bool safe(const std::string& text) const {
        if (text.empty()) {
            return false;
        }
        const std::string low = lowered(text);
        if (low.find(ownMac_) != std::string::npos || low.find("0000:01") != std::string::npos) {
            return false;
        }
        if (low.find("query") == std::string::npos) {
            return true;
        }
        static const std::regex query(
            "LCF2#QUERY#seqid=[0-9]+#mac=02:4C:43:00:[0-9A-F]{2}:[0-9A-F]{2}");
        return std::regex_match(text, query);
    }

    std::mt19937 rng_;
    std::string ownMac_;
};

// Number of open descriptors of a process, seen from the host.
inline std::size_t openDescriptors(int pid) {
    std::size_t count = 0;
    std::error_code ec;
    for (auto it = std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ec);
         !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
        ++count;
    }
    return count;
}

// VmRSS of a process in KiB.
inline std::optional<long> residentKiB(int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return std::nullopt;
}

struct UdpQueue {
    unsigned long receiveBytes = 0;
    unsigned long drops = 0;
};

// The receive queue and drop count of the UDP socket bound to `port` in the
// network namespace of process `pid`.
inline std::optional<UdpQueue> udpQueue(int pid, std::uint16_t port) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/net/udp");
    std::string line;
    std::getline(in, line);  // heading
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        // The columns of one line of the table, in their order.
        // NOLINTNEXTLINE(readability-isolate-declaration)
        std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout, inode,
            ref, pointer, drops;
        fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >>
            timeout >> inode >> ref >> pointer >> drops;
        const std::size_t colon = local.find(':');
        if (colon == std::string::npos ||
            std::stoul(local.substr(colon + 1), nullptr, 16) != port) {
            continue;
        }
        UdpQueue q;
        q.receiveBytes = std::stoul(queues.substr(queues.find(':') + 1), nullptr, 16);
        q.drops = std::stoul(drops);
        return q;
    }
    return std::nullopt;
}

// The last `count` bytes of a file (all of it when shorter).
inline std::string fileTail(const std::string& path, std::size_t count) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) {
        return "";
    }
    const std::streamoff size = in.tellg();
    const std::streamoff from =
        size > static_cast<std::streamoff>(count) ? size - static_cast<std::streamoff>(count) : 0;
    in.seekg(from);
    std::string text(static_cast<std::size_t>(size - from), '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

}  // namespace e2e
