#include "protocol/Request.hpp"

#include "protocol/MessageFormat.hpp"

namespace lcfd {

Command commandFromWord(const std::string& word) {
    if (word == word::kQuery) {
        return Command::Query;
    }
    if (word == word::kAssign) {
        return Command::Assign;
    }
    if (word == word::kClear) {
        return Command::Clear;
    }
    if (word == word::kAck) {
        return Command::Ack;
    }
    if (word == word::kStatus) {
        return Command::Status;
    }
    return Command::Unknown;
}

Request parseRequest(const std::string& text, Message& message) {
    Request request;
    std::string commandWord;
    std::string remainder;
    splitAt(text, kFieldSeparator, commandWord, remainder);
    request.command = commandFromWord(commandWord);

    std::string seqidField;
    std::string afterSeqid;
    splitAt(remainder, kFieldSeparator, seqidField, afterSeqid);
    switch (request.command) {
        case Command::Query:
            // Everything after the seqid field is the MAC field, so nothing may follow it.
            request.parsed = parseSeqId(seqidField, message) && parseMac(afterSeqid, message);
            break;
        case Command::Assign:
        case Command::Clear: {
            std::string macField;
            std::string last;
            splitAt(afterSeqid, kFieldSeparator, macField, last);
            if (!parseSeqId(seqidField, message) || !parseMac(macField, message)) {
                break;
            }
            if (request.command == Command::Assign) {
                request.parsed = parseFieldList(last, message);
            } else {
                request.parsed = isServerKey(last);
                request.serverKey = last;
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
