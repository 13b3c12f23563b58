// Whole requests: the header of a datagram, the command word, each command's fields in
// order, and which device a request is addressed to.

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "wire/Message.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Request.hpp"

namespace lcfd {
namespace {

constexpr const char* kDeviceMac = "00:1A:2B:3C:4D:5E";
constexpr const char* kOtherMac = "00:1A:2B:3C:4D:5F";

// A datagram read the way the dispatcher reads it: header up to the first "#", then the
// request after it.
struct ReadDatagram {
    bool headerAccepted = false;
    Request request;
    Message message;
};

ReadDatagram readDatagram(const std::string& text) {
    ReadDatagram result;
    std::string header;
    std::string rest;
    splitAt(text, '#', header, rest);
    result.headerAccepted = checkHeader(header);
    if (result.headerAccepted) {
        result.request = parseRequest(rest, result.message);
    }
    return result;
}

bool isEmpty(const Message& message) {
    return message.mac.empty() && message.ipscheme.empty() && message.gateway.empty() &&
           message.unusedField1.empty() && message.unusedField2.empty() &&
           message.syslogip.empty() && message.nameserver.empty() && message.ntpip.empty() &&
           message.ip.empty() && message.netmask.empty() && message.seqid.empty() &&
           message.utcclock.empty();
}

// ---- header of a datagram ----

TEST(DatagramHeader, VersionNineIsRefused) {
    EXPECT_FALSE(readDatagram("LCF9#QUERY#seqid=1").headerAccepted);
}

TEST(DatagramHeader, HeaderOfWrongLengthIsRefused) {
    EXPECT_FALSE(readDatagram("LCF#QUERY#seqid=1").headerAccepted);
    EXPECT_FALSE(readDatagram("LCF22#QUERY#seqid=1").headerAccepted);
}

TEST(DatagramHeader, NonDigitVersionIsAcceptedAndTheRequestRead) {
    const ReadDatagram read = readDatagram("LCF-#QUERY#seqid=1");
    EXPECT_TRUE(read.headerAccepted);
    EXPECT_EQ(read.request.command, Command::Query);
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.seqid, "1");
}

TEST(DatagramHeader, HeaderAloneHasAnEmptyCommandWord) {
    const ReadDatagram read = readDatagram("LCF2");
    EXPECT_TRUE(read.headerAccepted);
    EXPECT_EQ(read.request.command, Command::Unknown);
    EXPECT_FALSE(read.request.parsed);
    EXPECT_TRUE(isEmpty(read.message));
}

// ---- command words ----

struct CommandWordCase {
    const char* name;
    const char* word;
    Command command;
};

void PrintTo(const CommandWordCase& row, std::ostream* out) {
    *out << row.name;
}

const CommandWordCase kCommandWordCases[] = {
    {"QueryIsKnown", "QUERY", Command::Query},
    {"AssignIsKnown", "ASSIGN", Command::Assign},
    {"ClearIsKnown", "CLEAR", Command::Clear},
    {"AckIsKnown", "ACK", Command::Ack},
    {"StatusIsKnown", "STATUS", Command::Status},
    // The whole word is compared, case-sensitively.
    {"EmptyWordIsUnknown", "", Command::Unknown},
    {"LowerCaseQueryIsUnknown", "query", Command::Unknown},
    {"CapitalisedQueryIsUnknown", "Query", Command::Unknown},
    {"TrailingBlankIsUnknown", "QUERY ", Command::Unknown},
    {"LeadingBlankIsUnknown", " QUERY", Command::Unknown},
    {"ShortenedWordIsUnknown", "QUER", Command::Unknown},
    {"LongerWordIsUnknown", "QUERYX", Command::Unknown},
    {"LowerCaseAssignIsUnknown", "assign", Command::Unknown},
    {"LowerCaseClearIsUnknown", "clear", Command::Unknown},
    {"LowerCaseAckIsUnknown", "ack", Command::Unknown},
    {"LowerCaseStatusIsUnknown", "status", Command::Unknown},
    {"OtherWordIsUnknown", "REBOOT", Command::Unknown},
};

class CommandWord : public ::testing::TestWithParam<CommandWordCase> {};

TEST_P(CommandWord, NamesItsCommand) {
    EXPECT_EQ(commandFromWord(GetParam().word), GetParam().command);
}

INSTANTIATE_TEST_SUITE_P(CommandFromWord, CommandWord, ::testing::ValuesIn(kCommandWordCases),
                         [](const ::testing::TestParamInfo<CommandWordCase>& param) {
                             return std::string(param.param.name);
                         });

TEST(ParseRequest, LowerCaseCommandIsUnknownAndNothingIsParsed) {
    const ReadDatagram read = readDatagram("LCF2#query#seqid=1");
    EXPECT_EQ(read.request.command, Command::Unknown);
    EXPECT_FALSE(read.request.parsed);
    EXPECT_TRUE(isEmpty(read.message));
}

TEST(ParseRequest, UnknownCommandParsesNothing) {
    Message message;
    const Request request = parseRequest("REBOOT#seqid=1", message);
    EXPECT_EQ(request.command, Command::Unknown);
    EXPECT_FALSE(request.parsed);
    EXPECT_TRUE(isEmpty(message));
}

// Replies of other daemons (and this one's own) are recognised and not taken apart.
TEST(ParseRequest, AckReplyIsRecognisedAndNotParsed) {
    Message message;
    const Request request = parseRequest("ACK#seqid=1#mac=00:1A:2B:3C:4D:5E#accept=yes", message);
    EXPECT_EQ(request.command, Command::Ack);
    EXPECT_TRUE(isEmpty(message));
}

TEST(ParseRequest, StatusReplyIsRecognisedAndNotParsed) {
    Message bare;
    EXPECT_EQ(parseRequest("STATUS", bare).command, Command::Status);
    EXPECT_TRUE(isEmpty(bare));

    Message full;
    EXPECT_EQ(parseRequest("STATUS#seqid=5#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.5#utcclock="
                           "#displaytime=",
                           full)
                  .command,
              Command::Status);
    EXPECT_TRUE(isEmpty(full));
}

// ---- QUERY ----

TEST(ParseQuery, SeqidAloneIsADiscoveryForEveryDevice) {
    const ReadDatagram read = readDatagram("LCF2#QUERY#seqid=5");
    EXPECT_EQ(read.request.command, Command::Query);
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.seqid, "5");
    EXPECT_EQ(read.message.mac, "");
    EXPECT_TRUE(isAddressedTo(read.request, read.message, kDeviceMac));
    EXPECT_TRUE(isAddressedTo(read.request, read.message, kOtherMac));
    EXPECT_TRUE(isAddressedTo(read.request, read.message, ""));
}

