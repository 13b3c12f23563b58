#include "IgnoredMix.hpp"

#include <cstdio>
#include <random>
#include <utility>

namespace load {

namespace {

template <typename... Parts>
std::string concat(const Parts&... parts) {
    std::string text;
    (text.append(parts), ...);
    return text;
}

}  // namespace

std::vector<std::string> ignoredMix(std::size_t count) {
    std::mt19937 rng(7217U);  // NOLINT(cert-msc32-c,cert-msc51-cpp) the same mix in every run
    auto below = [&rng](unsigned n) {
        return std::uniform_int_distribution<unsigned>(0, n - 1)(rng);
    };
    std::vector<std::string> pool;
    pool.reserve(count);
    while (pool.size() < count) {
        // Every draw in a fixed order, so the pool is the same whatever the compiler.
        const unsigned kind = below(100);
        const unsigned n = 2 + below(998);
        char mac[32];
        std::snprintf(mac, sizeof mac, "02:4C:43:00:%02X:%02X", n >> 8, n & 0xFFU);
        const std::string seqid = std::to_string(1000000 + below(9000000));
        const unsigned k = 2 + below(200);
        const bool yes = below(4) != 0;
        const std::string num = std::to_string(k);
        std::string d;
        if (kind < 45) {
            d = concat("LCF2#STATUS#seqid=", seqid, "#mac=", mac, "#ip=198.18.0.", num,
                       "#netmask=255.255.0.0#gateway=198.18.255.1#hostname=imx-", num,
                       "#ipscheme=STATIC#ntpip=198.18.255.10#controller=CTRL-", num,
                       "#housenames=Hall A,Hall B#syslogip=198.18.255.20"
                       "#nameserver=198.18.255.53#ntpsync=yes#sdusage=",
                       std::to_string(30 + k % 60), "%#sdkversion=4.2.", std::to_string(k % 10),
                       "#mac1=", mac,
                       "#mac2=02:4C:43:01:00:02#uptime=3605.21 7011.40"
                       "#loadavg=0.08 0.03 0.01 1/87 1234#utcclock=20261122101500"
                       "#displaytime=20231114221320");
        } else if (kind < 60) {
            d = concat("LCF2#ACK#seqid=", seqid, "#mac=", mac, yes ? "#accept=yes" : "#accept=no");
        } else if (kind < 85) {
            d = concat("LCF2#QUERY#seqid=", seqid, "#mac=", mac);
        } else if (kind < 90) {
            d = concat("LCF2#ASSIGN#seqid=", seqid, "#mac=", mac, "#ip=198.18.1.", num,
                       "#netmask=255.255.0.0#gateway=198.18.255.1#ipscheme=STATIC"
                       "#ntpip=198.18.255.10#syslogip=198.18.255.20#nameserver=198.18.255.53"
                       "#utcclock=20261122101500");
        } else if (kind < 95) {
            d = concat("LCF2#CLEAR#seqid=", seqid, "#mac=", mac, yes ? "#ntpip" : "#syslogip");
        } else if (kind < 98) {
            d = concat("LCF3#QUERY#seqid=", seqid);  // a newer tool's probe, refused
        } else {
            d.resize(32 + below(200));
            for (char& c : d) {
                c = static_cast<char>(below(256));
            }
        }
        pool.push_back(std::move(d));
    }
    return pool;
}

}  // namespace load
