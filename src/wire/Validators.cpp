#include "wire/Validators.hpp"

#include <arpa/inet.h>

#include <cstdint>
#include <limits>

#include "wire/MessageFormat.hpp"

namespace lcfd {
namespace {

constexpr int kAddressParts = 4;
constexpr std::uint32_t kMaxAddressPart = 255;
constexpr std::size_t kClockValueLength = 14;
constexpr const char* kDigits = "0123456789";

bool isDigitsOnly(std::string_view text) {
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
    }
    return true;
}

// The number a run of decimal digits gives when read the way strtol reads it into a 64-bit
// long: values past its largest stay there, the empty run is 0. 64 bits on every board, so a
// 32-bit board accepts and refuses the same addresses as a 64-bit one.
std::int64_t decimalValueSaturated(std::string_view digits) {
    constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    std::uint64_t value = 0;
    for (const char c : digits) {
        const auto digit = static_cast<std::uint64_t>(c - '0');
        if (value > (kLargest - digit) / 10) {
            return std::numeric_limits<std::int64_t>::max();
        }
        value = value * 10 + digit;
    }
    return static_cast<std::int64_t>(value);
}

}  // namespace

bool isValidIpv4(const std::string& text) {
    in_addr address{};
    // inet_pton reads only up to the first zero byte; whatever stood after one would be
    // stored with the address.
    return text.find('\0') == std::string::npos && inet_pton(AF_INET, text.c_str(), &address) == 1;
}

bool isDottedQuad(std::string_view value) {
    std::string_view remainder = value;
    for (int part = 0; part < kAddressParts; ++part) {
        const TextSplit addressPart = splitView(remainder, '.');
        remainder = addressPart.rest;
        if (!isDigitsOnly(addressPart.head)) {
            return false;
        }
        // COMPAT: low-32-bit-address-parts
        // Only the low 32 bits of the number are compared, on purpose.
        const std::int64_t number = decimalValueSaturated(addressPart.head);
        if (static_cast<std::uint32_t>(number) > kMaxAddressPart) {
            return false;
        }
    }
    return true;
}

bool isServerKey(std::string_view text) {
    return text == key::kNtpIp || text == key::kSyslogIp || text == key::kNameserver;
}

ClockValueCheck checkClockValue(const std::string& value) {
    if (value.size() != kClockValueLength) {
        return ClockValueCheck::WrongLength;
    }
    if (value.find_first_not_of(kDigits) != std::string::npos) {
        return ClockValueCheck::NotNumbers;
    }
    return ClockValueCheck::Valid;
}

}  // namespace lcfd
