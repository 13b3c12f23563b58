// The text rules of requests: splitting, reserved characters, the header, the sequence
// identifier, the MAC field, the ASSIGN list and its fields, and the address check.

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "wire/Message.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Validators.hpp"

namespace lcfd {
namespace {

// Head and rest start out holding text, so that the tests see them emptied.
struct SplitResult {
    bool found;
    std::string head;
    std::string rest;
};

SplitResult split(const std::string& text, char separator) {
    SplitResult result{false, "stale head", "stale rest"};
    result.found = splitAt(text, separator, result.head, result.rest);
    return result;
}

// Every field of the record, in declaration order, so a test can check that nothing else moved.
std::vector<std::string> allFields(const Message& message) {
    return {message.mac,          message.ipscheme, message.gateway,    message.unusedField1,
            message.unusedField2, message.syslogip, message.nameserver, message.ntpip,
            message.ip,           message.netmask,  message.seqid,      message.utcclock};
}

bool isEmpty(const Message& message) {
    for (const std::string& field : allFields(message)) {
        if (!field.empty()) {
            return false;
        }
    }
    return true;
}

// ---- splitAt ----

TEST(SplitAt, EmptyTextGivesEmptyHeadAndRestAndNoSeparator) {
    const SplitResult result = split("", '#');
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.head, "");
    EXPECT_EQ(result.rest, "");
}

TEST(SplitAt, TextWithoutSeparatorIsAllHead) {
    const SplitResult result = split("LCF2", '#');
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.head, "LCF2");
    EXPECT_EQ(result.rest, "");
}

TEST(SplitAt, KeyWithoutEqualsSignReadsAsKeyWithEmptyValue) {
    const SplitResult result = split("key", '=');
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.head, "key");
    EXPECT_EQ(result.rest, "");
}

TEST(SplitAt, SeparatorInTheMiddleSplitsIntoHeadAndRest) {
    const SplitResult result = split("LCF2#QUERY", '#');
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.head, "LCF2");
    EXPECT_EQ(result.rest, "QUERY");
}

TEST(SplitAt, OnlyTheFirstOccurrenceSplits) {
    const SplitResult result = split("LCF2#QUERY#seqid=1", '#');
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.head, "LCF2");
    EXPECT_EQ(result.rest, "QUERY#seqid=1");
}

TEST(SplitAt, SeparatorFirstGivesEmptyHead) {
    const SplitResult result = split("#QUERY", '#');
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.head, "");
    EXPECT_EQ(result.rest, "QUERY");
}

TEST(SplitAt, SeparatorLastGivesEmptyRest) {
    const SplitResult result = split("ip=10.0.0.5#", '#');
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.head, "ip=10.0.0.5");
    EXPECT_EQ(result.rest, "");
}

TEST(SplitAt, LoneSeparatorGivesTwoEmptyParts) {
    const SplitResult result = split("=", '=');
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.head, "");
    EXPECT_EQ(result.rest, "");
}

TEST(SplitAt, TwoSeparatorsInARowLeaveTheSecondInTheRest) {
    const SplitResult result = split("a##b", '#');
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.head, "a");
    EXPECT_EQ(result.rest, "#b");
}

TEST(SplitAt, ZeroBytesAreOrdinaryCharacters) {
    const std::string text("a\0b:c\0", 6);
    const SplitResult result = split(text, ':');
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.head, std::string("a\0b", 3));
    EXPECT_EQ(result.rest, std::string("c\0", 2));
}

TEST(SplitAt, SplitsOnTheGivenCharacterOnly) {
    const SplitResult result = split("10.0.0.5", ':');
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.head, "10.0.0.5");
    EXPECT_EQ(result.rest, "");
}

TEST(SplitView, ViewsPointIntoTheText) {
    const std::string text = "key=value=more";
    const TextSplit parts = splitView(text, '=');
    EXPECT_TRUE(parts.found);
    EXPECT_EQ(parts.head, "key");
    EXPECT_EQ(parts.rest, "value=more");
    EXPECT_EQ(parts.head.data(), text.data());
    EXPECT_EQ(parts.rest.data(), text.data() + 4);
}

