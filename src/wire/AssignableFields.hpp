#pragma once

#include <array>
#include <string>
#include <string_view>

#include "wire/Message.hpp"
#include "wire/Protocol.hpp"

namespace lcfd {

// The keys an ASSIGN can change. A new key is added here and nowhere else in the wire format;
// the daemon's switch over AssignableKey then refuses to compile until it applies the key.
enum class AssignableKey { Ip, Netmask, Gateway, IpScheme, NtpIp, SyslogIp, Nameserver, UtcClock };

// How a request's value for the key is judged.
enum class AssignableValue {
    Address,  // a dotted address: kept when it looks like one, silently dropped when not
    Scheme,   // "STATIC" or "DHCP"; anything else refuses the request
    Clock,    // kept unchecked by the request; the clock check comes when it is applied
};

struct AssignableField {
    AssignableKey id;
    const char* key;
    AssignableValue value;
    std::string Message::*field;  // where a request's value is kept
};

constexpr std::size_t kAssignableFieldCount = 8;

// Every assignable key, in the order the daemon applies them and lcf sends them. Defined here,
// so that every datagram's lookups compare against texts the compiler knows.
inline constexpr std::array<AssignableField, kAssignableFieldCount> kAssignableFields = {{
    {AssignableKey::Ip, key::kIp, AssignableValue::Address, &Message::ip},
    {AssignableKey::Netmask, key::kNetmask, AssignableValue::Address, &Message::netmask},
    {AssignableKey::Gateway, key::kGateway, AssignableValue::Address, &Message::gateway},
    {AssignableKey::IpScheme, key::kIpScheme, AssignableValue::Scheme, &Message::ipscheme},
    {AssignableKey::NtpIp, key::kNtpIp, AssignableValue::Address, &Message::ntpip},
    {AssignableKey::SyslogIp, key::kSyslogIp, AssignableValue::Address, &Message::syslogip},
    {AssignableKey::Nameserver, key::kNameserver, AssignableValue::Address, &Message::nameserver},
    {AssignableKey::UtcClock, key::kUtcClock, AssignableValue::Clock, &Message::utcclock},
}};

// The same table, for callers that take it by reference.
const std::array<AssignableField, kAssignableFieldCount>& assignableFields();

// The entry for `key` (whole word, case-sensitive), or nullptr.
const AssignableField* findAssignableField(std::string_view key);

}  // namespace lcfd
