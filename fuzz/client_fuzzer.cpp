// The configuration tool's side: a received datagram through parseReply, discovery and the
// three renderings, and the tool's own input checks (isMacAddress, checkAssignment, the
// unchecked forms and the server names), whose accepted values must reach the daemon as
// typed and pass its validators. No socket is opened.

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "FuzzCheck.hpp"
#include "client/Controllers.hpp"
#include "client/Rendering.hpp"
#include "client/Validation.hpp"
#include "device/DeviceCommands.hpp"
#include "protocol/Message.hpp"
#include "protocol/MessageFormat.hpp"
#include "protocol/Replies.hpp"
#include "protocol/Request.hpp"
#include "settings/Settings.hpp"

namespace {

using lcfd::Reply;

// Independent split of the fields after the command word: pieces between "#", the last one
// left out when the text ends in "#" (an empty rest ends the list).
std::vector<std::string> referenceFields(const std::string& rest) {
    std::vector<std::string> pieces;
    std::string remainder = rest;
    while (!remainder.empty()) {
        const std::size_t hash = remainder.find('#');
        pieces.push_back(remainder.substr(0, hash));
        remainder = hash == std::string::npos ? std::string() : remainder.substr(hash + 1);
    }
    return pieces;
}

// Well-formed UTF-8, as the JSON writer requires of its strings.
bool isUtf8(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size()) {
        const auto c = static_cast<unsigned char>(text[i]);
        std::size_t length = 0;
        unsigned minimum = 0;
        unsigned codePoint = 0;
        if (c < 0x80) {
            ++i;
            continue;
        }
        if (c >= 0xC2 && c <= 0xDF) {
            length = 2;
            minimum = 0x80;
            codePoint = c & 0x1Fu;
        } else if (c >= 0xE0 && c <= 0xEF) {
            length = 3;
            minimum = 0x800;
            codePoint = c & 0x0Fu;
        } else if (c >= 0xF0 && c <= 0xF4) {
            length = 4;
            minimum = 0x10000;
            codePoint = c & 0x07u;
        } else {
            return false;
        }
        if (i + length > text.size()) {
            return false;
        }
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0u) != 0x80u) {
                return false;
            }
            codePoint = (codePoint << 6) | (next & 0x3Fu);
        }
        if (codePoint < minimum || codePoint > 0x10FFFF ||
            (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
            return false;
        }
        i += length;
    }
    return true;
}

void checkParsedReply(const std::string& text, const Reply& reply) {
    std::string header;
    std::string remainder;
    lcfd::splitAt(text, '#', header, remainder);
    FUZZ_CHECK(lcfd::checkHeader(header));
    FUZZ_CHECK(reply.command == "STATUS" || reply.command == "ACK");
    std::string command;
    std::string rest;
    lcfd::splitAt(remainder, '#', command, rest);
    FUZZ_CHECK(command == reply.command);

    const std::vector<std::string> pieces = referenceFields(rest);
    FUZZ_CHECK(pieces.size() == reply.fields.size());
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const auto& [fieldKey, value] = reply.fields[i];
        FUZZ_CHECK(fieldKey.find_first_of("#=") == std::string::npos);
        FUZZ_CHECK(value.find('#') == std::string::npos);
        const std::size_t equals = pieces[i].find('=');
        if (equals == std::string::npos) {
            FUZZ_CHECK(fieldKey == pieces[i] && value.empty());
        } else {
            FUZZ_CHECK(std::string(fieldKey).append("=").append(value) == pieces[i]);
        }
    }
}

// A STATUS composed from what was parsed reads back to the same values.
void checkStatusRoundTrip(const Reply& reply) {
    lcfd::StatusValues values;
    for (const lcfd::StatusField& field : lcfd::statusFields()) {
        values.*field.value = reply.value(field.key).value_or("");
    }
    const std::string seqid = reply.value("seqid").value_or("");
    const std::string mac = reply.value("mac").value_or("");
    const std::string composed = lcfd::composeStatus(seqid, mac, values);
    const std::optional<Reply> again = lcfd::parseReply(composed);
    FUZZ_CHECK(again.has_value());
    FUZZ_CHECK(again->command == "STATUS");
    FUZZ_CHECK(again->value("seqid") == seqid);
    FUZZ_CHECK(again->value("mac") == mac);
    std::size_t written = 2;
    for (const lcfd::StatusField& field : lcfd::statusFields()) {
        const std::string& value = values.*field.value;
        if (field.omittedWhenEmpty && value.empty()) {
            FUZZ_CHECK(!again->value(field.key).has_value());
        } else {
            FUZZ_CHECK(again->value(field.key) == value);
            ++written;
        }
    }
    FUZZ_CHECK(again->fields.size() == written);
    // And once more gives the same text.
    lcfd::StatusValues valuesAgain;
    for (const lcfd::StatusField& field : lcfd::statusFields()) {
        valuesAgain.*field.value = again->value(field.key).value_or("");
    }
    FUZZ_CHECK(lcfd::composeStatus(again->value("seqid").value_or(""),
                                   again->value("mac").value_or(""), valuesAgain) == composed);
}