TEST(ParseQuery, EmptySeqidIsAccepted) {
    const ReadDatagram read = readDatagram("LCF2#QUERY#seqid=");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.seqid, "");
}

TEST(ParseQuery, LowerCaseMacAddressesOnlyThatDevice) {
    const ReadDatagram read = readDatagram("LCF2#QUERY#seqid=5#mac=00:1a:2b:3c:4d:5e");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.mac, "00:1A:2B:3C:4D:5E");
    EXPECT_TRUE(isAddressedTo(read.request, read.message, kDeviceMac));
    EXPECT_FALSE(isAddressedTo(read.request, read.message, kOtherMac));
    EXPECT_FALSE(isAddressedTo(read.request, read.message, ""));
}

TEST(ParseQuery, SeqidThatIsNotTheFirstFieldIsRefused) {
    const ReadDatagram read = readDatagram("LCF2#QUERY#mac=00:1A:2B:3C:4D:5E#seqid=1");
    EXPECT_EQ(read.request.command, Command::Query);
    EXPECT_FALSE(read.request.parsed);
    EXPECT_EQ(read.message.seqid, "");
    EXPECT_EQ(read.message.mac, "");
}

TEST(ParseQuery, MissingSeqidFieldIsRefused) {
    EXPECT_FALSE(readDatagram("LCF2#QUERY").request.parsed);
    EXPECT_FALSE(readDatagram("LCF2#QUERY#").request.parsed);
}

TEST(ParseQuery, SeqidWithReservedCharacterIsRefused) {
    EXPECT_FALSE(readDatagram("LCF2#QUERY#seqid=a=b").request.parsed);
    EXPECT_FALSE(readDatagram("LCF2#QUERY#seqid=a;b#mac=00:1A:2B:3C:4D:5E").request.parsed);
}

