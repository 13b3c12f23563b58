#include "wire/AssignableFields.hpp"

#include "wire/Protocol.hpp"

namespace lcfd {

const std::array<AssignableField, kAssignableFieldCount>& assignableFields() {
    using Key = AssignableKey;
    using Value = AssignableValue;
    static const std::array<AssignableField, kAssignableFieldCount> fields = {{
        {Key::Ip, key::kIp, Value::Address, &Message::ip},
        {Key::Netmask, key::kNetmask, Value::Address, &Message::netmask},
        {Key::Gateway, key::kGateway, Value::Address, &Message::gateway},
        {Key::IpScheme, key::kIpScheme, Value::Scheme, &Message::ipscheme},
        {Key::NtpIp, key::kNtpIp, Value::Address, &Message::ntpip},
        {Key::SyslogIp, key::kSyslogIp, Value::Address, &Message::syslogip},
        {Key::Nameserver, key::kNameserver, Value::Address, &Message::nameserver},
        {Key::UtcClock, key::kUtcClock, Value::Clock, &Message::utcclock},
    }};
    return fields;
}

const AssignableField* findAssignableField(std::string_view key) {
    for (const AssignableField& field : assignableFields()) {
        if (key == field.key) {
            return &field;
        }
    }
    return nullptr;
}

}  // namespace lcfd