void checkAckRoundTrip(const Reply& reply) {
    const std::string seqid = reply.value("seqid").value_or("");
    const std::string mac = reply.value("mac").value_or("");
    const bool accepted = reply.value("accept") == std::string("yes");
    const std::optional<Reply> again = lcfd::parseReply(lcfd::composeAck(seqid, mac, accepted));
    FUZZ_CHECK(again.has_value() && again->command == "ACK" && again->fields.size() == 3);
    FUZZ_CHECK(again->value("seqid") == seqid && again->value("mac") == mac);
    FUZZ_CHECK(again->value("accept") == std::string(accepted ? "yes" : "no"));
}

void checkRenderings(const Reply& reply) {
    if (reply.command != "STATUS") {
        return;
    }
    lcf::NetworkInterface arrivedOn;
    arrivedOn.name = "eth0";
    arrivedOn.address = 0x0101A8C0;  // 192.168.1.1 in network byte order
    arrivedOn.netmask = 0x00FFFFFF;  // 255.255.255.0
    lcf::DiscoveryResults results(reply.value("seqid").value_or(""));
    const bool taken = results.add(reply, arrivedOn);
    const std::string mac = reply.value("mac").value_or("");
    FUZZ_CHECK(taken == (reply.value("seqid").has_value() && !mac.empty()));
    FUZZ_CHECK(!results.add(reply, arrivedOn));  // one entry per MAC address
    if (!taken) {
        return;
    }
    const std::vector<lcf::Controller> controllers = results.sorted();
    FUZZ_CHECK(controllers.size() == 1);
    const lcf::Controller& controller = controllers.front();
    const std::string ip = controller.field("ip");
    FUZZ_CHECK(controller.outsideSubnet == lcf::isOutsideSubnet(ip, arrivedOn));
    if (!controller.outsideSubnet) {
        // Inside the subnet means a valid address, by the daemon's own validator.
        FUZZ_CHECK(lcfd::isValidIpv4(ip));
    }

    const std::string table = lcf::renderTable(controllers);
    FUZZ_CHECK(!table.empty() && table.back() == '\n');
    FUZZ_CHECK(table.find("1 controller found") != std::string::npos);
    const std::string details = lcf::renderDetails(controller);
    FUZZ_CHECK(details.find("interface:") != std::string::npos);

    bool allUtf8 = isUtf8(controller.interfaceName);
    for (const auto& [fieldKey, value] : reply.fields) {
        allUtf8 = allUtf8 && isUtf8(fieldKey) && isUtf8(value);
    }
    // Bytes that are not UTF-8 are replaced, never thrown over: the list is always printed.
    const std::string json = lcf::renderJson(controllers);
    // Whatever came in, the output is one JSON array holding one object with a member for
    // every key of the reply (seqid left out).
    const nlohmann::ordered_json parsed = nlohmann::ordered_json::parse(json);
    FUZZ_CHECK(parsed.is_array() && parsed.size() == 1);
    const nlohmann::ordered_json& object = parsed.front();
    FUZZ_CHECK(object.is_object());
    FUZZ_CHECK(object.at("interface") == "eth0");
    FUZZ_CHECK(object.at("outside_subnet") == controller.outsideSubnet);
    if (allUtf8) {
        for (const auto& [fieldKey, value] : reply.fields) {
            if (fieldKey == "seqid" || fieldKey == "interface" || fieldKey == "outside_subnet") {
                continue;
            }
            FUZZ_CHECK(object.contains(fieldKey));
        }
    }
}

void checkMacAddress(const std::string& text) {
    if (!lcf::isMacAddress(text)) {
        return;
    }
    FUZZ_CHECK(text.size() == 17);
    // The daemon takes the address the tool accepted, upper-cased, and a device reporting
    // that address is the one addressed.
    lcfd::Message message;
    FUZZ_CHECK(lcfd::parseMac("mac=" + text, message));
    FUZZ_CHECK(message.mac == lcfd::upperCased(text));
    FUZZ_CHECK(!fuzz::hasLowerCaseLetter(message.mac));
    lcfd::Message queried;
    const std::string query = lcfd::composeQuery("7", text);
    const lcfd::Request request = lcfd::parseRequest(query.substr(5), queried);
    FUZZ_CHECK(request.command == lcfd::Command::Query && request.parsed);
    FUZZ_CHECK(lcfd::isAddressedTo(request, queried, lcfd::upperCased(text)));
}

