#include "device/DeviceCommands.hpp"

#include "wire/Protocol.hpp"

namespace lcfd {
namespace {}  // namespace

std::string timeServerCommand(ControllerType type, const std::string& ntpip) {
    // The tools of these two platforms take the shorter verb.
    const bool shortVerb = type == ControllerType::Generic || type == ControllerType::Qmt;
    return (shortVerb ? "tarnsetup timeserver " : "tarnsetup settimeserver ") + ntpip;
}

std::string syslogServerCommand(const std::string& syslogip) {
    return "tarnsetup setsyslogserver " + syslogip;
}

std::string nameServerCommand(const std::string& nameserver) {
    return "tarnsetup setnameserver " + nameserver;
}

std::optional<std::string> staticIpCommand(const std::string& ip, const std::string& netmask,
                                           const std::string& gateway,
                                           const std::string& interfaceName) {
    if (ip.empty() || netmask.empty() || gateway.empty()) {
        return std::nullopt;
    }
    // On the default bridge the line ends in a blank where the interface would stand.
    std::string line = "tarnsetup setip " + ip + " " + netmask + " " + gateway + " ";
    if (interfaceName != kDefaultInterface) {
        line += interfaceName;
    }
    return line;
}

std::string dhcpCommand(const std::string& interfaceName) {
    std::string line = "tarnsetup setdhcp";
    if (interfaceName != kDefaultInterface) {
        line += " " + interfaceName;
    }
    return line;
}

std::optional<std::string> setClockCommand(ControllerType type, const std::string& value) {
    const std::string year = value.substr(0, 4);
    const std::string month = value.substr(4, 2);
    const std::string day = value.substr(6, 2);
    const std::string hour = value.substr(8, 2);
    const std::string minute = value.substr(10, 2);
    const std::string second = value.substr(12, 2);
    switch (type) {
        case ControllerType::Generic:
        case ControllerType::Arm9:
            return "date -u -D %Y%m%d%H%M%S -s " + value;
        case ControllerType::Imx:
            return "date -u -s " + year + month + day + hour + minute + "." + second;
        case ControllerType::Qmt:
            return "date -u -s '" + year + "-" + month + "-" + day + " " + hour + ":" + minute +
                   ":" + second + "'";
        default:
            return std::nullopt;
    }
}

std::vector<std::string> clearCommands(ServerSetting setting, ControllerType type) {
    switch (setting) {
        case ServerSetting::TimeServer:
            switch (type) {
                case ControllerType::Generic:
                    return {"ubootenv /dev/mtd1 del timeserver"};
                case ControllerType::Arm9:
                    return {"rm /etc/tarnsetup.d/timeserver"};
                case ControllerType::Imx:
                    return {"tarnsetup settimeserver --delete"};
                case ControllerType::Qmt:
                    return {"rm /etc/systemd/timesyncd.conf",
                            "systemctl restart systemd-timesyncd.service"};
                default:
                    return {};
            }
        case ServerSetting::SyslogServer:
            switch (type) {
                case ControllerType::Generic:
                    return {"ubootenv /dev/mtd1 del serverip"};
                case ControllerType::Arm9:
                    return {"rm /etc/tarnsetup.d/syslogserver"};
                case ControllerType::Imx:
                    return {"tarnsetup setsyslogserver --delete"};
                case ControllerType::Qmt:
                    return {"tarnsetup setsyslogserver disabled"};
                default:
                    return {};
            }
        case ServerSetting::NameServer:
            if (type == ControllerType::Imx) {
                return {"tarnsetup setnameserver --delete"};
            }
            return {};
    }
    return {};
}

bool clearSucceeded(const std::string& answer) {
    return answer.find("ERROR") != 0;
}

}  // namespace lcfd
