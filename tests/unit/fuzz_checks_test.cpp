// The fuzz targets' own checks (fuzz/JsonCheck.hpp) on exact inputs: a finding, or the lack of
// one, is only worth what these checks accept and refuse.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "JsonCheck.hpp"

namespace {

using namespace std::string_literals;

TEST(FuzzChecksUtf8, TakesAsciiAndWellFormedSequencesOfEachLength) {
    EXPECT_TRUE(fuzz::isUtf8(""));
    EXPECT_TRUE(fuzz::isUtf8("plain ASCII, #=;"));
    EXPECT_TRUE(fuzz::isUtf8("a\0b"s));             // NUL is a character like any other
    EXPECT_TRUE(fuzz::isUtf8("\x7F"));              // DEL, the last one-byte form
    EXPECT_TRUE(fuzz::isUtf8("\xC2\x80"));          // U+0080, the first two-byte form
    EXPECT_TRUE(fuzz::isUtf8("\xC3\xA9"));          // U+00E9
    EXPECT_TRUE(fuzz::isUtf8("\xDF\xBF"));          // U+07FF, the last two-byte form
    EXPECT_TRUE(fuzz::isUtf8("\xE0\xA0\x80"));      // U+0800, the first three-byte form
    EXPECT_TRUE(fuzz::isUtf8("\xE2\x82\xAC"));      // U+20AC
    EXPECT_TRUE(fuzz::isUtf8("\xED\x9F\xBF"));      // U+D7FF, just before the surrogates
    EXPECT_TRUE(fuzz::isUtf8("\xEE\x80\x80"));      // U+E000, just after them
    EXPECT_TRUE(fuzz::isUtf8("\xEF\xBF\xBF"));      // U+FFFF
    EXPECT_TRUE(fuzz::isUtf8("\xF0\x90\x80\x80"));  // U+10000, the first four-byte form
    EXPECT_TRUE(fuzz::isUtf8("\xF0\x9F\x98\x80"));  // U+1F600
    EXPECT_TRUE(fuzz::isUtf8("\xF4\x8F\xBF\xBF"));  // U+10FFFF, the last code point
    EXPECT_TRUE(
        fuzz::isUtf8("a\xC3\xA9"
                     "b\xE2\x82\xAC"
                     "c\xF0\x9F\x98\x80"));
}

TEST(FuzzChecksUtf8, RefusesOverlongForms) {
    EXPECT_FALSE(fuzz::isUtf8("\xC0\x80"));          // U+0000 in two bytes
    EXPECT_FALSE(fuzz::isUtf8("\xC0\xAF"));          // "/" in two bytes
    EXPECT_FALSE(fuzz::isUtf8("\xC1\xBF"));          // U+007F in two bytes
    EXPECT_FALSE(fuzz::isUtf8("\xE0\x80\xAF"));      // "/" in three bytes
    EXPECT_FALSE(fuzz::isUtf8("\xE0\x9F\xBF"));      // U+07FF in three bytes
    EXPECT_FALSE(fuzz::isUtf8("\xF0\x80\x80\xAF"));  // "/" in four bytes
    EXPECT_FALSE(fuzz::isUtf8("\xF0\x8F\xBF\xBF"));  // U+FFFF in four bytes
}

TEST(FuzzChecksUtf8, RefusesSurrogatesAndCodePointsPastTheLast) {
    EXPECT_FALSE(fuzz::isUtf8("\xED\xA0\x80"));  // U+D800, the first high surrogate
    EXPECT_FALSE(fuzz::isUtf8("\xED\xAF\xBF"));  // U+DBFF
    EXPECT_FALSE(fuzz::isUtf8("\xED\xB0\x80"));  // U+DC00, the first low surrogate
    EXPECT_FALSE(fuzz::isUtf8("\xED\xBF\xBF"));  // U+DFFF
    // A surrogate pair encoded as two three-byte forms (CESU-8) is no UTF-8 either.
    EXPECT_FALSE(fuzz::isUtf8("\xED\xA0\xBD\xED\xB8\x80"));
    EXPECT_FALSE(fuzz::isUtf8("\xF4\x90\x80\x80"));  // U+110000
    EXPECT_FALSE(fuzz::isUtf8("\xF5\x80\x80\x80"));
    EXPECT_FALSE(fuzz::isUtf8("\xF7\xBF\xBF\xBF"));
    EXPECT_FALSE(fuzz::isUtf8("\xF8\x88\x80\x80\x80"));  // the old five-byte form
    EXPECT_FALSE(fuzz::isUtf8("\xFE"));
    EXPECT_FALSE(fuzz::isUtf8("\xFF"));
}

TEST(FuzzChecksUtf8, RefusesTruncatedSequencesAndStrayContinuationBytes) {
    EXPECT_FALSE(fuzz::isUtf8("\xC3"));
    EXPECT_FALSE(fuzz::isUtf8("\xE2\x82"));
    EXPECT_FALSE(fuzz::isUtf8("\xF0\x9F\x98"));
    EXPECT_FALSE(fuzz::isUtf8("ok\xF0\x9F"));  // cut short at the end of the text
    EXPECT_FALSE(
        fuzz::isUtf8("\xC3"
                     "A"));  // a lead byte followed by ASCII
    EXPECT_FALSE(
        fuzz::isUtf8("\xE2\x82"
                     "A"));
    EXPECT_FALSE(fuzz::isUtf8("\xC3\xA9\xA9"));  // one continuation byte too many
    EXPECT_FALSE(fuzz::isUtf8("\x80"));
    EXPECT_FALSE(fuzz::isUtf8("\xBF"));
    EXPECT_FALSE(
        fuzz::isUtf8("a\x80"
                     "b"));
}

bool isJson(std::string_view text) {
    return !fuzz::readJson(text).is_discarded();
}

TEST(FuzzChecksJson, TakesWellFormedTexts) {
    EXPECT_TRUE(isJson("[]"));
    EXPECT_TRUE(isJson("[{}]"));
    EXPECT_TRUE(isJson("{\"a\": [1, -2.5e+3, true, false, null, \"x\"]}"));
    EXPECT_TRUE(isJson(" \t\r\n[1] \n"));
    EXPECT_TRUE(isJson("\"a string alone\""));
    EXPECT_TRUE(isJson("-0"));
    EXPECT_TRUE(isJson("0.5E-3"));
    EXPECT_TRUE(isJson("1e-400"));                // too small: it reads as zero, a finite number
    EXPECT_TRUE(isJson("18446744073709551616"));  // past 64 bits: read as a double
    EXPECT_TRUE(isJson("\"\\\"\\\\\\/\\b\\f\\n\\r\\t\""));
    EXPECT_TRUE(isJson("\"\\u0000\\u00e9\\u20AC\""));
    EXPECT_TRUE(isJson("\"\\ud83d\\ude00\""));  // a surrogate pair
    EXPECT_TRUE(isJson("\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\x7F\""));
    EXPECT_TRUE(isJson("\xEF\xBB\xBF[1]"));  // a byte order mark may open the text
    // The shape of lcf's listing, as it prints it.
    EXPECT_TRUE(
        isJson("[\n  {\n    \"mac\": \"00:1A:2B:3C:4D:5E\",\n    \"interface\": \"eth0\",\n"
               "    \"outside_subnet\": false,\n    \"duplicate_ip\": false\n  }\n]\n"));
}

TEST(FuzzChecksJson, RefusesBrokenGrammar) {
    for (const char* text : {"",
                             " \n",
                             "[",
                             "]",
                             "[1,]",
                             "[,1]",
                             "[1 2]",
                             "{\"a\"}",
                             "{\"a\":}",
                             "{\"a\" 1}",
                             "{a:1}",
                             "{\"a\":1,}",
                             "{'a':1}",
                             "[1]x",
                             "[1][2]",
                             "[1],",
                             "01",
                             "-01",
                             "1.",
                             ".5",
                             "1e",
                             "1e+",
                             "+1",
                             "-",
                             "0x10",
                             "tru",
                             "nulll",
                             "True",
                             "NaN",
                             "Infinity",
                             "-Infinity",
                             "[1] // a comment",
                             "/* a comment */ [1]",
                             "\"abc",
                             "\"\\x41\"",
                             "\"\\u12\"",
                             "\"\\u12G4\"",
                             "\"\\",
                             "[1]\xEF\xBB\xBF",
                             "\xEF\xBB[1]"}) {
        EXPECT_FALSE(isJson(text)) << text;
    }
    EXPECT_FALSE(isJson("[1]\0"s));
    EXPECT_FALSE(isJson("[1]\0garbage"s));
    EXPECT_FALSE(isJson("[1,\0 2]"s));
    EXPECT_FALSE(isJson("\0[1]"s));       // nothing but white space after the value
    EXPECT_FALSE(isJson("[1]\f"));        // form feed is no JSON white space
    EXPECT_FALSE(isJson("\xC2\xA0[1]"));  // nor is U+00A0
}

TEST(FuzzChecksJson, RefusesUnescapedControlCharacters) {
    EXPECT_FALSE(isJson("\"a\nb\""));
    EXPECT_FALSE(isJson("\"a\tb\""));
    EXPECT_FALSE(isJson("\"\x01\""));
    EXPECT_FALSE(isJson("\"\x1F\""));
    EXPECT_FALSE(isJson("\"a\0b\""s));
}

TEST(FuzzChecksJson, RefusesUnpairedSurrogateEscapes) {
    EXPECT_FALSE(isJson("\"\\ud83d\""));         // a high surrogate alone
    EXPECT_FALSE(isJson("\"\\ud83dx\""));        // followed by a character
    EXPECT_FALSE(isJson("\"\\ud83d\\u0041\""));  // followed by no low surrogate
    EXPECT_FALSE(isJson("\"\\ud83d\\ud83d\""));  // followed by another high one
    EXPECT_FALSE(isJson("\"\\ude00\""));         // a low surrogate alone
    EXPECT_FALSE(isJson("\"\\ude00\\ud83d\""));  // the pair the wrong way round
}

TEST(FuzzChecksJson, RefusesStringsThatAreNotUtf8) {
    for (const char* bytes :
         {"\xC0\xAF", "\xC1\xBF", "\xE0\x80\xAF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",
          "\xED\xA0\x80", "\xED\xBF\xBF", "\xED\xA0\xBD\xED\xB8\x80", "\xF4\x90\x80\x80",
          "\xF5\x80\x80\x80", "\xFE", "\xFF", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "\x80", "\xBF",
          "\xC3\xA9\xA9"}) {
        EXPECT_FALSE(fuzz::isUtf8(bytes));
        EXPECT_FALSE(isJson("\"" + std::string(bytes) + "\"")) << "as a value";
        EXPECT_FALSE(isJson("{\"" + std::string(bytes) + "\": 1}")) << "as a key";
    }
}

TEST(FuzzChecksJson, RefusesNumbersTooLargeForADouble) {
    EXPECT_FALSE(isJson("1e400"));
    EXPECT_FALSE(isJson("-1e400"));
    EXPECT_FALSE(isJson("[" + std::string(400, '9') + "]"));
    EXPECT_TRUE(isJson("1.7976931348623157e308"));  // the largest double
}

TEST(FuzzChecksJson, KeepsTheLastOfRepeatedKeysAndDecodesEscapes) {
    const nlohmann::json object =
        fuzz::readJson("{\"interface\": \"lan1\", \"flag\": true, \"interface\": \"eth0\"}");
    ASSERT_TRUE(object.is_object());
    EXPECT_EQ(fuzz::stringMember(object, "interface"), "eth0");

    const nlohmann::json escaped =
        fuzz::readJson("{\"inter\\u0066ace\": \"eth\\u0030\", \"\\u00e9\": \"\xC3\xA9\"}");
    EXPECT_EQ(fuzz::stringMember(escaped, "interface"), "eth0");
    EXPECT_EQ(fuzz::stringMember(escaped, "\xC3\xA9"), "\xC3\xA9");
}

TEST(FuzzChecksJson, NamesOneObjectArrays) {
    EXPECT_TRUE(fuzz::isOneObjectArray(fuzz::readJson("[{}]")));
    EXPECT_TRUE(fuzz::isOneObjectArray(fuzz::readJson(" [ {\"a\": [1, {}]} ] ")));
    for (const char* text : {"[]", "[{}, {}]", "[{}, 1]", "[1]", "[[{}]]", "{}", "{\"a\": {}}",
                             "\"[{}]\"", "null", "[{}"}) {
        EXPECT_FALSE(fuzz::isOneObjectArray(fuzz::readJson(text))) << text;
    }
}

TEST(FuzzChecksJson, ReadsMembersOfTheirTypeOnly) {
    const nlohmann::json object = fuzz::readJson(
        "{\"interface\": \"eth0\", \"outside_subnet\": false, \"duplicate_ip\": true, "
        "\"count\": 1, \"nothing\": null, \"text\": \"true\"}");
    EXPECT_EQ(fuzz::stringMember(object, "interface"), "eth0");
    EXPECT_EQ(fuzz::booleanMember(object, "outside_subnet"), false);
    EXPECT_EQ(fuzz::booleanMember(object, "duplicate_ip"), true);
    EXPECT_EQ(fuzz::stringMember(object, "outside_subnet"), std::nullopt);
    EXPECT_EQ(fuzz::booleanMember(object, "text"), std::nullopt);
    EXPECT_EQ(fuzz::booleanMember(object, "count"), std::nullopt);
    EXPECT_EQ(fuzz::stringMember(object, "nothing"), std::nullopt);
    EXPECT_EQ(fuzz::stringMember(object, "missing"), std::nullopt);
    EXPECT_EQ(fuzz::booleanMember(object, "missing"), std::nullopt);
    // Not an object at all: no members.
    EXPECT_EQ(fuzz::stringMember(fuzz::readJson("[\"interface\"]"), "interface"), std::nullopt);
    EXPECT_EQ(fuzz::booleanMember(fuzz::readJson("true"), "true"), std::nullopt);
}

TEST(FuzzChecksJson, FindsEveryExpectedMember) {
    const nlohmann::json object = fuzz::readJson("{\"mac\": \"x\", \"ip\": \"\", \"a#b\": 1}");
    EXPECT_TRUE(fuzz::hasMembers(object, {}));
    EXPECT_TRUE(fuzz::hasMembers(object, {"mac", "ip", "a#b"}));
    EXPECT_TRUE(fuzz::hasMembers(object, {"ip", "ip"}));
    EXPECT_FALSE(fuzz::hasMembers(object, {"mac", "netmask"}));
    EXPECT_FALSE(fuzz::hasMembers(object, {"MAC"}));
    EXPECT_FALSE(fuzz::hasMembers(object, {""}));
    EXPECT_TRUE(fuzz::hasMembers(fuzz::readJson("{\"\": 0}"), {""}));
    EXPECT_FALSE(fuzz::hasMembers(fuzz::readJson("[\"mac\"]"), {"mac"}));
    EXPECT_TRUE(fuzz::hasMembers(fuzz::readJson("[\"mac\"]"), {}));
}

}  // namespace
