// The text rules of requests: splitting, reserved characters, the header, the sequence
// identifier, the MAC field, the ASSIGN list and its fields, and the address check.

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>
#include <utility>
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

// The field of the record that a request's key names.
std::string& fieldNamed(Message& message, const std::string& key) {
    static const std::vector<std::pair<std::string, std::string Message::*>> fields = {
        {"mac", &Message::mac},
        {"ipscheme", &Message::ipscheme},
        {"gateway", &Message::gateway},
        {"syslogip", &Message::syslogip},
        {"nameserver", &Message::nameserver},
        {"ntpip", &Message::ntpip},
        {"ip", &Message::ip},
        {"netmask", &Message::netmask},
        {"seqid", &Message::seqid},
        {"utcclock", &Message::utcclock},
    };
    for (const auto& [name, member] : fields) {
        if (name == key) {
            return message.*member;
        }
    }
    ADD_FAILURE() << "no field named " << key;
    static std::string none;
    return none;
}

// Each row of a table names its own test.
template <typename Case>
std::string caseName(const ::testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

// ---- splitAt ----

struct SplitCase {
    const char* name;
    std::string text;
    char separator;
    bool found;
    std::string head;
    std::string rest;
};

void PrintTo(const SplitCase& row, std::ostream* out) {
    *out << row.name;
}

const SplitCase kSplitCases[] = {
    {"EmptyTextGivesEmptyHeadAndRestAndNoSeparator", "", '#', false, "", ""},
    {"TextWithoutSeparatorIsAllHead", "LCF2", '#', false, "LCF2", ""},
    {"KeyWithoutEqualsSignReadsAsKeyWithEmptyValue", "key", '=', false, "key", ""},
    {"SeparatorInTheMiddleSplitsIntoHeadAndRest", "LCF2#QUERY", '#', true, "LCF2", "QUERY"},
    {"OnlyTheFirstOccurrenceSplits", "LCF2#QUERY#seqid=1", '#', true, "LCF2", "QUERY#seqid=1"},
    {"SeparatorFirstGivesEmptyHead", "#QUERY", '#', true, "", "QUERY"},
    {"SeparatorLastGivesEmptyRest", "ip=10.0.0.5#", '#', true, "ip=10.0.0.5", ""},
    {"LoneSeparatorGivesTwoEmptyParts", "=", '=', true, "", ""},
    {"TwoSeparatorsInARowLeaveTheSecondInTheRest", "a##b", '#', true, "a", "#b"},
    {"ZeroBytesAreOrdinaryCharacters", std::string("a\0b:c\0", 6), ':', true,
     std::string("a\0b", 3), std::string("c\0", 2)},
    {"SplitsOnTheGivenCharacterOnly", "10.0.0.5", ':', false, "10.0.0.5", ""},
};

class SplitAtText : public ::testing::TestWithParam<SplitCase> {};

TEST_P(SplitAtText, GivesHeadAndRest) {
    const SplitCase& row = GetParam();
    const SplitResult result = split(row.text, row.separator);
    EXPECT_EQ(result.found, row.found);
    EXPECT_EQ(result.head, row.head);
    EXPECT_EQ(result.rest, row.rest);
}

INSTANTIATE_TEST_SUITE_P(SplitAt, SplitAtText, ::testing::ValuesIn(kSplitCases),
                         caseName<SplitCase>);

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

struct ReservedCharsCase {
    const char* name;
    const char* text;
    bool passes;
};

void PrintTo(const ReservedCharsCase& row, std::ostream* out) {
    *out << row.name;
}

const ReservedCharsCase kReservedCharsCases[] = {
    {"EmptyTextPasses", "", true},
    {"OrdinaryPunctuationPasses", "abc 12:34.56-_/\\,\t", true},
    // Each reserved character fails, wherever it stands.
    {"HashFails", "a#b", false},
    {"SemicolonFails", "a;b", false},
    {"EqualsSignFails", "a=b", false},
    {"LoneHashFails", "#", false},
    {"LoneSemicolonFails", ";", false},
    {"LoneEqualsSignFails", "=", false},
    {"TrailingSemicolonFails", "trailing;", false},
};

class ReservedChars : public ::testing::TestWithParam<ReservedCharsCase> {};

TEST_P(ReservedChars, PassOrFail) {
    EXPECT_EQ(hasNoReservedChars(GetParam().text), GetParam().passes);
}

INSTANTIATE_TEST_SUITE_P(HasNoReservedChars, ReservedChars,
                         ::testing::ValuesIn(kReservedCharsCases), caseName<ReservedCharsCase>);

// ---- checkHeader ----

struct HeaderCase {
    const char* name;
    std::string header;
    bool accepted;
};

void PrintTo(const HeaderCase& row, std::ostream* out) {
    *out << row.name;
}

const HeaderCase kHeaderCases[] = {
    {"VersionZeroIsAccepted", "LCF0", true},
    {"VersionOneIsAccepted", "LCF1", true},
    {"VersionTwoIsAccepted", "LCF2", true},
    // A version character that reads as no number passes: the check is lenient on purpose.
    {"DashVersionIsAccepted", "LCF-", true},
    {"PlusVersionIsAccepted", "LCF+", true},
    {"LetterVersionIsAccepted", "LCFx", true},
    {"BlankVersionIsAccepted", "LCF ", true},
    {"ZeroByteVersionIsAccepted", std::string("LCF\0", 4), true},
    // A header of any length but four is refused.
    {"EmptyHeaderIsRefused", "", false},
    {"ThreeCharacterHeaderIsRefused", "LCF", false},
    {"FiveCharacterHeaderIsRefused", "LCF22", false},
    {"TrailingBlankIsRefused", "LCF2 ", false},
    // The tag must be upper-case "LCF".
    {"LowerCaseTagIsRefused", "lcf2", false},
    {"MixedCaseTagIsRefused", "LCf2", false},
    {"OtherTagIsRefused", "XCF2", false},
    {"LeadingBlankIsRefused", " LCF", false},
};

class Header : public ::testing::TestWithParam<HeaderCase> {};

TEST_P(Header, IsAcceptedOrRefused) {
    EXPECT_EQ(checkHeader(GetParam().header), GetParam().accepted);
}

INSTANTIATE_TEST_SUITE_P(CheckHeader, Header, ::testing::ValuesIn(kHeaderCases),
                         caseName<HeaderCase>);

TEST(CheckHeader, DigitVersionsThreeToNineAreRefused) {
    for (char version = '3'; version <= '9'; ++version) {
        const std::string header = std::string("LCF") + version;
        EXPECT_FALSE(checkHeader(header)) << header;
    }
}

// ---- parseSeqId ----

// Each field is read into a record whose sequence identifier was "previous".
struct SeqIdCase {
    const char* name;
    const char* field;
    bool accepted;
    const char* seqid;
};

void PrintTo(const SeqIdCase& row, std::ostream* out) {
    *out << row.name;
}

const SeqIdCase kSeqIdCases[] = {
    {"StoresTheValue", "seqid=17", true, "17"},
    {"EmptyValueIsAcceptedAndStoredEmpty", "seqid=", true, ""},
    {"BareKeyIsAcceptedAsEmptyValue", "seqid", true, ""},
    {"BlanksInTheValueAreKept", "seqid= 5 ", true, " 5 "},
    // A value with a reserved character is refused and nothing is stored.
    {"EqualsSignInTheValueIsRefused", "seqid=a=b", false, "previous"},
    {"SemicolonInTheValueIsRefused", "seqid=a;b", false, "previous"},
    {"LoneSemicolonValueIsRefused", "seqid=;", false, "previous"},
    {"LoneEqualsSignValueIsRefused", "seqid==", false, "previous"},
    // The key must be exactly "seqid".
    {"UpperCaseKeyIsRefused", "SEQID=1", false, "previous"},
    {"CapitalisedKeyIsRefused", "Seqid=1", false, "previous"},
    {"BlankAfterTheKeyIsRefused", "seqid =1", false, "previous"},
    {"BlankBeforeTheKeyIsRefused", " seqid=1", false, "previous"},
    {"LongerKeyIsRefused", "seqidx=1", false, "previous"},
    {"ShorterKeyIsRefused", "seq=1", false, "previous"},
    {"EmptyKeyIsRefused", "=1", false, "previous"},
    {"EmptyFieldIsRefused", "", false, "previous"},
    {"MacFieldIsRefused", "mac=00:1A:2B:3C:4D:5E", false, "previous"},
};

class SeqIdField : public ::testing::TestWithParam<SeqIdCase> {};

TEST_P(SeqIdField, IsStoredOrRefused) {
    Message message;
    message.seqid = "previous";
    EXPECT_EQ(parseSeqId(GetParam().field, message), GetParam().accepted);
    EXPECT_EQ(message.seqid, GetParam().seqid);
}

INSTANTIATE_TEST_SUITE_P(ParseSeqId, SeqIdField, ::testing::ValuesIn(kSeqIdCases),
                         caseName<SeqIdCase>);

TEST(ParseSeqId, WritesNoOtherField) {
    Message message;
    ASSERT_TRUE(parseSeqId("seqid=5", message));
    message.seqid.clear();
    EXPECT_TRUE(isEmpty(message));
}

// ---- parseMac ----

// Each field is read into a record whose MAC address was "PREVIOUS".
struct MacCase {
    const char* name;
    const char* field;
    bool accepted;
    const char* mac;
};

void PrintTo(const MacCase& row, std::ostream* out) {
    *out << row.name;
}

const MacCase kMacCases[] = {
    {"UpperCaseAddressIsStoredAsItIs", "mac=00:1A:2B:3C:4D:5E", true, "00:1A:2B:3C:4D:5E"},
    {"LowerCaseAddressIsStoredUpperCased", "mac=00:1a:2b:3c:4d:5e", true, "00:1A:2B:3C:4D:5E"},
    // Only two-character groups are checked, so one-character groups go through unchanged.
    {"OneCharacterGroupsAreUncheckedAndStoredAsTheyAre", "mac=0:1:2:3:4:5", true, "0:1:2:3:4:5"},
    {"NonHexGroupIsRefusedAndMacLeftUntouched", "mac=00:1G:2B:3C:4D:5E", false, "PREVIOUS"},
    // A non-hex digit is caught in each of the six groups.
    {"NonHexDigitInTheFirstGroupIsRefused", "mac=G0:11:22:33:44:55", false, "PREVIOUS"},
    {"NonHexDigitInTheSecondGroupIsRefused", "mac=00:1G:22:33:44:55", false, "PREVIOUS"},
    {"NonHexDigitInTheThirdGroupIsRefused", "mac=00:11:2g:33:44:55", false, "PREVIOUS"},
    {"NonHexDigitInTheFourthGroupIsRefused", "mac=00:11:22:-3:44:55", false, "PREVIOUS"},
    {"NonHexDigitInTheFifthGroupIsRefused", "mac=00:11:22:33: 4:55", false, "PREVIOUS"},
    {"NonHexDigitInTheSixthGroupIsRefused", "mac=00:11:22:33:44:5Z", false, "PREVIOUS"},
    {"GroupsOfOtherLengthsAreNotChecked", "mac=zzz:::q:00:11", true, "ZZZ:::Q:00:11"},
    {"WhateverFollowsTheSixthGroupIsNotChecked", "mac=00:11:22:33:44:55:zz", true,
     "00:11:22:33:44:55:ZZ"},
    // A QUERY hands its whole remainder to parseMac; the last group then is "5E#x=y", six
    // characters long and unchecked.
    {"QueryRemainderWithATrailingFieldBecomesPartOfTheAddress", "mac=00:1A:2B:3C:4D:5E#x=y", true,
     "00:1A:2B:3C:4D:5E#X=Y"},
    {"EmptyFieldIsAcceptedAndGivesAnEmptyAddress", "", true, ""},
    {"EmptyMacValueIsAccepted", "mac=", true, ""},
    {"BareMacKeyIsAcceptedAsAnEmptyValue", "mac", true, ""},
    // Under any key but "mac" the value is taken without a check: "zz" would fail under "mac".
    {"ZzGroupUnderMacIsRefused", "mac=zz:11:22:33:44:55", false, "PREVIOUS"},
    {"UpperCaseKeyIsAcceptedAndItsValueStoredUpperCased", "MAC=zz:11:22:33:44:55", true,
     "ZZ:11:22:33:44:55"},
    {"OtherKeyIsAcceptedAndItsValueStoredUpperCased", "foo=1g:x", true, "1G:X"},
    {"AddressWithoutKeyIsTakenAsKeyAndGivesAnEmptyAddress", "00:1A:2B:3C:4D:5E", true, ""},
    {"ValueRunsFromTheFirstEqualsSign", "mac=a=b", true, "A=B"},
};

class MacField : public ::testing::TestWithParam<MacCase> {};

TEST_P(MacField, IsStoredOrRefused) {
    Message message;
    message.mac = "PREVIOUS";
    EXPECT_EQ(parseMac(GetParam().field, message), GetParam().accepted);
    EXPECT_EQ(message.mac, GetParam().mac);
}

INSTANTIATE_TEST_SUITE_P(ParseMac, MacField, ::testing::ValuesIn(kMacCases), caseName<MacCase>);

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

// Each list is read into an empty record; the fields named in a row hold the given values
// afterwards, and every other field stays empty.
struct FieldListCase {
    const char* name;
    const char* list;
    bool accepted;
    std::vector<std::pair<const char*, const char*>> fields;
};

void PrintTo(const FieldListCase& row, std::ostream* out) {
    *out << row.name;
}

const FieldListCase kFieldListCases[] = {
    {"EmptyListIsAccepted", "", true, {}},
    {"EveryFieldIsStored",
     "ip=10.0.0.7#netmask=255.255.255.0#gateway=10.0.0.1#ipscheme=STATIC#ntpip=10.0.0.2#"
     "syslogip=10.0.0.3#nameserver=10.0.0.4#utcclock=2024-01-31 12:34:56",
     true,
     {{"ip", "10.0.0.7"},
      {"netmask", "255.255.255.0"},
      {"gateway", "10.0.0.1"},
      {"ipscheme", "STATIC"},
      {"ntpip", "10.0.0.2"},
      {"syslogip", "10.0.0.3"},
      {"nameserver", "10.0.0.4"},
      {"utcclock", "2024-01-31 12:34:56"},
      {"mac", ""},
      {"seqid", ""}}},
    {"TrailingSeparatorEndsTheList", "ip=10.0.0.5#", true, {{"ip", "10.0.0.5"}}},
    {"EmptyFieldEndsTheListAndLaterFieldsAreNotParsed",
     "ip=10.0.0.5##gateway=10.0.0.1",
     true,
     {{"ip", "10.0.0.5"}, {"gateway", ""}}},
    {"FieldsAfterAnEmptyOneAreNotEvenChecked",
     "ip=10.0.0.5##ipscheme=dhcp",
     true,
     {{"ip", "10.0.0.5"}}},
    {"LeadingSeparatorEndsTheListAtOnce", "#ip=10.0.0.5", true, {{"ip", ""}}},
    {"DroppedAddressDoesNotStopTheList",
     "ip=300.1.1.1#netmask=255.255.255.0",
     true,
     {{"ip", ""}, {"netmask", "255.255.255.0"}}},
    {"IgnoredFieldDoesNotStopTheList",
     "foo=bar#hostname=x#ip=10.0.0.7",
     true,
     {{"ip", "10.0.0.7"}}},
    {"LastValidValueOfARepeatedKeyWins", "ip=10.0.0.5#ip=10.0.0.6", true, {{"ip", "10.0.0.6"}}},
    {"RepeatedKeyWithAnInvalidValueKeepsTheEarlierOne",
     "ip=10.0.0.5#ip=bad",
     true,
     {{"ip", "10.0.0.5"}}},
    {"FailingFieldStopsTheListButEarlierFieldsRemain",
     "ip=10.0.0.5#ipscheme=dhcp#gateway=10.0.0.1",
     false,
     {{"ip", "10.0.0.5"}, {"ipscheme", ""}, {"gateway", ""}}},
    {"RefusedSchemeAfterAValidOneKeepsTheValidOne",
     "ipscheme=DHCP#ipscheme=dhcp",
     false,
     {{"ipscheme", "DHCP"}}},
};

class FieldList : public ::testing::TestWithParam<FieldListCase> {};

TEST_P(FieldList, StoresTheFieldsUpToWhereItStops) {
    Message message;
    EXPECT_EQ(parseFieldList(GetParam().list, message), GetParam().accepted);
    for (const auto& [key, value] : GetParam().fields) {
        EXPECT_EQ(fieldNamed(message, key), value) << key;
        fieldNamed(message, key).clear();
    }
    EXPECT_TRUE(isEmpty(message));
}

INSTANTIATE_TEST_SUITE_P(ParseFieldList, FieldList, ::testing::ValuesIn(kFieldListCases),
                         caseName<FieldListCase>);

TEST(ParseFieldList, EachRefusedGenericFieldFailsTheList) {
    for (const char* list : {"foo=b;r", "f;o=bar", "foo=", "=bar", "ip=10.0.0.5#foo"}) {
        Message message;
        EXPECT_FALSE(parseFieldList(list, message)) << list;
    }
}

// ---- isDottedQuad ----

struct DottedQuadCase {
    const char* name;
    const char* text;
    bool accepted;
};

void PrintTo(const DottedQuadCase& row, std::ostream* out) {
    *out << row.name;
}

const DottedQuadCase kDottedQuadCases[] = {
    {"OrdinaryAddressIsAccepted", "192.168.1.20", true},
    {"AllZerosAreAccepted", "0.0.0.0", true},
    {"AllOnesAreAccepted", "255.255.255.255", true},
    // The check is loose on purpose; the settings setters check again, more strictly.
    {"ThreePartsAreAccepted", "1.2.3", true},
    {"EmptyPartIsAccepted", "1..2.3", true},
    {"FivePartsAreAccepted", "1.2.3.4.5", true},
    {"TrailingWordIsAccepted", "1.2.3.4.anything", true},
    {"LeadingZerosAreAccepted", "010.001.0.9", true},
    {"EmptyTextIsAccepted", "", true},
    {"DotsAloneAreAccepted", "...", true},
    // Only the low 32 bits of each part are compared with 255.
    {"TwoToThe32IsAccepted", "1.2.3.4294967296", true},         // 2^32: low bits 0
    {"TwoToThe32Plus255IsAccepted", "1.2.3.4294967551", true},  // 2^32 + 255
    {"TwoToThe32Plus256IsRefused", "1.2.3.4294967552", false},  // 2^32 + 256
    {"TwoToThe32InTheFirstPartIsAccepted", "4294967296.0.0.0", true},
    // A part too long for 64 bits stays at the largest 64-bit value, whose low 32 bits are all
    // ones.
    {"LargestLongIsRefused", "1.2.3.9223372036854775807", false},  // 2^63 - 1
    {"OneMoreIsRefused", "1.2.3.9223372036854775808", false},      // one more: saturates
    {"TwoToThe64IsRefused", "1.2.3.18446744073709551616", false},  // 2^64: still saturated
    {"LeadingZerosBeforeALongPartAreRefused",
     "1.2.3.000000000000000000000000000009223372036854775808", false},
    {"LeadingZerosBeforeASmallPartAreAccepted",
     "1.2.3.000000000000000000000000000000000000000000000000000255", true},
    {"LowBitsZeroIsAccepted", "1.2.3.9223372032559808512", true},  // 2^63 - 2^32: low bits 0
    // A part above 255 is refused.
    {"LastPartOf256IsRefused", "1.2.3.256", false},
    {"FirstPartOf256IsRefused", "256.1.1.1", false},
    {"FirstPartOf300IsRefused", "300.1.1.1", false},
    {"LastPartOf999IsRefused", "10.0.0.999", false},
    // A part with anything but digits is refused.
    {"NegativePartIsRefused", "1.2.3.-1", false},
    {"LeadingBlankIsRefused", " 1.2.3.4", false},
    {"TrailingBlankIsRefused", "1.2.3.4 ", false},
    {"LettersAreRefused", "a.b.c.d", false},
    {"PlusSignIsRefused", "1.2.3.+4", false},
    {"HexadecimalPartIsRefused", "1.2.3.0x1", false},
    {"LetterAmongFivePartsIsRefused", "1.2.x.4.5", false},
};

class DottedQuad : public ::testing::TestWithParam<DottedQuadCase> {};

TEST_P(DottedQuad, IsAcceptedOrRefused) {
    EXPECT_EQ(isDottedQuad(GetParam().text), GetParam().accepted);
}

INSTANTIATE_TEST_SUITE_P(IsDottedQuad, DottedQuad, ::testing::ValuesIn(kDottedQuadCases),
                         caseName<DottedQuadCase>);

// ---- isServerKey ----

struct ServerKeyCase {
    const char* name;
    const char* text;
    bool accepted;
};

void PrintTo(const ServerKeyCase& row, std::ostream* out) {
    *out << row.name;
}

const ServerKeyCase kServerKeyCases[] = {
    {"NtpipIsAccepted", "ntpip", true},
    {"SyslogipIsAccepted", "syslogip", true},
    {"NameserverIsAccepted", "nameserver", true},
    // Anything else is refused.
    {"EmptyTextIsRefused", "", false},
    {"UpperCaseKeyIsRefused", "NTPIP", false},
    {"CapitalisedKeyIsRefused", "Syslogip", false},
    {"TrailingSeparatorIsRefused", "syslogip#", false},
    {"TwoKeysAreRefused", "ntpip#nameserver", false},
    {"LeadingBlankIsRefused", " ntpip", false},
    {"KeyWithEqualsSignIsRefused", "nameserver=", false},
    {"HostnameIsRefused", "hostname", false},
    {"IpIsRefused", "ip", false},
    {"GatewayIsRefused", "gateway", false},
};

class ServerKey : public ::testing::TestWithParam<ServerKeyCase> {};

TEST_P(ServerKey, IsAcceptedOrRefused) {
    EXPECT_EQ(isServerKey(GetParam().text), GetParam().accepted);
}

INSTANTIATE_TEST_SUITE_P(IsServerKey, ServerKey, ::testing::ValuesIn(kServerKeyCases),
                         caseName<ServerKeyCase>);

}  // namespace
}  // namespace lcfd
