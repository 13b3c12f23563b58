#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lcf {

// Six two-digit hexadecimal groups separated by ":"; either case.
bool isMacAddress(const std::string& text);

// The error text for the user when `text` is not a MAC address; nothing when it is.
std::optional<std::string> macProblem(const std::string& text);

// The keys an ASSIGN can carry, in the order they are sent.
const std::vector<std::string>& assignableKeys();

// Takes "key=value" apart and checks it the way the controller will take it: addresses must
// be IPv4 addresses (the controller drops bad ones silently), ipscheme STATIC or DHCP, the
// clock fourteen digits. Returns the error text for the user, or nothing when it is good.
std::optional<std::string> checkAssignment(const std::string& argument,
                                           std::pair<std::string, std::string>& assignment);

// Takes "key=value" apart without judging key or value, for requests the controller is meant
// to judge itself. Only what the request text cannot carry is refused: a missing "=" and the
// field separator "#". Returns the error text for the user, or nothing when it can be sent.
std::optional<std::string> splitUncheckedAssignment(
    const std::string& argument, std::pair<std::string, std::string>& assignment);

// The server a CLEAR names: ntpip, syslogip or nameserver. Returns the error text for the
// user, or nothing when it is one of them.
std::optional<std::string> checkServerKey(const std::string& serverKey);

// A CLEAR's server name sent as given: only the field separator "#" is refused.
std::optional<std::string> checkUncheckedServerKey(const std::string& serverKey);

// The host's UTC clock as fourteen digits, YYYYMMDDhhmmss.
std::string hostUtcClock();

}  // namespace lcf
