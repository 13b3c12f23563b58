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

TEST(DiscoveryResults, KeepsOnlyThisProbesStatusRepliesOncePerMacSortedByMac) {
    lcf::DiscoveryResults results("42");
    EXPECT_TRUE(
        results.add(status("LCF2#STATUS#seqid=42#mac=00:00:00:00:00:02#ip=10.0.0.2"), kTool0));
    EXPECT_FALSE(
        results.add(status("LCF2#STATUS#seqid=42#mac=00:00:00:00:00:02#ip=10.0.0.9"), kTool0));
    EXPECT_FALSE(results.add(status("LCF2#STATUS#seqid=41#mac=00:00:00:00:00:03"), kTool0));
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
    lcf::DiscoveryResults results("1");
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
              "    \"outside_subnet\": true\n"
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
    lcf::DiscoveryResults results("1");
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
    lcf::DiscoveryResults results("1");
    results.add(status("LCF2#STATUS#seqid=1#mac=00:1A:2B:3C:4D:5E#hostname=caf\xE9"), kTool0);
    EXPECT_EQ(
        lcf::renderJson(results.sorted()),
        "[\n  {\n    \"mac\": \"00:1A:2B:3C:4D:5E\",\n    \"hostname\": \"caf\xEF\xBF\xBD\",\n"
        "    \"interface\": \"tool0\",\n    \"outside_subnet\": true\n  }\n]\n");
}

TEST(HostileReplies, AnAddressFollowedByAZeroByteIsOutsideTheSubnet) {
    EXPECT_TRUE(lcf::isOutsideSubnet(std::string("10.0.0.5\0junk", 13), kTool0));
}

}  // namespace
