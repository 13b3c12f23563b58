#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "wire/Message.hpp"

namespace lcfd {

enum class Command { Query, Assign, Clear, Ack, Status, Unknown };

// A request taken apart: its command, whether every field the command needs parsed, and for a
// parsed CLEAR the server key. The fields themselves are in the Message.
struct Request {
    Command command = Command::Unknown;
    bool parsed = false;
    std::string serverKey;
};

// Whole-word, case-sensitive.
Command commandFromWord(std::string_view word);

// Parses the text after the header and its "#": the command word, then the command's fields
// in their order, stopping at the first that fails. ACK and STATUS parse nothing further.
Request parseRequest(std::string_view text, Message& message);

// Whether a request is for the device with MAC address `deviceMac`. A QUERY without a MAC
// address is for every device; ASSIGN and CLEAR must name the device exactly.
bool isAddressedTo(const Request& request, const Message& message, const std::string& deviceMac);

// What the daemon does about one datagram. Everything but `None` reads or changes the device.
enum class Action {
    None,        // nothing beyond the trace: a reply, another device's request, or not understood
    SendStatus,  // a QUERY for this device
    Refuse,      // an ASSIGN or CLEAR for this device that did not parse: "#accept=no"
    Assign,      // a parsed ASSIGN for this device
    Clear,       // a parsed CLEAR for this device
};

// The verdict of the trace line and the action, with the request they were decided from.
struct Decision {
    bool understood = false;
    Action action = Action::None;
    Request request;
};

// Takes a whole datagram text apart (header, then the request after its "#") into `message`
// and decides, against the device's MAC address as getMac gives it, what is to be done.
// Nothing here touches the device, so the decision can be made before anything is written.
Decision decideRequest(std::string_view datagram, Message& message, const std::string& deviceMac);

// Request texts as a configuration tool sends them.
// "LCF2#QUERY#seqid=" + seqid, and "#mac=" + mac when a MAC address is given.
std::string composeQuery(const std::string& seqid, const std::string& mac);
// "LCF2#ASSIGN#seqid=" + seqid + "#mac=" + mac, then "#key=value" for each assignment.
std::string composeAssign(const std::string& seqid, const std::string& mac,
                          const std::vector<std::pair<std::string, std::string>>& assignments);
// "LCF2#CLEAR#seqid=" + seqid + "#mac=" + mac + "#" + serverKey.
std::string composeClear(const std::string& seqid, const std::string& mac,
                         const std::string& serverKey);

}  // namespace lcfd
