#include "wire/Request.hpp"

#include "wire/MessageFormat.hpp"
#include "wire/Validators.hpp"

namespace lcfd {

namespace {

struct CommandWord {
    Command command;
    const char* word;
};

// Every command word of the protocol; a word not here is Command::Unknown.
constexpr CommandWord kCommandWords[] = {
    {Command::Query, word::kQuery},   {Command::Assign, word::kAssign},
    {Command::Clear, word::kClear},   {Command::Ack, word::kAck},
    {Command::Status, word::kStatus},
};

}  // namespace

Command commandFromWord(std::string_view word) {
    for (const CommandWord& entry : kCommandWords) {
        if (word == entry.word) {
            return entry.command;
        }
    }
    return Command::Unknown;
}

Request parseRequest(std::string_view text, Message& message) {
    Request request;
    const TextSplit commandAndRemainder = splitView(text, kFieldSeparator);
    request.command = commandFromWord(commandAndRemainder.head);

    const TextSplit seqidAndAfter = splitView(commandAndRemainder.rest, kFieldSeparator);
    const std::string_view seqidField = seqidAndAfter.head;
    const std::string_view afterSeqid = seqidAndAfter.rest;
    switch (request.command) {
        case Command::Query:
            // COMPAT: query-mac-field-takes-the-rest
            // Everything after the seqid field is the MAC field, so nothing may follow it.
            request.parsed = parseSeqId(seqidField, message) && parseMac(afterSeqid, message);
            break;
        case Command::Assign:
        case Command::Clear: {
            const TextSplit macAndLast = splitView(afterSeqid, kFieldSeparator);
            const std::string_view last = macAndLast.rest;
            if (!parseSeqId(seqidField, message) || !parseMac(macAndLast.head, message)) {
                break;
            }
            if (request.command == Command::Assign) {
                request.parsed = parseFieldList(last, message);
            } else if (isServerKey(last)) {
                request.parsed = true;
                request.serverKey.assign(last);
            }
            break;
        }
        case Command::Ack:
        case Command::Status:
        case Command::Unknown:
            break;
    }
    return request;
}

Decision decideRequest(std::string_view datagram, Message& message, const std::string& deviceMac) {
    Decision decision;
    const TextSplit headerAndRest = splitView(datagram, kFieldSeparator);
    if (!checkHeader(headerAndRest.head)) {
        return decision;  // no field is parsed, nothing is answered
    }
    decision.request = parseRequest(headerAndRest.rest, message);
    const Request& request = decision.request;
    switch (request.command) {
        case Command::Ack:
        case Command::Status:
            // COMPAT: replies-understood-and-ignored
            decision.understood = true;  // replies, other daemons' or our own
            return decision;
        case Command::Unknown:
            return decision;
        case Command::Query:
            decision.understood = request.parsed;
            if (request.parsed && isAddressedTo(request, message, deviceMac)) {
                decision.action = Action::SendStatus;
            }
            return decision;
        case Command::Assign:
        case Command::Clear:
            break;
    }
    if (!isAddressedTo(request, message, deviceMac)) {
        decision.understood = true;
        return decision;
    }
    if (!request.parsed) {
        decision.action = Action::Refuse;
        return decision;
    }
    decision.understood = true;
    decision.action = request.command == Command::Assign ? Action::Assign : Action::Clear;
    return decision;
}

std::string composeQuery(const std::string& seqid, const std::string& mac) {
    std::string text = composeMessageStart(word::kQuery, seqid);
    if (!mac.empty()) {
        appendField(text, key::kMac, mac);
    }
    return text;
}

std::string composeAssign(const std::string& seqid, const std::string& mac,
                          const std::vector<std::pair<std::string, std::string>>& assignments) {
    std::string text = composeMessageStart(word::kAssign, seqid);
    appendField(text, key::kMac, mac);
    for (const auto& [fieldKey, value] : assignments) {
        appendField(text, fieldKey, value);
    }
    return text;
}

std::string composeClear(const std::string& seqid, const std::string& mac,
                         const std::string& serverKey) {
    std::string text = composeMessageStart(word::kClear, seqid);
    appendField(text, key::kMac, mac);
    text += kFieldSeparator;
    text += serverKey;
    return text;
}

bool isAddressedTo(const Request& request, const Message& message, const std::string& deviceMac) {
    if (request.command == Command::Query && message.mac.empty()) {
        return true;  // the discovery broadcast
    }
    return message.mac == deviceMac;
}

}  // namespace lcfd
