#include "settings/DeviceReading.hpp"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>

#include "log/Log.hpp"
#include "settings/Settings.hpp"
#include "wire/Protocol.hpp"
#include "wire/Validators.hpp"

namespace lcfd {
namespace {

constexpr const char* kErrorMarker = "ERROR::";
constexpr const char* kSdCardAbsent = "No";
constexpr const char* kDisplayTimeFormat = "%Y%m%d%H%M%S";
constexpr const char* kDetectedControllerType = "Detected controller type: ";
constexpr const char* kFinishedReading = "Finished reading network settings";

}  // namespace

bool isUsableAnswer(const std::string& answer) {
    return answer.find(kErrorMarker) == std::string::npos;
}

ControllerType controllerTypeFromSdk(const std::string& answer) {
    if (answer == "imx") {
        return ControllerType::Imx;
    }
    if (answer == "qmt") {
        return ControllerType::Qmt;
    }
    if (answer == "arm9") {
        return ControllerType::Arm9;
    }
    return ControllerType::Generic;
}

std::string withInterface(const char* query, const std::string& interfaceName) {
    std::string command = query;
    if (interfaceName != kDefaultInterface) {
        command += " ";
        command += interfaceName;
    }
    return command;
}

bool isPublicResolver(const std::string& answer) {
    return answer == "1.1.1.1" || answer == "8.8.8.8" || answer == "1.0.0.1" || answer == "8.8.4.4";
}

const char* timeServerQuery(ControllerType type) {
    return type == ControllerType::Generic ? query::kBootEnvTimeServer : query::kTimeServer;
}

const char* syslogServerQuery(ControllerType type) {
    return type == ControllerType::Generic ? query::kBootEnvSyslogServer : query::kSyslogServer;
}

const char* ntpSyncQuery(ControllerType type) {
    switch (type) {
        case ControllerType::Imx:
            return query::kNtpqSync;
        case ControllerType::Qmt:
            return query::kTimedatectlSync;
        default:
            return query::kNtpdcSync;
    }
}

const char* sdUsageQuery(ControllerType type) {
    switch (type) {
        case ControllerType::Imx:
            return query::kSdCardUsage;
        case ControllerType::Arm9:
            return query::kMmcblkUsage;
        case ControllerType::Qmt:
            return nullptr;
        default:
            return query::kSdcardDfUsage;
    }
}

bool meansSynchronised(const std::string& answer) {
    return isUsableAnswer(answer) && !answer.empty();
}

std::string sdUsageFromAnswer(ControllerType type, const std::string& answer) {
    if (type == ControllerType::Imx && answer.find(kSdCardAbsent) != std::string::npos) {
        return kNotAvailable;
    }
    if (isUsableAnswer(answer) && !answer.empty()) {
        return answer;
    }
    return kNotAvailable;
}

bool displayTimeFromSeconds(const std::string& answer, std::string& displayTime) {
    const char* begin = answer.c_str();
    char* end = nullptr;
    errno = 0;
    // 64 bits on every board: a 32-bit board shows the same times, 2038 and later included.
    const long long seconds = std::strtoll(begin, &end, 10);
    if (end == begin || errno == ERANGE) {
        return false;
    }
    const auto time = static_cast<std::time_t>(seconds);
    if (time != seconds) {
        return false;  // a C library with a 32-bit time cannot hold it
    }
    std::tm local{};
    if (localtime_r(&time, &local) == nullptr) {
        return false;
    }
    char buffer[64];
    const std::size_t length = std::strftime(buffer, sizeof buffer, kDisplayTimeFormat, &local);
    displayTime.assign(buffer, length);
    return true;
}

bool readFirstLine(const char* path, std::string& line) {
    std::ifstream file(path);
    if (!file.is_open()) {
        return false;
    }
    line.clear();
    std::getline(file, line);
    return true;
}

void Settings::readFromDevice() {
    controllerType_ = ControllerType::Unknown;
    const std::string sdk = runShellCommand(query::kSdk, true);
    if (isUsableAnswer(sdk)) {
        controllerType_ = controllerTypeFromSdk(sdk);
    }
    logInfo(kDetectedControllerType + std::to_string(static_cast<int>(controllerType_)));

    // The MAC and scheme queries use the interface as it stood before this reading's
    // selection, which happens inside the netmask lookup below.
    const std::string macAnswer =
        runShellCommand(withInterface(query::kMacAddress, interface_), true);
    if (isUsableAnswer(macAnswer)) {
        mac_ = macAnswer;
    }
    const std::string schemeAnswer =
        runShellCommand(withInterface(query::kIpScheme, interface_), true);
    if (isUsableAnswer(schemeAnswer)) {
        ipscheme_ = schemeAnswer;
    }
    const std::string netmaskAnswer = getInterfaceNetmask();
    if (isUsableAnswer(netmaskAnswer)) {
        setNetmask(netmaskAnswer);
    }
    const std::string ipAnswer =
        runShellCommand(withInterface(query::kIpAddress, interface_), true);
    if (isUsableAnswer(ipAnswer) && isValidIpv4(ipAnswer)) {
        ip_ = ipAnswer;
    }
    const std::string gatewayAnswer = runShellCommand(query::kGateway, true);
    if (isUsableAnswer(gatewayAnswer) && isValidIpv4(gatewayAnswer)) {
        gateway_ = gatewayAnswer;
    }
    const std::string timeServerAnswer = runShellCommand(timeServerQuery(controllerType_), true);
    if (isUsableAnswer(timeServerAnswer)) {
        ntpip_ = timeServerAnswer;
    }
    const std::string syslogAnswer = runShellCommand(syslogServerQuery(controllerType_), true);
    if (isUsableAnswer(syslogAnswer)) {
        syslogip_ = syslogAnswer;
    }
    // COMPAT: nameserver-from-syslog-answer
    // Only the imx tool reports a name server; elsewhere the syslog server's answer is taken.
    const std::string nameServerAnswer = controllerType_ == ControllerType::Imx
                                             ? runShellCommand(query::kNameServer, true)
                                             : syslogAnswer;
    if (isUsableAnswer(nameServerAnswer) && !isPublicResolver(nameServerAnswer)) {
        nameserver_ = nameServerAnswer;
    }
    const std::string hostnameAnswer = runShellCommand(query::kHostname, true);
    if (isUsableAnswer(hostnameAnswer)) {
        devicehostname_ = hostnameAnswer;
        hostname_ = devicehostname_;
    }
    readFirstLine(kControllerFilePath, controller_);
    readFirstLine(kHousenamesFilePath, housenames_);

    ntpsync_ = kNo;
    const std::string syncAnswer = runShellCommand(ntpSyncQuery(controllerType_), true);
    if (controllerType_ == ControllerType::Qmt) {
        ntpsync_ = syncAnswer;  // the word the system prints, unchecked
    } else if (meansSynchronised(syncAnswer)) {
        ntpsync_ = kYes;
    }

    sdusage_ = kNotAvailable;
    if (const char* usageQuery = sdUsageQuery(controllerType_)) {
        sdusage_ = sdUsageFromAnswer(controllerType_, runShellCommand(usageQuery, true));
    }

    sdkversion_.clear();
    mac1_.clear();
    mac2_.clear();
    uptime_.clear();
    loadavg_.clear();
    displaytime_.clear();
    if (controllerType_ == ControllerType::Imx) {
        const std::string versionAnswer = runShellCommand(query::kSdkVersion, true);
        if (isUsableAnswer(versionAnswer)) {
            sdkversion_ = versionAnswer;
        }
        const std::string primaryAnswer = runShellCommand(query::kPrimaryFuseMac, true);
        if (isUsableAnswer(primaryAnswer)) {
            mac1_ = primaryAnswer;
        }
        const std::string secondaryAnswer = runShellCommand(query::kSecondaryFuseMac, true);
        if (isUsableAnswer(secondaryAnswer)) {
            mac2_ = secondaryAnswer;
        }
        uptime_ = runShellCommand(query::kUptime, false);
        loadavg_ = runShellCommand(query::kLoadavg, false);
        std::string shownTime;
        if (displayTimeFromSeconds(runShellCommand(query::kDisplayTimeSeconds, true), shownTime)) {
            displaytime_ = shownTime;
        }
    }
    logInfo(kFinishedReading);
}

}  // namespace lcfd