TEST(SplitView, FollowsTheSplittingRule) {
    for (const char* text : {"", "abc", "a#", "#a", "#", "a##b", "10.0.0.5"}) {
        const SplitResult expected = split(text, '#');
        const TextSplit actual = splitView(text, '#');
        EXPECT_EQ(actual.found, expected.found) << text;
        EXPECT_EQ(actual.head, expected.head) << text;
        EXPECT_EQ(actual.rest, expected.rest) << text;
    }
}

// The text form may be handed its own output as input.
TEST(SplitAt, TextCanBeSplitIntoItself) {
    std::string remainder = "a#b#c";
    std::string head;
    EXPECT_TRUE(splitAt(remainder, '#', head, remainder));
    EXPECT_EQ(head, "a");
    EXPECT_EQ(remainder, "b#c");
    std::string rest;
    EXPECT_TRUE(splitAt(remainder, '#', remainder, rest));
    EXPECT_EQ(remainder, "b");
    EXPECT_EQ(rest, "c");
}

// ---- the Message record ----

TEST(MessageRecord, ResetEmptiesEveryField) {
    Message message;
    for (std::string* field :
         {&message.mac, &message.ipscheme, &message.gateway, &message.unusedField1,
          &message.unusedField2, &message.syslogip, &message.nameserver, &message.ntpip,
          &message.ip, &message.netmask, &message.seqid, &message.utcclock}) {
        *field = std::string(40, 'x');
    }
    message.reset();
    for (const std::string* field :
         {&message.mac, &message.ipscheme, &message.gateway, &message.unusedField1,
          &message.unusedField2, &message.syslogip, &message.nameserver, &message.ntpip,
          &message.ip, &message.netmask, &message.seqid, &message.utcclock}) {
        EXPECT_EQ(*field, "");
    }
}

// ---- hasNoReservedChars ----

TEST(HasNoReservedChars, EmptyTextPasses) {
    EXPECT_TRUE(hasNoReservedChars(""));
}

TEST(HasNoReservedChars, OrdinaryPunctuationPasses) {
    EXPECT_TRUE(hasNoReservedChars("abc 12:34.56-_/\\,\t"));
}

TEST(HasNoReservedChars, EachReservedCharacterFails) {
    EXPECT_FALSE(hasNoReservedChars("a#b"));
    EXPECT_FALSE(hasNoReservedChars("a;b"));
    EXPECT_FALSE(hasNoReservedChars("a=b"));
    EXPECT_FALSE(hasNoReservedChars("#"));
    EXPECT_FALSE(hasNoReservedChars(";"));
    EXPECT_FALSE(hasNoReservedChars("="));
    EXPECT_FALSE(hasNoReservedChars("trailing;"));
}

// ---- checkHeader ----

TEST(CheckHeader, VersionsZeroToTwoAreAccepted) {
    EXPECT_TRUE(checkHeader("LCF0"));
    EXPECT_TRUE(checkHeader("LCF1"));
    EXPECT_TRUE(checkHeader("LCF2"));
}

TEST(CheckHeader, DigitVersionsThreeToNineAreRefused) {
    for (char version = '3'; version <= '9'; ++version) {
        const std::string header = std::string("LCF") + version;
        EXPECT_FALSE(checkHeader(header)) << header;
    }
}

// A version character that reads as no number passes: the check is lenient on purpose.
TEST(CheckHeader, NonDigitVersionCharactersAreAccepted) {
    EXPECT_TRUE(checkHeader("LCF-"));
    EXPECT_TRUE(checkHeader("LCF+"));
    EXPECT_TRUE(checkHeader("LCFx"));
    EXPECT_TRUE(checkHeader("LCF "));
    EXPECT_TRUE(checkHeader(std::string("LCF\0", 4)));
}

TEST(CheckHeader, HeaderOfAnyLengthButFourIsRefused) {
    EXPECT_FALSE(checkHeader(""));
    EXPECT_FALSE(checkHeader("LCF"));
    EXPECT_FALSE(checkHeader("LCF22"));
    EXPECT_FALSE(checkHeader("LCF2 "));
}

