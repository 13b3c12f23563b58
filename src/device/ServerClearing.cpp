#include "device/DeviceCommands.hpp"
#include "settings/Settings.hpp"

namespace lcfd {
namespace {

// Every command of the platform runs, unconditionally; only the last one's answer counts.
bool runClear(const Settings& settings, ServerSetting setting) {
    std::string answer;
    for (const std::string& line : clearCommands(setting, settings.getControllerType())) {
        answer = settings.runShellCommand(line, true);
    }
    return clearSucceeded(answer);
}

}  // namespace

bool Settings::clearNtpIp() {
    return runClear(*this, ServerSetting::TimeServer);
}
bool Settings::clearSyslogIp() {
    return runClear(*this, ServerSetting::SyslogServer);
}
bool Settings::clearNameserver() {
    return runClear(*this, ServerSetting::NameServer);
}

}  // namespace lcfd
