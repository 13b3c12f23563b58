#include "settings/NetworkWriter.hpp"

#include "device/DeviceCommands.hpp"
#include "device/DeviceShell.hpp"
#include "log/Log.hpp"
#include "settings/Settings.hpp"
#include "wire/Protocol.hpp"

namespace lcfd {
namespace {

// One step: log the command line and run it (success is a status of exactly 0), report a
// failure, and close the step either way.
void runStep(DeviceShell& shell, const std::string& line, const char* failure,
             const char* finished) {
    logInfo(line);
    if (!shell.run(line)) {
        logError(failure);
    }
    logInfo(finished);
}

}  // namespace

void Settings::writeNetworkSettings() {
    if (ntpipChanged()) {
        runStep(*shell, timeServerCommand(controllerType, ntpip), kNtpIpFailed, kNtpIpFinished);
    }
    if (syslogipChanged()) {
        runStep(*shell, syslogServerCommand(syslogip), kSyslogIpFailed, kSyslogIpFinished);
    }
    if (nameserverChanged()) {
        runStep(*shell, nameServerCommand(nameserver), kNameserverFailed, kNameserverFinished);
    }
    if (networkChanged()) {
        logInfo(kWritingNetwork);
        if (ipscheme == kSchemeStatic) {
            if (const auto line = staticIpCommand(ip, netmask, gateway, interface)) {
                runStep(*shell, *line, kStaticIpFailed, kStaticIpFinished);
            } else {
                logError(kStaticIpIncomplete);
            }
        } else if (ipscheme == kSchemeDhcp) {
            runStep(*shell, dhcpCommand(interface), kDhcpFailed, kDhcpFinished);
        }
        logInfo(kNetworkFinished);
    }
    // The clock goes in again once the network has been reconfigured.
    if (!pendingutcclock.empty()) {
        setUtcClock(pendingutcclock);
        pendingutcclock.clear();
    }
}

}  // namespace lcfd
