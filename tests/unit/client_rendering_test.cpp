#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "client/Controllers.hpp"
#include "client/Rendering.hpp"

namespace {

lcf::NetworkInterface interfaceOn(const char* name, const char* address, const char* netmask) {
    lcf::NetworkInterface networkInterface;
    networkInterface.name = name;
    networkInterface.address = inet_addr(address);
    networkInterface.netmask = inet_addr(netmask);
    return networkInterface;
}

lcfd::Reply status(const std::string& text) {
    return lcfd::parseReply(text).value();
}

const lcf::NetworkInterface kTool0 = interfaceOn("tool0", "10.0.0.100", "255.255.255.0");

TEST(Subnet, AddressesOutsideTheInterfacesSubnetOrMissingAreFlagged) {
    EXPECT_FALSE(lcf::isOutsideSubnet("10.0.0.5", kTool0));
    EXPECT_TRUE(lcf::isOutsideSubnet("192.168.1.5", kTool0));
    EXPECT_TRUE(lcf::isOutsideSubnet("", kTool0));
    EXPECT_TRUE(lcf::isOutsideSubnet("10.0.0", kTool0));
}

TEST(DiscoveryResults, KeepsStatusRepliesOncePerMacSortedByMac) {
    lcf::DiscoveryResults results;
    EXPECT_TRUE(
        results.add(status("LCF2#STATUS#seqid=42#mac=00:00:00:00:00:02#ip=10.0.0.2"), kTool0));
    EXPECT_FALSE(
        results.add(status("LCF2#STATUS#seqid=42#mac=00:00:00:00:00:02#ip=10.0.0.9"), kTool0));
    EXPECT_FALSE(results.add(status("LCF2#ACK#seqid=42#mac=00:00:00:00:00:04#accept=yes"), kTool0));
    EXPECT_FALSE(results.add(status("LCF2#STATUS#seqid=42#mac="), kTool0));
    EXPECT_TRUE(
        results.add(status("LCF2#STATUS#seqid=42#mac=00:00:00:00:00:01#ip=192.168.7.7"), kTool0));
    const auto controllers = results.sorted();
    ASSERT_EQ(controllers.size(), 2u);
    EXPECT_EQ(controllers[0].field("mac"), "00:00:00:00:00:01");
    EXPECT_TRUE(controllers[0].outsideSubnet);
    EXPECT_EQ(controllers[1].field("ip"), "10.0.0.2");
    EXPECT_FALSE(controllers[1].outsideSubnet);
    EXPECT_EQ(controllers[1].interfaceName, "tool0");
}

std::vector<lcf::Controller> twoControllers() {
    lcf::DiscoveryResults results;
    results.add(status("LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.5#netmask=255.255."
                       "255.0#gateway=10.0.0.1#hostname=ctl-a#ipscheme=STATIC#controller=Line 1#"
                       "sdkversion=5.2#utcclock=20231115123045#displaytime="),
                kTool0);
    results.add(status("LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5F#ip=192.168.1.9#hostname=b#"
                       "ipscheme=DHCP#utcclock=20231115123046#displaytime="),
                kTool0);
    return results.sorted();
}

TEST(Table, AlignsColumnsAndCounts) {
    EXPECT_EQ(lcf::renderTable(twoControllers()),
              "MAC                IP           NETMASK        GATEWAY   SCHEME  HOSTNAME  "
              "CONTROLLER  SDK  UTCCLOCK        INTERFACE  NOTE\n"
              "00:1A:2B:3C:4D:5E  10.0.0.5     255.255.255.0  10.0.0.1  STATIC  ctl-a     "
              "Line 1      5.2  20231115123045  tool0\n"
              "00:1A:2B:3C:4D:5F  192.168.1.9  -              -         DHCP    b         "
              "-           -    20231115123046  tool0      outside subnet\n"
              "2 controllers found, 1 outside the subnet of its interface\n");
}

TEST(Table, SaysWhenNothingAnswered) {
    EXPECT_EQ(lcf::renderTable({}),
              "MAC  IP  NETMASK  GATEWAY  SCHEME  HOSTNAME  CONTROLLER  SDK  UTCCLOCK  "
              "INTERFACE  NOTE\n0 controllers found\n");
}

TEST(Json, UsesTheProtocolKeysInReplyOrder) {
    EXPECT_EQ(lcf::renderJson({twoControllers().back()}),
              "[\n"
              "  {\n"
              "    \"mac\": \"00:1A:2B:3C:4D:5F\",\n"
              "    \"ip\": \"192.168.1.9\",\n"
              "    \"hostname\": \"b\",\n"
              "    \"ipscheme\": \"DHCP\",\n"
              "    \"utcclock\": \"20231115123046\",\n"
              "    \"displaytime\": \"\",\n"
              "    \"interface\": \"tool0\",\n"
              "    \"outside_subnet\": true,\n"
              "    \"duplicate_ip\": false\n"
              "  }\n"
              "]\n");
    EXPECT_EQ(lcf::renderJson({}), "[]\n");
}

TEST(Details, ListsEveryFieldAligned) {
    EXPECT_EQ(lcf::renderDetails(twoControllers().back()),
              "mac:         00:1A:2B:3C:4D:5F\n"
              "ip:          192.168.1.9\n"
              "hostname:    b\n"
              "ipscheme:    DHCP\n"
              "utcclock:    20231115123046\n"
              "displaytime: \n"
              "interface:   tool0\n"
              "note:        outside subnet\n");
}

}  // namespace

