// From a request to the shell: a fuzzed datagram goes through the header check and
// parseRequest; when an ASSIGN is accepted its values go through the Settings setters and the
// clock check exactly as the daemon's accept path hands them over, and every command line the
// write path could build from the result is built (for every platform and a few interfaces)
// and taken apart again. In a value position a line may only hold the characters of a dotted
// IPv4 address, or the fourteen clock digits with the fixed separators of the platform's date
// form, so that nothing from the network can reach a shell as anything but a number. The
// command lines are only built, never run.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FuzzCheck.hpp"
#include "device/ControllerType.hpp"
#include "device/DeviceCommands.hpp"
#include "settings/Settings.hpp"
#include "wire/Message.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Request.hpp"
#include "wire/Validators.hpp"

namespace {

using lcfd::ControllerType;
using lcfd::Message;
using lcfd::Settings;

constexpr const char* kAddressChars = "0123456789.";
constexpr std::size_t kDatagramLimit = 512;

// Interfaces come from the device's own interface file, never from the network; the lines
// are checked with each of these standing where the interface goes.
const char* const kInterfaces[] = {"br0", "eth0", "eth1", "wlan0"};

const ControllerType kPlatforms[] = {ControllerType::Unknown, ControllerType::Generic,
                                     ControllerType::Arm9,    ControllerType::Imx,
                                     ControllerType::Qmt,     static_cast<ControllerType>(7)};

// A value that reached a command line must be a whole, valid address.
void checkAddressValue(const std::string& value) {
    FUZZ_CHECK(fuzz::onlyCharsOf(value, kAddressChars));
    FUZZ_CHECK(fuzz::isStrictDottedQuad(value));
}

// `line` must be `prefix` followed by an address and nothing else.
void checkPrefixedAddress(const std::string& line, const std::string& prefix,
                          const std::string& value) {
    FUZZ_CHECK(line.compare(0, prefix.size(), prefix) == 0);
    const std::string tail = line.substr(prefix.size());
    FUZZ_CHECK(tail == value);
    checkAddressValue(tail);
}

void checkStaticIpLine(const std::string& line, const std::string& interfaceName,
                       const Settings& settings) {
    const std::string prefix = "tarnsetup setip ";
    FUZZ_CHECK(line.compare(0, prefix.size(), prefix) == 0);
    std::string values = line.substr(prefix.size());
    // The line ends in " " + interface, or in a bare blank on the default bridge.
    const std::string suffix = interfaceName == "br0" ? " " : " " + interfaceName;
    FUZZ_CHECK(values.size() > suffix.size());
    FUZZ_CHECK(values.compare(values.size() - suffix.size(), suffix.size(), suffix) == 0);
    values.erase(values.size() - suffix.size());
    // Three addresses separated by single blanks.
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t blank = values.find(' ', start);
        parts.push_back(values.substr(start, blank - start));
        if (blank == std::string::npos) {
            break;
        }
        start = blank + 1;
    }
    FUZZ_CHECK(parts.size() == 3);
    FUZZ_CHECK(parts[0] == settings.ipRef());
    FUZZ_CHECK(parts[1] == settings.netmaskRef());
    FUZZ_CHECK(parts[2] == settings.gatewayRef());
    for (const std::string& part : parts) {
        checkAddressValue(part);
    }
}

void checkClockLine(ControllerType type, const std::string& value) {
    const std::optional<std::string> line = lcfd::setClockCommand(type, value);
    const std::string y = value.substr(0, 4);
    const std::string mo = value.substr(4, 2);
    const std::string d = value.substr(6, 2);
    const std::string h = value.substr(8, 2);
    const std::string mi = value.substr(10, 2);
    const std::string s = value.substr(12, 2);
    std::string expected;
    switch (type) {
        case ControllerType::Generic:
        case ControllerType::Arm9:
            expected = "date -u -D %Y%m%d%H%M%S -s " + value;
            break;
        case ControllerType::Imx:
            expected = "date -u -s " + y + mo + d + h + mi + "." + s;
            break;
        case ControllerType::Qmt:
            expected = "date -u -s '" + y + "-" + mo + "-" + d + " " + h + ":" + mi + ":" + s + "'";
            break;
        default:
            FUZZ_CHECK(!line.has_value());
            return;
    }
    FUZZ_CHECK(line.has_value());
    FUZZ_CHECK(*line == expected);
    // The digits of the line after the fixed "date" words are exactly the clock value.
    const std::size_t valueStart = line->rfind(" -s ") + 4;
    std::string digits;
    for (std::size_t i = valueStart; i < line->size(); ++i) {
        const char c = (*line)[i];
        if (c >= '0' && c <= '9') {
            digits += c;
        } else {
            FUZZ_CHECK(std::string("'-:. ").find(c) != std::string::npos);
        }
    }
    FUZZ_CHECK(digits == value);
}

