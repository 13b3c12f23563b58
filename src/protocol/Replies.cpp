#include "protocol/Replies.hpp"

#include "protocol/MessageFormat.hpp"

namespace lcfd {
namespace {

std::string replyStart(const char* command, const std::string& seqid, const std::string& mac) {
    std::string reply = composeMessageStart(command, seqid);
    appendField(reply, key::kMac, mac);
    return reply;
}

}  // namespace

const std::vector<StatusField>& statusFields() {
    static const std::vector<StatusField> fields = {
        {key::kIp, true, &StatusValues::ip},
        {key::kNetmask, true, &StatusValues::netmask},
        {key::kGateway, true, &StatusValues::gateway},
        {key::kHostname, true, &StatusValues::hostname},
        {key::kIpScheme, true, &StatusValues::ipscheme},
        {key::kNtpIp, true, &StatusValues::ntpip},
        {key::kController, true, &StatusValues::controller},
        {key::kHousenames, true, &StatusValues::housenames},
        {key::kSyslogIp, true, &StatusValues::syslogip},
        {key::kNameserver, true, &StatusValues::nameserver},
        {key::kNtpSync, true, &StatusValues::ntpsync},
        {key::kSdUsage, true, &StatusValues::sdusage},
        {key::kSdkVersion, true, &StatusValues::sdkversion},
        {key::kMac1, true, &StatusValues::mac1},
        {key::kMac2, true, &StatusValues::mac2},
        {key::kUptime, true, &StatusValues::uptime},
        {key::kLoadavg, true, &StatusValues::loadavg},
        {key::kUtcClock, false, &StatusValues::utcclock},
        {key::kDisplayTime, false, &StatusValues::displaytime},
    };
    return fields;
}

std::optional<std::string> Reply::value(const std::string& fieldKey) const {
    for (const auto& [name, fieldValue] : fields) {
        if (name == fieldKey) {
            return fieldValue;
        }
    }
    return std::nullopt;
}

std::optional<Reply> parseReply(const std::string& text) {
    std::string header;
    std::string remainder;
    splitAt(text, kFieldSeparator, header, remainder);
    if (!checkHeader(header)) {
        return std::nullopt;
    }
    Reply reply;
    std::string rest;
    splitAt(remainder, kFieldSeparator, reply.command, rest);
    if (reply.command != word::kStatus && reply.command != word::kAck) {
        return std::nullopt;
    }
    while (!rest.empty()) {
        std::string field;
        std::string next;
        splitAt(rest, kFieldSeparator, field, next);
        std::string fieldKey;
        std::string value;
        splitAt(field, kKeyValueSeparator, fieldKey, value);
        reply.fields.emplace_back(fieldKey, value);
        rest = next;
    }
    return reply;
}

std::string composeAck(const std::string& seqid, const std::string& mac, bool accepted) {
    std::string reply = replyStart(word::kAck, seqid, mac);
    appendField(reply, key::kAccept, accepted ? "yes" : "no");
    return reply;
}

std::string composeStatus(const std::string& seqid, const std::string& mac,
                          const StatusValues& values) {
    std::string reply = replyStart(word::kStatus, seqid, mac);
    for (const StatusField& field : statusFields()) {
        const std::string& value = values.*field.value;
        if (field.omittedWhenEmpty && value.empty()) {
            continue;
        }
        appendField(reply, field.key, value);
    }
    return reply;
}

}  // namespace lcfd