TEST(ParseQuery, BadMacGroupIsRefused) {
    const ReadDatagram read = readDatagram("LCF2#QUERY#seqid=5#mac=00:1G:2B:3C:4D:5E");
    EXPECT_FALSE(read.request.parsed);
    EXPECT_EQ(read.message.seqid, "5");
    EXPECT_EQ(read.message.mac, "");
}

// Everything after the seqid field is the MAC field, so a further field spoils the address.
TEST(ParseQuery, FieldAfterTheMacIsPartOfTheAddressAndMatchesNoDevice) {
    const ReadDatagram read = readDatagram("LCF2#QUERY#seqid=5#mac=00:1A:2B:3C:4D:5E#x=1");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.mac, "00:1A:2B:3C:4D:5E#X=1");
    EXPECT_FALSE(isAddressedTo(read.request, read.message, kDeviceMac));
}

TEST(ParseQuery, TrailingSeparatorAfterTheSeqidStillAddressesEveryDevice) {
    const ReadDatagram read = readDatagram("LCF2#QUERY#seqid=5#");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.mac, "");
    EXPECT_TRUE(isAddressedTo(read.request, read.message, kDeviceMac));
}

// ---- ASSIGN ----

TEST(ParseAssign, AddressAndNetmaskAreParsed) {
    const ReadDatagram read =
        readDatagram("LCF2#ASSIGN#seqid=9#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.7#netmask=255.255.255.0");
    EXPECT_EQ(read.request.command, Command::Assign);
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.seqid, "9");
    EXPECT_EQ(read.message.mac, "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(read.message.ip, "10.0.0.7");
    EXPECT_EQ(read.message.netmask, "255.255.255.0");
    EXPECT_TRUE(isAddressedTo(read.request, read.message, kDeviceMac));
    EXPECT_FALSE(isAddressedTo(read.request, read.message, kOtherMac));
}

TEST(ParseAssign, LowerCaseSchemeRefusesTheRequestButKeepsTheFieldsBeforeIt) {
    const ReadDatagram read =
        readDatagram("LCF2#ASSIGN#seqid=9#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.7#ipscheme=dhcp");
    EXPECT_FALSE(read.request.parsed);
    EXPECT_EQ(read.message.seqid, "9");
    EXPECT_EQ(read.message.mac, "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(read.message.ip, "10.0.0.7");
    EXPECT_EQ(read.message.ipscheme, "");
    // Refused, yet still for this device: it is the device that answers "#accept=no".
    EXPECT_TRUE(isAddressedTo(read.request, read.message, kDeviceMac));
}

TEST(ParseAssign, IllFormedAddressIsDroppedAndTheRequestAccepted) {
    const ReadDatagram read =
        readDatagram("LCF2#ASSIGN#seqid=9#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.999");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.ip, "");
}

TEST(ParseAssign, NoAssignmentsIsAccepted) {
    const ReadDatagram read = readDatagram("LCF2#ASSIGN#seqid=9#mac=00:1A:2B:3C:4D:5E");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.mac, "00:1A:2B:3C:4D:5E");
    EXPECT_TRUE(isAddressedTo(read.request, read.message, kDeviceMac));
}

// No wildcard for ASSIGN: an empty address names only a device whose own address is empty.
TEST(ParseAssign, EmptyMacIsOnlyForADeviceWithAnEmptyMac) {
    const ReadDatagram read = readDatagram("LCF2#ASSIGN#seqid=9#mac=");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.mac, "");
    EXPECT_FALSE(isAddressedTo(read.request, read.message, kDeviceMac));
    EXPECT_TRUE(isAddressedTo(read.request, read.message, ""));
}

TEST(ParseAssign, BadSeqidStopsBeforeTheMacSoTheAddressStaysEmpty) {
    const ReadDatagram read =
        readDatagram("LCF2#ASSIGN#seqid=a;b#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.7");
    EXPECT_FALSE(read.request.parsed);
    EXPECT_EQ(read.message.seqid, "");
    EXPECT_EQ(read.message.mac, "");
    EXPECT_EQ(read.message.ip, "");
    EXPECT_FALSE(isAddressedTo(read.request, read.message, kDeviceMac));
    EXPECT_TRUE(isAddressedTo(read.request, read.message, ""));
}

