#include <gtest/gtest.h>

#include "wire/Replies.hpp"
#include "wire/Request.hpp"

namespace {

TEST(RequestText, QueryForEveryDeviceAndForOne) {
    EXPECT_EQ(lcfd::composeQuery("17", ""), "LCF2#QUERY#seqid=17");
    EXPECT_EQ(lcfd::composeQuery("17", "00:1A:2B:3C:4D:5E"),
              "LCF2#QUERY#seqid=17#mac=00:1A:2B:3C:4D:5E");
}

TEST(RequestText, AssignKeepsTheGivenOrder) {
    EXPECT_EQ(lcfd::composeAssign("9", "00:1A:2B:3C:4D:5E",
                                  {{"ip", "10.0.0.7"}, {"netmask", "255.255.255.0"}}),
              "LCF2#ASSIGN#seqid=9#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.7#netmask=255.255.255.0");
    EXPECT_EQ(lcfd::composeAssign("9", "00:1A:2B:3C:4D:5E", {}),
              "LCF2#ASSIGN#seqid=9#mac=00:1A:2B:3C:4D:5E");
}

TEST(RequestText, Clear) {
    EXPECT_EQ(lcfd::composeClear("3", "00:1A:2B:3C:4D:5E", "syslogip"),
              "LCF2#CLEAR#seqid=3#mac=00:1A:2B:3C:4D:5E#syslogip");
}

TEST(ComposedRequests, AreWhatTheDaemonParses) {
    lcfd::Message message;
    const auto request = lcfd::parseRequest(
        "ASSIGN#seqid=9#mac=00:1a:2b:3c:4d:5e#ip=10.0.0.7#utcclock=20231115123045", message);
    EXPECT_EQ(request.command, lcfd::Command::Assign);
    EXPECT_TRUE(request.parsed);
    EXPECT_EQ(message.mac, "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(message.ip, "10.0.0.7");
    EXPECT_EQ(message.utcclock, "20231115123045");
}

TEST(ReplyParsing, TakesAStatusReplyApartInOrder) {
    const auto reply = lcfd::parseReply(
        "LCF2#STATUS#seqid=5#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.5#utcclock=20231115123045#"
        "displaytime=");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->command, "STATUS");
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"seqid", "5"},
        {"mac", "00:1A:2B:3C:4D:5E"},
        {"ip", "10.0.0.5"},
        {"utcclock", "20231115123045"},
        {"displaytime", ""}};
    EXPECT_EQ(reply->fields, expected);
    EXPECT_EQ(reply->value("ip"), "10.0.0.5");
    EXPECT_EQ(reply->value("gateway"), std::nullopt);
}

TEST(ReplyParsing, ReadsWhatTheDaemonComposes) {
    lcfd::StatusValues values;
    values.ip = "10.0.0.5";
    values.uptime = "3605.21 7011.40";
    const auto reply = lcfd::parseReply(lcfd::composeStatus("5", "00:1A:2B:3C:4D:5E", values));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->value("uptime"), "3605.21 7011.40");
    const auto ack = lcfd::parseReply(lcfd::composeAck("7", "00:1A:2B:3C:4D:5E", false));
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->command, "ACK");
    EXPECT_EQ(ack->value("accept"), "no");
}

TEST(ReplyParsing, FindsTheFirstOfRepeatedKeysInPlaceAndKeepsEmptyAndBareFields) {
    const std::string text = "LCF2#ACK#seqid=#mac=A#ip=1#ip=2#bare#=x##tail=a=b#";
    const auto reply = lcfd::parseReply(std::string_view(text));
    ASSERT_TRUE(reply);
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"seqid", ""}, {"mac", "A"}, {"ip", "1"}, {"ip", "2"},
        {"bare", ""},  {"", "x"},    {"", ""},    {"tail", "a=b"}};
    EXPECT_EQ(reply->fields, expected);
    const std::string* ip = reply->find("ip");
    ASSERT_NE(ip, nullptr);
    EXPECT_EQ(ip, &reply->fields[2].second);
    EXPECT_EQ(reply->find("gateway"), nullptr);
    ASSERT_NE(reply->find("seqid"), nullptr);
    EXPECT_EQ(*reply->find("seqid"), "");
    EXPECT_EQ(reply->value("seqid"), std::optional<std::string>(""));
}

TEST(ReplyParsing, IgnoresRequestsAndForeignTexts) {
    EXPECT_FALSE(lcfd::parseReply("LCF2#QUERY#seqid=5"));
    EXPECT_FALSE(lcfd::parseReply("LCF9#STATUS#seqid=5"));
    EXPECT_FALSE(lcfd::parseReply("hello"));
    EXPECT_FALSE(lcfd::parseReply(""));
    const auto bare = lcfd::parseReply("LCF2#STATUS");
    ASSERT_TRUE(bare);
    EXPECT_TRUE(bare->fields.empty());
}

}  // namespace