TEST(CheckHeader, TagMustBeUpperCaseLcf) {
    EXPECT_FALSE(checkHeader("lcf2"));
    EXPECT_FALSE(checkHeader("LCf2"));
    EXPECT_FALSE(checkHeader("XCF2"));
    EXPECT_FALSE(checkHeader(" LCF"));
}

// ---- parseSeqId ----

TEST(ParseSeqId, StoresTheValue) {
    Message message;
    EXPECT_TRUE(parseSeqId("seqid=17", message));
    EXPECT_EQ(message.seqid, "17");
}

TEST(ParseSeqId, EmptyValueIsAcceptedAndStoredEmpty) {
    Message message;
    message.seqid = "previous";
    EXPECT_TRUE(parseSeqId("seqid=", message));
    EXPECT_EQ(message.seqid, "");
}

TEST(ParseSeqId, BareKeyIsAcceptedAsEmptyValue) {
    Message message;
    message.seqid = "previous";
    EXPECT_TRUE(parseSeqId("seqid", message));
    EXPECT_EQ(message.seqid, "");
}

TEST(ParseSeqId, BlanksInTheValueAreKept) {
    Message message;
    EXPECT_TRUE(parseSeqId("seqid= 5 ", message));
    EXPECT_EQ(message.seqid, " 5 ");
}

TEST(ParseSeqId, ValueWithReservedCharacterIsRefusedAndNothingStored) {
    for (const char* field : {"seqid=a=b", "seqid=a;b", "seqid=;", "seqid=="}) {
        Message message;
        message.seqid = "previous";
        EXPECT_FALSE(parseSeqId(field, message)) << field;
        EXPECT_EQ(message.seqid, "previous") << field;
    }
}

TEST(ParseSeqId, KeyMustBeExactlySeqid) {
    for (const char* field : {"SEQID=1", "Seqid=1", "seqid =1", " seqid=1", "seqidx=1", "seq=1",
                              "=1", "", "mac=00:1A:2B:3C:4D:5E"}) {
        Message message;
        message.seqid = "previous";
        EXPECT_FALSE(parseSeqId(field, message)) << field;
        EXPECT_EQ(message.seqid, "previous") << field;
    }
}

TEST(ParseSeqId, WritesNoOtherField) {
    Message message;
    ASSERT_TRUE(parseSeqId("seqid=5", message));
    message.seqid.clear();
    EXPECT_TRUE(isEmpty(message));
}

// ---- parseMac ----

TEST(ParseMac, UpperCaseAddressIsStoredAsItIs) {
    Message message;
    EXPECT_TRUE(parseMac("mac=00:1A:2B:3C:4D:5E", message));
    EXPECT_EQ(message.mac, "00:1A:2B:3C:4D:5E");
}

TEST(ParseMac, LowerCaseAddressIsStoredUpperCased) {
    Message message;
    EXPECT_TRUE(parseMac("mac=00:1a:2b:3c:4d:5e", message));
    EXPECT_EQ(message.mac, "00:1A:2B:3C:4D:5E");
}

// Only two-character groups are checked, so one-character groups go through unchanged.
TEST(ParseMac, OneCharacterGroupsAreUncheckedAndStoredAsTheyAre) {
    Message message;
    EXPECT_TRUE(parseMac("mac=0:1:2:3:4:5", message));
    EXPECT_EQ(message.mac, "0:1:2:3:4:5");
}

TEST(ParseMac, NonHexGroupIsRefusedAndMacLeftUntouched) {
    Message message;
    message.mac = "PREVIOUS";
    EXPECT_FALSE(parseMac("mac=00:1G:2B:3C:4D:5E", message));
    EXPECT_EQ(message.mac, "PREVIOUS");
}

TEST(ParseMac, NonHexDigitIsCaughtInEachOfTheSixGroups) {
    const std::vector<std::string> fields = {
        "mac=G0:11:22:33:44:55", "mac=00:1G:22:33:44:55", "mac=00:11:2g:33:44:55",
        "mac=00:11:22:-3:44:55", "mac=00:11:22:33: 4:55", "mac=00:11:22:33:44:5Z",
    };
    for (const std::string& field : fields) {
        Message message;
        message.mac = "PREVIOUS";
        EXPECT_FALSE(parseMac(field, message)) << field;
        EXPECT_EQ(message.mac, "PREVIOUS") << field;
    }
}

