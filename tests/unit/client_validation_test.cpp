#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "client/Validation.hpp"

namespace {

using Assignment = std::pair<std::string, std::string>;

std::string problemWith(const std::string& argument) {
    Assignment assignment;
    return lcf::checkAssignment(argument, assignment).value_or("");
}

TEST(MacAddressArgument, AcceptsSixHexadecimalPairsInEitherCase) {
    EXPECT_TRUE(lcf::isMacAddress("00:1A:2B:3C:4D:5E"));
    EXPECT_TRUE(lcf::isMacAddress("00:1a:2b:3c:4d:5e"));
}

TEST(MacAddressArgument, RefusesEverythingElse) {
    for (const char* text :
         {"", "00:1A:2B:3C:4D", "00:1A:2B:3C:4D:5E:", "0:1:2:3:4:5", "00-1A-2B-3C-4D-5E",
          "00:1A:2B:3C:4D:5G", "001A2B3C4D5E00000", "00:1A:2B:3C:4D:5E#"}) {
        EXPECT_FALSE(lcf::isMacAddress(text)) << text;
    }
}

TEST(AssignmentArgument, TakesEveryAssignableKeyWithAGoodValue) {
    const std::vector<std::pair<std::string, Assignment>> good = {
        {"ip=10.0.0.5", {"ip", "10.0.0.5"}},
        {"netmask=255.255.255.0", {"netmask", "255.255.255.0"}},
        {"gateway=10.0.0.1", {"gateway", "10.0.0.1"}},
        {"ipscheme=STATIC", {"ipscheme", "STATIC"}},
        {"ipscheme=DHCP", {"ipscheme", "DHCP"}},
        {"ntpip=10.0.0.9", {"ntpip", "10.0.0.9"}},
        {"syslogip=10.0.0.7", {"syslogip", "10.0.0.7"}},
        {"nameserver=10.0.0.53", {"nameserver", "10.0.0.53"}},
        {"utcclock=20231115123045", {"utcclock", "20231115123045"}},
    };
    for (const auto& [argument, expected] : good) {
        Assignment assignment;
        EXPECT_EQ(lcf::checkAssignment(argument, assignment), std::nullopt) << argument;
        EXPECT_EQ(assignment, expected);
    }
}

struct ProblemCase {
    const char* name;
    const char* argument;
    const char* problem;
};

void PrintTo(const ProblemCase& row, std::ostream* out) {
    *out << row.name;
}

const ProblemCase kProblemCases[] = {
    {"MissingEqualsSign", "ip", "expected key=value, got 'ip'"},
    {"UnknownKey", "hostname=box",
     "unknown key 'hostname' (assignable: ip, netmask, gateway, ipscheme, ntpip, "
     "syslogip, nameserver, utcclock)"},
    {"AddressPartAbove255", "ip=300.1.1.1", "invalid IPv4 address for ip: '300.1.1.1'"},
    {"AddressOfThreeParts", "gateway=10.0.0", "invalid IPv4 address for gateway: '10.0.0'"},
    {"AddressWithACommandAfterIt", "ntpip=10.0.0.1;reboot",
     "invalid IPv4 address for ntpip: '10.0.0.1;reboot'"},
    {"LowerCaseScheme", "ipscheme=dhcp", "ipscheme must be STATIC or DHCP, got 'dhcp'"},
    {"ClockOfThirteenDigits", "utcclock=2023111512304",
     "utcclock must be 14 digits YYYYMMDDhhmmss, got '2023111512304'"},
    {"ClockWithSeparators", "utcclock=2023-11-15T123",
     "utcclock must be 14 digits YYYYMMDDhhmmss, got '2023-11-15T123'"},
};

class AssignmentProblem : public testing::TestWithParam<ProblemCase> {};

TEST_P(AssignmentProblem, IsExplained) {
    EXPECT_EQ(problemWith(GetParam().argument), GetParam().problem);
}

INSTANTIATE_TEST_SUITE_P(AssignmentArgument, AssignmentProblem, testing::ValuesIn(kProblemCases),
                         [](const testing::TestParamInfo<ProblemCase>& param) {
                             return std::string(param.param.name);
                         });

TEST(UncheckedAssignment, PassesAnyKeyAndValueOn) {
    const std::vector<std::pair<std::string, Assignment>> sent = {
        {"ipscheme=dhcp", {"ipscheme", "dhcp"}},
        {"ip=", {"ip", ""}},
        {"=5", {"", "5"}},
        {"hostname=a=b", {"hostname", "a=b"}},
        {"ntpip=10.0.0.1;reboot", {"ntpip", "10.0.0.1;reboot"}},
    };
    for (const auto& [argument, expected] : sent) {
        Assignment assignment;
        EXPECT_EQ(lcf::splitUncheckedAssignment(argument, assignment), std::nullopt) << argument;
        EXPECT_EQ(assignment, expected);
    }
}

TEST(UncheckedAssignment, RefusesWhatARequestCannotCarry) {
    Assignment assignment{"untouched", "too"};
    EXPECT_EQ(lcf::splitUncheckedAssignment("ip", assignment), "expected key=value, got 'ip'");
    EXPECT_EQ(lcf::splitUncheckedAssignment("ip=1.2.3.4#ipscheme=DHCP", assignment),
              "'#' separates the fields of a request and cannot be sent, got "
              "'ip=1.2.3.4#ipscheme=DHCP'");
    EXPECT_EQ(assignment, Assignment("untouched", "too"));
}

TEST(ServerKey, IsOneOfTheThreeServers) {
    EXPECT_EQ(lcf::checkServerKey("ntpip"), std::nullopt);
    EXPECT_EQ(lcf::checkServerKey("syslogip"), std::nullopt);
    EXPECT_EQ(lcf::checkServerKey("nameserver"), std::nullopt);
    EXPECT_EQ(lcf::checkServerKey("NTPIP"),
              "unknown server 'NTPIP' (ntpip, syslogip or nameserver)");
    EXPECT_EQ(lcf::checkServerKey(""), "unknown server '' (ntpip, syslogip or nameserver)");
}

TEST(ServerKey, UncheckedRefusesOnlyTheFieldSeparator) {
    EXPECT_EQ(lcf::checkUncheckedServerKey("hostname"), std::nullopt);
    EXPECT_EQ(lcf::checkUncheckedServerKey(""), std::nullopt);
    EXPECT_EQ(lcf::checkUncheckedServerKey("ntpip#"),
              "'#' separates the fields of a request and cannot be sent, got 'ntpip#'");
}

TEST(HostUtcClock, IsFourteenDigits) {
    const std::string clock = lcf::hostUtcClock();
    EXPECT_EQ(clock.size(), 14u);
    EXPECT_EQ(clock.find_first_not_of("0123456789"), std::string::npos);
}

}  // namespace
