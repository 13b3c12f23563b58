// What one datagram costs the daemon before any device command runs: taking a request apart,
// composing a STATUS reply and building a raw frame.
#include <benchmark/benchmark.h>

#include <string>

#include "net/RawFrame.hpp"
#include "wire/Message.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Replies.hpp"
#include "wire/Request.hpp"

namespace {

const std::string kDeviceMac = "02:4C:43:00:00:01";

void parseDatagram(benchmark::State& state, const std::string& datagram) {
    lcfd::Message message;
    for (auto _ : state) {
        message.reset();
        benchmark::DoNotOptimize(lcfd::decideRequest(datagram, message, kDeviceMac));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(datagram.size()));
}

const std::string kQuery = "LCF2#QUERY#seqid=123456789";
const std::string kAssignOfEightFields =
    "LCF2#ASSIGN#seqid=42#mac=02:4c:43:00:00:01#ip=198.18.0.77#netmask=255.255.0.0#"
    "gateway=198.18.255.1#ipscheme=STATIC#ntpip=198.18.255.10#syslogip=198.18.255.20#"
    "nameserver=198.18.255.53#utcclock=20261122101500";
const std::string kForeignStatus =
    "LCF2#STATUS#seqid=123456789#mac=02:4C:43:00:00:07#ip=198.18.0.7#netmask=255.255.0.0#"
    "gateway=198.18.255.1#hostname=imx-007#ipscheme=STATIC#ntpip=198.18.255.10#"
    "controller=CTRL-007#housenames=Hall A,Hall B#syslogip=198.18.255.20#"
    "nameserver=198.18.255.53#ntpsync=yes#sdusage=37%#sdkversion=4.2.7#"
    "mac1=02:4C:43:00:01:07#mac2=02:4C:43:00:02:07#uptime=3605.21 7011.40#"
    "loadavg=0.08 0.03 0.01 1/77 1234#utcclock=20261122101500#displaytime=20231114221320";
const std::string kGarbage(512, '\xA5');

lcfd::StatusValues fullStatus() {
    lcfd::StatusValues values;
    values.ip = "198.18.0.7";
    values.netmask = "255.255.0.0";
    values.gateway = "198.18.255.1";
    values.hostname = "imx-007";
    values.ipscheme = "STATIC";
    values.ntpip = "198.18.255.10";
    values.controller = "CTRL-007";
    values.housenames = "Hall A,Hall B";
    values.syslogip = "198.18.255.20";
    values.nameserver = "198.18.255.53";
    values.ntpsync = "yes";
    values.sdusage = "37%";
    values.sdkversion = "4.2.7";
    values.mac1 = "02:4C:43:00:01:07";
    values.mac2 = "02:4C:43:00:02:07";
    values.uptime = "3605.21 7011.40";
    values.loadavg = "0.08 0.03 0.01 1/77 1234";
    values.utcclock = "20261122101500";
    values.displaytime = "20231114221320";
    return values;
}

void BM_ParseQuery(benchmark::State& state) {
    parseDatagram(state, kQuery);
}
void BM_ParseAssignOfEightFields(benchmark::State& state) {
    parseDatagram(state, kAssignOfEightFields);
}
void BM_ParseForeignStatusReply(benchmark::State& state) {
    parseDatagram(state, kForeignStatus);
}
void BM_ParseGarbage(benchmark::State& state) {
    parseDatagram(state, kGarbage);
}

// cppcheck-suppress constParameterCallback ; the signature the benchmark library calls
void BM_ComposeFullStatusReply(benchmark::State& state) {
    const lcfd::StatusValues values = fullStatus();
    for (auto _ : state) {
        benchmark::DoNotOptimize(lcfd::composeStatus("123456789", kDeviceMac, values));
    }
}

// cppcheck-suppress constParameterCallback ; the signature the benchmark library calls
void BM_BuildRawFrameWithChecksum(benchmark::State& state) {
    const std::string reply = lcfd::composeStatus("123456789", kDeviceMac, fullStatus());
    lcfd::RawBroadcastFrame frame;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lcfd::buildRawBroadcastFrame(reply.data(), reply.size(), frame));
        benchmark::ClobberMemory();
    }
}

BENCHMARK(BM_ParseQuery);
BENCHMARK(BM_ParseAssignOfEightFields);
BENCHMARK(BM_ParseForeignStatusReply);
BENCHMARK(BM_ParseGarbage);
BENCHMARK(BM_ComposeFullStatusReply);
BENCHMARK(BM_BuildRawFrameWithChecksum);

}  // namespace

BENCHMARK_MAIN();