TEST(ParseMac, GroupsOfOtherLengthsAreNotChecked) {
    Message message;
    EXPECT_TRUE(parseMac("mac=zzz:::q:00:11", message));
    EXPECT_EQ(message.mac, "ZZZ:::Q:00:11");
}

TEST(ParseMac, WhateverFollowsTheSixthGroupIsNotChecked) {
    Message message;
    EXPECT_TRUE(parseMac("mac=00:11:22:33:44:55:zz", message));
    EXPECT_EQ(message.mac, "00:11:22:33:44:55:ZZ");
}

// A QUERY hands its whole remainder to parseMac; the last group then is "5E#x=y", six
// characters long and unchecked.
TEST(ParseMac, QueryRemainderWithATrailingFieldBecomesPartOfTheAddress) {
    Message message;
    EXPECT_TRUE(parseMac("mac=00:1A:2B:3C:4D:5E#x=y", message));
    EXPECT_EQ(message.mac, "00:1A:2B:3C:4D:5E#X=Y");
}

TEST(ParseMac, EmptyFieldIsAcceptedAndGivesAnEmptyAddress) {
    Message message;
    message.mac = "PREVIOUS";
    EXPECT_TRUE(parseMac("", message));
    EXPECT_EQ(message.mac, "");
}

TEST(ParseMac, EmptyMacValueIsAccepted) {
    Message message;
    message.mac = "PREVIOUS";
    EXPECT_TRUE(parseMac("mac=", message));
    EXPECT_EQ(message.mac, "");
    message.mac = "PREVIOUS";
    EXPECT_TRUE(parseMac("mac", message));
    EXPECT_EQ(message.mac, "");
}

// Under any key but "mac" the value is taken without a check: "zz" would fail under "mac".
TEST(ParseMac, OtherKeyIsAcceptedAndItsValueStoredUpperCased) {
    Message message;
    EXPECT_FALSE(parseMac("mac=zz:11:22:33:44:55", message));
    EXPECT_TRUE(parseMac("MAC=zz:11:22:33:44:55", message));
    EXPECT_EQ(message.mac, "ZZ:11:22:33:44:55");
    EXPECT_TRUE(parseMac("foo=1g:x", message));
    EXPECT_EQ(message.mac, "1G:X");
}

TEST(ParseMac, AddressWithoutKeyIsTakenAsKeyAndGivesAnEmptyAddress) {
    Message message;
    message.mac = "PREVIOUS";
    EXPECT_TRUE(parseMac("00:1A:2B:3C:4D:5E", message));
    EXPECT_EQ(message.mac, "");
}

TEST(ParseMac, ValueRunsFromTheFirstEqualsSign) {
    Message message;
    EXPECT_TRUE(parseMac("mac=a=b", message));
    EXPECT_EQ(message.mac, "A=B");
}

TEST(ParseMac, WritesNoOtherField) {
    Message message;
    ASSERT_TRUE(parseMac("mac=00:1a:2b:3c:4d:5e", message));
    message.mac.clear();
    EXPECT_TRUE(isEmpty(message));
}

// ---- parseField ----

struct AddressKeyCase {
    const char* key;
    std::string Message::*field;
};

const std::vector<AddressKeyCase>& addressKeys() {
    static const std::vector<AddressKeyCase> cases = {
        {"ip", &Message::ip},
        {"netmask", &Message::netmask},
        {"gateway", &Message::gateway},
        {"ntpip", &Message::ntpip},
        {"syslogip", &Message::syslogip},
        {"nameserver", &Message::nameserver},
    };
    return cases;
}

TEST(ParseField, EachAddressKeyStoresItsValueInItsOwnField) {
    for (const AddressKeyCase& addressKey : addressKeys()) {
        Message message;
        const std::string field = std::string(addressKey.key) + "=10.0.0.5";
        EXPECT_TRUE(parseField(field, message)) << field;
        EXPECT_EQ(message.*addressKey.field, "10.0.0.5") << field;
        message.*addressKey.field = "";
        EXPECT_TRUE(isEmpty(message)) << field;
    }
}