TEST(ParseAssign, BadMacStopsBeforeTheListAndKeepsTheSeqid) {
    const ReadDatagram read = readDatagram("LCF2#ASSIGN#seqid=9#mac=00:1G:2B:3C:4D:5E#ip=10.0.0.7");
    EXPECT_FALSE(read.request.parsed);
    EXPECT_EQ(read.message.seqid, "9");
    EXPECT_EQ(read.message.mac, "");
    EXPECT_EQ(read.message.ip, "");
}

TEST(ParseAssign, EmptyFieldEndsTheAssignmentList) {
    const ReadDatagram read =
        readDatagram("LCF2#ASSIGN#seqid=9#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.5##gateway=10.0.0.1");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_EQ(read.message.ip, "10.0.0.5");
    EXPECT_EQ(read.message.gateway, "");
}

TEST(ParseAssign, MacAddressMustMatchByteForByte) {
    const ReadDatagram read = readDatagram("LCF2#ASSIGN#seqid=9#mac=00:1A:2B:3C:4D:5E ");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_FALSE(isAddressedTo(read.request, read.message, kDeviceMac));
    EXPECT_TRUE(isAddressedTo(read.request, read.message, "00:1A:2B:3C:4D:5E "));
}

// ---- CLEAR ----

TEST(ParseClear, EachServerKeyIsParsed) {
    for (const char* serverKey : {"ntpip", "syslogip", "nameserver"}) {
        const ReadDatagram read =
            readDatagram(std::string("LCF2#CLEAR#seqid=3#mac=00:1A:2B:3C:4D:5E#") + serverKey);
        EXPECT_EQ(read.request.command, Command::Clear) << serverKey;
        EXPECT_TRUE(read.request.parsed) << serverKey;
        EXPECT_EQ(read.request.serverKey, serverKey);
        EXPECT_EQ(read.message.seqid, "3");
        EXPECT_EQ(read.message.mac, "00:1A:2B:3C:4D:5E");
        EXPECT_TRUE(isAddressedTo(read.request, read.message, kDeviceMac));
        EXPECT_FALSE(isAddressedTo(read.request, read.message, kOtherMac));
    }
}

TEST(ParseClear, AnythingButExactlyOneServerKeyIsRefused) {
    for (const char* last : {"syslogip#", "hostname", "ntpip#nameserver", "SYSLOGIP",
                             "syslogip=", "syslogip=10.0.0.3", ""}) {
        const ReadDatagram read =
            readDatagram(std::string("LCF2#CLEAR#seqid=3#mac=00:1A:2B:3C:4D:5E#") + last);
        EXPECT_EQ(read.request.command, Command::Clear) << last;
        EXPECT_FALSE(read.request.parsed) << last;
        // Refused requests are still for the named device, which answers "#accept=no".
        EXPECT_TRUE(isAddressedTo(read.request, read.message, kDeviceMac)) << last;
    }
}

TEST(ParseClear, MissingServerKeyIsRefused) {
    EXPECT_FALSE(readDatagram("LCF2#CLEAR#seqid=3#mac=00:1A:2B:3C:4D:5E").request.parsed);
}

TEST(ParseClear, EmptyMacIsOnlyForADeviceWithAnEmptyMac) {
    const ReadDatagram read = readDatagram("LCF2#CLEAR#seqid=3#mac=#ntpip");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_FALSE(isAddressedTo(read.request, read.message, kDeviceMac));
    EXPECT_TRUE(isAddressedTo(read.request, read.message, ""));
}

TEST(ParseClear, BadSeqidLeavesTheAddressEmpty) {
    const ReadDatagram read = readDatagram("LCF2#CLEAR#seqid=a=b#mac=00:1A:2B:3C:4D:5E#ntpip");
    EXPECT_FALSE(read.request.parsed);
    EXPECT_EQ(read.message.mac, "");
    EXPECT_FALSE(isAddressedTo(read.request, read.message, kDeviceMac));
}

TEST(ParseClear, LowerCaseMacIsUpperCasedBeforeAddressing) {
    const ReadDatagram read = readDatagram("LCF2#CLEAR#seqid=3#mac=00:1a:2b:3c:4d:5e#ntpip");
    EXPECT_TRUE(read.request.parsed);
    EXPECT_TRUE(isAddressedTo(read.request, read.message, kDeviceMac));
}

