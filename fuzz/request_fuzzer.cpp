// The road of one datagram from its raw bytes to the Message fields and the verdict, as the
// dispatcher decides it, without the device: header split and check, parseRequest, the
// addressing rule against a fixed device MAC, and the reply that would be composed. Nothing
// here runs a command, sleeps or opens a socket.

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "FuzzCheck.hpp"
#include "wire/Message.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Replies.hpp"
#include "wire/Request.hpp"
#include "wire/Validators.hpp"

namespace {

using lcfd::Command;
using lcfd::Message;
using lcfd::Request;

// The MAC address the device under test reports (getMac: upper-case).
const std::string kDeviceMac = "00:1A:2B:3C:4D:5E";
// The transport reads at most this many bytes of a datagram.
constexpr std::size_t kDatagramLimit = 512;

// What handling the datagram would lead to.
enum class Action {
    NotUnderstood,  // verdict false, nothing sent
    Ignored,        // verdict true, nothing sent (a reply, or a request for another device)
    Status,         // STATUS reply, verdict true
    Refused,        // "#accept=no", verdict false
    Applied,        // "#accept=yes", setters and the network write, verdict true
    Cleared,        // one clear operation, then "#accept=yes", verdict true
};

struct Outcome {
    Action action = Action::NotUnderstood;
    Request request;
    Message message;
};

// The dispatcher's decision for one datagram: parseMessage and handleCommand without the
// device behind them.
Outcome decide(const std::string& text, const std::string& deviceMac) {
    Outcome outcome;
    std::string header;
    std::string rest;
    lcfd::splitAt(text, lcfd::kFieldSeparator, header, rest);
    if (!lcfd::checkHeader(header)) {
        return outcome;
    }
    outcome.request = lcfd::parseRequest(rest, outcome.message);
    const Request& request = outcome.request;
    switch (request.command) {
        case Command::Ack:
        case Command::Status:
            outcome.action = Action::Ignored;
            return outcome;
        case Command::Unknown:
            outcome.action = Action::NotUnderstood;
            return outcome;
        case Command::Query:
            if (!request.parsed) {
                outcome.action = Action::NotUnderstood;
            } else if (!lcfd::isAddressedTo(request, outcome.message, deviceMac)) {
                outcome.action = Action::Ignored;
            } else {
                outcome.action = Action::Status;
            }
            return outcome;
        case Command::Assign:
        case Command::Clear:
            break;
    }
    if (!lcfd::isAddressedTo(request, outcome.message, deviceMac)) {
        outcome.action = Action::Ignored;
    } else if (!request.parsed) {
        outcome.action = Action::Refused;
    } else {
        outcome.action = request.command == Command::Assign ? Action::Applied : Action::Cleared;
    }
    return outcome;
}

bool sameMessage(const Message& a, const Message& b) {
    return a.mac == b.mac && a.ipscheme == b.ipscheme && a.gateway == b.gateway &&
           a.unusedField1 == b.unusedField1 && a.unusedField2 == b.unusedField2 &&
           a.syslogip == b.syslogip && a.nameserver == b.nameserver && a.ntpip == b.ntpip &&
           a.ip == b.ip && a.netmask == b.netmask && a.seqid == b.seqid && a.utcclock == b.utcclock;
}

bool isEmptyMessage(const Message& message) {
    return sameMessage(message, Message{});
}

std::vector<const std::string*> allFields(const Message& m) {
    return {&m.mac,        &m.ipscheme, &m.gateway, &m.unusedField1, &m.unusedField2, &m.syslogip,
            &m.nameserver, &m.ntpip,    &m.ip,      &m.netmask,      &m.seqid,        &m.utcclock};
}

// Independent statement of the loose address check of requests: four parts cut at ".",
// each digits only (empty allowed), its number as strtol gives it (saturating at LONG_MAX)
// at most 255 in its low 32 bits; whatever follows the fourth part's "." is not looked at.
bool referenceDottedQuad(const std::string& value) {
    std::size_t position = 0;
    for (int part = 0; part < 4; ++part) {
        std::size_t end = value.find('.', position);
        const bool last = end == std::string::npos;
        if (last) {
            end = value.size();
        }
        unsigned long long number = 0;
        bool saturated = false;
        for (std::size_t i = position; i < end; ++i) {
            const char c = value[i];
            if (c < '0' || c > '9') {
                return false;
            }
            if (!saturated) {
                number = number * 10 + static_cast<unsigned long long>(c - '0');
                if (number > static_cast<unsigned long long>(LONG_MAX)) {
                    saturated = true;
                }
            }
        }
        if (saturated) {
            number = static_cast<unsigned long long>(LONG_MAX);
        }
        if ((number & 0xFFFFFFFFull) > 255) {
            return false;
        }
        position = last ? value.size() : end + 1;
    }
    return true;
}

bool referenceHeader(const std::string& header) {
    return header.size() == 4 && header.compare(0, 3, "LCF") == 0 &&
           !(header[3] >= '3' && header[3] <= '9');
}

Command referenceCommand(const std::string& word) {
    if (word == "QUERY") {
        return Command::Query;
    }
    if (word == "ASSIGN") {
        return Command::Assign;
    }
    if (word == "CLEAR") {
        return Command::Clear;
    }
    if (word == "ACK") {
        return Command::Ack;
    }
    if (word == "STATUS") {
        return Command::Status;
    }
    return Command::Unknown;
}

void checkSplit(const std::string& text, char separator) {
    std::string head = "stale";
    std::string rest = "stale";
    const bool found = lcfd::splitAt(text, separator, head, rest);
    const std::size_t position = text.find(separator);
    FUZZ_CHECK(found == (position != std::string::npos));
    if (found) {
        FUZZ_CHECK(head.size() == position);
        FUZZ_CHECK(head + separator + rest == text);
    } else {
        FUZZ_CHECK(head == text);
        FUZZ_CHECK(rest.empty());
    }
    FUZZ_CHECK(head.find(separator) == std::string::npos);
}

// The fields an accepted request stored, as a configuration tool would send them again.
std::vector<std::pair<std::string, std::string>> assignmentsOf(const Message& m) {
    std::vector<std::pair<std::string, std::string>> list;
    const std::pair<const char*, const std::string*> fields[] = {
        {"ip", &m.ip},
        {"netmask", &m.netmask},
        {"gateway", &m.gateway},
        {"ipscheme", &m.ipscheme},
        {"ntpip", &m.ntpip},
        {"syslogip", &m.syslogip},
        {"nameserver", &m.nameserver},
        {"utcclock", &m.utcclock},
    };
    for (const auto& [fieldKey, value] : fields) {
        if (!value->empty()) {
            list.emplace_back(fieldKey, *value);
        }
    }
    return list;
}

// The key of the field in the MAC position: only "mac" gets its groups checked.
std::string macFieldKey(const std::string& rest, Command command) {
    std::string commandWord;
    std::string remainder;
    lcfd::splitAt(rest, '#', commandWord, remainder);
    std::string seqidField;
    std::string afterSeqid;
    lcfd::splitAt(remainder, '#', seqidField, afterSeqid);
    std::string macField = afterSeqid;
    if (command != Command::Query) {
        std::string last;
        lcfd::splitAt(afterSeqid, '#', macField, last);
    }
    std::string fieldKey;
    std::string value;
    lcfd::splitAt(macField, '=', fieldKey, value);
    return fieldKey;
}

void checkOutcome(const std::string& text, const Outcome& outcome, const std::string& deviceMac) {
    const Message& message = outcome.message;
    const Request& request = outcome.request;

    std::string header;
    std::string rest;
    lcfd::splitAt(text, '#', header, rest);
    FUZZ_CHECK(lcfd::checkHeader(header) == referenceHeader(header));
    if (!referenceHeader(header)) {
        // A bad header parses nothing and answers nothing.
        FUZZ_CHECK(outcome.action == Action::NotUnderstood);
        FUZZ_CHECK(isEmptyMessage(message));
        return;
    }

    std::string commandWord;
    std::string remainder;
    lcfd::splitAt(rest, '#', commandWord, remainder);
    FUZZ_CHECK(request.command == referenceCommand(commandWord));
    FUZZ_CHECK(lcfd::commandFromWord(commandWord) == request.command);

    // Replies and unknown words are never parsed any further.
    if (request.command == Command::Unknown || request.command == Command::Ack ||
        request.command == Command::Status) {
        FUZZ_CHECK(!request.parsed);
        FUZZ_CHECK(isEmptyMessage(message));
        FUZZ_CHECK(outcome.action ==
                   (request.command == Command::Unknown ? Action::NotUnderstood : Action::Ignored));
        return;
    }

    // Whatever was stored holds no field separator, and the two unused fields stay empty.
    for (const std::string* field : allFields(message)) {
        FUZZ_CHECK(field->find('#') == std::string::npos || field == &message.mac);
    }
    FUZZ_CHECK(message.unusedField1.empty() && message.unusedField2.empty());
    // The sequence identifier never carries a reserved character.
    FUZZ_CHECK(message.seqid.find_first_of("#;=") == std::string::npos);
    // The MAC address is stored upper-cased.
    FUZZ_CHECK(!fuzz::hasLowerCaseLetter(message.mac));
    if (request.command != Command::Query) {
        FUZZ_CHECK(message.mac.find('#') == std::string::npos);
    }
    // Address fields passed the request's address check; the scheme is one of two words.
    for (const std::string* address : {&message.ip, &message.netmask, &message.gateway,
                                       &message.ntpip, &message.syslogip, &message.nameserver}) {
        FUZZ_CHECK(address->empty() || lcfd::isDottedQuad(*address));
        FUZZ_CHECK(address->empty() || referenceDottedQuad(*address));
    }
    FUZZ_CHECK(message.ipscheme.empty() || message.ipscheme == "STATIC" ||
               message.ipscheme == "DHCP");
    // QUERY and CLEAR store no assignment.
    if (request.command != Command::Assign) {
        FUZZ_CHECK(message.ip.empty() && message.netmask.empty() && message.gateway.empty() &&
                   message.ipscheme.empty() && message.ntpip.empty() && message.syslogip.empty() &&
                   message.nameserver.empty() && message.utcclock.empty());
    }
    if (request.command == Command::Clear) {
        FUZZ_CHECK(!request.parsed || lcfd::isServerKey(request.serverKey));
        FUZZ_CHECK(!request.parsed || request.serverKey == "ntpip" ||
                   request.serverKey == "syslogip" || request.serverKey == "nameserver");
    } else {
        FUZZ_CHECK(request.serverKey.empty());
    }

    // Addressing: a QUERY with a good seqid and no MAC address is for every device; anything
    // answered is for this device exactly.
    if (request.command == Command::Query && request.parsed && message.mac.empty()) {
        FUZZ_CHECK(lcfd::isAddressedTo(request, message, deviceMac));
        FUZZ_CHECK(lcfd::isAddressedTo(request, message, "AA:BB:CC:DD:EE:FF"));
        FUZZ_CHECK(outcome.action == Action::Status);
    }
    if (outcome.action == Action::Status || outcome.action == Action::Refused ||
        outcome.action == Action::Applied || outcome.action == Action::Cleared) {
        FUZZ_CHECK(message.mac == deviceMac ||
                   (request.command == Command::Query && message.mac.empty()));
    }
    if (request.command != Command::Query) {
        FUZZ_CHECK(lcfd::isAddressedTo(request, message, deviceMac) == (message.mac == deviceMac));
    }
    if (outcome.action == Action::Applied || outcome.action == Action::Cleared) {
        FUZZ_CHECK(request.parsed);
    }

    // The reply that would go out parses back to what was put in.
    if (outcome.action == Action::Refused || outcome.action == Action::Applied ||
        outcome.action == Action::Cleared) {
        const bool accepted = outcome.action != Action::Refused;
        const std::string ack = lcfd::composeAck(message.seqid, deviceMac, accepted);
        const auto reply = lcfd::parseReply(ack);
        FUZZ_CHECK(reply.has_value());
        FUZZ_CHECK(reply->command == "ACK");
        FUZZ_CHECK(reply->fields.size() == 3);
        FUZZ_CHECK(reply->value("seqid") == message.seqid);
        FUZZ_CHECK(reply->value("mac") == deviceMac);
        FUZZ_CHECK(reply->value("accept") == std::string(accepted ? "yes" : "no"));
    }

    // An accepted request, composed again from its parsed fields the way the tool composes
    // it, parses to the same fields.
    if (request.parsed) {
        std::string again;
        if (request.command == Command::Query) {
            again = lcfd::composeQuery(message.seqid, message.mac);
        } else if (request.command == Command::Assign) {
            again = lcfd::composeAssign(message.seqid, message.mac, assignmentsOf(message));
        } else {
            again = lcfd::composeClear(message.seqid, message.mac, request.serverKey);
        }
        const bool macChecked = macFieldKey(rest, request.command) == "mac";
        const Outcome second = decide(again, deviceMac);
        if (macChecked || second.request.parsed) {
            FUZZ_CHECK(second.request.parsed);
            FUZZ_CHECK(second.request.command == request.command);
            FUZZ_CHECK(second.request.serverKey == request.serverKey);
            FUZZ_CHECK(sameMessage(second.message, message));
            FUZZ_CHECK(second.action == outcome.action);
        }
    }
}

}  // namespace