// The device as a reading might have left it: valid addresses (the reading validates ip,
// netmask and gateway) or none, the default scheme, and the snapshot taken.
void readDevice(Settings& settings, ControllerType type, bool empty) {
    settings.setControllerType(type);
    if (!empty) {
        settings.setIp("192.168.1.20");
        settings.setNetmask("255.255.255.0");
        settings.setGateway("192.168.1.1");
        settings.setNtpIp("192.168.1.2");
        settings.setSyslogIp("192.168.1.3");
        settings.setNameserver("192.168.1.4");
    }
    settings.setIpScheme("STATIC");
    settings.takeSnapshot();
}

// The handler's accept path: each non-empty field to its setter, in the fixed order; the
// clock through its check (the clock command itself is built below, not run).
std::optional<std::string> applyAssignment(Settings& settings, const Message& message) {
    if (!message.ip.empty()) {
        settings.setIp(message.ip);
    }
    if (!message.netmask.empty()) {
        settings.setNetmask(message.netmask);
    }
    if (!message.gateway.empty()) {
        settings.setGateway(message.gateway);
    }
    if (!message.ipscheme.empty()) {
        settings.setIpScheme(message.ipscheme);
    }
    if (!message.ntpip.empty()) {
        settings.setNtpIp(message.ntpip);
    }
    if (!message.syslogip.empty()) {
        settings.setSyslogIp(message.syslogip);
    }
    if (!message.nameserver.empty()) {
        settings.setNameserver(message.nameserver);
    }
    if (!message.utcclock.empty() &&
        lcfd::checkClockValue(message.utcclock) == lcfd::ClockValueCheck::Valid) {
        return message.utcclock;
    }
    return std::nullopt;
}

void checkLines(const Settings& settings, const std::optional<std::string>& clock) {
    const std::string& ntpip = settings.ntpipRef();
    const std::string& syslogip = settings.syslogipRef();
    const std::string& nameserver = settings.nameserverRef();
    // What the write path would run: each server line when its value changed, the scheme
    // line when the network changed. Every line is checked whether or not it would run,
    // as long as its values are there.
    for (const ControllerType type : kPlatforms) {
        if (!ntpip.empty() || settings.ntpipChanged()) {
            const std::string line = lcfd::timeServerCommand(type, ntpip);
            const bool shortVerb = type == ControllerType::Generic || type == ControllerType::Qmt;
            checkPrefixedAddress(
                line, shortVerb ? "tarnsetup timeserver " : "tarnsetup settimeserver ", ntpip);
        }
        if (clock) {
            checkClockLine(type, *clock);
        }
    }
    if (!syslogip.empty() || settings.syslogipChanged()) {
        checkPrefixedAddress(lcfd::syslogServerCommand(syslogip), "tarnsetup setsyslogserver ",
                             syslogip);
    }
    if (!nameserver.empty() || settings.nameserverChanged()) {
        checkPrefixedAddress(lcfd::nameServerCommand(nameserver), "tarnsetup setnameserver ",
                             nameserver);
    }
    for (const char* interfaceName : kInterfaces) {
        const auto line = lcfd::staticIpCommand(settings.ipRef(), settings.netmaskRef(),
                                                settings.gatewayRef(), interfaceName);
        const bool complete = !settings.ipRef().empty() && !settings.netmaskRef().empty() &&
                              !settings.gatewayRef().empty();
        FUZZ_CHECK(line.has_value() == complete);
        if (line) {
            checkStaticIpLine(*line, interfaceName, settings);
        }
        const std::string dhcp = lcfd::dhcpCommand(interfaceName);
        FUZZ_CHECK(dhcp == (std::string(interfaceName) == "br0"
                                ? std::string("tarnsetup setdhcp")
                                : "tarnsetup setdhcp " + std::string(interfaceName)));
    }
    // The scheme chooses a line; it is never part of one.
    const std::string& scheme = settings.ipschemeRef();
    FUZZ_CHECK(scheme == "STATIC" || scheme == "DHCP");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string text = fuzz::asText(data, size < kDatagramLimit ? size : kDatagramLimit);
    std::string header;
    std::string rest;
    lcfd::splitAt(text, lcfd::kFieldSeparator, header, rest);
    if (!lcfd::checkHeader(header)) {
        return 0;
    }
    Message message;
    const lcfd::Request request = lcfd::parseRequest(rest, message);
    if (request.command != lcfd::Command::Assign || !request.parsed) {
        return 0;  // only an accepted ASSIGN reaches the setters
    }

    // The clock check: only fourteen digits pass.
    const lcfd::ClockValueCheck clockCheck = lcfd::checkClockValue(message.utcclock);
    FUZZ_CHECK((clockCheck == lcfd::ClockValueCheck::Valid) ==
               (message.utcclock.size() == 14 && fuzz::isDigits(message.utcclock)));

    for (const bool empty : {false, true}) {
        Settings settings;
        readDevice(settings, ControllerType::Imx, empty);
        const std::optional<std::string> clock = applyAssignment(settings, message);
        checkLines(settings, clock);
    }
    return 0;
}
