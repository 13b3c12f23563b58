#pragma once

#include <optional>
#include <string>
#include <vector>

#include "device/ControllerType.hpp"

namespace lcfd {

// Command lines that change the device. Values are appended exactly as stored: they reached
// the settings only through validating setters or the clock check.
namespace command {
constexpr const char* kReadUtcClock = "date -u +%Y%m%d%H%M%S";
}  // namespace command

// "tarnsetup timeserver X" on generic and qmt boards, "tarnsetup settimeserver X" elsewhere.
std::string timeServerCommand(ControllerType type, const std::string& ntpip);
std::string syslogServerCommand(const std::string& syslogip);
std::string nameServerCommand(const std::string& nameserver);
// "tarnsetup setip IP MASK GW " + interface ("br0" leaves the trailing blank); nothing when a
// value is missing.
std::optional<std::string> staticIpCommand(const std::string& ip, const std::string& netmask,
                                           const std::string& gateway,
                                           const std::string& interfaceName);
// "tarnsetup setdhcp", with " " + interface unless it is "br0".
std::string dhcpCommand(const std::string& interfaceName);

// The platform's "date" form setting the clock to a checked value; nothing on an unknown one.
std::optional<std::string> setClockCommand(ControllerType type, const std::string& value);

enum class ServerSetting { TimeServer, SyslogServer, NameServer };
// The commands that remove a server setting on a platform, in the order they run.
std::vector<std::string> clearCommands(ServerSetting setting, ControllerType type);
// A clear failed only when the tool's answer begins with "ERROR".
bool clearSucceeded(const std::string& answer);

}  // namespace lcfd
