#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "device/DeviceCommands.hpp"
#include "wire/Validators.hpp"

namespace lcfd {
namespace {

using Commands = std::vector<std::string>;

constexpr ControllerType kOutOfRange = static_cast<ControllerType>(7);

TEST(TimeServerCommand, GenericAndQmtTakeTheShortVerb) {
    EXPECT_EQ(timeServerCommand(ControllerType::Qmt, "10.0.0.9"), "tarnsetup timeserver 10.0.0.9");
    EXPECT_EQ(timeServerCommand(ControllerType::Generic, "10.0.0.9"),
              "tarnsetup timeserver 10.0.0.9");
}

TEST(TimeServerCommand, EveryOtherTypeTakesSettimeserver) {
    EXPECT_EQ(timeServerCommand(ControllerType::Imx, "10.0.0.9"),
              "tarnsetup settimeserver 10.0.0.9");
    EXPECT_EQ(timeServerCommand(ControllerType::Arm9, "10.0.0.9"),
              "tarnsetup settimeserver 10.0.0.9");
    EXPECT_EQ(timeServerCommand(ControllerType::Unknown, "10.0.0.9"),
              "tarnsetup settimeserver 10.0.0.9");
    EXPECT_EQ(timeServerCommand(kOutOfRange, "10.0.0.9"), "tarnsetup settimeserver 10.0.0.9");
}

TEST(TimeServerCommand, TheValueIsAppendedAsStored) {
    EXPECT_EQ(timeServerCommand(ControllerType::Imx, ""), "tarnsetup settimeserver ");
}

TEST(ServerCommands, SyslogAndNameServer) {
    EXPECT_EQ(syslogServerCommand("10.0.0.7"), "tarnsetup setsyslogserver 10.0.0.7");
    EXPECT_EQ(nameServerCommand("10.0.0.3"), "tarnsetup setnameserver 10.0.0.3");
}

TEST(StaticIpCommand, OnTheDefaultBridgeItEndsInABlank) {
    EXPECT_EQ(staticIpCommand("10.0.0.5", "255.255.255.0", "10.0.0.1", "br0"),
              std::optional<std::string>("tarnsetup setip 10.0.0.5 255.255.255.0 10.0.0.1 "));
}

TEST(StaticIpCommand, OtherInterfacesEndInTheirName) {
    EXPECT_EQ(staticIpCommand("10.0.0.5", "255.255.255.0", "10.0.0.1", "eth1"),
              std::optional<std::string>("tarnsetup setip 10.0.0.5 255.255.255.0 10.0.0.1 eth1"));
}

TEST(StaticIpCommand, AMissingParameterGivesNoCommand) {
    EXPECT_EQ(staticIpCommand("", "255.255.255.0", "10.0.0.1", "br0"), std::nullopt);
    EXPECT_EQ(staticIpCommand("10.0.0.5", "", "10.0.0.1", "br0"), std::nullopt);
    EXPECT_EQ(staticIpCommand("10.0.0.5", "255.255.255.0", "", "br0"), std::nullopt);
    EXPECT_EQ(staticIpCommand("", "", "", "eth1"), std::nullopt);
}

TEST(DhcpCommand, ExactlyTheVerbOnTheDefaultBridge) {
    EXPECT_EQ(dhcpCommand("br0"), "tarnsetup setdhcp");
}

TEST(DhcpCommand, OtherInterfacesAreAppendedAfterABlank) {
    EXPECT_EQ(dhcpCommand("eth1"), "tarnsetup setdhcp eth1");
}

TEST(CheckClockValue, FourteenDigitsAreValid) {
    EXPECT_EQ(checkClockValue("20231115123045"), ClockValueCheck::Valid);
    EXPECT_EQ(checkClockValue("20231399996099"), ClockValueCheck::Valid);  // no range check
    EXPECT_EQ(checkClockValue("00000000000000"), ClockValueCheck::Valid);
}

TEST(CheckClockValue, TheLengthIsCheckedFirst) {
    EXPECT_EQ(checkClockValue("2023111512304"), ClockValueCheck::WrongLength);
    EXPECT_EQ(checkClockValue(""), ClockValueCheck::WrongLength);
    EXPECT_EQ(checkClockValue("202311151230455"), ClockValueCheck::WrongLength);
    EXPECT_EQ(checkClockValue("abcdefghijklm"), ClockValueCheck::WrongLength);
    EXPECT_EQ(checkClockValue("20231115123045\n"), ClockValueCheck::WrongLength);
}

TEST(CheckClockValue, FourteenCharactersThatAreNotAllDigits) {
    EXPECT_EQ(checkClockValue("2023-11-15T123"), ClockValueCheck::NotNumbers);
    EXPECT_EQ(checkClockValue("2023111512304 "), ClockValueCheck::NotNumbers);
    EXPECT_EQ(checkClockValue(" 2023111512304"), ClockValueCheck::NotNumbers);
    EXPECT_EQ(checkClockValue("+2023111512304"), ClockValueCheck::NotNumbers);
    EXPECT_EQ(checkClockValue("abcdefghijklmn"), ClockValueCheck::NotNumbers);
    EXPECT_EQ(checkClockValue(std::string("2023111512304\0", 14)), ClockValueCheck::NotNumbers);
}

TEST(SetClockCommand, GenericAndArm9PassTheValueWithItsFormat) {
    EXPECT_EQ(setClockCommand(ControllerType::Generic, "20231115123045"),
              std::optional<std::string>("date -u -D %Y%m%d%H%M%S -s 20231115123045"));
    EXPECT_EQ(setClockCommand(ControllerType::Arm9, "20231115123045"),
              std::optional<std::string>("date -u -D %Y%m%d%H%M%S -s 20231115123045"));
}

TEST(SetClockCommand, ImxPutsAFullStopBeforeTheSeconds) {
    EXPECT_EQ(setClockCommand(ControllerType::Imx, "20240229235959"),
              std::optional<std::string>("date -u -s 202402292359.59"));
    EXPECT_EQ(setClockCommand(ControllerType::Imx, "20231115123045"),
              std::optional<std::string>("date -u -s 202311151230.45"));
}

TEST(SetClockCommand, QmtWritesAQuotedDateAndTime) {
    EXPECT_EQ(setClockCommand(ControllerType::Qmt, "20240229235959"),
              std::optional<std::string>("date -u -s '2024-02-29 23:59:59'"));
    EXPECT_EQ(setClockCommand(ControllerType::Qmt, "20231115123045"),
              std::optional<std::string>("date -u -s '2023-11-15 12:30:45'"));
}

TEST(SetClockCommand, PartsAreCutByPositionWithoutRangeCheck) {
    EXPECT_EQ(setClockCommand(ControllerType::Qmt, "20231399996099"),
              std::optional<std::string>("date -u -s '2023-13-99 99:60:99'"));
    EXPECT_EQ(setClockCommand(ControllerType::Imx, "20231399996099"),
              std::optional<std::string>("date -u -s 202313999960.99"));
}

TEST(SetClockCommand, NoCommandOnAnUnknownPlatform) {
    EXPECT_EQ(setClockCommand(ControllerType::Unknown, "20231115123045"), std::nullopt);
    EXPECT_EQ(setClockCommand(kOutOfRange, "20231115123045"), std::nullopt);
}

TEST(ReadClockCommand, IsTheUtcDateInFourteenDigits) {
    EXPECT_STREQ(command::kReadUtcClock, "date -u +%Y%m%d%H%M%S");
}

TEST(ClearCommands, TimeServerByPlatform) {
    EXPECT_EQ(clearCommands(ServerSetting::TimeServer, ControllerType::Generic),
              Commands{"ubootenv /dev/mtd1 del timeserver"});
    EXPECT_EQ(clearCommands(ServerSetting::TimeServer, ControllerType::Arm9),
              Commands{"rm /etc/tarnsetup.d/timeserver"});
    EXPECT_EQ(clearCommands(ServerSetting::TimeServer, ControllerType::Imx),
              Commands{"tarnsetup settimeserver --delete"});
    EXPECT_EQ(clearCommands(ServerSetting::TimeServer, ControllerType::Qmt),
              (Commands{"rm /etc/systemd/timesyncd.conf",
                        "systemctl restart systemd-timesyncd.service"}));
    EXPECT_EQ(clearCommands(ServerSetting::TimeServer, ControllerType::Unknown), Commands{});
    EXPECT_EQ(clearCommands(ServerSetting::TimeServer, kOutOfRange), Commands{});
}

TEST(ClearCommands, SyslogServerByPlatform) {
    EXPECT_EQ(clearCommands(ServerSetting::SyslogServer, ControllerType::Generic),
              Commands{"ubootenv /dev/mtd1 del serverip"});
    EXPECT_EQ(clearCommands(ServerSetting::SyslogServer, ControllerType::Arm9),
              Commands{"rm /etc/tarnsetup.d/syslogserver"});
    EXPECT_EQ(clearCommands(ServerSetting::SyslogServer, ControllerType::Imx),
              Commands{"tarnsetup setsyslogserver --delete"});
    EXPECT_EQ(clearCommands(ServerSetting::SyslogServer, ControllerType::Qmt),
              Commands{"tarnsetup setsyslogserver disabled"});
    EXPECT_EQ(clearCommands(ServerSetting::SyslogServer, ControllerType::Unknown), Commands{});
    EXPECT_EQ(clearCommands(ServerSetting::SyslogServer, kOutOfRange), Commands{});
}

TEST(ClearCommands, NameServerOnlyOnImx) {
    EXPECT_EQ(clearCommands(ServerSetting::NameServer, ControllerType::Imx),
              Commands{"tarnsetup setnameserver --delete"});
    for (const ControllerType type : {ControllerType::Unknown, ControllerType::Generic,
                                      ControllerType::Arm9, ControllerType::Qmt, kOutOfRange}) {
        EXPECT_EQ(clearCommands(ServerSetting::NameServer, type), Commands{})
            << static_cast<int>(type);
    }
}

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
