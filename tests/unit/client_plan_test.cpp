#include <gtest/gtest.h>

#include "client/Plan.hpp"

namespace {

using Values = std::vector<std::pair<std::string, std::string>>;

std::vector<std::string> problemsOf(const lcf::Plan& plan) {
    std::vector<std::string> problems;
    for (const auto& problem : plan.problems) {
        problems.push_back(std::to_string(problem.line) + ": " + problem.message);
    }
    return problems;
}

TEST(CsvPlan, EmptyCellsLeaveValuesAsTheyAreAndDescriptiveColumnsAreReadOver) {
    const lcf::Plan plan = lcf::readPlan(
        "mac,ip,netmask,gateway,ipscheme,ntpip,syslogip,nameserver,hostname,controller,interface\n"
        "02:4c:43:00:00:01,198.18.1.1,,198.18.255.2,,,,,arm9-001,CTRL-001,lan0\n"
        "02:4C:43:00:00:02,,,,DHCP,198.18.255.11,198.18.255.21,198.18.255.54,imx-002,\"A,B\","
        "lan0\n");
    EXPECT_EQ(problemsOf(plan), std::vector<std::string>{});
    ASSERT_EQ(plan.rows.size(), 2u);
    EXPECT_EQ(plan.rows[0].line, 2u);
    EXPECT_EQ(plan.rows[0].mac, "02:4C:43:00:00:01");
    EXPECT_EQ(plan.rows[0].values, (Values{{"ip", "198.18.1.1"}, {"gateway", "198.18.255.2"}}));
    EXPECT_EQ(plan.rows[1].values, (Values{{"ipscheme", "DHCP"},
                                           {"ntpip", "198.18.255.11"},
                                           {"syslogip", "198.18.255.21"},
                                           {"nameserver", "198.18.255.54"}}));
}

TEST(CsvPlan, ValuesGoInTheOrderAnAssignCarriesThemWhateverTheColumnOrder) {
    const lcf::Plan plan = lcf::readPlan("gateway,ip,mac\n10.0.0.1,10.0.0.5,02:4C:43:00:00:01\n");
    ASSERT_EQ(plan.rows.size(), 1u);
    EXPECT_EQ(plan.rows[0].values, (Values{{"ip", "10.0.0.5"}, {"gateway", "10.0.0.1"}}));
}

TEST(CsvPlan, EveryProblemIsReportedWithItsLine) {
    const lcf::Plan plan = lcf::readPlan(
        "mac,ip,ipscheme,colour\n"
        "02:4C:43:00:00:01,198.18.1.300,STATIC,red\n"
        "02:4C:43:00:00:0G,198.18.1.2,,blue\n"
        "02:4c:43:00:00:01,198.18.1.3,dhcp,green\n"
        "02:4C:43:00:00:04,198.18.1.4\n"
        ",198.18.1.5,,\n");
    EXPECT_EQ(problemsOf(plan),
              (std::vector<std::string>{
                  "1: unknown key 'colour' (a plan sets mac, ip, netmask, gateway, ipscheme, "
                  "ntpip, syslogip, nameserver)",
                  "2: invalid IPv4 address for ip: '198.18.1.300'",
                  "3: invalid MAC address '02:4C:43:00:00:0G' (expected six hexadecimal pairs "
                  "like 00:1A:2B:3C:4D:5E)",
                  "4: 02:4C:43:00:00:01 is already on line 2",
                  "4: ipscheme must be STATIC or DHCP, got 'dhcp'",
                  "5: 2 cells, but the header has 4",
                  "6: invalid MAC address '' (expected six hexadecimal pairs like "
                  "00:1A:2B:3C:4D:5E)",
              }));
}

TEST(CsvPlan, AHeaderWithoutMacOrAnEmptyPlanIsRefused) {
    EXPECT_EQ(problemsOf(lcf::readPlan("ip,gateway\n10.0.0.5,10.0.0.1\n")),
              std::vector<std::string>{"1: the header has no mac column"});
    EXPECT_EQ(problemsOf(lcf::readPlan("mac,ip\n")),
              std::vector<std::string>{"1: the plan names no controller"});
    EXPECT_EQ(problemsOf(lcf::readPlan("")),
              std::vector<std::string>{"1: the plan names no controller"});
    EXPECT_EQ(problemsOf(lcf::readPlan("mac,mac\n")),
              std::vector<std::string>{"1: column 'mac' twice in the header"});
    EXPECT_EQ(problemsOf(lcf::readPlan("mac,ip\n\"02:4C:43:00:00:01,1.2.3.4\n")),
              std::vector<std::string>{"2: a quoted cell is never closed"});
}

TEST(JsonPlan, TakesWhatDiscoverPrintsEditedAndReadsOverTheRest) {
    const lcf::Plan plan = lcf::readPlan(R"([
  {
    "mac": "02:4C:43:00:00:01",
    "ip": "198.18.1.1",
    "netmask": "255.255.0.0",
    "hostname": "arm9-001",
    "utcclock": "20261122112059",
    "displaytime": "",
    "interface": "lan0",
    "outside_subnet": false,
    "duplicate_ip": false
  },
  {
    "mac": "02:4c:43:00:00:02", "gateway": null, "ipscheme": "DHCP", "sdusage": "31%"
  }
]
)");
    EXPECT_EQ(problemsOf(plan), std::vector<std::string>{});
    ASSERT_EQ(plan.rows.size(), 2u);
    EXPECT_EQ(plan.rows[0].line, 2u);
    EXPECT_EQ(plan.rows[0].values, (Values{{"ip", "198.18.1.1"}, {"netmask", "255.255.0.0"}}));
    EXPECT_EQ(plan.rows[1].line, 13u);
    EXPECT_EQ(plan.rows[1].mac, "02:4C:43:00:00:02");
    EXPECT_EQ(plan.rows[1].values, (Values{{"ipscheme", "DHCP"}}));
}

