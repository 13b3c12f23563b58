#include "wire/MessageFormat.hpp"

#include <cctype>
#include <cstdint>
#include <limits>
#include <utility>

#include "wire/AssignableFields.hpp"
#include "wire/Validators.hpp"

namespace lcfd {
namespace {

constexpr std::size_t kHeaderLength = 4;
constexpr int kFirstRefusedVersion = 3;
constexpr int kMacGroups = 6;

bool isHexDigit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
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

TextSplit splitView(std::string_view text, char separator) {
    TextSplit split;
    const std::size_t position = text.find(separator);
    if (position == std::string_view::npos) {
        split.head = text;
        return split;
    }
    split.head = text.substr(0, position);
    split.rest = text.substr(position + 1);
    split.found = true;
    return split;
}

bool splitAt(const std::string& text, char separator, std::string& head, std::string& rest) {
    const TextSplit split = splitView(text, separator);
    // The views point into `text`, which may be `head` or `rest` itself: copy out before
    // assigning.
    std::string newHead(split.head);
    std::string newRest(split.rest);
    head = std::move(newHead);
    rest = std::move(newRest);
    return split.found;
}

std::string upperCased(std::string_view text) {
    std::string upper;
    assignUpperCased(upper, text);
    return upper;
}

void assignUpperCased(std::string& target, std::string_view text) {
    target.assign(text);
    for (char& byte : target) {
        byte = static_cast<char>(std::toupper(static_cast<unsigned char>(byte)));
    }
}

bool hasNoReservedChars(std::string_view text) {
    return text.find_first_of(kReservedChars) == std::string_view::npos;
}

bool checkHeader(std::string_view header) {
    if (header.size() != kHeaderLength) {
        return false;
    }
    if (header.substr(0, 3) != kProtocolTag) {
        return false;
    }
    // COMPAT: lenient-version-character
    // The version character is read as a number: a digit is its value, anything else (a
    // letter, a sign, a blank) reads as no number and is accepted. So only "3" to "9" refuse.
    const char version = header[3];
    if (version < '0' || version > '9') {
        return true;
    }
    return version - '0' < kFirstRefusedVersion;
}

bool parseSeqId(std::string_view field, Message& message) {
    const TextSplit keyAndValue = splitView(field, kKeyValueSeparator);
    if (keyAndValue.head != key::kSeqid) {
        return false;
    }
    if (!hasNoReservedChars(keyAndValue.rest)) {
        return false;
    }
    message.seqid.assign(keyAndValue.rest);
    return true;
}

bool parseMac(std::string_view field, Message& message) {
    const TextSplit keyAndValue = splitView(field, kKeyValueSeparator);
    const std::string_view value = keyAndValue.rest;
    if (keyAndValue.head == key::kMac) {
        // COMPAT: unchecked-mac-groups
        // Only a wrong digit in a well-formed group is caught; groups of another length and
        // whatever follows the sixth group are not looked at.
        std::string_view remainder = value;
        for (int group = 0; group < kMacGroups; ++group) {
            const TextSplit split = splitView(remainder, ':');
            remainder = split.rest;
            const std::string_view groupText = split.head;
            if (groupText.size() == 2 && (!isHexDigit(groupText[0]) || !isHexDigit(groupText[1]))) {
                return false;
            }
        }
    }
    assignUpperCased(message.mac, value);
    return true;
}

bool parseFieldList(std::string_view text, Message& message) {
    std::string_view remainder = text;
    for (;;) {
        const TextSplit field = splitView(remainder, kFieldSeparator);
        remainder = field.rest;
        if (field.head.empty()) {
            // COMPAT: empty-field-ends-assign-list
            return true;  // an empty field ends the list, whatever follows it
        }
        if (!parseField(field.head, message)) {
            return false;
        }
    }
}

bool parseField(std::string_view field, Message& message) {
    const TextSplit keyAndValue = splitView(field, kKeyValueSeparator);
    const std::string_view key = keyAndValue.head;
    const std::string_view value = keyAndValue.rest;
    if (key.empty() || value.empty()) {
        return false;
    }
    if (const AssignableField* assignable = findAssignableField(key)) {
        std::string& stored = message.*assignable->field;
        switch (assignable->value) {
            case AssignableValue::Address:
                if (isDottedQuad(value)) {
                    stored.assign(value);
                    return true;
                }
                // COMPAT: address-dropped-scheme-refused
                // An ill-formed address is dropped, not refused: it falls through to the
                // generic rule.
                break;
            case AssignableValue::Scheme:
                if (value == kSchemeStatic || value == kSchemeDhcp) {
                    stored.assign(value);
                    return true;
                }
                return false;
            case AssignableValue::Clock:
                stored.assign(value);
                return true;
        }
    }
    return hasNoReservedChars(key) && hasNoReservedChars(value);
}

}  // namespace lcfd
