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
    : hostname_(kDefaultHostname),
      ipscheme_(kSchemeStatic),
      interface_(kDefaultInterface),
      shell_(&deviceShell),
      controllerType_(ControllerType::Unknown) {}

Settings::~Settings() = default;

// The shell is not copied: a record, and the snapshot taken from it, keep the device they
// were made with.
// cppcheck-suppress operatorEqVarError
Settings& Settings::operator=(const Settings& other) {
    if (this == &other) {
        return *this;
    }
    devicehostname_ = other.devicehostname_;
    hostname_ = other.hostname_;
    ip_ = other.ip_;
    netmask_ = other.netmask_;
    gateway_ = other.gateway_;
    auxip_ = other.auxip_;
    mac_ = other.mac_;
    ntpip_ = other.ntpip_;
    controller_ = other.controller_;
    syslogip_ = other.syslogip_;
    nameserver_ = other.nameserver_;
    ipscheme_ = other.ipscheme_;
    return *this;
}

std::string Settings::getHousenames() const {
    return cleanText(housenames_);
}
std::string Settings::getHostname() const {
    return hostname_;
}
std::string Settings::getIp() const {
    return ip_;
}
std::string Settings::getNetmask() const {
    return netmask_;
}
std::string Settings::getGateway() const {
    return gateway_;
}
const std::string& Settings::getMac() const {
    assignUpperCased(macUpperCased_, mac_);
    return macUpperCased_;
}
std::string Settings::getNtpIp() const {
    return ntpip_;
}
std::string Settings::getController() const {
    return cleanText(controller_);
}
std::string Settings::getSyslogIp() const {
    return syslogip_;
}
std::string Settings::getNameserver() const {
    return nameserver_;
}
std::string Settings::getIpScheme() const {
    return ipscheme_;
}
std::string Settings::getNtpSync() const {
    return ntpsync_;
}
std::string Settings::getSdUsage() const {
    return sdusage_;
}
std::string Settings::getSdkVersion() const {
    return cleanText(sdkversion_);
}
std::string Settings::getMac1() const {
    return upperCased(cleanText(mac1_));
}
std::string Settings::getMac2() const {
    return upperCased(cleanText(mac2_));
}
std::string Settings::getUptime() const {
    return cleanText(uptime_);
}
std::string Settings::getLoadavg() const {
    return cleanText(loadavg_);
}
std::string Settings::getDisplayTime() const {
    return cleanText(displaytime_);
}
std::string Settings::getSerialNumber() const {
    return kSerialNumber;
}

bool Settings::setIp(const std::string& value) {
    return storeIfValidIpv4(ip_, value);
}
bool Settings::setNetmask(const std::string& value) {
    // Upper-casing a valid address changes nothing; the stored text is the upper-cased one.
    if (!isValidIpv4(value)) {
        return false;
    }
    netmask_ = upperCased(value);
    return true;
}
bool Settings::setGateway(const std::string& value) {
    return storeIfValidIpv4(gateway_, value);
}
bool Settings::setAuxIp(const std::string& value) {
    return storeIfValidIpv4(auxip_, value);
}
bool Settings::setNtpIp(const std::string& value) {
    return storeIfValidIpv4(ntpip_, value);
}
bool Settings::setSyslogIp(const std::string& value) {
    return storeIfValidIpv4(syslogip_, value);
}
bool Settings::setNameserver(const std::string& value) {
    return storeIfValidIpv4(nameserver_, value);
}
void Settings::setIpScheme(const std::string& value) {
    ipscheme_ = value;
}
bool Settings::setHostname(const std::string& value) {
    hostname_ = value;
    return true;
}
bool Settings::setHousenames(const std::string& value) {
    housenames_ = value;
    return true;
}
void Settings::setMac(const std::string& value) {
    mac_ = value;
}
void Settings::setDeviceHostname(const std::string& value) {
    devicehostname_ = value;
}
void Settings::setController(const std::string& value) {
    controller_ = value;
}

bool Settings::ntpipChanged() const {
    return !snapshot_ || ntpip_ != snapshot_->ntpip_;
}
bool Settings::syslogipChanged() const {
    return !snapshot_ || syslogip_ != snapshot_->syslogip_;
}
bool Settings::nameserverChanged() const {
    return !snapshot_ || nameserver_ != snapshot_->nameserver_;
}
bool Settings::networkChanged() const {
    // COMPAT: syslog-change-reapplies-scheme
    // The syslog server counts as a network setting: changing it re-applies the IP scheme.
    return !snapshot_ || ip_ != snapshot_->ip_ || netmask_ != snapshot_->netmask_ ||
           gateway_ != snapshot_->gateway_ || syslogip_ != snapshot_->syslogip_ ||
           ipscheme_ != snapshot_->ipscheme_;
}
bool Settings::ipschemeChanged() const {
    return !snapshot_ || ipscheme_ != snapshot_->ipscheme_;
}
bool Settings::hostnameChanged() const {
    return !snapshot_ || hostname_ != snapshot_->hostname_;
}
bool Settings::hasPendingUtcClock() const {
    return !pendingutcclock_.empty();
}

const std::string& Settings::loadInterfaceName() {
    return selectInterfaceName(kInterfaceFilePath, interface_);
}

std::string Settings::getInterfaceName() {
    return cleanText(loadInterfaceName());
}

std::string Settings::getInterfaceNetmask() {
    return lookupInterfaceNetmask(loadInterfaceName());
}

void Settings::takeSnapshot() {
    snapshot_.reset();
    snapshot_ = std::make_unique<Settings>(*shell_);
    *snapshot_ = *this;
}

void Settings::reload() {
    readFromDevice();
    takeSnapshot();
}

std::string Settings::runShellCommand(const std::string& command, bool firstWordOnly) const {
    return shell_->query(command, firstWordOnly);
}

}  // namespace lcfd
