#pragma once

#include <string>
#include <string_view>

#include "protocol/Message.hpp"

namespace lcfd {

// The text vocabulary of the protocol.
constexpr char kFieldSeparator = '#';
constexpr char kKeyValueSeparator = '=';
constexpr const char* kReservedChars = "#;=";
constexpr const char* kProtocolTag = "LCF";
constexpr int kProtocolVersion = 2;  // written into every reply; requests below 3 are read

namespace word {
constexpr const char* kQuery = "QUERY";
constexpr const char* kAssign = "ASSIGN";
constexpr const char* kClear = "CLEAR";
constexpr const char* kAck = "ACK";
constexpr const char* kStatus = "STATUS";
}  // namespace word

namespace key {
constexpr const char* kSeqid = "seqid";
constexpr const char* kMac = "mac";
constexpr const char* kIp = "ip";
constexpr const char* kNetmask = "netmask";
constexpr const char* kGateway = "gateway";
constexpr const char* kHostname = "hostname";
constexpr const char* kIpScheme = "ipscheme";
constexpr const char* kNtpIp = "ntpip";
constexpr const char* kController = "controller";
constexpr const char* kHousenames = "housenames";
constexpr const char* kSyslogIp = "syslogip";
constexpr const char* kNameserver = "nameserver";
constexpr const char* kNtpSync = "ntpsync";
constexpr const char* kSdUsage = "sdusage";
constexpr const char* kSdkVersion = "sdkversion";
constexpr const char* kMac1 = "mac1";
constexpr const char* kMac2 = "mac2";
constexpr const char* kUptime = "uptime";
constexpr const char* kLoadavg = "loadavg";
constexpr const char* kUtcClock = "utcclock";
constexpr const char* kDisplayTime = "displaytime";
constexpr const char* kAccept = "accept";
}  // namespace key

// After acknowledging and applying an accepted ASSIGN the daemon reads nothing for this long, so
// that the device's network can settle; requests sent meanwhile wait in its receive queue.
constexpr unsigned kSettleSeconds = 5;

constexpr const char* kSchemeStatic = "STATIC";
constexpr const char* kSchemeDhcp = "DHCP";

// "LCF2#" + command + "#seqid=" + seqid: how every request and reply text begins.
std::string composeMessageStart(const char* command, const std::string& seqid);
// Appends "#" + key + "=" + value.
void appendField(std::string& text, const std::string& fieldKey, const std::string& value);

// The one splitting rule of the protocol: head before the first `separator`, rest after it.
// Without the separator the head is the whole text. Returns whether it occurred.
bool splitAt(const std::string& text, char separator, std::string& head, std::string& rest);

// The same rule as views into `text`: the datagram path splits this way, so that taking a
// request apart copies nothing but the values it keeps.
struct TextSplit {
    std::string_view head;
    std::string_view rest;
    bool found = false;
};
TextSplit splitView(std::string_view text, char separator);

// True when the text holds none of "#", ";" and "=".
bool hasNoReservedChars(std::string_view text);

// "LCF" and one version character; the version is refused only when it is a digit 3 to 9.
bool checkHeader(std::string_view header);

// "seqid=" + a value free of reserved characters (possibly empty), stored in message.seqid.
bool parseSeqId(std::string_view field, Message& message);

// Stores the value upper-cased in message.mac. Only under the key "mac" are its two-character
// groups checked for hexadecimal digits.
bool parseMac(std::string_view field, Message& message);

// The ASSIGN list: fields up to the first empty one, each through parseField.
bool parseFieldList(std::string_view text, Message& message);

// One ASSIGN field: address keys stored when the value is dotted, "ipscheme" STATIC or DHCP
// only, "utcclock" unchecked, anything else ignored when free of reserved characters.
bool parseField(std::string_view field, Message& message);

// The loose dotted-address check of requests (four digit-only parts, each at most 255).
bool isDottedQuad(std::string_view value);

// "ntpip", "syslogip" or "nameserver".
bool isServerKey(std::string_view text);

}  // namespace lcfd
