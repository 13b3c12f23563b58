#pragma once

#include <string>

#include "device/ControllerType.hpp"

namespace lcfd {

// Status files read at every reading.
constexpr const char* kControllerFilePath = "/var/run/controller";
constexpr const char* kHousenamesFilePath = "/var/run/housenames";

// Command lines of the reading, byte for byte as the device tools expect them.
namespace query {
constexpr const char* kSdk = "tarnsetup getsdk";
constexpr const char* kMacAddress = "tarnsetup getmacaddr";
constexpr const char* kIpScheme = "tarnsetup getipscheme";
constexpr const char* kIpAddress = "tarnsetup getipaddr";
constexpr const char* kGateway = "route -n | grep ^0.0.0.0 | awk '{ print $2 }'";
constexpr const char* kBootEnvTimeServer = "ubootenv /dev/mtd1 print timeserver | cut -d\"=\" -f2";
constexpr const char* kTimeServer = "tarnsetup gettimeserver";
constexpr const char* kBootEnvSyslogServer = "ubootenv /dev/mtd1 print serverip | cut -d\"=\" -f2";
constexpr const char* kSyslogServer = "tarnsetup getsyslogserver";
constexpr const char* kNameServer = "tarnsetup getnameserver";
constexpr const char* kHostname = "hostname";
constexpr const char* kNtpqSync = "ntpq -pn | grep -v LOCL | grep ^*";
constexpr const char* kTimedatectlSync =
    "timedatectl | grep \"NTP synchronized\" | awk '{ print $3 }'";
constexpr const char* kNtpdcSync = "ntpdc -pn |grep ^*";
constexpr const char* kSdCardUsage = "tarnsetup sdcard info usage";
constexpr const char* kMmcblkUsage = "df -h | grep mmcblk | awk '{ print$5 }'";
constexpr const char* kSdcardDfUsage = "df -h | grep sdcard | awk '{ print$5 }'";
constexpr const char* kSdkVersion = "tarnsetup getsdkversion";
constexpr const char* kPrimaryFuseMac = "tarnsetup getmacaddr fromfuses primary";
constexpr const char* kSecondaryFuseMac = "tarnsetup getmacaddr fromfuses secondary";
constexpr const char* kUptime = "cat /proc/uptime";
constexpr const char* kLoadavg = "cat /proc/loadavg";
constexpr const char* kDisplayTimeSeconds =
    "Get $(grep HS_REALTIME_SEC_SINCE_1970_BEFORE "
    "/etc/tarn/ConfigurationFiles/HardCodedHSSets.xml | sed -e "
    "'s/.*value=\"\\([^\"]*\\)\".*/\\1/')";
}  // namespace query

constexpr const char* kNotAvailable = "n/a";
constexpr const char* kYes = "yes";
constexpr const char* kNo = "no";

// An answer is usable unless "ERROR::" occurs anywhere in it; an empty answer is usable.
bool isUsableAnswer(const std::string& answer);

// Exact, whole-text comparison: "imx", "qmt", "arm9"; anything else is a generic board.
ControllerType controllerTypeFromSdk(const std::string& answer);

// On "br0" a tool query runs as it is; on any other interface the name is appended.
std::string withInterface(const char* query, const std::string& interfaceName);

// Public resolvers a board may report; they are never taken as the device's name server.
bool isPublicResolver(const std::string& answer);

// The platform's command for each reading step; nullptr where the platform runs none.
const char* timeServerQuery(ControllerType type);
const char* syslogServerQuery(ControllerType type);
const char* ntpSyncQuery(ControllerType type);
const char* sdUsageQuery(ControllerType type);

// Whether an ntp query's answer means "synchronised" (any line beginning with an asterisk).
bool meansSynchronised(const std::string& answer);
// The SD usage to report for an answer of the platform's usage query.
std::string sdUsageFromAnswer(ControllerType type, const std::string& answer);

// Seconds since 1970 (as strtol reads them) shown as local time "%Y%m%d%H%M%S"; false when
// no digit converts, the value is out of range or the conversion fails.
bool displayTimeFromSeconds(const std::string& answer, std::string& displayTime);

// The first line of the file at `path` (without its line feed); false when it does not open.
bool readFirstLine(const char* path, std::string& line);

}  // namespace lcfd
