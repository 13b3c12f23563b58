#include "settings/Settings.hpp"

#include <algorithm>
#include <cctype>

#include "net/InterfaceSelection.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Protocol.hpp"
#include "wire/Validators.hpp"

namespace lcfd {
namespace {

constexpr const char* kDefaultHostname = "none";
constexpr const char* kSerialNumber = "_serialNumber";

void removeAll(std::string& text, char unwanted) {
    text.erase(std::remove(text.begin(), text.end(), unwanted), text.end());
}

bool storeIfValidIpv4(std::string& field, const std::string& value) {
    if (!isValidIpv4(value)) {
        return false;
    }
    field = value;
    return true;
}

}  // namespace

std::string cleanText(const std::string& text) {
    std::string cleaned = text;
    removeAll(cleaned, '\r');
    removeAll(cleaned, '\n');
    removeAll(cleaned, '\t');
    return cleaned;
}

Settings::Settings() : Settings(systemShell()) {}

Settings::Settings(DeviceShell& deviceShell)
    : hostname(kDefaultHostname),
      ipscheme(kSchemeStatic),
      interface(kDefaultInterface),
      shell(&deviceShell),
      controllerType(ControllerType::Unknown) {}

Settings::~Settings() = default;

Settings& Settings::operator=(const Settings& other) {
    if (this == &other) {
        return *this;
    }
    devicehostname = other.devicehostname;
    hostname = other.hostname;
    ip = other.ip;
    netmask = other.netmask;
    gateway = other.gateway;
    auxip = other.auxip;
    mac = other.mac;
    ntpip = other.ntpip;
    controller = other.controller;
    syslogip = other.syslogip;
    nameserver = other.nameserver;
    ipscheme = other.ipscheme;
    return *this;
}

std::string Settings::getHousenames() const {
    return cleanText(housenames);
}
std::string Settings::getHostname() const {
    return hostname;
}
std::string Settings::getIp() const {
    return ip;
}
std::string Settings::getNetmask() const {
    return netmask;
}
std::string Settings::getGateway() const {
    return gateway;
}
const std::string& Settings::getMac() const {
    assignUpperCased(macUpperCased, mac);
    return macUpperCased;
}
std::string Settings::getNtpIp() const {
    return ntpip;
}
std::string Settings::getController() const {
    return cleanText(controller);
}
std::string Settings::getSyslogIp() const {
    return syslogip;
}
std::string Settings::getNameserver() const {
    return nameserver;
}
std::string Settings::getIpScheme() const {
    return ipscheme;
}
std::string Settings::getNtpSync() const {
    return ntpsync;
}
std::string Settings::getSdUsage() const {
    return sdusage;
}
std::string Settings::getSdkVersion() const {
    return cleanText(sdkversion);
}
std::string Settings::getMac1() const {
    return upperCased(cleanText(mac1));
}
std::string Settings::getMac2() const {
    return upperCased(cleanText(mac2));
}
std::string Settings::getUptime() const {
    return cleanText(uptime);
}
std::string Settings::getLoadavg() const {
    return cleanText(loadavg);
}
std::string Settings::getDisplayTime() const {
    return cleanText(displaytime);
}
std::string Settings::getSerialNumber() const {
    return kSerialNumber;
}

bool Settings::setIp(const std::string& value) {
    return storeIfValidIpv4(ip, value);
}
bool Settings::setNetmask(const std::string& value) {
    // Upper-casing a valid address changes nothing; the stored text is the upper-cased one.
    if (!isValidIpv4(value)) {
        return false;
    }
    netmask = upperCased(value);
    return true;
}
bool Settings::setGateway(const std::string& value) {
    return storeIfValidIpv4(gateway, value);
}
bool Settings::setAuxIp(const std::string& value) {
    return storeIfValidIpv4(auxip, value);
}
bool Settings::setNtpIp(const std::string& value) {
    return storeIfValidIpv4(ntpip, value);
}
bool Settings::setSyslogIp(const std::string& value) {
    return storeIfValidIpv4(syslogip, value);
}
bool Settings::setNameserver(const std::string& value) {
    return storeIfValidIpv4(nameserver, value);
}
void Settings::setIpScheme(const std::string& value) {
    ipscheme = value;
}
bool Settings::setHostname(const std::string& value) {
    hostname = value;
    return true;
}
bool Settings::setHousenames(const std::string& value) {
    housenames = value;
    return true;
}
void Settings::setMac(const std::string& value) {
    mac = value;
}
void Settings::setDeviceHostname(const std::string& value) {
    devicehostname = value;
}
void Settings::setController(const std::string& value) {
    controller = value;
}

bool Settings::ntpipChanged() const {
    return !snapshot || ntpip != snapshot->ntpip;
}
bool Settings::syslogipChanged() const {
    return !snapshot || syslogip != snapshot->syslogip;
}
bool Settings::nameserverChanged() const {
    return !snapshot || nameserver != snapshot->nameserver;
}
bool Settings::networkChanged() const {
    // COMPAT: syslog-change-reapplies-scheme
    // The syslog server counts as a network setting: changing it re-applies the IP scheme.
    return !snapshot || ip != snapshot->ip || netmask != snapshot->netmask ||
           gateway != snapshot->gateway || syslogip != snapshot->syslogip ||
           ipscheme != snapshot->ipscheme;
}
bool Settings::ipschemeChanged() const {
    return !snapshot || ipscheme != snapshot->ipscheme;
}
bool Settings::hostnameChanged() const {
    return !snapshot || hostname != snapshot->hostname;
}
bool Settings::hasPendingUtcClock() const {
    return !pendingutcclock.empty();
}

const std::string& Settings::loadInterfaceName() {
    return selectInterfaceName(kInterfaceFilePath, interface);
}

std::string Settings::getInterfaceName() {
    return cleanText(loadInterfaceName());
}

std::string Settings::getInterfaceNetmask() {
    return lookupInterfaceNetmask(loadInterfaceName());
}

void Settings::takeSnapshot() {
    snapshot.reset();
    snapshot = std::make_unique<Settings>(*shell);
    *snapshot = *this;
}

void Settings::reload() {
    readFromDevice();
    takeSnapshot();
}

std::string Settings::runShellCommand(const std::string& command, bool firstWordOnly) const {
    return shell->query(command, firstWordOnly);
}

}  // namespace lcfd
