#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace lcfd {

// The values of a STATUS reply after seqid and mac, in the order they are written.
struct StatusValues {
    std::string ip;
    std::string netmask;
    std::string gateway;
    std::string hostname;
    std::string ipscheme;
    std::string ntpip;
    std::string controller;
    std::string housenames;
    std::string syslogip;
    std::string nameserver;
    std::string ntpsync;
    std::string sdusage;
    std::string sdkversion;
    std::string mac1;
    std::string mac2;
    std::string uptime;
    std::string loadavg;
    std::string utcclock;     // always written
    std::string displaytime;  // always written
};

// One entry of the STATUS layout: its key, whether an empty value is left out, and where the
// value stands in StatusValues.
struct StatusField {
    const char* key;
    bool omittedWhenEmpty;
    std::string StatusValues::*value;
};

// The status fields after seqid and mac, in reply order.
const std::vector<StatusField>& statusFields();

// "LCF2#ACK#seqid=" + seqid + "#mac=" + mac + "#accept=yes" or "#accept=no".
std::string composeAck(const std::string& seqid, const std::string& mac, bool accepted);

// "LCF2#STATUS#seqid=" + seqid + "#mac=" + mac, then "#key=value" for every status field,
// empty optional ones left out.
std::string composeStatus(const std::string& seqid, const std::string& mac,
                          const StatusValues& values);

// A reply as a configuration tool reads it: the command word ("STATUS" or "ACK") and its
// key=value fields in the order they came.
struct Reply {
    std::string command;
    std::vector<std::pair<std::string, std::string>> fields;

    // The value of the first field named `fieldKey`, or nothing.
    std::optional<std::string> value(std::string_view fieldKey) const;
    // The same without a copy: the first such value in place, or nullptr.
    const std::string* find(std::string_view fieldKey) const;
};

// Takes a received datagram apart; nothing when it is not a STATUS or ACK reply with an
// accepted header.
std::optional<Reply> parseReply(std::string_view text);

}  // namespace lcfd
