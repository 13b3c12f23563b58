#include <cstdlib>

#include "device/DeviceCommands.hpp"
#include "log/Log.hpp"
#include "settings/Settings.hpp"

namespace lcfd {
namespace {

constexpr const char* kStaticScheme = "STATIC";
constexpr const char* kDhcpScheme = "DHCP";

// Logs the command line, then runs it; success is a status of exactly 0.
bool runLogged(const std::string& line) {
    logInfo(line);
    // The device's own tools are shell command lines; their values passed the setters' checks.
    return std::system(line.c_str()) == 0;  // NOLINT(cert-env33-c)
}

// One step: run the line, report a failure, and close the step either way.
void runStep(const std::string& line, const char* failure, const char* finished) {
    if (!runLogged(line)) {
        logError(failure);
    }
    logInfo(finished);
}

}  // namespace

void Settings::writeNetworkSettings() {
    if (ntpipChanged()) {
        runStep(timeServerCommand(controllerType, ntpip), "Error setting ntp IP",
                "Finished writing ntp IP settings");
    }
    if (syslogipChanged()) {
        runStep(syslogServerCommand(syslogip), "Error setting syslog IP",
                "Finished writing syslog IP settings");
    }
    if (nameserverChanged()) {
        runStep(nameServerCommand(nameserver), "Error setting nameserver",
                "Finished writing nameserver settings");
    }
    if (networkChanged()) {
        logInfo("Writing network settings");
        if (ipscheme == kStaticScheme) {
            if (const auto line = staticIpCommand(ip, netmask, gateway, interface)) {
                runStep(*line, "Error setting static IP.", "Changed to Static IP...");
            } else {
                logError("Missing required parameters for setting static IP.");
            }
        } else if (ipscheme == kDhcpScheme) {
            runStep(dhcpCommand(interface), "Error setting DHCP.", "Changed to DHCP...");
        }
        logInfo("Finished writing network settings");
    }
    // The clock goes in again once the network has been reconfigured.
    if (!pendingutcclock.empty()) {
        setUtcClock(pendingutcclock);
        pendingutcclock.clear();
    }
}

}  // namespace lcfd