TEST(ParseField, AddressIsStoredAsWritten) {
    Message message;
    EXPECT_TRUE(parseField("gateway=010.001.0.9", message));
    EXPECT_EQ(message.gateway, "010.001.0.9");
}

// An ill-formed address is dropped but does not refuse the request.
TEST(ParseField, IllFormedAddressIsAcceptedButNotStored) {
    for (const AddressKeyCase& addressKey : addressKeys()) {
        Message message;
        message.*addressKey.field = "previous";
        for (const char* value : {"300.1.1.1", "10.0.0.999", "a.b.c.d", "host-name"}) {
            const std::string field = std::string(addressKey.key) + "=" + value;
            EXPECT_TRUE(parseField(field, message)) << field;
            EXPECT_EQ(message.*addressKey.field, "previous") << field;
        }
    }
}

TEST(ParseField, IllFormedAddressWithReservedCharacterIsRefused) {
    Message message;
    EXPECT_FALSE(parseField("ip=10.0.0.5;", message));
    EXPECT_FALSE(parseField("ip=10.0.0.5=1", message));
    EXPECT_EQ(message.ip, "");
}

TEST(ParseField, IpSchemeAcceptsStaticAndDhcp) {
    Message message;
    EXPECT_TRUE(parseField("ipscheme=STATIC", message));
    EXPECT_EQ(message.ipscheme, "STATIC");
    EXPECT_TRUE(parseField("ipscheme=DHCP", message));
    EXPECT_EQ(message.ipscheme, "DHCP");
}

// Unlike an address, a bad scheme refuses the request.
TEST(ParseField, IpSchemeRefusesAnyOtherValue) {
    for (const char* field :
         {"ipscheme=dhcp", "ipscheme=static", "ipscheme=Dhcp", "ipscheme=NONE", "ipscheme=DHCP "}) {
        Message message;
        message.ipscheme = "previous";
        EXPECT_FALSE(parseField(field, message)) << field;
        EXPECT_EQ(message.ipscheme, "previous") << field;
    }
}

TEST(ParseField, UtcClockIsStoredUnchecked) {
    Message message;
    EXPECT_TRUE(parseField("utcclock=2024-01-31 12:34:56", message));
    EXPECT_EQ(message.utcclock, "2024-01-31 12:34:56");
    EXPECT_TRUE(parseField("utcclock=a;b=c", message));
    EXPECT_EQ(message.utcclock, "a;b=c");
}

TEST(ParseField, UnknownKeyIsIgnored) {
    for (const char* field : {"foo=bar", "hostname=newname", "controller=x", "seqid=5",
                              "mac=00:1A:2B:3C:4D:5E", "IP=10.0.0.5", "displaytime=now"}) {
        Message message;
        EXPECT_TRUE(parseField(field, message)) << field;
        EXPECT_TRUE(isEmpty(message)) << field;
    }
}

TEST(ParseField, ReservedCharacterInUnknownKeyOrValueIsRefused) {
    Message message;
    EXPECT_FALSE(parseField("foo=b;r", message));
    EXPECT_FALSE(parseField("f;o=bar", message));
    EXPECT_FALSE(parseField("foo=a=b", message));
    EXPECT_FALSE(parseField("foo=b#r", message));
    EXPECT_TRUE(isEmpty(message));
}

TEST(ParseField, EmptyKeyOrEmptyValueIsRefused) {
    for (const char* field :
         {"foo=", "=bar", "=", "", "foo", "ip=", "=10.0.0.5", "utcclock=", "ipscheme="}) {
        Message message;
        EXPECT_FALSE(parseField(field, message)) << field;
        EXPECT_TRUE(isEmpty(message)) << field;
    }
}

// ---- parseFieldList ----

TEST(ParseFieldList, EmptyListIsAccepted) {
    Message message;
    EXPECT_TRUE(parseFieldList("", message));
    EXPECT_TRUE(isEmpty(message));
}

