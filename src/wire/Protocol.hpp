#pragma once

#include <cstdint>

#include "wire/Version.hpp"

namespace lcfd {

// The service port: requests arrive on it and every reply is broadcast to it.
constexpr std::uint16_t kServicePort = 7217;

// The interface a board without an interface file serves on. Replies leave it through the
// plain UDP socket; on any other interface they go out as hand-built frames, and the
// device's tools are told the interface's name.
constexpr const char* kDefaultInterface = "br0";

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

// The two values of "ipscheme".
constexpr const char* kSchemeStatic = "STATIC";
constexpr const char* kSchemeDhcp = "DHCP";

}  // namespace lcfd
