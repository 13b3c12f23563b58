#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "TestSupport.hpp"
#include "settings/Settings.hpp"

// The commands run through stand-ins for tarnsetup and date, first on PATH. Each stand-in
// prints a marker line on standard output, which the daemon does not read: the marker lands
// in the captured output right where the tool ran, after the logged command line.

namespace lcfd {
namespace {

using test::CapturedOutput;
using test::captureInterleavedOutput;
using test::captureOutput;
using test::StandInTools;
using test::ToolAnswer;
using Calls = std::vector<std::string>;

// The daemon writes standard output line by line; this process does the same (set before
// anything is printed) so that a logged line is out before the command it announces runs.
const bool kStdoutLineBuffered = std::setvbuf(stdout, nullptr, _IOLBF, 0) == 0;

constexpr const char* kRan = "(tarnsetup ran)\n";
constexpr const char* kFailed = "(tarnsetup failed)\n";

class WriteNetworkSettings : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(kStdoutLineBuffered);
        tools.addTool("tarnsetup", {}, ToolAnswer{kRan, 0});
        tools.addTool("date");
        ASSERT_TRUE(tools.shadows("tarnsetup"));
        ASSERT_TRUE(tools.shadows("date"));
        ASSERT_TRUE(settings.setIp("10.0.0.5"));
        ASSERT_TRUE(settings.setNetmask("255.255.255.0"));
        ASSERT_TRUE(settings.setGateway("10.0.0.1"));
        ASSERT_TRUE(settings.setNtpIp("10.0.0.8"));
        ASSERT_TRUE(settings.setSyslogIp("10.0.0.6"));
        ASSERT_TRUE(settings.setNameserver("10.0.0.2"));
        settings.setControllerType(ControllerType::Imx);
        settings.takeSnapshot();
    }

    void makeEveryTarnsetupRunFail() { tools.addTool("tarnsetup", {}, ToolAnswer{kFailed, 1}); }

    CapturedOutput write() {
        return captureOutput([&] { settings.writeNetworkSettings(); });
    }
    std::string writeInterleaved() {
        return captureInterleavedOutput([&] { settings.writeNetworkSettings(); });
    }

    StandInTools tools;
    Settings settings;
};

TEST_F(WriteNetworkSettings, NothingChangedRunsAndLogsNothing) {
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{});
}

TEST_F(WriteNetworkSettings, NothingChangedButAPendingClockRunsOnlyTheClock) {
    ASSERT_TRUE(settings.setUtcClock("20240229235959"));
    tools.clearCalls();
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{"date -u -s 202402292359.59"});
    EXPECT_EQ(settings.pendingUtcClock(), "");
    EXPECT_FALSE(settings.hasPendingUtcClock());
}

TEST_F(WriteNetworkSettings, ThePendingClockIsAppliedOnlyOnce) {
    ASSERT_TRUE(settings.setUtcClock("20240229235959"));
    write();
    tools.clearCalls();
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(tools.calls(), Calls{});
}

struct TimeServerCase {
    const char* name;
    ControllerType type;
    const char* line;
};

class TimeServerByPlatform : public WriteNetworkSettings,
                             public testing::WithParamInterface<TimeServerCase> {};

TEST_P(TimeServerByPlatform, RunsThePlatformsVerb) {
    settings.setControllerType(GetParam().type);
    ASSERT_TRUE(settings.setNtpIp("10.0.0.9"));
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, std::string("lcfd:") + GetParam().line + "\n" + kRan +
                              "lcfd:Finished writing ntp IP settings\n");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{GetParam().line});
}

INSTANTIATE_TEST_SUITE_P(
    EveryPlatform, TimeServerByPlatform,
    testing::Values(
        TimeServerCase{"Qmt", ControllerType::Qmt, "tarnsetup timeserver 10.0.0.9"},
        TimeServerCase{"Generic", ControllerType::Generic, "tarnsetup timeserver 10.0.0.9"},
        TimeServerCase{"Imx", ControllerType::Imx, "tarnsetup settimeserver 10.0.0.9"},
        TimeServerCase{"Arm9", ControllerType::Arm9, "tarnsetup settimeserver 10.0.0.9"},
        TimeServerCase{"Unknown", ControllerType::Unknown, "tarnsetup settimeserver 10.0.0.9"}),
    [](const testing::TestParamInfo<TimeServerCase>& param) {
        return std::string(param.param.name);
    });

