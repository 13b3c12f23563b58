#pragma once

#include <memory>
#include <string>

#include "device/ControllerType.hpp"
#include "device/DeviceShell.hpp"

namespace lcfd {

// Removes every carriage return, line feed and tab, wherever it stands.
std::string cleanText(const std::string& text);

// The one record of the device's values, all held as text as the tools printed them or as a
// request supplied them. The live object owns a `snapshot` of the values last read from the
// device; the change predicates compare against it to find what an ASSIGN changed.
class Settings {
  public:
    // A record whose device is the board's real shell.
    Settings();
    // A record whose device is reached through `shell`, which must outlive it.
    explicit Settings(DeviceShell& shell);
    virtual ~Settings();
    Settings(const Settings&) = delete;
    // Copies the device-read fields devicehostname .. ipscheme only.
    Settings& operator=(const Settings& other);

    // Read-only access to the stored texts.
    const std::string& housenamesRef() const { return housenames_; }
    const std::string& devicehostnameRef() const { return devicehostname_; }
    const std::string& hostnameRef() const { return hostname_; }
    const std::string& ipRef() const { return ip_; }
    const std::string& netmaskRef() const { return netmask_; }
    const std::string& gatewayRef() const { return gateway_; }
    const std::string& auxipRef() const { return auxip_; }
    const std::string& macRef() const { return mac_; }
    const std::string& ntpipRef() const { return ntpip_; }
    const std::string& controllerRef() const { return controller_; }
    const std::string& syslogipRef() const { return syslogip_; }
    const std::string& nameserverRef() const { return nameserver_; }
    const std::string& ipschemeRef() const { return ipscheme_; }
    const std::string& ntpsyncRef() const { return ntpsync_; }
    const std::string& sdusageRef() const { return sdusage_; }
    const std::string& sdkversionRef() const { return sdkversion_; }
    const std::string& mac1Ref() const { return mac1_; }
    const std::string& mac2Ref() const { return mac2_; }
    const std::string& uptimeRef() const { return uptime_; }
    const std::string& loadavgRef() const { return loadavg_; }
    const std::string& displaytimeRef() const { return displaytime_; }
    const std::string& pendingUtcClock() const { return pendingutcclock_; }
    const std::string& interfaceField() const { return interface_; }
    ControllerType getControllerType() const { return controllerType_; }
    const Settings* getSnapshot() const { return snapshot_.get(); }

    // Getters: which ones clean and which upper-case is deliberate, per field.
    std::string getHousenames() const;
    std::string getHostname() const;
    std::string getIp() const;
    std::string getNetmask() const;
    std::string getGateway() const;
    // Valid until the next call: the upper-cased text is kept in storage of its own, so that
    // comparing every request's MAC address with the device's allocates nothing.
    const std::string& getMac() const;
    std::string getNtpIp() const;
    std::string getController() const;
    std::string getSyslogIp() const;
    std::string getNameserver() const;
    std::string getIpScheme() const;
    std::string getNtpSync() const;
    std::string getSdUsage() const;
    std::string getSdkVersion() const;
    std::string getMac1() const;
    std::string getMac2() const;
    std::string getUptime() const;
    std::string getLoadavg() const;
    std::string getDisplayTime() const;
    std::string getSerialNumber() const;

    // Validating setters: a rejected value leaves the field as it was.
    bool setIp(const std::string& value);
    bool setNetmask(const std::string& value);
    bool setGateway(const std::string& value);
    bool setAuxIp(const std::string& value);
    bool setNtpIp(const std::string& value);
    bool setSyslogIp(const std::string& value);
    bool setNameserver(const std::string& value);
    void setIpScheme(const std::string& value);
    bool setHostname(const std::string& value);
    bool setHousenames(const std::string& value);
    void setMac(const std::string& value);
    void setDeviceHostname(const std::string& value);
    void setController(const std::string& value);

    // Unvalidated stores for the values only the device reading fills.
    void setNtpSync(const std::string& value) { ntpsync_ = value; }
    void setSdUsage(const std::string& value) { sdusage_ = value; }
    void setSdkVersion(const std::string& value) { sdkversion_ = value; }
    void setMac1(const std::string& value) { mac1_ = value; }
    void setMac2(const std::string& value) { mac2_ = value; }
    void setUptime(const std::string& value) { uptime_ = value; }
    void setLoadavg(const std::string& value) { loadavg_ = value; }
    void setDisplayTime(const std::string& value) { displaytime_ = value; }
    void setControllerType(ControllerType type) { controllerType_ = type; }

    // Change predicates against the snapshot; without one everything counts as changed.
    bool ntpipChanged() const;
    bool syslogipChanged() const;
    bool nameserverChanged() const;
    bool networkChanged() const;  // ip, netmask, gateway, syslogip or ipscheme
    bool ipschemeChanged() const;
    bool hostnameChanged() const;
    bool hasPendingUtcClock() const;

    // Interface selection: the interface file, else "br0".
    const std::string& loadInterfaceName();
    std::string getInterfaceName();
    std::string getInterfaceNetmask();

    // Runs a command line through the device's shell and answers its first output line (or the
    // first word of it), the empty text, or "ERROR::popen".
    std::string runShellCommand(const std::string& command, bool firstWordOnly) const;

    // Reading the device.
    void readFromDevice();
    // Reads the device, then replaces the snapshot with a copy of what was read.
    void reload();
    void takeSnapshot();

    // Changing the device (the device library).
    void writeNetworkSettings();
    bool clearNtpIp();
    bool clearSyslogIp();
    bool clearNameserver();
    bool setUtcClock(const std::string& value);
    std::string getUtcClock() const;

  private:
    std::string housenames_;
    std::string devicehostname_;
    std::string hostname_;
    std::string ip_;
    std::string netmask_;
    std::string gateway_;
    std::string auxip_;
    std::string mac_;
    std::string ntpip_;
    std::string controller_;
    std::string syslogip_;
    std::string nameserver_;
    std::string ipscheme_;
    std::string ntpsync_;
    std::string sdusage_;
    std::string pendingutcclock_;
    std::string interface_;
    std::string sdkversion_;
    std::string mac1_;
    std::string mac2_;
    std::string uptime_;
    std::string loadavg_;
    std::string displaytime_;
    std::unique_ptr<Settings> snapshot_;
    DeviceShell* shell_;  // never null; the snapshot shares it
    ControllerType controllerType_;
    mutable std::string macUpperCased_;  // getMac's result, not a value of the device
};

}  // namespace lcfd