// The daemon decides in one step (decideRequest) what the steps above decide one by one; a
// Message that held another datagram's fields must not change the result once reset.
void checkDaemonDecision(const std::string& text, const Outcome& expected,
                         const std::string& deviceMac) {
    Message message;
    message.mac = "FF:FF:FF:FF:FF:FF";
    message.utcclock = std::string(300, 'x');
    message.reset();
    FUZZ_CHECK(isEmptyMessage(message));
    const lcfd::Decision decision = lcfd::decideRequest(text, message, deviceMac);
    FUZZ_CHECK(sameMessage(message, expected.message));
    FUZZ_CHECK(decision.request.command == expected.request.command);
    FUZZ_CHECK(decision.request.parsed == expected.request.parsed);
    FUZZ_CHECK(decision.request.serverKey == expected.request.serverKey);
    const bool understood =
        expected.action != Action::NotUnderstood && expected.action != Action::Refused;
    FUZZ_CHECK(decision.understood == understood);
    switch (expected.action) {
        case Action::NotUnderstood:
        case Action::Ignored:
            FUZZ_CHECK(decision.action == lcfd::Action::None);
            break;
        case Action::Status:
            FUZZ_CHECK(decision.action == lcfd::Action::SendStatus);
            break;
        case Action::Refused:
            FUZZ_CHECK(decision.action == lcfd::Action::Refuse);
            break;
        case Action::Applied:
            FUZZ_CHECK(decision.action == lcfd::Action::Assign);
            break;
        case Action::Cleared:
            FUZZ_CHECK(decision.action == lcfd::Action::Clear);
            break;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;  // the transport skips empty datagrams
    }
    const std::string text = fuzz::asText(data, size < kDatagramLimit ? size : kDatagramLimit);

    checkSplit(text, '#');
    checkSplit(text, '=');
    checkSplit(text, '.');
    FUZZ_CHECK(lcfd::isDottedQuad(text) == referenceDottedQuad(text));
    FUZZ_CHECK(lcfd::hasNoReservedChars(text) == (text.find_first_of("#;=") == std::string::npos));

    const Outcome first = decide(text, kDeviceMac);
    checkOutcome(text, first, kDeviceMac);
    checkDaemonDecision(text, first, kDeviceMac);

    // Parsing is deterministic and depends on the text alone.
    const Outcome second = decide(text, kDeviceMac);
    FUZZ_CHECK(second.action == first.action);
    FUZZ_CHECK(second.request.command == first.request.command);
    FUZZ_CHECK(second.request.parsed == first.request.parsed);
    FUZZ_CHECK(second.request.serverKey == first.request.serverKey);
    FUZZ_CHECK(sameMessage(second.message, first.message));

    // A device whose MAC address is unknown (empty) answers failed ASSIGN and CLEAR requests.
    const Outcome unknownDevice = decide(text, "");
    checkOutcome(text, unknownDevice, "");
    checkDaemonDecision(text, unknownDevice, "");
    FUZZ_CHECK(unknownDevice.request.parsed == first.request.parsed);
    FUZZ_CHECK(sameMessage(unknownDevice.message, first.message));

    // Each assignment field on its own follows the field rules.
    std::string commandWord;
    std::string remainder;
    std::string header;
    std::string rest;
    lcfd::splitAt(text, '#', header, rest);
    lcfd::splitAt(rest, '#', commandWord, remainder);
    std::string fieldText = remainder;
    for (int guard = 0; guard < 64 && !fieldText.empty(); ++guard) {
        std::string field;
        std::string next;
        lcfd::splitAt(fieldText, '#', field, next);
        Message single;
        const bool accepted = lcfd::parseField(field, single);
        std::string fieldKey;
        std::string value;
        lcfd::splitAt(field, '=', fieldKey, value);
        if (fieldKey.empty() || value.empty()) {
            FUZZ_CHECK(!accepted);
        }
        if (fieldKey == "ipscheme") {
            FUZZ_CHECK(accepted == (value == "STATIC" || value == "DHCP"));
        }
        if (fieldKey == "utcclock" && !value.empty()) {
            FUZZ_CHECK(accepted && single.utcclock == value);
        }
        if (accepted) {
            const std::vector<const std::string*> stored = allFields(single);
            std::size_t filled = 0;
            for (const std::string* storedField : stored) {
                filled += storedField->empty() ? 0 : 1;
                FUZZ_CHECK(storedField->empty() || *storedField == value);
            }
            FUZZ_CHECK(filled <= 1);
        } else {
            FUZZ_CHECK(isEmptyMessage(single));
        }
        fieldText = next;
    }
    return 0;
}