TEST_F(WriteNetworkSettings, AFailingTimeServerCommandIsReportedAndTheStepClosed) {
    makeEveryTarnsetupRunFail();
    ASSERT_TRUE(settings.setNtpIp("10.0.0.9"));
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, std::string("lcfd:tarnsetup settimeserver 10.0.0.9\n") + kFailed +
                              "lcfd:Finished writing ntp IP settings\n");
    EXPECT_EQ(output.err, "lcfd:Error setting ntp IP\n");
    // The snapshot is not updated, so the same write runs again in full.
    EXPECT_EQ(writeInterleaved(), std::string("lcfd:tarnsetup settimeserver 10.0.0.9\n") + kFailed +
                                      "lcfd:Error setting ntp IP\n"
                                      "lcfd:Finished writing ntp IP settings\n");
    EXPECT_EQ(tools.calls(),
              (Calls{"tarnsetup settimeserver 10.0.0.9", "tarnsetup settimeserver 10.0.0.9"}));
}

TEST_F(WriteNetworkSettings, SyslogServerAloneAlsoReappliesTheStaticAddress) {
    ASSERT_TRUE(settings.setSyslogIp("10.0.0.7"));
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, std::string("lcfd:tarnsetup setsyslogserver 10.0.0.7\n") + kRan +
                              "lcfd:Finished writing syslog IP settings\n"
                              "lcfd:Writing network settings\n"
                              "lcfd:tarnsetup setip 10.0.0.5 255.255.255.0 10.0.0.1 \n" +
                              kRan +
                              "lcfd:Changed to Static IP...\n"
                              "lcfd:Finished writing network settings\n");
    EXPECT_EQ(output.err, "");
    // The shell drops the trailing blank of the setip line when it splits the arguments.
    EXPECT_EQ(tools.calls(), (Calls{"tarnsetup setsyslogserver 10.0.0.7",
                                    "tarnsetup setip 10.0.0.5 255.255.255.0 10.0.0.1"}));
}

TEST_F(WriteNetworkSettings, NameServerAloneDoesNotReachTheNetworkStep) {
    ASSERT_TRUE(settings.setNameserver("10.0.0.3"));
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, std::string("lcfd:tarnsetup setnameserver 10.0.0.3\n") + kRan +
                              "lcfd:Finished writing nameserver settings\n");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{"tarnsetup setnameserver 10.0.0.3"});
}

TEST_F(WriteNetworkSettings, AChangedAddressAppliesTheStaticScheme) {
    ASSERT_TRUE(settings.setIp("10.0.0.50"));
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, std::string("lcfd:Writing network settings\n"
                                      "lcfd:tarnsetup setip 10.0.0.50 255.255.255.0 10.0.0.1 \n") +
                              kRan +
                              "lcfd:Changed to Static IP...\n"
                              "lcfd:Finished writing network settings\n");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{"tarnsetup setip 10.0.0.50 255.255.255.0 10.0.0.1"});
}

TEST_F(WriteNetworkSettings, AChangedNetmaskOrGatewayAppliesTheStaticScheme) {
    ASSERT_TRUE(settings.setNetmask("255.255.0.0"));
    ASSERT_TRUE(settings.setGateway("10.0.0.254"));
    const CapturedOutput output = write();
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{"tarnsetup setip 10.0.0.5 255.255.0.0 10.0.0.254"});
}

TEST_F(WriteNetworkSettings, DhcpRunsExactlySetdhcp) {
    settings.setIpScheme("DHCP");
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, std::string("lcfd:Writing network settings\n"
                                      "lcfd:tarnsetup setdhcp\n") +
                              kRan +
                              "lcfd:Changed to DHCP...\n"
                              "lcfd:Finished writing network settings\n");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{"tarnsetup setdhcp"});
}

