#include "wire/Replies.hpp"

#include "wire/MessageFormat.hpp"

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

const std::string* Reply::find(std::string_view fieldKey) const {
    for (const auto& [name, fieldValue] : fields) {
        if (name == fieldKey) {
            return &fieldValue;
        }
    }
    return nullptr;
}

std::optional<std::string> Reply::value(std::string_view fieldKey) const {
    const std::string* found = find(fieldKey);
    if (found == nullptr) {
        return std::nullopt;
    }
    return *found;
}

std::optional<Reply> parseReply(std::string_view text) {
    const TextSplit header = splitView(text, kFieldSeparator);
    if (!checkHeader(header.head)) {
        return std::nullopt;
    }
    const TextSplit command = splitView(header.rest, kFieldSeparator);
    if (command.head != word::kStatus && command.head != word::kAck) {
        return std::nullopt;
    }
    Reply reply;
    reply.command.assign(command.head);
    // Taken apart on views: a reply of many fields copies each key and value once.
    std::string_view rest = command.rest;
    while (!rest.empty()) {
        const TextSplit field = splitView(rest, kFieldSeparator);
        const TextSplit keyAndValue = splitView(field.head, kKeyValueSeparator);
        reply.fields.emplace_back(std::string(keyAndValue.head), std::string(keyAndValue.rest));
        rest = field.rest;
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
