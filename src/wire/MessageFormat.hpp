#pragma once

#include <string>
#include <string_view>

#include "wire/Message.hpp"
#include "wire/Protocol.hpp"

namespace lcfd {

// "LCF2#" + command + "#seqid=" + seqid: how every request and reply text begins.
std::string composeMessageStart(const char* command, const std::string& seqid);
// Appends "#" + key + "=" + value.
void appendField(std::string& text, const std::string& fieldKey, const std::string& value);

// The one splitting rule of the protocol: head before the first `separator`, rest after it.
// Without the separator the head is the whole text. Returns whether it occurred.
bool splitAt(const std::string& text, char separator, std::string& head, std::string& rest);

// The same rule as views into `text`: the datagram path splits this way, so that taking a
// request apart copies nothing but the values it keeps.
struct TextSplit {
    std::string_view head;
    std::string_view rest;
    bool found = false;
};
TextSplit splitView(std::string_view text, char separator);

// Passes every byte through toupper (the daemon never changes the locale): MAC addresses are
// compared upper-cased.
std::string upperCased(std::string_view text);
// The same, into `target`, reusing its storage.
void assignUpperCased(std::string& target, std::string_view text);

// True when the text holds none of "#", ";" and "=".
bool hasNoReservedChars(std::string_view text);

// "LCF" and one version character; the version is refused only when it is a digit 3 to 9.
bool checkHeader(std::string_view header);

// "seqid=" + a value free of reserved characters (possibly empty), stored in message.seqid.
bool parseSeqId(std::string_view field, Message& message);

// Stores the value upper-cased in message.mac. Only under the key "mac" are its two-character
// groups checked for hexadecimal digits.
bool parseMac(std::string_view field, Message& message);

// The ASSIGN list: fields up to the first empty one, each through parseField.
bool parseFieldList(std::string_view text, Message& message);

// One ASSIGN field: address keys stored when the value is dotted, "ipscheme" STATIC or DHCP
// only, "utcclock" unchecked, anything else ignored when free of reserved characters.
bool parseField(std::string_view field, Message& message);

}  // namespace lcfd