TEST_F(WriteNetworkSettings, AFailingDhcpCommandIsReported) {
    makeEveryTarnsetupRunFail();
    settings.setIpScheme("DHCP");
    EXPECT_EQ(writeInterleaved(), std::string("lcfd:Writing network settings\n"
                                              "lcfd:tarnsetup setdhcp\n") +
                                      kFailed +
                                      "lcfd:Error setting DHCP.\n"
                                      "lcfd:Changed to DHCP...\n"
                                      "lcfd:Finished writing network settings\n");
}

TEST_F(WriteNetworkSettings, ALowerCaseSchemeRunsNothing) {
    settings.setIpScheme("static");
    const CapturedOutput output = write();
    EXPECT_EQ(output.out,
              "lcfd:Writing network settings\nlcfd:Finished writing network settings\n");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{});
    settings.setIpScheme("dhcp");
    EXPECT_EQ(write().out,
              "lcfd:Writing network settings\nlcfd:Finished writing network settings\n");
    EXPECT_EQ(tools.calls(), Calls{});
}

TEST(WriteNetworkSettingsMissing, StaticWithoutGatewayRunsNoSetip) {
    StandInTools tools;
    tools.addTool("tarnsetup", {}, ToolAnswer{kRan, 0});
    ASSERT_TRUE(tools.shadows("tarnsetup"));
    Settings settings;
    ASSERT_TRUE(settings.setIp("10.0.0.5"));
    ASSERT_TRUE(settings.setNetmask("255.255.255.0"));
    settings.takeSnapshot();
    ASSERT_TRUE(settings.setIp("10.0.0.50"));
    const CapturedOutput output = captureOutput([&] { settings.writeNetworkSettings(); });
    EXPECT_EQ(output.out,
              "lcfd:Writing network settings\nlcfd:Finished writing network settings\n");
    EXPECT_EQ(output.err, "lcfd:Missing required parameters for setting static IP.\n");
    EXPECT_EQ(captureInterleavedOutput([&] { settings.writeNetworkSettings(); }),
              "lcfd:Writing network settings\n"
              "lcfd:Missing required parameters for setting static IP.\n"
              "lcfd:Finished writing network settings\n");
    EXPECT_EQ(tools.calls(), Calls{});
}

TEST_F(WriteNetworkSettings, SeveralChangesRunInTheFixedOrder) {
    ASSERT_TRUE(settings.setUtcClock("20240229235959"));
    settings.setIpScheme("DHCP");
    ASSERT_TRUE(settings.setNameserver("10.0.0.3"));
    ASSERT_TRUE(settings.setSyslogIp("10.0.0.7"));
    ASSERT_TRUE(settings.setNtpIp("10.0.0.9"));
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, std::string("lcfd:tarnsetup settimeserver 10.0.0.9\n") + kRan +
                              "lcfd:Finished writing ntp IP settings\n"
                              "lcfd:tarnsetup setsyslogserver 10.0.0.7\n" +
                              kRan +
                              "lcfd:Finished writing syslog IP settings\n"
                              "lcfd:tarnsetup setnameserver 10.0.0.3\n" +
                              kRan +
                              "lcfd:Finished writing nameserver settings\n"
                              "lcfd:Writing network settings\n"
                              "lcfd:tarnsetup setdhcp\n" +
                              kRan +
                              "lcfd:Changed to DHCP...\n"
                              "lcfd:Finished writing network settings\n");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(),
              (Calls{"date -u -s 202402292359.59", "tarnsetup settimeserver 10.0.0.9",
                     "tarnsetup setsyslogserver 10.0.0.7", "tarnsetup setnameserver 10.0.0.3",
                     "tarnsetup setdhcp", "date -u -s 202402292359.59"}));
    EXPECT_EQ(settings.pendingUtcClock(), "");
}