namespace {

TEST(HostileReplies, ControlBytesAreShownAsQuestionMarks) {
    lcf::DiscoveryResults results;
    results.add(status(std::string("LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5E#hostname=a\x1b[2Jb"
                                   "\x7f#controller=x\ty")),
                kTool0);
    const auto controllers = results.sorted();
    for (const std::string& shown :
         {lcf::renderTable(controllers), lcf::renderDetails(controllers.front())}) {
        EXPECT_NE(shown.find("a?[2Jb?"), std::string::npos) << shown;
        EXPECT_NE(shown.find("x?y"), std::string::npos) << shown;
        EXPECT_EQ(shown.find_first_of(std::string("\x1b\x7f\t", 3)), std::string::npos);
    }
}

TEST(HostileReplies, BytesThatAreNotUtf8StillGiveTheWholeJsonList) {
    lcf::DiscoveryResults results;
    results.add(status("LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5E#hostname=caf\xE9"), kTool0);
    EXPECT_EQ(
        lcf::renderJson(results.sorted()),
        "[\n  {\n    \"mac\": \"00:1A:2B:3C:4D:5E\",\n    \"hostname\": \"caf\xEF\xBF\xBD\",\n"
        "    \"interface\": \"tool0\",\n    \"outside_subnet\": true,\n"
        "    \"duplicate_ip\": false\n  }\n]\n");
}

TEST(HostileReplies, AnAddressFollowedByAZeroByteIsOutsideTheSubnet) {
    EXPECT_TRUE(lcf::isOutsideSubnet(std::string("10.0.0.5\0junk", 13), kTool0));
}

}  // namespace

