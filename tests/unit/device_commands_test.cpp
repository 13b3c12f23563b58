#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "device/DeviceCommands.hpp"
#include "wire/Validators.hpp"

namespace lcfd {
namespace {

using Commands = std::vector<std::string>;

constexpr ControllerType kOutOfRange = static_cast<ControllerType>(7);

// Each row of a table names its own test.
template <typename Case>
std::string caseName(const ::testing::TestParamInfo<Case>& param) {
    return param.param.name;
}

struct TimeServerCase {
    const char* name;
    ControllerType type;
    const char* value;
    const char* command;
};

void PrintTo(const TimeServerCase& row, std::ostream* out) {
    *out << row.name;
}

const TimeServerCase kTimeServerCases[] = {
    // Generic and Qmt take the short verb.
    {"QmtTakesTheShortVerb", ControllerType::Qmt, "10.0.0.9", "tarnsetup timeserver 10.0.0.9"},
    {"GenericTakesTheShortVerb", ControllerType::Generic, "10.0.0.9",
     "tarnsetup timeserver 10.0.0.9"},
    // Every other type takes settimeserver.
    {"ImxTakesSettimeserver", ControllerType::Imx, "10.0.0.9", "tarnsetup settimeserver 10.0.0.9"},
    {"Arm9TakesSettimeserver", ControllerType::Arm9, "10.0.0.9",
     "tarnsetup settimeserver 10.0.0.9"},
    {"UnknownTakesSettimeserver", ControllerType::Unknown, "10.0.0.9",
     "tarnsetup settimeserver 10.0.0.9"},
    {"OutOfRangeTypeTakesSettimeserver", kOutOfRange, "10.0.0.9",
     "tarnsetup settimeserver 10.0.0.9"},
    {"TheValueIsAppendedAsStored", ControllerType::Imx, "", "tarnsetup settimeserver "},
};

class TimeServerLine : public ::testing::TestWithParam<TimeServerCase> {};

TEST_P(TimeServerLine, IsTheExactCommand) {
    EXPECT_EQ(timeServerCommand(GetParam().type, GetParam().value), GetParam().command);
}

INSTANTIATE_TEST_SUITE_P(TimeServerCommand, TimeServerLine, ::testing::ValuesIn(kTimeServerCases),
                         caseName<TimeServerCase>);

TEST(ServerCommands, SyslogAndNameServer) {
    EXPECT_EQ(syslogServerCommand("10.0.0.7"), "tarnsetup setsyslogserver 10.0.0.7");
    EXPECT_EQ(nameServerCommand("10.0.0.3"), "tarnsetup setnameserver 10.0.0.3");
}

struct StaticIpCase {
    const char* name;
    const char* ip;
    const char* netmask;
    const char* gateway;
    const char* interfaceName;
    std::optional<std::string> command;
};

void PrintTo(const StaticIpCase& row, std::ostream* out) {
    *out << row.name;
}

const StaticIpCase kStaticIpCases[] = {
    {"OnTheDefaultBridgeItEndsInABlank", "10.0.0.5", "255.255.255.0", "10.0.0.1", "br0",
     "tarnsetup setip 10.0.0.5 255.255.255.0 10.0.0.1 "},
    {"OtherInterfacesEndInTheirName", "10.0.0.5", "255.255.255.0", "10.0.0.1", "eth1",
     "tarnsetup setip 10.0.0.5 255.255.255.0 10.0.0.1 eth1"},
    // A missing parameter gives no command.
    {"MissingAddressGivesNoCommand", "", "255.255.255.0", "10.0.0.1", "br0", std::nullopt},
    {"MissingNetmaskGivesNoCommand", "10.0.0.5", "", "10.0.0.1", "br0", std::nullopt},
    {"MissingGatewayGivesNoCommand", "10.0.0.5", "255.255.255.0", "", "br0", std::nullopt},
    {"NothingButTheInterfaceGivesNoCommand", "", "", "", "eth1", std::nullopt},
};

class StaticIpLine : public ::testing::TestWithParam<StaticIpCase> {};

TEST_P(StaticIpLine, IsTheExactCommand) {
    const StaticIpCase& row = GetParam();
    EXPECT_EQ(staticIpCommand(row.ip, row.netmask, row.gateway, row.interfaceName), row.command);
}

INSTANTIATE_TEST_SUITE_P(StaticIpCommand, StaticIpLine, ::testing::ValuesIn(kStaticIpCases),
                         caseName<StaticIpCase>);

TEST(DhcpCommand, ExactlyTheVerbOnTheDefaultBridge) {
    EXPECT_EQ(dhcpCommand("br0"), "tarnsetup setdhcp");
}

TEST(DhcpCommand, OtherInterfacesAreAppendedAfterABlank) {
    EXPECT_EQ(dhcpCommand("eth1"), "tarnsetup setdhcp eth1");
}

struct ClockValueCase {
    const char* name;
    std::string value;
    ClockValueCheck check;
};

void PrintTo(const ClockValueCase& row, std::ostream* out) {
    *out << row.name;
}

const ClockValueCase kClockValueCases[] = {
    // Fourteen digits are valid.
    {"FourteenDigitsAreValid", "20231115123045", ClockValueCheck::Valid},
    {"DigitsOutOfRangeAreValid", "20231399996099", ClockValueCheck::Valid},  // no range check
    {"FourteenZerosAreValid", "00000000000000", ClockValueCheck::Valid},
    // The length is checked first.
    {"ThirteenDigitsAreTheWrongLength", "2023111512304", ClockValueCheck::WrongLength},
    {"EmptyValueIsTheWrongLength", "", ClockValueCheck::WrongLength},
    {"FifteenDigitsAreTheWrongLength", "202311151230455", ClockValueCheck::WrongLength},
    {"ThirteenLettersAreTheWrongLength", "abcdefghijklm", ClockValueCheck::WrongLength},
    {"TrailingLineFeedIsTheWrongLength", "20231115123045\n", ClockValueCheck::WrongLength},
    // Fourteen characters that are not all digits.
    {"DateWithSeparatorsIsNotNumbers", "2023-11-15T123", ClockValueCheck::NotNumbers},
    {"TrailingBlankIsNotNumbers", "2023111512304 ", ClockValueCheck::NotNumbers},
    {"LeadingBlankIsNotNumbers", " 2023111512304", ClockValueCheck::NotNumbers},
    {"PlusSignIsNotNumbers", "+2023111512304", ClockValueCheck::NotNumbers},
    {"FourteenLettersAreNotNumbers", "abcdefghijklmn", ClockValueCheck::NotNumbers},
    {"TrailingZeroByteIsNotNumbers", std::string("2023111512304\0", 14),
     ClockValueCheck::NotNumbers},
};

class ClockValue : public ::testing::TestWithParam<ClockValueCase> {};

TEST_P(ClockValue, IsCheckedForLengthThenDigits) {
    EXPECT_EQ(checkClockValue(GetParam().value), GetParam().check);
}

INSTANTIATE_TEST_SUITE_P(CheckClockValue, ClockValue, ::testing::ValuesIn(kClockValueCases),
                         caseName<ClockValueCase>);

struct SetClockCase {
    const char* name;
    ControllerType type;
    const char* value;
    std::optional<std::string> command;
};

void PrintTo(const SetClockCase& row, std::ostream* out) {
    *out << row.name;
}

const SetClockCase kSetClockCases[] = {
    // Generic and Arm9 pass the value with its format.
    {"GenericNovemberDate", ControllerType::Generic, "20231115123045",
     "date -u -D %Y%m%d%H%M%S -s 20231115123045"},
    {"Arm9NovemberDate", ControllerType::Arm9, "20231115123045",
     "date -u -D %Y%m%d%H%M%S -s 20231115123045"},
    // Imx puts a full stop before the seconds.
    {"ImxLeapDay", ControllerType::Imx, "20240229235959", "date -u -s 202402292359.59"},
    {"ImxNovemberDate", ControllerType::Imx, "20231115123045", "date -u -s 202311151230.45"},
    // Qmt writes a quoted date and time.
    {"QmtLeapDay", ControllerType::Qmt, "20240229235959", "date -u -s '2024-02-29 23:59:59'"},
    {"QmtNovemberDate", ControllerType::Qmt, "20231115123045", "date -u -s '2023-11-15 12:30:45'"},
    // The parts are cut by position without a range check.
    {"QmtPartsOutOfRange", ControllerType::Qmt, "20231399996099",
     "date -u -s '2023-13-99 99:60:99'"},
    {"ImxPartsOutOfRange", ControllerType::Imx, "20231399996099", "date -u -s 202313999960.99"},
    // No command on an unknown platform.
    {"UnknownPlatform", ControllerType::Unknown, "20231115123045", std::nullopt},
    {"OutOfRangeType", kOutOfRange, "20231115123045", std::nullopt},
};

class SetClockLine : public ::testing::TestWithParam<SetClockCase> {};

TEST_P(SetClockLine, IsTheExactCommand) {
    EXPECT_EQ(setClockCommand(GetParam().type, GetParam().value), GetParam().command);
}

INSTANTIATE_TEST_SUITE_P(SetClockCommand, SetClockLine, ::testing::ValuesIn(kSetClockCases),
                         caseName<SetClockCase>);

TEST(ReadClockCommand, IsTheUtcDateInFourteenDigits) {
    EXPECT_STREQ(command::kReadUtcClock, "date -u +%Y%m%d%H%M%S");
}

struct ClearCase {
    const char* name;
    ServerSetting setting;
    ControllerType type;
    Commands commands;
};

void PrintTo(const ClearCase& row, std::ostream* out) {
    *out << row.name;
}

const ClearCase kClearCases[] = {
    // The time server, by platform.
    {"TimeServerGeneric", ServerSetting::TimeServer, ControllerType::Generic,
     Commands{"ubootenv /dev/mtd1 del timeserver"}},
    {"TimeServerArm9", ServerSetting::TimeServer, ControllerType::Arm9,
     Commands{"rm /etc/tarnsetup.d/timeserver"}},
    {"TimeServerImx", ServerSetting::TimeServer, ControllerType::Imx,
     Commands{"tarnsetup settimeserver --delete"}},
    {"TimeServerQmt", ServerSetting::TimeServer, ControllerType::Qmt,
     Commands{"rm /etc/systemd/timesyncd.conf", "systemctl restart systemd-timesyncd.service"}},
    {"TimeServerUnknown", ServerSetting::TimeServer, ControllerType::Unknown, Commands{}},
    {"TimeServerOutOfRange", ServerSetting::TimeServer, kOutOfRange, Commands{}},
    // The syslog server, by platform.
    {"SyslogServerGeneric", ServerSetting::SyslogServer, ControllerType::Generic,
     Commands{"ubootenv /dev/mtd1 del serverip"}},
    {"SyslogServerArm9", ServerSetting::SyslogServer, ControllerType::Arm9,
     Commands{"rm /etc/tarnsetup.d/syslogserver"}},
    {"SyslogServerImx", ServerSetting::SyslogServer, ControllerType::Imx,
     Commands{"tarnsetup setsyslogserver --delete"}},
    {"SyslogServerQmt", ServerSetting::SyslogServer, ControllerType::Qmt,
     Commands{"tarnsetup setsyslogserver disabled"}},
    {"SyslogServerUnknown", ServerSetting::SyslogServer, ControllerType::Unknown, Commands{}},
    {"SyslogServerOutOfRange", ServerSetting::SyslogServer, kOutOfRange, Commands{}},
    // The name server only on Imx.
    {"NameServerImx", ServerSetting::NameServer, ControllerType::Imx,
     Commands{"tarnsetup setnameserver --delete"}},
    {"NameServerUnknown", ServerSetting::NameServer, ControllerType::Unknown, Commands{}},
    {"NameServerGeneric", ServerSetting::NameServer, ControllerType::Generic, Commands{}},
    {"NameServerArm9", ServerSetting::NameServer, ControllerType::Arm9, Commands{}},
    {"NameServerQmt", ServerSetting::NameServer, ControllerType::Qmt, Commands{}},
    {"NameServerOutOfRange", ServerSetting::NameServer, kOutOfRange, Commands{}},
};

class ClearLines : public ::testing::TestWithParam<ClearCase> {};

TEST_P(ClearLines, AreThePlatformsCommands) {
    EXPECT_EQ(clearCommands(GetParam().setting, GetParam().type), GetParam().commands);
}

INSTANTIATE_TEST_SUITE_P(ClearCommands, ClearLines, ::testing::ValuesIn(kClearCases),
                         caseName<ClearCase>);

TEST(ClearSucceeded, FailsOnlyWhenTheAnswerBeginsWithError) {
    EXPECT_FALSE(clearSucceeded("ERROR: x"));
    EXPECT_FALSE(clearSucceeded("ERROR:"));
    EXPECT_FALSE(clearSucceeded("ERROR"));
    EXPECT_FALSE(clearSucceeded("ERRORS"));
    EXPECT_FALSE(clearSucceeded("ERROR::popen"));
    EXPECT_TRUE(clearSucceeded("ok ERROR"));
    EXPECT_TRUE(clearSucceeded(" ERROR"));
    EXPECT_TRUE(clearSucceeded("error"));
    EXPECT_TRUE(clearSucceeded("ERRO"));
    EXPECT_TRUE(clearSucceeded(""));
}

}  // namespace
}  // namespace lcfd
