// Reading, writing, clearing and the clock against a scripted device: the answers are
// injected through the device shell and every command line is recorded in its order, with
// no stand-in tools on PATH. (The tests beside this one run the same operations through the
// real shell.)

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.hpp"
#include "settings/Settings.hpp"

namespace lcfd {
namespace {

using test::captureOutput;
using test::ScriptedShell;
using Lines = std::vector<std::string>;

TEST(ScriptedDeviceReading, ImxBoardIsAskedEveryQueryInOrderAndItsAnswersKept) {
    ScriptedShell shell;
    shell.answer("tarnsetup getsdk", "imx");
    shell.answer("tarnsetup getmacaddr", "00:1a:2b:3c:4d:5e");
    shell.answer("tarnsetup getipscheme", "DHCP");
    shell.answer("tarnsetup getipaddr", "192.168.1.20");
    shell.answer("route -n | grep ^0.0.0.0 | awk '{ print $2 }'", "192.168.1.1");
    shell.answer("tarnsetup gettimeserver", "10.0.0.5");
    shell.answer("tarnsetup getsyslogserver", "10.0.0.6");
    shell.answer("tarnsetup getnameserver", "8.8.8.8");  // a public resolver: not taken
    shell.answer("tarnsetup sdcard info usage", "No card");
    Settings settings(shell);
    captureOutput([&] { settings.readFromDevice(); });

    EXPECT_EQ(shell.lines(), (Lines{
                                 "tarnsetup getsdk [word]",
                                 "tarnsetup getmacaddr [word]",
                                 "tarnsetup getipscheme [word]",
                                 "tarnsetup getipaddr [word]",
                                 "route -n | grep ^0.0.0.0 | awk '{ print $2 }' [word]",
                                 "tarnsetup gettimeserver [word]",
                                 "tarnsetup getsyslogserver [word]",
                                 "tarnsetup getnameserver [word]",
                                 "hostname [word]",
                                 "ntpq -pn | grep -v LOCL | grep ^* [word]",
                                 "tarnsetup sdcard info usage [word]",
                                 "tarnsetup getsdkversion [word]",
                                 "tarnsetup getmacaddr fromfuses primary [word]",
                                 "tarnsetup getmacaddr fromfuses secondary [word]",
                                 "cat /proc/uptime",
                                 "cat /proc/loadavg",
                                 "Get $(grep HS_REALTIME_SEC_SINCE_1970_BEFORE "
                                 "/etc/tarn/ConfigurationFiles/HardCodedHSSets.xml | sed -e "
                                 "'s/.*value=\"\\([^\"]*\\)\".*/\\1/') [word]",
                             }));
    EXPECT_EQ(settings.getControllerType(), ControllerType::Imx);
    EXPECT_EQ(settings.getMac(), "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(settings.getIpScheme(), "DHCP");
    EXPECT_EQ(settings.getIp(), "192.168.1.20");
    EXPECT_EQ(settings.getGateway(), "192.168.1.1");
    EXPECT_EQ(settings.getNtpIp(), "10.0.0.5");
    EXPECT_EQ(settings.getSyslogIp(), "10.0.0.6");
    EXPECT_EQ(settings.getNameserver(), "");
    EXPECT_EQ(settings.getSdUsage(), "n/a");
}

TEST(ScriptedDeviceWriting, ChangedServersAndSchemeRunTheirLinesInOrder) {
    ScriptedShell shell;
    Settings settings(shell);
    settings.setControllerType(ControllerType::Arm9);
    settings.setIp("192.168.1.20");
    settings.setNetmask("255.255.255.0");
    settings.setGateway("192.168.1.1");
    settings.takeSnapshot();
    settings.setNtpIp("10.0.0.5");
    settings.setSyslogIp("10.0.0.6");
    captureOutput([&] { settings.writeNetworkSettings(); });
    // The syslog server counts as a network setting, so the scheme is written again; on "br0"
    // the interface name is left off, its blank kept.
    EXPECT_EQ(shell.lines(), (Lines{
                                 "tarnsetup settimeserver 10.0.0.5",
                                 "tarnsetup setsyslogserver 10.0.0.6",
                                 "tarnsetup setip 192.168.1.20 255.255.255.0 192.168.1.1 ",
                             }));
}

TEST(ScriptedDeviceWriting, AFailedStepIsReportedAndTheNextStillRuns) {
    ScriptedShell shell;
    shell.runOutcome("tarnsetup settimeserver 10.0.0.5", false);
    Settings settings(shell);
    settings.setControllerType(ControllerType::Imx);
    settings.takeSnapshot();
    settings.setNtpIp("10.0.0.5");
    settings.setNameserver("10.0.0.7");
    const test::CapturedOutput output = captureOutput([&] { settings.writeNetworkSettings(); });
    EXPECT_EQ(shell.lines(), (Lines{
                                 "tarnsetup settimeserver 10.0.0.5",
                                 "tarnsetup setnameserver 10.0.0.7",
                             }));
    EXPECT_EQ(output.err, "lcfd:Error setting ntp IP\n");
}

TEST(ScriptedDeviceClearing, QmtTimeServerRunsBothLinesAndOnlyTheLastAnswerCounts) {
    ScriptedShell shell;
    shell.answer("rm /etc/systemd/timesyncd.conf", "ERROR: no such file");
    Settings settings(shell);
    settings.setControllerType(ControllerType::Qmt);
    EXPECT_TRUE(settings.clearNtpIp());
    EXPECT_EQ(shell.lines(), (Lines{
                                 "rm /etc/systemd/timesyncd.conf [word]",
                                 "systemctl restart systemd-timesyncd.service [word]",
                             }));
}

TEST(ScriptedDeviceClearing, AnswerBeginningWithErrorIsAFailedClear) {
    ScriptedShell shell;
    shell.answer("tarnsetup setsyslogserver --delete", "ERROR");
    Settings settings(shell);
    settings.setControllerType(ControllerType::Imx);
    EXPECT_FALSE(settings.clearSyslogIp());
    EXPECT_EQ(shell.lines(), Lines{"tarnsetup setsyslogserver --delete [word]"});
}

TEST(ScriptedDeviceClock, ACheckedValueIsSetWithThePlatformsDateForm) {
    ScriptedShell shell;
    Settings settings(shell);
    settings.setControllerType(ControllerType::Generic);
    EXPECT_TRUE(settings.setUtcClock("20240229235959"));
    EXPECT_EQ(shell.lines(), Lines{"date -u -D %Y%m%d%H%M%S -s 20240229235959 [word]"});
    EXPECT_EQ(settings.pendingUtcClock(), "20240229235959");
}

TEST(ScriptedDeviceClock, ARefusedValueRunsNothing) {
    ScriptedShell shell;
    Settings settings(shell);
    settings.setControllerType(ControllerType::Generic);
    const test::CapturedOutput output =
        captureOutput([&] { EXPECT_FALSE(settings.setUtcClock("2024")); });
    EXPECT_TRUE(shell.lines().empty());
    EXPECT_EQ(output.err, "lcfd:Invalid format for UTC - length\n");
}

TEST(ScriptedDeviceClock, TheClockIsReadLiveFromDate) {
    ScriptedShell shell;
    shell.answer("date -u +%Y%m%d%H%M%S", "20240229235959");
    const Settings settings(shell);
    EXPECT_EQ(settings.getUtcClock(), "20240229235959");
    EXPECT_EQ(shell.lines(), Lines{"date -u +%Y%m%d%H%M%S [word]"});
}

}  // namespace
}  // namespace lcfd
