#pragma once

#include <string>
#include <string_view>

namespace lcfd {

// The value checks both ends of the protocol make: the daemon on what it is sent and what its
// device answers, the configuration tool before it sends anything.

// Four decimal numbers 0..255 separated by dots and nothing else (inet_pton, AF_INET).
bool isValidIpv4(const std::string& text);

// The loose dotted-address check of requests (four digit-only parts, each at most 255).
bool isDottedQuad(std::string_view value);

// "ntpip", "syslogip" or "nameserver".
bool isServerKey(std::string_view text);

enum class ClockValueCheck { Valid, WrongLength, NotNumbers };
// Fourteen digits, YYYYMMDDhhmmss; no range check on the parts.
ClockValueCheck checkClockValue(const std::string& value);

}  // namespace lcfd