TEST(ParseFieldList, EveryFieldIsStored) {
    Message message;
    EXPECT_TRUE(parseFieldList(
        "ip=10.0.0.7#netmask=255.255.255.0#gateway=10.0.0.1#ipscheme=STATIC#ntpip=10.0.0.2#"
        "syslogip=10.0.0.3#nameserver=10.0.0.4#utcclock=2024-01-31 12:34:56",
        message));
    EXPECT_EQ(message.ip, "10.0.0.7");
    EXPECT_EQ(message.netmask, "255.255.255.0");
    EXPECT_EQ(message.gateway, "10.0.0.1");
    EXPECT_EQ(message.ipscheme, "STATIC");
    EXPECT_EQ(message.ntpip, "10.0.0.2");
    EXPECT_EQ(message.syslogip, "10.0.0.3");
    EXPECT_EQ(message.nameserver, "10.0.0.4");
    EXPECT_EQ(message.utcclock, "2024-01-31 12:34:56");
    EXPECT_EQ(message.mac, "");
    EXPECT_EQ(message.seqid, "");
}

TEST(ParseFieldList, TrailingSeparatorEndsTheList) {
    Message message;
    EXPECT_TRUE(parseFieldList("ip=10.0.0.5#", message));
    EXPECT_EQ(message.ip, "10.0.0.5");
}

TEST(ParseFieldList, EmptyFieldEndsTheListAndLaterFieldsAreNotParsed) {
    Message message;
    EXPECT_TRUE(parseFieldList("ip=10.0.0.5##gateway=10.0.0.1", message));
    EXPECT_EQ(message.ip, "10.0.0.5");
    EXPECT_EQ(message.gateway, "");
}

TEST(ParseFieldList, FieldsAfterAnEmptyOneAreNotEvenChecked) {
    Message message;
    EXPECT_TRUE(parseFieldList("ip=10.0.0.5##ipscheme=dhcp", message));
    EXPECT_EQ(message.ip, "10.0.0.5");
}

TEST(ParseFieldList, LeadingSeparatorEndsTheListAtOnce) {
    Message message;
    EXPECT_TRUE(parseFieldList("#ip=10.0.0.5", message));
    EXPECT_EQ(message.ip, "");
}

TEST(ParseFieldList, DroppedAddressDoesNotStopTheList) {
    Message message;
    EXPECT_TRUE(parseFieldList("ip=300.1.1.1#netmask=255.255.255.0", message));
    EXPECT_EQ(message.ip, "");
    EXPECT_EQ(message.netmask, "255.255.255.0");
}

TEST(ParseFieldList, IgnoredFieldDoesNotStopTheList) {
    Message message;
    EXPECT_TRUE(parseFieldList("foo=bar#hostname=x#ip=10.0.0.7", message));
    EXPECT_EQ(message.ip, "10.0.0.7");
}

TEST(ParseFieldList, LastValidValueOfARepeatedKeyWins) {
    Message message;
    EXPECT_TRUE(parseFieldList("ip=10.0.0.5#ip=10.0.0.6", message));
    EXPECT_EQ(message.ip, "10.0.0.6");
}

TEST(ParseFieldList, RepeatedKeyWithAnInvalidValueKeepsTheEarlierOne) {
    Message message;
    EXPECT_TRUE(parseFieldList("ip=10.0.0.5#ip=bad", message));
    EXPECT_EQ(message.ip, "10.0.0.5");
}

TEST(ParseFieldList, FailingFieldStopsTheListButEarlierFieldsRemain) {
    Message message;
    EXPECT_FALSE(parseFieldList("ip=10.0.0.5#ipscheme=dhcp#gateway=10.0.0.1", message));
    EXPECT_EQ(message.ip, "10.0.0.5");
    EXPECT_EQ(message.ipscheme, "");
    EXPECT_EQ(message.gateway, "");
}

TEST(ParseFieldList, RefusedSchemeAfterAValidOneKeepsTheValidOne) {
    Message message;
    EXPECT_FALSE(parseFieldList("ipscheme=DHCP#ipscheme=dhcp", message));
    EXPECT_EQ(message.ipscheme, "DHCP");
}

TEST(ParseFieldList, EachRefusedGenericFieldFailsTheList) {
    for (const char* list : {"foo=b;r", "f;o=bar", "foo=", "=bar", "ip=10.0.0.5#foo"}) {
        Message message;
        EXPECT_FALSE(parseFieldList(list, message)) << list;
    }
}

