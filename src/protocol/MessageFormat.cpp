#include "protocol/MessageFormat.hpp"

#include <cctype>
#include <cstdint>
#include <cstdlib>

namespace lcfd {
namespace {

constexpr std::size_t kHeaderLength = 4;
constexpr int kFirstRefusedVersion = 3;
constexpr int kMacGroups = 6;
constexpr int kAddressParts = 4;
constexpr std::uint32_t kMaxAddressPart = 255;

bool isHexDigit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool isDigitsOnly(const std::string& text) {
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
    }
    return true;
}

bool isAddressKey(const std::string& key) {
    return key == key::kIp || key == key::kNetmask || key == key::kGateway || key == key::kNtpIp ||
           key == key::kSyslogIp || key == key::kNameserver;
}

std::string& addressField(const std::string& key, Message& message) {
    if (key == key::kIp) {
        return message.ip;
    }
    if (key == key::kNetmask) {
        return message.netmask;
    }
    if (key == key::kGateway) {
        return message.gateway;
    }
    if (key == key::kNtpIp) {
        return message.ntpip;
    }
    if (key == key::kSyslogIp) {
        return message.syslogip;
    }
    return message.nameserver;
}

}  // namespace

std::string composeMessageStart(const char* command, const std::string& seqid) {
    std::string text = kProtocolTag;
    text += std::to_string(kProtocolVersion);
    text += kFieldSeparator;
    text += command;
    appendField(text, key::kSeqid, seqid);
    return text;
}

void appendField(std::string& text, const std::string& fieldKey, const std::string& value) {
    text += kFieldSeparator;
    text += fieldKey;
    text += kKeyValueSeparator;
    text += value;
}

bool splitAt(const std::string& text, char separator, std::string& head, std::string& rest) {
    head.clear();
    rest.clear();
    const std::size_t position = text.find(separator);
    if (position == std::string::npos) {
        head = text;
        return false;
    }
    head = text.substr(0, position);
    rest = text.substr(position + 1);
    return true;
}

bool hasNoReservedChars(const std::string& text) {
    return text.find_first_of(kReservedChars) == std::string::npos;
}

bool checkHeader(const std::string& header) {
    if (header.size() != kHeaderLength) {
        return false;
    }
    if (header.compare(0, 3, kProtocolTag) != 0) {
        return false;
    }
    // The version character is read as a number: a digit is its value, anything else (a
    // letter, a sign, a blank) reads as no number and is accepted. So only "3" to "9" refuse.
    const char version = header[3];
    if (version < '0' || version > '9') {
        return true;
    }
    return version - '0' < kFirstRefusedVersion;
}

bool parseSeqId(const std::string& field, Message& message) {
    std::string key;
    std::string value;
    splitAt(field, kKeyValueSeparator, key, value);
    if (key != key::kSeqid) {
        return false;
    }
    if (!hasNoReservedChars(value)) {
        return false;
    }
    message.seqid = value;
    return true;
}

bool parseMac(const std::string& field, Message& message) {
    std::string key;
    std::string value;
    splitAt(field, kKeyValueSeparator, key, value);
    if (key == key::kMac) {
        // Only a wrong digit in a well-formed group is caught; groups of another length and
        // whatever follows the sixth group are not looked at.
        std::string remainder = value;
        for (int group = 0; group < kMacGroups; ++group) {
            std::string head;
            std::string rest;
            splitAt(remainder, ':', head, rest);
            if (head.size() == 2 && (!isHexDigit(head[0]) || !isHexDigit(head[1]))) {
                return false;
            }
            remainder = rest;
        }
    }
    std::string upper = value;
    for (char& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    message.mac = upper;
    return true;
}

bool parseFieldList(const std::string& text, Message& message) {
    std::string remainder = text;
    for (;;) {
        std::string head;
        std::string rest;
        splitAt(remainder, kFieldSeparator, head, rest);
        if (head.empty()) {
            return true;  // an empty field ends the list, whatever follows it
        }
        if (!parseField(head, message)) {
            return false;
        }
        remainder = rest;
    }
}

bool parseField(const std::string& field, Message& message) {
    std::string key;
    std::string value;
    splitAt(field, kKeyValueSeparator, key, value);
    if (key.empty() || value.empty()) {
        return false;
    }
    if (isAddressKey(key)) {
        if (isDottedQuad(value)) {
            addressField(key, message) = value;
            return true;
        }
        // An ill-formed address is dropped, not refused: it falls through to the generic rule.
    } else if (key == key::kIpScheme) {
        if (value == kSchemeStatic || value == kSchemeDhcp) {
            message.ipscheme = value;
            return true;
        }
        return false;
    } else if (key == key::kUtcClock) {
        message.utcclock = value;
        return true;
    }
    return hasNoReservedChars(key) && hasNoReservedChars(value);
}

bool isDottedQuad(const std::string& value) {
    std::string remainder = value;
    for (int part = 0; part < kAddressParts; ++part) {
        std::string head;
        std::string rest;
        splitAt(remainder, '.', head, rest);
        if (!isDigitsOnly(head)) {
            return false;
        }
        // Only the low 32 bits of the converted number are compared, on purpose.
        const long number = std::strtol(head.c_str(), nullptr, 10);
        if (static_cast<std::uint32_t>(number) > kMaxAddressPart) {
            return false;
        }
        remainder = rest;
    }
    return true;
}

bool isServerKey(const std::string& text) {
    return text == key::kNtpIp || text == key::kSyslogIp || text == key::kNameserver;
}

}  // namespace lcfd
