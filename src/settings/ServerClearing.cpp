#include "settings/ServerClearing.hpp"

#include "device/DeviceCommands.hpp"
#include "settings/Settings.hpp"

namespace lcfd {

bool clearServerSetting(const Settings& settings, ServerSetting setting) {
    std::string answer;
    for (const std::string& line : clearCommands(setting, settings.getControllerType())) {
        answer = settings.runShellCommand(line, true);
    }
    return clearSucceeded(answer);
}

bool Settings::clearNtpIp() {
    return clearServerSetting(*this, ServerSetting::TimeServer);
}
bool Settings::clearSyslogIp() {
    return clearServerSetting(*this, ServerSetting::SyslogServer);
}
bool Settings::clearNameserver() {
    return clearServerSetting(*this, ServerSetting::NameServer);
}

}  // namespace lcfd
