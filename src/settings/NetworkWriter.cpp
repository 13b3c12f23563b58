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
        runStep(*shell_, timeServerCommand(controllerType_, ntpip_), kNtpIpFailed, kNtpIpFinished);
    }
    if (syslogipChanged()) {
        runStep(*shell_, syslogServerCommand(syslogip_), kSyslogIpFailed, kSyslogIpFinished);
    }
    if (nameserverChanged()) {
        runStep(*shell_, nameServerCommand(nameserver_), kNameserverFailed, kNameserverFinished);
    }
    if (networkChanged()) {
        logInfo(kWritingNetwork);
        if (ipscheme_ == kSchemeStatic) {
            if (const auto line = staticIpCommand(ip_, netmask_, gateway_, interface_)) {
                runStep(*shell_, *line, kStaticIpFailed, kStaticIpFinished);
            } else {
                logError(kStaticIpIncomplete);
            }
        } else if (ipscheme_ == kSchemeDhcp) {
            runStep(*shell_, dhcpCommand(interface_), kDhcpFailed, kDhcpFinished);
        }
        logInfo(kNetworkFinished);
    }
    // The clock goes in again once the network has been reconfigured.
    if (!pendingutcclock_.empty()) {
        setUtcClock(pendingutcclock_);
        pendingutcclock_.clear();
    }
}

}  // namespace lcfd
