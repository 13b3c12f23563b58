#pragma once

#include <string>
#include <utility>
#include <vector>

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
