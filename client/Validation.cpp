#include "client/Validation.hpp"

#include <cctype>
#include <ctime>

#include "wire/AssignableFields.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Validators.hpp"

namespace lcf {

bool isMacAddress(const std::string& text) {
    constexpr std::size_t kLength = 17;  // "00:1A:2B:3C:4D:5E"
    if (text.size() != kLength) {
        return false;
    }
    for (std::size_t i = 0; i < kLength; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const bool separatorPosition = i % 3 == 2;
        if (separatorPosition ? c != ':' : std::isxdigit(c) == 0) {
            return false;
        }
    }
    return true;
}

std::optional<std::string> macProblem(const std::string& text) {
    if (isMacAddress(text)) {
        return std::nullopt;
    }
    return "invalid MAC address '" + text +
           "' (expected six hexadecimal pairs like 00:1A:2B:3C:4D:5E)";
}

const std::vector<std::string>& assignableKeys() {
    static const std::vector<std::string> keys = [] {
        std::vector<std::string> list;
        for (const lcfd::AssignableField& field : lcfd::assignableFields()) {
            list.emplace_back(field.key);
        }
        return list;
    }();
    return keys;
}

std::optional<std::string> checkAssignment(const std::string& argument,
                                           std::pair<std::string, std::string>& assignment) {
    std::string fieldKey;
    std::string value;
    if (!lcfd::splitAt(argument, lcfd::kKeyValueSeparator, fieldKey, value)) {
        return "expected key=value, got '" + argument + "'";
    }
    const lcfd::AssignableField* field = lcfd::findAssignableField(fieldKey);
    if (field == nullptr) {
        std::string list;
        for (const std::string& candidate : assignableKeys()) {
            list += (list.empty() ? "" : ", ") + candidate;
        }
        return "unknown key '" + fieldKey + "' (assignable: " + list + ")";
    }
    // Stricter than the controller where it would drop a value silently: an address must be
    // an IPv4 address, not merely dotted.
    switch (field->value) {
        case lcfd::AssignableValue::Scheme:
            if (value != lcfd::kSchemeStatic && value != lcfd::kSchemeDhcp) {
                return "ipscheme must be STATIC or DHCP, got '" + value + "'";
            }
            break;
        case lcfd::AssignableValue::Clock:
            if (lcfd::checkClockValue(value) != lcfd::ClockValueCheck::Valid) {
                return "utcclock must be 14 digits YYYYMMDDhhmmss, got '" + value + "'";
            }
            break;
        case lcfd::AssignableValue::Address:
            if (!lcfd::isValidIpv4(value)) {
                return "invalid IPv4 address for " + fieldKey + ": '" + value + "'";
            }
            break;
    }
    assignment = {fieldKey, value};
    return std::nullopt;
}

std::optional<std::string> splitUncheckedAssignment(
    const std::string& argument, std::pair<std::string, std::string>& assignment) {
    std::string fieldKey;
    std::string value;
    if (!lcfd::splitAt(argument, lcfd::kKeyValueSeparator, fieldKey, value)) {
        return "expected key=value, got '" + argument + "'";
    }
    if (argument.find(lcfd::kFieldSeparator) != std::string::npos) {
        return "'#' separates the fields of a request and cannot be sent, got '" + argument + "'";
    }
    assignment = {fieldKey, value};
    return std::nullopt;
}

std::optional<std::string> checkServerKey(const std::string& serverKey) {
    if (serverKey == lcfd::key::kNtpIp || serverKey == lcfd::key::kSyslogIp ||
        serverKey == lcfd::key::kNameserver) {
        return std::nullopt;
    }
    return "unknown server '" + serverKey + "' (ntpip, syslogip or nameserver)";
}

std::optional<std::string> checkUncheckedServerKey(const std::string& serverKey) {
    if (serverKey.find(lcfd::kFieldSeparator) != std::string::npos) {
        return "'#' separates the fields of a request and cannot be sent, got '" + serverKey + "'";
    }
    return std::nullopt;
}

std::string hostUtcClock() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char buffer[32];
    const std::size_t length = std::strftime(buffer, sizeof buffer, "%Y%m%d%H%M%S", &utc);
    return std::string(buffer, length);
}

}  // namespace lcf
