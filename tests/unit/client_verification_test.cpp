#include <gtest/gtest.h>

#include "client/Verification.hpp"

namespace {

lcfd::Reply status(const std::string& text) {
    return lcfd::parseReply(text).value();
}

TEST(ClockSeconds, ReadsFourteenDigitsOfAnExistingUtcTime) {
    EXPECT_EQ(lcf::clockSeconds("19700101000000"), 0);
    EXPECT_EQ(lcf::clockSeconds("20231114221320"), 1700000000);
    EXPECT_EQ(lcf::clockSeconds("20240229235959"), 1709251199);  // a leap day
    EXPECT_EQ(lcf::clockSeconds("19691231235959"), -1);
    EXPECT_FALSE(lcf::clockSeconds("20230229000000"));  // no leap day that year
    EXPECT_FALSE(lcf::clockSeconds("20231301000000"));
    EXPECT_FALSE(lcf::clockSeconds("20231115246000"));
    EXPECT_FALSE(lcf::clockSeconds("2023111512304"));
    EXPECT_FALSE(lcf::clockSeconds("2023-11-15T123"));
    EXPECT_FALSE(lcf::clockSeconds(""));
}

TEST(ClockTook, AllowsTheTimeThatPassedAndTwoSecondsEitherWay) {
    EXPECT_TRUE(lcf::clockTook("20300102030405", "20300102030405", 6.2));
    EXPECT_TRUE(lcf::clockTook("20300102030405", "20300102030412", 6.2));  // 7 s + 2 s room
    EXPECT_TRUE(lcf::clockTook("20300102030405", "20300102030414", 6.2));
    EXPECT_FALSE(lcf::clockTook("20300102030405", "20300102030415", 6.2));
    EXPECT_TRUE(lcf::clockTook("20300102030405", "20300102030403", 6.2));
    EXPECT_FALSE(lcf::clockTook("20300102030405", "20300102030402", 6.2));
    EXPECT_FALSE(lcf::clockTook("20300102030405", "20261123120000", 6.2));
    EXPECT_TRUE(lcf::clockTook("20301231235959", "20310101000003", 6.2));  // across a year
    // What is not a clock took only as the very same text.
    EXPECT_FALSE(lcf::clockTook("20300102030405", "", 6.2));
    EXPECT_FALSE(lcf::clockTook("20300102030405", "ERROR::popen", 6.2));
}

TEST(CheckAssigned, ListsEveryValueTheControllerDoesNotReport) {
    const auto reply = status(
        "LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.5#netmask=255.255.255.0#"
        "ipscheme=STATIC#utcclock=20300102030407#displaytime=");
    const auto mismatches = lcf::checkAssigned({{"ip", "10.0.0.7"},
                                                {"netmask", "255.255.255.0"},
                                                {"gateway", "10.0.0.1"},
                                                {"utcclock", "20300102030405"}},
                                               reply, 7.0);
    ASSERT_EQ(mismatches.size(), 2u);
    EXPECT_EQ(lcf::describe(mismatches[0]), "ip: asked 10.0.0.7, reports 10.0.0.5");
    EXPECT_EQ(lcf::describe(mismatches[1]), "gateway: asked 10.0.0.1, reports nothing");
    EXPECT_TRUE(lcf::checkAssigned({{"ipscheme", "STATIC"}}, reply, 7.0).empty());
}

TEST(CheckCleared, TheServerMustBeGone) {
    const auto reply =
        status("LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5E#ntpip=10.0.0.10#syslogip=#utcclock=1");
    EXPECT_FALSE(lcf::checkCleared("syslogip", reply));
    EXPECT_FALSE(lcf::checkCleared("nameserver", reply));
    const auto left = lcf::checkCleared("ntpip", reply);
    ASSERT_TRUE(left);
    EXPECT_EQ(lcf::describe(*left), "ntpip: asked to clear, reports 10.0.0.10");
}

}  // namespace
