#pragma once

// Writing an accepted ASSIGN to the device: Settings::writeNetworkSettings, a member of the
// record, is defined in NetworkWriter.cpp. These are the lines it logs around each step.

namespace lcfd {

constexpr const char* kNtpIpFailed = "Error setting ntp IP";
constexpr const char* kNtpIpFinished = "Finished writing ntp IP settings";
constexpr const char* kSyslogIpFailed = "Error setting syslog IP";
constexpr const char* kSyslogIpFinished = "Finished writing syslog IP settings";
constexpr const char* kNameserverFailed = "Error setting nameserver";
constexpr const char* kNameserverFinished = "Finished writing nameserver settings";
constexpr const char* kWritingNetwork = "Writing network settings";
constexpr const char* kStaticIpFailed = "Error setting static IP.";
constexpr const char* kStaticIpFinished = "Changed to Static IP...";
constexpr const char* kStaticIpIncomplete = "Missing required parameters for setting static IP.";
constexpr const char* kDhcpFailed = "Error setting DHCP.";
constexpr const char* kDhcpFinished = "Changed to DHCP...";
constexpr const char* kNetworkFinished = "Finished writing network settings";

}  // namespace lcfd
