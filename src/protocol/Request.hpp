#pragma once

#include <string>

#include "protocol/Message.hpp"

namespace lcfd {

enum class Command { Query, Assign, Clear, Ack, Status, Unknown };

// A request taken apart: its command, whether every field the command needs parsed, and for
// CLEAR the server key. The fields themselves are in the Message.
struct Request {
    Command command = Command::Unknown;
    bool parsed = false;
    std::string serverKey;
};

// Whole-word, case-sensitive.
Command commandFromWord(const std::string& word);

// Parses the text after the header and its "#": the command word, then the command's fields
// in their order, stopping at the first that fails. ACK and STATUS parse nothing further.
Request parseRequest(const std::string& text, Message& message);

// Whether a request is for the device with MAC address `deviceMac`. A QUERY without a MAC
// address is for every device; ASSIGN and CLEAR must name the device exactly.
bool isAddressedTo(const Request& request, const Message& message, const std::string& deviceMac);

}  // namespace lcfd