// ---- isDottedQuad ----

TEST(IsDottedQuad, OrdinaryAddressesAreAccepted) {
    EXPECT_TRUE(isDottedQuad("192.168.1.20"));
    EXPECT_TRUE(isDottedQuad("0.0.0.0"));
    EXPECT_TRUE(isDottedQuad("255.255.255.255"));
}

// The check is loose on purpose; the settings setters check again, more strictly.
TEST(IsDottedQuad, LooseFormsAreAccepted) {
    EXPECT_TRUE(isDottedQuad("1.2.3"));
    EXPECT_TRUE(isDottedQuad("1..2.3"));
    EXPECT_TRUE(isDottedQuad("1.2.3.4.5"));
    EXPECT_TRUE(isDottedQuad("1.2.3.4.anything"));
    EXPECT_TRUE(isDottedQuad("010.001.0.9"));
    EXPECT_TRUE(isDottedQuad(""));
    EXPECT_TRUE(isDottedQuad("..."));
}

// Only the low 32 bits of each part are compared with 255.
TEST(IsDottedQuad, PartIsComparedByItsLow32Bits) {
    EXPECT_TRUE(isDottedQuad("1.2.3.4294967296"));   // 2^32: low bits 0
    EXPECT_TRUE(isDottedQuad("1.2.3.4294967551"));   // 2^32 + 255
    EXPECT_FALSE(isDottedQuad("1.2.3.4294967552"));  // 2^32 + 256
    EXPECT_TRUE(isDottedQuad("4294967296.0.0.0"));
}

// A part too long for a long stays at the largest long, whose low 32 bits are all ones.
TEST(IsDottedQuad, PartBeyondTheLargestLongIsRefused) {
    EXPECT_FALSE(isDottedQuad("1.2.3.9223372036854775807"));   // 2^63 - 1
    EXPECT_FALSE(isDottedQuad("1.2.3.9223372036854775808"));   // one more: saturates
    EXPECT_FALSE(isDottedQuad("1.2.3.18446744073709551616"));  // 2^64: still saturated
    EXPECT_FALSE(isDottedQuad("1.2.3.000000000000000000000000000009223372036854775808"));
    EXPECT_TRUE(isDottedQuad("1.2.3.000000000000000000000000000000000000000000000000000255"));
    EXPECT_TRUE(isDottedQuad("1.2.3.9223372032559808512"));  // 2^63 - 2^32: low bits 0
}

TEST(IsDottedQuad, PartAbove255IsRefused) {
    EXPECT_FALSE(isDottedQuad("1.2.3.256"));
    EXPECT_FALSE(isDottedQuad("256.1.1.1"));
    EXPECT_FALSE(isDottedQuad("300.1.1.1"));
    EXPECT_FALSE(isDottedQuad("10.0.0.999"));
}

TEST(IsDottedQuad, PartWithAnythingButDigitsIsRefused) {
    EXPECT_FALSE(isDottedQuad("1.2.3.-1"));
    EXPECT_FALSE(isDottedQuad(" 1.2.3.4"));
    EXPECT_FALSE(isDottedQuad("1.2.3.4 "));
    EXPECT_FALSE(isDottedQuad("a.b.c.d"));
    EXPECT_FALSE(isDottedQuad("1.2.3.+4"));
    EXPECT_FALSE(isDottedQuad("1.2.3.0x1"));
    EXPECT_FALSE(isDottedQuad("1.2.x.4.5"));
}

// ---- isServerKey ----

TEST(IsServerKey, AcceptsTheThreeServerKeys) {
    EXPECT_TRUE(isServerKey("ntpip"));
    EXPECT_TRUE(isServerKey("syslogip"));
    EXPECT_TRUE(isServerKey("nameserver"));
}

TEST(IsServerKey, RefusesAnythingElse) {
    for (const char* text : {"", "NTPIP", "Syslogip", "syslogip#", "ntpip#nameserver", " ntpip",
                             "nameserver=", "hostname", "ip", "gateway"}) {
        EXPECT_FALSE(isServerKey(text)) << text;
    }
}

}  // namespace
}  // namespace lcfd
