// The reply texts: ACK and STATUS.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "wire/Replies.hpp"

namespace lcfd {
namespace {

constexpr const char* kDeviceMac = "00:1A:2B:3C:4D:5E";

struct OptionalField {
    const char* key;
    std::string StatusValues::*value;
};

// The fields left out when empty, in the order a STATUS reply writes them.
const std::vector<OptionalField>& optionalFields() {
    static const std::vector<OptionalField> fields = {
        {"ip", &StatusValues::ip},
        {"netmask", &StatusValues::netmask},
        {"gateway", &StatusValues::gateway},
        {"hostname", &StatusValues::hostname},
        {"ipscheme", &StatusValues::ipscheme},
        {"ntpip", &StatusValues::ntpip},
        {"controller", &StatusValues::controller},
        {"housenames", &StatusValues::housenames},
        {"syslogip", &StatusValues::syslogip},
        {"nameserver", &StatusValues::nameserver},
        {"ntpsync", &StatusValues::ntpsync},
        {"sdusage", &StatusValues::sdusage},
        {"sdkversion", &StatusValues::sdkversion},
        {"mac1", &StatusValues::mac1},
        {"mac2", &StatusValues::mac2},
        {"uptime", &StatusValues::uptime},
        {"loadavg", &StatusValues::loadavg},
    };
    return fields;
}

StatusValues everyValueSet() {
    StatusValues values;
    values.ip = "192.168.1.20";
    values.netmask = "255.255.255.0";
    values.gateway = "192.168.1.1";
    values.hostname = "controller-7";
    values.ipscheme = "STATIC";
    values.ntpip = "192.168.1.2";
    values.controller = "Hall A";
    values.housenames = "North,South";
    values.syslogip = "192.168.1.3";
    values.nameserver = "192.168.1.4";
    values.ntpsync = "yes";
    values.sdusage = "42%";
    values.sdkversion = "7.1.0";
    values.mac1 = "00:1A:2B:3C:4D:5F";
    values.mac2 = "00:1A:2B:3C:4D:60";
    values.uptime = "3600";
    values.loadavg = "0.15 0.10 0.05";
    values.utcclock = "2024-01-31 12:34:56";
    values.displaytime = "31.01.2024 13:34";
    return values;
}

StatusValues onlyHostname(const std::string& hostname) {
    StatusValues values;
    values.hostname = hostname;
    return values;
}

// ---- ACK ----

struct AckCase {
    const char* name;
    std::string seqid;
    std::string mac;
    bool accepted;
    std::string reply;
};

void PrintTo(const AckCase& row, std::ostream* out) {
    *out << row.name;
}

const AckCase kAckCases[] = {
    {"AcceptedReply", "9", kDeviceMac, true, "LCF2#ACK#seqid=9#mac=00:1A:2B:3C:4D:5E#accept=yes"},
    {"RefusedReply", "9", kDeviceMac, false, "LCF2#ACK#seqid=9#mac=00:1A:2B:3C:4D:5E#accept=no"},
    {"EmptySeqidAndMacAreWrittenEmpty", "", "", false, "LCF2#ACK#seqid=#mac=#accept=no"},
};

class AckReply : public ::testing::TestWithParam<AckCase> {};

TEST_P(AckReply, IsTheExactText) {
    EXPECT_EQ(composeAck(GetParam().seqid, GetParam().mac, GetParam().accepted), GetParam().reply);
}

INSTANTIATE_TEST_SUITE_P(ComposeAck, AckReply, ::testing::ValuesIn(kAckCases),
                         [](const ::testing::TestParamInfo<AckCase>& param) {
                             return std::string(param.param.name);
                         });

// ---- STATUS ----

struct StatusCase {
    const char* name;
    std::string seqid;
    std::string mac;
    StatusValues values;
    std::string reply;
};

void PrintTo(const StatusCase& row, std::ostream* out) {
    *out << row.name;
}

const StatusCase kStatusCases[] = {
    {"EveryFieldInItsOrder", "17", kDeviceMac, everyValueSet(),
     "LCF2#STATUS#seqid=17#mac=00:1A:2B:3C:4D:5E"
     "#ip=192.168.1.20#netmask=255.255.255.0#gateway=192.168.1.1"
     "#hostname=controller-7#ipscheme=STATIC#ntpip=192.168.1.2#controller=Hall A"
     "#housenames=North,South#syslogip=192.168.1.3#nameserver=192.168.1.4"
     "#ntpsync=yes#sdusage=42%#sdkversion=7.1.0#mac1=00:1A:2B:3C:4D:5F"
     "#mac2=00:1A:2B:3C:4D:60#uptime=3600#loadavg=0.15 0.10 0.05"
     "#utcclock=2024-01-31 12:34:56#displaytime=31.01.2024 13:34"},
    // The clock fields are always written; no optional field ever appears as "#key=".
    {"NoValuesGiveOnlyTheClockFieldsEmpty", "5", kDeviceMac, StatusValues{},
     "LCF2#STATUS#seqid=5#mac=00:1A:2B:3C:4D:5E#utcclock=#displaytime="},
    {"EmptySeqidAndMac", "", "", StatusValues{}, "LCF2#STATUS#seqid=#mac=#utcclock=#displaytime="},
    // Device values go out as they are, without escaping, even when they hold protocol
    // characters.
    {"ValuesAreWrittenWithoutEscaping", "1", kDeviceMac, onlyHostname("a#b=c;d"),
     "LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5E#hostname=a#b=c;d#utcclock=#displaytime="},
};

class StatusReply : public ::testing::TestWithParam<StatusCase> {};

TEST_P(StatusReply, IsTheExactText) {
    EXPECT_EQ(composeStatus(GetParam().seqid, GetParam().mac, GetParam().values), GetParam().reply);
}

INSTANTIATE_TEST_SUITE_P(ComposeStatus, StatusReply, ::testing::ValuesIn(kStatusCases),
                         [](const ::testing::TestParamInfo<StatusCase>& param) {
                             return std::string(param.param.name);
                         });

TEST(ComposeStatus, EmptySeqidStartsTheReplyWithAnEmptySeqid) {
    const std::string reply = composeStatus("", kDeviceMac, everyValueSet());
    EXPECT_EQ(reply.rfind("LCF2#STATUS#seqid=#mac=00:1A:2B:3C:4D:5E#ip=", 0), 0u) << reply;
}

TEST(ComposeStatus, EachOptionalFieldAloneIsWrittenBeforeTheClockFields) {
    for (const OptionalField& field : optionalFields()) {
        StatusValues values;
        values.*field.value = "v";
        EXPECT_EQ(composeStatus("1", kDeviceMac, values),
                  std::string("LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5E#") + field.key +
                      "=v#utcclock=#displaytime=")
            << field.key;
    }
}

TEST(ComposeStatus, EachEmptyOptionalFieldIsLeftOutKeyAndAll) {
    for (const OptionalField& field : optionalFields()) {
        StatusValues values = everyValueSet();
        values.*field.value = "";
        const std::string reply = composeStatus("1", kDeviceMac, values);
        const std::string full = composeStatus("1", kDeviceMac, everyValueSet());
        const std::string written =
            std::string("#") + field.key + "=" + everyValueSet().*field.value;
        const std::size_t position = full.find(written);
        ASSERT_NE(position, std::string::npos) << field.key;
        EXPECT_EQ(reply, full.substr(0, position) + full.substr(position + written.size()))
            << field.key;
    }
}

TEST(ComposeStatus, EmptyClockValuesAreStillWritten) {
    StatusValues values = everyValueSet();
    values.utcclock = "";
    values.displaytime = "";
    const std::string reply = composeStatus("1", kDeviceMac, values);
    const std::string ending = "#loadavg=0.15 0.10 0.05#utcclock=#displaytime=";
    ASSERT_GE(reply.size(), ending.size());
    EXPECT_EQ(reply.substr(reply.size() - ending.size()), ending);
}

TEST(StatusFields, ListTheKeysInReplyOrderWithOnlyTheClocksAlwaysWritten) {
    const std::vector<std::string> expectedKeys = {
        "ip",      "netmask",    "gateway",    "hostname",   "ipscheme",
        "ntpip",   "controller", "housenames", "syslogip",   "nameserver",
        "ntpsync", "sdusage",    "sdkversion", "mac1",       "mac2",
        "uptime",  "loadavg",    "utcclock",   "displaytime"};
    const std::vector<StatusField>& fields = statusFields();
    ASSERT_EQ(fields.size(), expectedKeys.size());
    for (std::size_t i = 0; i < fields.size(); ++i) {
        EXPECT_EQ(fields[i].key, expectedKeys[i]) << i;
        const bool isClock = expectedKeys[i] == "utcclock" || expectedKeys[i] == "displaytime";
        EXPECT_EQ(fields[i].omittedWhenEmpty, !isClock) << expectedKeys[i];
    }
}

}  // namespace
}  // namespace lcfd
