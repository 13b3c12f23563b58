// lcf watch without sockets: what a datagram says, which request a reply answers, and the exact
// line and JSON line printed for it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/Watch.hpp"

namespace {

using lcf::WallClock;

// The watch prints local time: the tests fix the zone, and give the process its own back.
class Watch : public ::testing::Test {
  protected:
    void SetUp() override {
        if (const char* zone = std::getenv("TZ")) {
            savedZone_ = zone;
        }
        useZone("UTC0");
    }
    void TearDown() override {
        if (savedZone_) {
            setenv("TZ", savedZone_->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    static void useZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

  private:
    std::optional<std::string> savedZone_;
};

// 2026-11-24 06:05:39 UTC and `milliseconds`.
WallClock::time_point at(int milliseconds) {
    std::tm parts{};
    parts.tm_year = 2026 - 1900;
    parts.tm_mon = 10;
    parts.tm_mday = 24;
    parts.tm_hour = 6;
    parts.tm_min = 5;
    parts.tm_sec = 39;
    return WallClock::from_time_t(timegm(&parts)) + std::chrono::milliseconds(milliseconds);
}

lcf::WatchRecord seen(const std::string& text, int milliseconds,
                      const std::string& sender = "198.18.255.238") {
    lcf::WatchDatagram datagram;
    datagram.text = text;
    datagram.interfaceName = "lan0";
    datagram.sender = sender;
    datagram.senderPort = sender == "198.18.255.238" ? 40000 : 7217;
    datagram.time = at(milliseconds);
    return lcf::takeApart(datagram);
}

const std::string kStatus1 =
    "LCF2#STATUS#seqid=77#mac=02:4C:43:00:00:01#ip=198.18.0.1#netmask=255.255.0.0"
    "#hostname=arm9-001#utcclock=20261124060539#displaytime=";

TEST_F(Watch, DiscoveryQueryGoesToEveryController) {
    const lcf::WatchRecord query = seen("LCF2#QUERY#seqid=77", 646);
    EXPECT_EQ(lcf::renderWatchLine(query),
              "06:05:39.646 lan0 198.18.255.238 QUERY  seqid=77 mac=*\n");
    EXPECT_EQ(lcf::renderWatchJson(query),
              "{\"time\":\"2026-11-24T06:05:39.646+00:00\",\"interface\":\"lan0\","
              "\"sender\":\"198.18.255.238\",\"sender_port\":40000,\"length\":19,"
              "\"kind\":\"request\",\"command\":\"QUERY\",\"seqid\":\"77\",\"mac\":null,"
              "\"every_controller\":true,\"fields\":[],\"understood\":true,\"note\":null,"
              "\"summary\":\"\"}\n");
}

TEST_F(Watch, StatusIsPairedWithTheDiscoveryQueryByItsSeqid) {
    lcf::RequestPairing pairing;
    lcf::WatchRecord query = seen("LCF2#QUERY#seqid=77", 100);
    pairing.see(query);
    lcf::WatchRecord status = seen(kStatus1, 212, "198.18.0.1");
    pairing.see(status);
    EXPECT_EQ(lcf::renderWatchLine(status),
              "06:05:39.212 lan0 198.18.0.1 STATUS seqid=77 mac=02:4C:43:00:00:01 "
              "ip=198.18.0.1 hostname=arm9-001 (+112.0 ms after QUERY)\n");
    EXPECT_EQ(lcf::renderWatchJson(status),
              "{\"time\":\"2026-11-24T06:05:39.212+00:00\",\"interface\":\"lan0\","
              "\"sender\":\"198.18.0.1\",\"sender_port\":7217,\"length\":131,\"kind\":\"reply\","
              "\"command\":\"STATUS\",\"seqid\":\"77\",\"mac\":\"02:4C:43:00:00:01\","
              "\"every_controller\":false,\"fields\":[{\"key\":\"ip\",\"value\":\"198.18.0.1\"},"
              "{\"key\":\"netmask\",\"value\":\"255.255.0.0\"},{\"key\":\"hostname\",\"value\":"
              "\"arm9-001\"},{\"key\":\"utcclock\",\"value\":\"20261124060539\"},{\"key\":"
              "\"displaytime\",\"value\":\"\"}],\"understood\":true,\"note\":null,\"summary\":"
              "\"ip=198.18.0.1 hostname=arm9-001\",\"request\":\"QUERY\",\"delay_ms\":112.0}\n");
}

TEST_F(Watch, AReplyWithoutARequestSeenSaysSo) {
    lcf::RequestPairing pairing;
    lcf::WatchRecord other = seen("LCF2#QUERY#seqid=78", 0);
    pairing.see(other);
    lcf::WatchRecord status = seen(kStatus1, 10, "198.18.0.1");
    pairing.see(status);
    EXPECT_EQ(lcf::renderWatchLine(status),
              "06:05:39.010 lan0 198.18.0.1 STATUS seqid=77 mac=02:4C:43:00:00:01 "
              "ip=198.18.0.1 hostname=arm9-001 (no request seen)\n");
    const auto json = nlohmann::ordered_json::parse(lcf::renderWatchJson(status));
    EXPECT_TRUE(json.at("request").is_null());
    EXPECT_TRUE(json.at("delay_ms").is_null());
}

TEST_F(Watch, AQueryForOneControllerPairsOnlyWithThatControllersStatus) {
    lcf::RequestPairing pairing;
    lcf::WatchRecord query = seen("LCF2#QUERY#seqid=77#mac=02:4c:43:00:00:02", 0);
    pairing.see(query);
    EXPECT_EQ(lcf::renderWatchLine(query),
              "06:05:39.000 lan0 198.18.255.238 QUERY  seqid=77 mac=02:4C:43:00:00:02\n");
    lcf::WatchRecord status = seen(kStatus1, 5, "198.18.0.1");
    pairing.see(status);
    EXPECT_FALSE(status.pairedCommand.has_value());
}

TEST_F(Watch, AckIsPairedWithItsAssignBySeqidAndMacAndTheEarliestUnansweredCopy) {
    lcf::RequestPairing pairing;
    const std::string assign = "LCF2#ASSIGN#seqid=9#mac=02:4c:43:00:00:01#ntpip=198.18.255.11";
    lcf::WatchRecord first = seen(assign, 0);
    pairing.see(first);
    lcf::WatchRecord again = seen(assign, 300);
    pairing.see(again);
    EXPECT_EQ(lcf::renderWatchLine(again),
              "06:05:39.300 lan0 198.18.255.238 ASSIGN seqid=9 mac=02:4C:43:00:00:01 "
              "ntpip=198.18.255.11\n");
    lcf::WatchRecord otherMac =
        seen("LCF2#ACK#seqid=9#mac=02:4C:43:00:00:02#accept=yes", 301, "198.18.0.2");
    pairing.see(otherMac);
    EXPECT_EQ(lcf::renderWatchLine(otherMac),
              "06:05:39.301 lan0 198.18.0.2 ACK    seqid=9 mac=02:4C:43:00:00:02 accept=yes "
              "(no request seen)\n");
    lcf::WatchRecord ack =
        seen("LCF2#ACK#seqid=9#mac=02:4C:43:00:00:01#accept=no", 303, "198.18.0.1");
    pairing.see(ack);
    EXPECT_EQ(lcf::renderWatchLine(ack),
              "06:05:39.303 lan0 198.18.0.1 ACK    seqid=9 mac=02:4C:43:00:00:01 accept=no "
              "(+303.0 ms after ASSIGN)\n");
    // The daemon answers the resent copy next, then a duplicate is shown against the latest.
    lcf::WatchRecord second =
        seen("LCF2#ACK#seqid=9#mac=02:4C:43:00:00:01#accept=no", 305, "198.18.0.1");
    pairing.see(second);
    EXPECT_EQ(second.delayMs, 5.0);
    lcf::WatchRecord duplicate =
        seen("LCF2#ACK#seqid=9#mac=02:4C:43:00:00:01#accept=no", 310, "198.18.0.1");
    pairing.see(duplicate);
    EXPECT_EQ(duplicate.delayMs, 10.0);
}

TEST_F(Watch, EachControllerAnswersTheResentDiscoveryQueriesInOrder) {
    lcf::RequestPairing pairing;
    lcf::WatchRecord first = seen("LCF2#QUERY#seqid=77", 0);
    pairing.see(first);
    lcf::WatchRecord again = seen("LCF2#QUERY#seqid=77", 200);
    pairing.see(again);
    const std::string kStatus2 =
        "LCF2#STATUS#seqid=77#mac=02:4C:43:00:00:02#ip=198.18.0.2#hostname=arm9-002";
    std::vector<double> delays;
    for (const auto& [text, milliseconds] : std::vector<std::pair<std::string, int>>{
             {kStatus1, 210}, {kStatus2, 211}, {kStatus1, 212}, {kStatus2, 215}, {kStatus1, 220}}) {
        lcf::WatchRecord status = seen(text, milliseconds, "198.18.0.1");
        pairing.see(status);
        ASSERT_TRUE(status.delayMs.has_value());
        delays.push_back(*status.delayMs);
    }
    EXPECT_EQ(delays, (std::vector<double>{210.0, 211.0, 12.0, 15.0, 20.0}));
}

TEST_F(Watch, AssignFieldsAreMarkedAsTheControllerTakesThem) {
    const lcf::WatchRecord assign = seen(
        "LCF2#ASSIGN#seqid=9#mac=02:4C:43:00:00:01#ip=198.18.0.50#gateway=300.1.1.1"
        "#hostname=x#ipscheme=dhcp#netmask=255.255.0.0",
        0);
    EXPECT_EQ(lcf::renderWatchLine(assign),
              "06:05:39.000 lan0 198.18.255.238 ASSIGN seqid=9 mac=02:4C:43:00:00:01 "
              "ip=198.18.0.50 gateway=300.1.1.1(dropped) hostname=x(ignored) "
              "ipscheme=dhcp(refused) refused: accept=no\n");
    EXPECT_FALSE(assign.understood);
    const auto json = nlohmann::ordered_json::parse(lcf::renderWatchJson(assign));
    EXPECT_EQ(json.at("fields").dump(),
              "[{\"key\":\"ip\",\"value\":\"198.18.0.50\"},{\"key\":\"gateway\",\"value\":"
              "\"300.1.1.1\",\"mark\":\"dropped\"},{\"key\":\"hostname\",\"value\":\"x\","
              "\"mark\":\"ignored\"},{\"key\":\"ipscheme\",\"value\":\"dhcp\",\"mark\":"
              "\"refused\"}]");
    EXPECT_EQ(json.at("note"), "refused: accept=no");
}

TEST_F(Watch, AnEmptyFieldEndsTheAssignList) {
    const lcf::WatchRecord assign =
        seen("LCF2#ASSIGN#seqid=9#mac=02:4C:43:00:00:01#ip=10.0.0.5##netmask=255.0.0.0", 0);
    EXPECT_EQ(lcf::watchSummary(assign), "ip=10.0.0.5 fields after an empty field are not read");
    EXPECT_TRUE(assign.understood);
    EXPECT_EQ(lcf::watchSummary(seen("LCF2#ASSIGN#seqid=9#mac=02:4C:43:00:00:01#ip=10.0.0.5#", 0)),
              "ip=10.0.0.5");
}

TEST_F(Watch, ClearShowsItsServerKeyOrWhyItIsRefused) {
    EXPECT_EQ(lcf::watchSummary(seen("LCF2#CLEAR#seqid=4#mac=02:4C:43:00:00:02#syslogip", 0)),
              "syslogip");
    const lcf::WatchRecord refused = seen("LCF2#CLEAR#seqid=4#mac=02:4C:43:00:00:02#hostname", 0);
    EXPECT_EQ(lcf::watchSummary(refused), "refused: accept=no, not a server key \"hostname\"");
    EXPECT_FALSE(refused.understood);
}

TEST_F(Watch, DatagramsADaemonDoesNotUnderstandSayWhy) {
    EXPECT_EQ(lcf::renderWatchLine(seen("LCF9#QUERY#seqid=1", 0)),
              "06:05:39.000 lan0 198.18.255.238 ?      seqid=- mac=- not understood: bad header "
              "\"LCF9\"\n");
    EXPECT_EQ(lcf::renderWatchLine(seen("LCF2#query#seqid=1", 0)),
              "06:05:39.000 lan0 198.18.255.238 query  seqid=- mac=- not understood: unknown "
              "command \"query\"\n");
    EXPECT_EQ(lcf::watchSummary(seen("LCF2#QUERY#mac=00:1A:2B:3C:4D:5E#seqid=1", 0)),
              "not understood: bad seqid field");
    const lcf::WatchRecord badGroup = seen("LCF2#QUERY#seqid=1#mac=00:1G:2B:3C:4D:5E", 0);
    EXPECT_EQ(lcf::renderWatchLine(badGroup),
              "06:05:39.000 lan0 198.18.255.238 QUERY  seqid=1 mac=00:1G:2B:3C:4D:5E not "
              "understood: MAC group \"1G\" is not hexadecimal\n");
    EXPECT_FALSE(badGroup.understood);
    const lcf::WatchRecord rest = seen("LCF2#QUERY#seqid=1#mac=00:1A:2B:3C:4D:5E#x=y", 0);
    EXPECT_EQ(lcf::renderWatchLine(rest),
              "06:05:39.000 lan0 198.18.255.238 QUERY  seqid=1 mac=00:1A:2B:3C:4D:5E#X=Y "
              "matches no controller: not a MAC address\n");
    EXPECT_TRUE(rest.understood);
}

// Every controller traces an ASSIGN or CLEAR that names none of them as understood, and none
// answers it: there is nothing to refuse.
TEST_F(Watch, ARequestNamingNoControllerIsUnderstoodAndIgnoredByAll) {
    const lcf::WatchRecord badSeqid =
        seen("LCF2#ASSIGN#seqid=a=b#mac=02:4C:43:00:00:01#ip=1.2.3.4", 0);
    EXPECT_EQ(lcf::watchSummary(badSeqid), "ignored by every controller: bad seqid field");
    EXPECT_TRUE(badSeqid.understood);
    const lcf::WatchRecord noMac = seen("LCF2#ASSIGN#seqid=1#mac=#ip=1.2.3.4", 0);
    EXPECT_EQ(lcf::watchSummary(noMac), "ignored by every controller: no MAC address");
    EXPECT_TRUE(noMac.understood);
    const lcf::WatchRecord badGroup = seen("LCF2#CLEAR#seqid=3#mac=02:4C:ZZ:00:00:01#ntpip", 0);
    EXPECT_EQ(lcf::renderWatchLine(badGroup),
              "06:05:39.000 lan0 198.18.255.238 CLEAR  seqid=3 mac=02:4C:ZZ:00:00:01 ignored by "
              "every controller: MAC group \"ZZ\" is not hexadecimal\n");
    EXPECT_TRUE(badGroup.understood);
    const auto json = nlohmann::ordered_json::parse(lcf::renderWatchJson(badGroup));
    EXPECT_EQ(json.at("mac"), "02:4C:ZZ:00:00:01");
    EXPECT_EQ(json.at("understood"), true);
}

TEST_F(Watch, ARequestForAMacNoControllerHasIsNotRefused) {
    const lcf::WatchRecord assign =
        seen("LCF2#ASSIGN#seqid=1#mac=02:4C:43:00:00#ipscheme=dhcp#ip=1.2.3.4", 0);
    EXPECT_EQ(lcf::renderWatchLine(assign),
              "06:05:39.000 lan0 198.18.255.238 ASSIGN seqid=1 mac=02:4C:43:00:00 matches no "
              "controller: not a MAC address\n");
    EXPECT_TRUE(assign.understood);
    EXPECT_TRUE(assign.fields.empty());
    const lcf::WatchRecord clear = seen("LCF2#CLEAR#seqid=1#mac=x#hostname", 0);
    EXPECT_EQ(lcf::watchSummary(clear), "matches no controller: not a MAC address");
    EXPECT_TRUE(clear.understood);
}

TEST_F(Watch, OnlyWhatADaemonReadsIsJudged) {
    const std::string text =
        "LCF2#ASSIGN#seqid=1#mac=02:4C:43:00:00:01#hostname=" + std::string(600, 'x') +
        "#ipscheme=dhcp";
    const lcf::WatchRecord assign = seen(text, 0);
    EXPECT_TRUE(assign.understood);
    EXPECT_EQ(assign.note, "a daemon reads only the first 512 of its 665 bytes");
}

TEST_F(Watch, ControlBytesAreEscapedAndJsonSurvivesBytesThatAreNotUtf8) {
    const lcf::WatchRecord odd = seen("LCF2#CLEAR#seqid=\x1b[2J#mac=02:4C:43:00:00:01#\xff", 0);
    EXPECT_EQ(lcf::renderWatchLine(odd),
              "06:05:39.000 lan0 198.18.255.238 CLEAR  seqid=\\x1B[2J mac=02:4C:43:00:00:01 "
              "refused: accept=no, not a server key \"\xff\"\n");
    const auto json = nlohmann::ordered_json::parse(lcf::renderWatchJson(odd));
    EXPECT_EQ(json.at("seqid"), "\x1b[2J");
}

TEST_F(Watch, BackslashesAndC1ControlsAreEscapedButUtf8Passes) {
    EXPECT_EQ(lcf::renderWatchLine(seen("LCF2#CLEAR#seqid=a\\b\x9b"
                                        "2J#mac=02:4C:43:00:00:01#ntpip",
                                        0)),
              "06:05:39.000 lan0 198.18.255.238 CLEAR  seqid=a\\x5Cb\\x9B2J "
              "mac=02:4C:43:00:00:01 ntpip\n");
    EXPECT_EQ(
        lcf::renderWatchLine(seen("LCF2#CLEAR#seqid=1#mac=02:4C:43:00:00:01#h\xc3\xa9\xc2\x9b", 0)),
        "06:05:39.000 lan0 198.18.255.238 CLEAR  seqid=1 mac=02:4C:43:00:00:01 refused: "
        "accept=no, not a server key \"h\xc3\xa9\\xC2\\x9B\"\n");
}

TEST_F(Watch, AFieldWithoutSeparatorIsShownAsSent) {
    const lcf::WatchRecord assign = seen("LCF2#ASSIGN#seqid=1#mac=02:4C:43:00:00:01#ip", 0);
    EXPECT_EQ(lcf::watchSummary(assign), "ip(refused) refused: accept=no");
    const auto json = nlohmann::ordered_json::parse(lcf::renderWatchJson(assign));
    EXPECT_EQ(json.at("fields").dump(), "[{\"key\":\"ip\",\"value\":null,\"mark\":\"refused\"}]");
}

TEST_F(Watch, AnEmptyDatagramIsSkippedByEveryDaemon) {
    const lcf::WatchRecord empty = seen("", 0);
    EXPECT_EQ(lcf::renderWatchLine(empty),
              "06:05:39.000 lan0 198.18.255.238 ?      seqid=- mac=- empty: ignored by every "
              "daemon\n");
    EXPECT_FALSE(empty.understood);
}

TEST_F(Watch, TimesAreLocalWithTheirOffset) {
    useZone("CET-1");
    EXPECT_EQ(lcf::localTimeOfDay(at(7)), "07:05:39.007");
    EXPECT_EQ(lcf::isoLocalTime(at(7)), "2026-11-24T07:05:39.007+01:00");
}

}  // namespace