// ---- the dispatcher's decision ----

struct DecisionCase {
    const char* datagram;
    bool understood;
    Action action;
};

// Every way a datagram can end, for a device with MAC address kDeviceMac.
TEST(DecideRequest, VerdictAndActionForEveryKindOfDatagram) {
    const DecisionCase cases[] = {
        {"LCF9#QUERY#seqid=1", false, Action::None},
        {"hello", false, Action::None},
        {"LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5F", true, Action::None},
        {"LCF2#ACK#seqid=1#mac=00:1A:2B:3C:4D:5E#accept=yes", true, Action::None},
        {"LCF2#query#seqid=1", false, Action::None},
        {"LCF2#QUERY#seqid=1", true, Action::SendStatus},
        {"LCF2#QUERY#seqid=1#mac=00:1a:2b:3c:4d:5e", true, Action::SendStatus},
        {"LCF2#QUERY#seqid=1#mac=00:1A:2B:3C:4D:5F", true, Action::None},
        {"LCF2#QUERY#seqid=a;b", false, Action::None},
        {"LCF2#ASSIGN#seqid=2#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.5", true, Action::Assign},
        {"LCF2#ASSIGN#seqid=2#mac=00:1A:2B:3C:4D:5F#ip=10.0.0.5", true, Action::None},
        {"LCF2#ASSIGN#seqid=2#mac=00:1A:2B:3C:4D:5E#ipscheme=AUTO", false, Action::Refuse},
        {"LCF2#ASSIGN#seqid=2#mac=00:1A:2B:3C:4D:5F#ipscheme=AUTO", true, Action::None},
        {"LCF2#CLEAR#seqid=3#mac=00:1A:2B:3C:4D:5E#ntpip", true, Action::Clear},
        {"LCF2#CLEAR#seqid=3#mac=00:1A:2B:3C:4D:5E#dns", false, Action::Refuse},
        {"LCF2#CLEAR#seqid=3#mac=00:1A:2B:3C:4D:5F#dns", true, Action::None},
    };
    for (const DecisionCase& each : cases) {
        Message message;
        const Decision decision = decideRequest(each.datagram, message, kDeviceMac);
        EXPECT_EQ(decision.understood, each.understood) << each.datagram;
        EXPECT_EQ(decision.action, each.action) << each.datagram;
    }
}

TEST(DecideRequest, FieldsAreReadIntoTheMessage) {
    Message message;
    const Decision decision =
        decideRequest("LCF2#CLEAR#seqid=77#mac=00:1a:2b:3c:4d:5e#syslogip", message, kDeviceMac);
    EXPECT_EQ(decision.request.command, Command::Clear);
    EXPECT_TRUE(decision.request.parsed);
    EXPECT_EQ(decision.request.serverKey, "syslogip");
    EXPECT_EQ(message.seqid, "77");
    EXPECT_EQ(message.mac, "00:1A:2B:3C:4D:5E");
}

// A refused header leaves every field as the reset left it.
TEST(DecideRequest, RefusedHeaderParsesNothing) {
    Message message;
    decideRequest("LCF3#QUERY#seqid=1#mac=00:1A:2B:3C:4D:5E", message, kDeviceMac);
    EXPECT_TRUE(isEmpty(message));
}

// A failed ASSIGN or CLEAR whose MAC address was never reached is answered by a device whose
// own MAC address is unknown (empty).
TEST(DecideRequest, DeviceWithoutMacRefusesRequestsWhoseMacWasNotReached) {
    Message message;
    const Decision decision =
        decideRequest("LCF2#ASSIGN#seqid=a=b#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.5", message, "");
    EXPECT_FALSE(decision.understood);
    EXPECT_EQ(decision.action, Action::Refuse);
}

// An unparsed CLEAR keeps no server key.
TEST(DecideRequest, UnparsedClearHasNoServerKey) {
    Message message;
    const Decision decision =
        decideRequest("LCF2#CLEAR#seqid=3#mac=00:1A:2B:3C:4D:5E#gateway", message, kDeviceMac);
    EXPECT_FALSE(decision.request.parsed);
    EXPECT_EQ(decision.request.serverKey, "");
}

}  // namespace
}  // namespace lcfd