TEST(JsonPlan, ProblemsCarryTheLineOfTheirKeyOrObject) {
    const lcf::Plan plan = lcf::readPlan(R"([
  {"mac": "02:4C:43:00:00:01",
   "ip": "10.0.0.300",
   "colour": "red"},
  {"ip": "10.0.0.2"},
  {"mac": "02:4C:43:00:00:01", "gateway": 7,
   "netmask": {"bits": 24}},
  {"mac": "02:4C:43:00:00:03", "ip": "10.0.0.3", "ip": "10.0.0.4"},
  "02:4C:43:00:00:05"
]
)");
    EXPECT_EQ(problemsOf(plan),
              (std::vector<std::string>{
                  "3: invalid IPv4 address for ip: '10.0.0.300'",
                  "4: unknown key 'colour' (a plan sets mac, ip, netmask, gateway, ipscheme, "
                  "ntpip, syslogip, nameserver)",
                  "5: no mac: every controller of a plan is named by its MAC address",
                  "6: 02:4C:43:00:00:01 is already on line 2",
                  "6: gateway must be a text in double quotes",
                  "7: netmask must be a text in double quotes",
                  "8: key 'ip' twice in one controller",
                  "9: every element of a plan is an object of key/value pairs",
              }));
}

TEST(JsonPlan, TextThatIsNotAJsonArrayIsRefusedWithItsLine) {
    EXPECT_EQ(problemsOf(lcf::readPlan("[\n  {\"mac\": \"02:4C:43:00:00:01\",}\n]\n")),
              std::vector<std::string>{
                  "2: not a JSON plan: syntax error while parsing object key - unexpected '}'; "
                  "expected string literal"});
    EXPECT_EQ(problemsOf(lcf::readPlan("[]")),
              std::vector<std::string>{"1: the plan names no controller"});
}

TEST(PlanChanges, AreTheValuesTheControllerDoesNotHoldYet) {
    lcf::PlanRow row;
    row.mac = "02:4C:43:00:00:01";
    row.values = {{"ip", "198.18.1.1"}, {"netmask", "255.255.0.0"}, {"gateway", "198.18.255.2"}};
    const auto reply = lcfd::parseReply(
                           "LCF2#STATUS#seqid=1#mac=02:4C:43:00:00:01#ip=198.18.0.1#netmask=255."
                           "255.0.0#utcclock=20261122112059#displaytime=")
                           .value();
    const auto changes = lcf::planChanges(row, reply);
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(lcf::describeChanges(changes),
              "ip 198.18.0.1 -> 198.18.1.1, gateway - -> 198.18.255.2");
    row.values = {{"netmask", "255.255.0.0"}};
    EXPECT_TRUE(lcf::planChanges(row, reply).empty());
}

}  // namespace