TEST_F(WriteNetworkSettings, EveryFailureIsReportedAndTheRemainingStepsRun) {
    makeEveryTarnsetupRunFail();
    ASSERT_TRUE(settings.setUtcClock("20240229235959"));
    ASSERT_TRUE(settings.setNtpIp("10.0.0.9"));
    ASSERT_TRUE(settings.setSyslogIp("10.0.0.7"));
    ASSERT_TRUE(settings.setNameserver("10.0.0.3"));
    tools.clearCalls();
    EXPECT_EQ(writeInterleaved(), std::string("lcfd:tarnsetup settimeserver 10.0.0.9\n") + kFailed +
                                      "lcfd:Error setting ntp IP\n"
                                      "lcfd:Finished writing ntp IP settings\n"
                                      "lcfd:tarnsetup setsyslogserver 10.0.0.7\n" +
                                      kFailed +
                                      "lcfd:Error setting syslog IP\n"
                                      "lcfd:Finished writing syslog IP settings\n"
                                      "lcfd:tarnsetup setnameserver 10.0.0.3\n" +
                                      kFailed +
                                      "lcfd:Error setting nameserver\n"
                                      "lcfd:Finished writing nameserver settings\n"
                                      "lcfd:Writing network settings\n"
                                      "lcfd:tarnsetup setip 10.0.0.5 255.255.255.0 10.0.0.1 \n" +
                                      kFailed +
                                      "lcfd:Error setting static IP.\n"
                                      "lcfd:Changed to Static IP...\n"
                                      "lcfd:Finished writing network settings\n");
    EXPECT_EQ(
        tools.calls(),
        (Calls{"tarnsetup settimeserver 10.0.0.9", "tarnsetup setsyslogserver 10.0.0.7",
               "tarnsetup setnameserver 10.0.0.3",
               "tarnsetup setip 10.0.0.5 255.255.255.0 10.0.0.1", "date -u -s 202402292359.59"}));
}

TEST_F(WriteNetworkSettings, ErrorsGoToStandardErrorAndProgressToStandardOutput) {
    makeEveryTarnsetupRunFail();
    ASSERT_TRUE(settings.setSyslogIp("10.0.0.7"));
    ASSERT_TRUE(settings.setNameserver("10.0.0.3"));
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, std::string("lcfd:tarnsetup setsyslogserver 10.0.0.7\n") + kFailed +
                              "lcfd:Finished writing syslog IP settings\n"
                              "lcfd:tarnsetup setnameserver 10.0.0.3\n" +
                              kFailed +
                              "lcfd:Finished writing nameserver settings\n"
                              "lcfd:Writing network settings\n"
                              "lcfd:tarnsetup setip 10.0.0.5 255.255.255.0 10.0.0.1 \n" +
                              kFailed +
                              "lcfd:Changed to Static IP...\n"
                              "lcfd:Finished writing network settings\n");
    EXPECT_EQ(output.err,
              "lcfd:Error setting syslog IP\n"
              "lcfd:Error setting nameserver\n"
              "lcfd:Error setting static IP.\n");
}

TEST_F(WriteNetworkSettings, ValuesAndSnapshotStayAsTheyWere) {
    makeEveryTarnsetupRunFail();
    ASSERT_TRUE(settings.setNtpIp("10.0.0.9"));
    settings.setIpScheme("DHCP");
    write();
    EXPECT_EQ(settings.ntpipRef(), "10.0.0.9");
    EXPECT_EQ(settings.ipschemeRef(), "DHCP");
    EXPECT_TRUE(settings.ntpipChanged());
    EXPECT_TRUE(settings.ipschemeChanged());
    EXPECT_EQ(settings.getSnapshot()->ntpipRef(), "10.0.0.8");
    EXPECT_EQ(settings.getSnapshot()->ipschemeRef(), "STATIC");
}

TEST_F(WriteNetworkSettings, APendingClockOnAPlatformNoLongerKnownIsDroppedSilently) {
    ASSERT_TRUE(settings.setUtcClock("20240229235959"));
    settings.setControllerType(ControllerType::Unknown);
    tools.clearCalls();
    const CapturedOutput output = write();
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{});
    EXPECT_EQ(settings.pendingUtcClock(), "");
}

}  // namespace
}  // namespace lcfd