void checkAssignmentArgument(const std::string& argument) {
    std::pair<std::string, std::string> assignment{"untouched", "untouched"};
    const std::optional<std::string> problem = lcf::checkAssignment(argument, assignment);
    if (problem) {
        FUZZ_CHECK(!problem->empty());
        FUZZ_CHECK(assignment.first == "untouched" && assignment.second == "untouched");
        return;
    }
    const auto& [fieldKey, value] = assignment;
    FUZZ_CHECK(fieldKey + "=" + value == argument);
    bool assignable = false;
    for (const std::string& candidate : lcf::assignableKeys()) {
        assignable = assignable || candidate == fieldKey;
    }
    FUZZ_CHECK(assignable);
    FUZZ_CHECK(argument.find_first_of("#;") == std::string::npos);

    // The daemon takes the field as it is and stores the value unchanged.
    lcfd::Message message;
    FUZZ_CHECK(lcfd::parseField(argument, message));
    lcfd::Settings settings;
    if (fieldKey == "ipscheme") {
        FUZZ_CHECK(value == "STATIC" || value == "DHCP");
        FUZZ_CHECK(message.ipscheme == value);
    } else if (fieldKey == "utcclock") {
        FUZZ_CHECK(lcfd::checkClockValue(value) == lcfd::ClockValueCheck::Valid);
        FUZZ_CHECK(message.utcclock == value);
    } else {
        FUZZ_CHECK(lcfd::isDottedQuad(value));
        FUZZ_CHECK(fuzz::isStrictDottedQuad(value));
        FUZZ_CHECK(settings.setIp(value) && settings.setNtpIp(value));
    }

    // Sent in an ASSIGN, it is accepted and lands in its field.
    const std::string mac = "00:1A:2B:3C:4D:5E";
    const std::string request = lcfd::composeAssign("9", mac, {assignment});
    lcfd::Message received;
    const lcfd::Request parsed = lcfd::parseRequest(request.substr(5), received);
    FUZZ_CHECK(parsed.command == lcfd::Command::Assign && parsed.parsed);
    FUZZ_CHECK(received.mac == mac);
    const std::pair<const char*, const std::string*> stored[] = {
        {"ip", &received.ip},
        {"netmask", &received.netmask},
        {"gateway", &received.gateway},
        {"ipscheme", &received.ipscheme},
        {"ntpip", &received.ntpip},
        {"syslogip", &received.syslogip},
        {"nameserver", &received.nameserver},
        {"utcclock", &received.utcclock},
    };
    for (const auto& [storedKey, storedValue] : stored) {
        FUZZ_CHECK(*storedValue == (fieldKey == storedKey ? value : std::string()));
    }
}

// The tool's unchecked forms send what the daemon is meant to judge; they refuse only what
// the request text cannot carry, so the daemon sees exactly the field that was typed.
void checkUncheckedForms(const std::string& argument) {
    const std::string mac = "00:1A:2B:3C:4D:5E";
    std::pair<std::string, std::string> assignment{"untouched", "untouched"};
    if (const auto problem = lcf::splitUncheckedAssignment(argument, assignment)) {
        FUZZ_CHECK(!problem->empty());
        FUZZ_CHECK(argument.find('=') == std::string::npos ||
                   argument.find('#') != std::string::npos);
    } else {
        FUZZ_CHECK(argument.find('#') == std::string::npos);
        FUZZ_CHECK(assignment.first + "=" + assignment.second == argument);
        FUZZ_CHECK(assignment.first.find('=') == std::string::npos);
        lcfd::Message alone;
        const bool fieldAccepted = lcfd::parseField(argument, alone);
        lcfd::Message received;
        const std::string request = lcfd::composeAssign("9", mac, {assignment});
        const lcfd::Request parsed = lcfd::parseRequest(request.substr(5), received);
        FUZZ_CHECK(parsed.command == lcfd::Command::Assign);
        FUZZ_CHECK(parsed.parsed == fieldAccepted);
        FUZZ_CHECK(received.mac == mac);
    }

    const bool serverKey = !lcf::checkServerKey(argument).has_value();
    FUZZ_CHECK(serverKey == lcfd::isServerKey(argument));
    if (!lcf::checkUncheckedServerKey(argument)) {
        FUZZ_CHECK(argument.find('#') == std::string::npos);
        lcfd::Message received;
        const std::string request = lcfd::composeClear("3", mac, argument);
        const lcfd::Request parsed = lcfd::parseRequest(request.substr(5), received);
        FUZZ_CHECK(parsed.command == lcfd::Command::Clear);
        FUZZ_CHECK(parsed.parsed == lcfd::isServerKey(argument));
        FUZZ_CHECK(parsed.serverKey == argument);
    } else {
        FUZZ_CHECK(argument.find('#') != std::string::npos);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::asText(data, size);

    const std::optional<Reply> reply = lcfd::parseReply(text);
    if (reply) {
        checkParsedReply(text, *reply);
        if (reply->command == "STATUS") {
            checkStatusRoundTrip(*reply);
        } else {
            checkAckRoundTrip(*reply);
        }
        checkRenderings(*reply);
    }

    checkMacAddress(text);
    checkAssignmentArgument(text);
    checkUncheckedForms(text);
    return 0;
}