namespace {

std::vector<lcf::Controller> sharingAnAddress() {
    lcf::DiscoveryResults results;
    const lcf::NetworkInterface other = interfaceOn("eth1", "10.0.0.200", "255.255.255.0");
    results.add(status("LCF2#STATUS#seqid=1#mac=00:00:00:00:00:01#ip=10.0.0.5"), kTool0);
    results.add(status("LCF2#STATUS#seqid=1#mac=00:00:00:00:00:02#ip=10.0.0.5"), kTool0);
    results.add(status("LCF2#STATUS#seqid=1#mac=00:00:00:00:00:03#ip=10.0.0.5"), other);
    results.add(status("LCF2#STATUS#seqid=1#mac=00:00:00:00:00:04#ip=192.168.0.1"), kTool0);
    results.add(status("LCF2#STATUS#seqid=1#mac=00:00:00:00:00:05#ip=192.168.0.1"), kTool0);
    results.add(status("LCF2#STATUS#seqid=1#mac=00:00:00:00:00:06"), kTool0);
    results.add(status("LCF2#STATUS#seqid=1#mac=00:00:00:00:00:07"), kTool0);
    return results.sorted();
}

TEST(DuplicateAddresses, AreFlaggedPerInterfaceAndAMissingAddressIsNobodysDuplicate) {
    const auto controllers = sharingAnAddress();
    std::vector<bool> flags;
    for (const auto& controller : controllers) {
        flags.push_back(controller.duplicateIp);
    }
    EXPECT_EQ(flags, (std::vector<bool>{true, true, false, true, true, false, false}));
    EXPECT_EQ(
        lcf::renderTable(controllers),
        "MAC                IP           NETMASK  GATEWAY  SCHEME  HOSTNAME  CONTROLLER  SDK"
        "  UTCCLOCK  INTERFACE  NOTE\n"
        "00:00:00:00:00:01  10.0.0.5     -        -        -       -         -           -"
        "    -         tool0      duplicate IP\n"
        "00:00:00:00:00:02  10.0.0.5     -        -        -       -         -           -"
        "    -         tool0      duplicate IP\n"
        "00:00:00:00:00:03  10.0.0.5     -        -        -       -         -           -"
        "    -         eth1\n"
        "00:00:00:00:00:04  192.168.0.1  -        -        -       -         -           -"
        "    -         tool0      outside subnet, duplicate IP\n"
        "00:00:00:00:00:05  192.168.0.1  -        -        -       -         -           -"
        "    -         tool0      outside subnet, duplicate IP\n"
        "00:00:00:00:00:06  -            -        -        -       -         -           -"
        "    -         tool0      outside subnet\n"
        "00:00:00:00:00:07  -            -        -        -       -         -           -"
        "    -         tool0      outside subnet\n"
        "7 controllers found, 4 outside the subnet of its interface, 4 with a duplicate IP\n");
    EXPECT_NE(lcf::renderJson({controllers[0]}).find("\"duplicate_ip\": true\n"),
              std::string::npos);
    EXPECT_EQ(lcf::renderDetails(controllers[3]),
              "mac:       00:00:00:00:00:04\n"
              "ip:        192.168.0.1\n"
              "interface: tool0\n"
              "note:      outside subnet, duplicate IP\n");
}

TEST(Csv, APlanToEditWithThePlannedKeysFirst) {
    lcf::DiscoveryResults results;
    results.add(
        status("LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5E#ip=10.0.0.5#netmask=255.255.255.0#"
               "hostname=a#ipscheme=STATIC#controller=Hall A, B#syslogip=10.0.0.20#"
               "utcclock=20231115123045#displaytime="),
        kTool0);
    EXPECT_EQ(
        lcf::renderCsv(results.sorted()),
        "mac,ip,netmask,gateway,ipscheme,ntpip,syslogip,nameserver,hostname,controller,"
        "interface\n"
        "00:1A:2B:3C:4D:5E,10.0.0.5,255.255.255.0,,STATIC,,10.0.0.20,,a,\"Hall A, B\",tool0\n");
    EXPECT_EQ(lcf::renderCsv({}),
              "mac,ip,netmask,gateway,ipscheme,ntpip,syslogip,nameserver,hostname,controller,"
              "interface\n");
}

TEST(InterfaceSummary, CountsProbesAndControllersAndDoubtsAnEmptyVirtualAdapter) {
    EXPECT_EQ(lcf::renderInterfaceSummary("lan0", 3, 20, ""),
              "lan0: probed 3 times, 20 controllers\n");
    EXPECT_EQ(lcf::renderInterfaceSummary("lan1", 1, 1, "no carrier"),
              "lan1: probed once, 1 controller\n");
    EXPECT_EQ(lcf::renderInterfaceSummary("docker0", 2, 0, "a bridge with no ports"),
              "docker0: probed 2 times, 0 controllers (a bridge with no ports: looks like a "
              "virtual or container adapter)\n");
    EXPECT_EQ(lcf::joinNames({"lan0", "eth1"}), "lan0, eth1");
    EXPECT_EQ(lcf::formatSeconds(11.0004), "11");
    EXPECT_EQ(lcf::formatSeconds(0.5), "0.5");
    EXPECT_EQ(lcf::formatSeconds(6.26), "6.3");
}

TEST(ApplyTable, ShowsEachControllerInPlanOrderAndCountsTheResults) {
    lcf::ApplyReport report;
    report.rows.push_back({2,
                           "02:4C:43:00:00:01",
                           {{"ip", "198.18.0.1", "198.18.1.1"}},
                           lcf::ApplyResult::Changed,
                           {},
                           0.0});
    report.rows.push_back({3, "02:4C:43:00:00:02", {}, lcf::ApplyResult::AlreadyRight, {}, 0.0});
    report.rows.push_back({4,
                           "02:4C:43:00:00:03",
                           {{"nameserver", "", "198.18.255.54"}},
                           lcf::ApplyResult::DidNotTake,
                           {{"nameserver", "198.18.255.54", "198.18.255.20"}},
                           0.0});
    report.rows.push_back({5,
                           "02:4C:43:00:00:04",
                           {{"ipscheme", "STATIC", "DHCP"}},
                           lcf::ApplyResult::Refused,
                           {},
                           0.0});
    report.rows.push_back({6,
                           "02:4C:43:00:00:05",
                           {{"gateway", "10.0.0.1", "10.0.0.2"}},
                           lcf::ApplyResult::NoAnswer,
                           {},
                           16.0});
    EXPECT_EQ(lcf::renderApplyTable(report, false),
              "MAC                LINE  RESULT         DETAIL\n"
              "02:4C:43:00:00:01  2     changed        ip 198.18.0.1 -> 198.18.1.1\n"
              "02:4C:43:00:00:02  3     already right\n"
              "02:4C:43:00:00:03  4     did not take   nameserver: asked 198.18.255.54, reports "
              "198.18.255.20\n"
              "02:4C:43:00:00:04  5     refused        ipscheme STATIC -> DHCP\n"
              "02:4C:43:00:00:05  6     no answer      gateway 10.0.0.1 -> 10.0.0.2\n"
              "5 controllers: 1 changed, 1 already right, 1 refused, 1 no answer, 1 did not "
              "take\n");
    report.rows.resize(2);
    report.rows[0].result = lcf::ApplyResult::WouldChange;
    EXPECT_EQ(lcf::renderApplyTable(report, true),
              "MAC                LINE  RESULT         CHANGES\n"
              "02:4C:43:00:00:01  2     would change   ip 198.18.0.1 -> 198.18.1.1\n"
              "02:4C:43:00:00:02  3     already right\n"
              "2 controllers: 1 would change, 1 already right\n");
}

}  // namespace
