#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "TestSupport.hpp"
#include "settings/Settings.hpp"

// The clock is set through a stand-in "date" first on PATH: the host clock is never touched.

namespace lcfd {
namespace {

using test::CapturedOutput;
using test::captureOutput;
using test::StandInTools;
using test::ToolAnswer;
using Calls = std::vector<std::string>;

class UtcClock : public testing::Test {
  protected:
    void SetUp() override {
        tools.addTool("date");
        ASSERT_TRUE(tools.shadows("date"));
    }

    // Calls setUtcClock and keeps what it wrote and answered.
    CapturedOutput set(const std::string& value) {
        return captureOutput([&] { accepted = settings.setUtcClock(value); });
    }

    StandInTools tools;
    Settings settings;
    bool accepted = false;
};

TEST_F(UtcClock, ThirteenCharactersAreRejectedForTheirLength) {
    settings.setControllerType(ControllerType::Imx);
    const CapturedOutput output = set("2023111512304");
    EXPECT_FALSE(accepted);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "lcfd:Invalid format for UTC - length\n");
    EXPECT_EQ(tools.calls(), Calls{});
    EXPECT_EQ(settings.pendingUtcClock(), "");
    EXPECT_FALSE(settings.hasPendingUtcClock());
}

TEST_F(UtcClock, TheEmptyTextIsRejectedForItsLength) {
    settings.setControllerType(ControllerType::Qmt);
    const CapturedOutput output = set("");
    EXPECT_FALSE(accepted);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "lcfd:Invalid format for UTC - length\n");
    EXPECT_EQ(tools.calls(), Calls{});
}

TEST_F(UtcClock, ThirteenLettersAreRejectedForTheirLengthFirst) {
    settings.setControllerType(ControllerType::Generic);
    const CapturedOutput output = set("abcdefghijklm");
    EXPECT_FALSE(accepted);
    EXPECT_EQ(output.err, "lcfd:Invalid format for UTC - length\n");
    EXPECT_EQ(tools.calls(), Calls{});
}

TEST_F(UtcClock, FourteenCharactersWithNonDigitsAreNotNumbers) {
    settings.setControllerType(ControllerType::Generic);
    const CapturedOutput output = set("2023-11-15T123");
    EXPECT_FALSE(accepted);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "lcfd:Invalid format for UTC - not numbers\n");
    EXPECT_EQ(tools.calls(), Calls{});
}

TEST_F(UtcClock, AnInvalidValueKeepsTheValuePendingBefore) {
    settings.setControllerType(ControllerType::Imx);
    set("20240229235959");
    ASSERT_TRUE(accepted);
    tools.clearCalls();
    set("2024022923595");
    EXPECT_FALSE(accepted);
    set("2024-02-29 235");
    EXPECT_FALSE(accepted);
    EXPECT_EQ(settings.pendingUtcClock(), "20240229235959");
    EXPECT_EQ(tools.calls(), Calls{});
}

TEST_F(UtcClock, AnUnknownPlatformRunsNothingAndSaysNothing) {
    const CapturedOutput output = set("20231115123045");
    EXPECT_FALSE(accepted);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{});
    EXPECT_EQ(settings.pendingUtcClock(), "");
    EXPECT_FALSE(settings.hasPendingUtcClock());
}

TEST_F(UtcClock, AnOutOfRangePlatformNumberRunsNothing) {
    settings.setControllerType(static_cast<ControllerType>(7));
    const CapturedOutput output = set("20231115123045");
    EXPECT_FALSE(accepted);
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{});
}

struct ClockCase {
    const char* name;
    ControllerType type;
    const char* value;
    const char* call;  // as the stand-in records it
};

class UtcClockByPlatform : public UtcClock, public testing::WithParamInterface<ClockCase> {};

TEST_P(UtcClockByPlatform, RunsThePlatformsDateOnceAndKeepsTheValuePending) {
    const ClockCase clockCase = GetParam();
    settings.setControllerType(clockCase.type);
    const CapturedOutput output = set(clockCase.value);
    EXPECT_TRUE(accepted);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{clockCase.call});
    EXPECT_EQ(settings.pendingUtcClock(), clockCase.value);
    EXPECT_TRUE(settings.hasPendingUtcClock());
}

INSTANTIATE_TEST_SUITE_P(
    EveryKnownPlatform, UtcClockByPlatform,
    testing::Values(
        ClockCase{"Generic", ControllerType::Generic, "20231115123045",
                  "date -u -D %Y%m%d%H%M%S -s 20231115123045"},
        ClockCase{"Arm9", ControllerType::Arm9, "20231115123045",
                  "date -u -D %Y%m%d%H%M%S -s 20231115123045"},
        ClockCase{"Imx", ControllerType::Imx, "20240229235959", "date -u -s 202402292359.59"},
        // The quotes reach the shell: date gets the date and the time as one argument.
        ClockCase{"Qmt", ControllerType::Qmt, "20240229235959", "date -u -s '2024-02-29 23:59:59'"},
        ClockCase{"QmtWithoutRangeCheck", ControllerType::Qmt, "20231399996099",
                  "date -u -s '2023-13-99 99:60:99'"}),
    [](const testing::TestParamInfo<ClockCase>& param) { return std::string(param.param.name); });

TEST_F(UtcClock, AFailingDateIsNotNoticed) {
    tools.addTool("date", {}, ToolAnswer{"date: invalid date\n", 1});
    settings.setControllerType(ControllerType::Imx);
    const CapturedOutput output = set("20240229235959");
    EXPECT_TRUE(accepted);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(settings.pendingUtcClock(), "20240229235959");
}

TEST_F(UtcClock, ALaterValueReplacesThePendingOne) {
    settings.setControllerType(ControllerType::Qmt);
    set("20240229235959");
    set("20250101000000");
    EXPECT_TRUE(accepted);
    EXPECT_EQ(settings.pendingUtcClock(), "20250101000000");
    EXPECT_EQ(tools.calls(),
              (Calls{"date -u -s '2024-02-29 23:59:59'", "date -u -s '2025-01-01 00:00:00'"}));
}

TEST_F(UtcClock, CopyAssignmentLeavesThePendingValueAlone) {
    settings.setControllerType(ControllerType::Imx);
    set("20240229235959");
    Settings target;
    target = settings;
    EXPECT_EQ(target.pendingUtcClock(), "");
    Settings source;
    settings = source;
    EXPECT_EQ(settings.pendingUtcClock(), "20240229235959");
}

TEST_F(UtcClock, ReadingTheClockAnswersWhatDatePrints) {
    tools.addTool("date", {{"-u +%Y%m%d%H%M%S", {"20231115123045\n"}}});
    std::string clock;
    const CapturedOutput output = captureOutput([&] { clock = settings.getUtcClock(); });
    EXPECT_EQ(clock, "20231115123045");
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(tools.calls(), Calls{"date -u +%Y%m%d%H%M%S"});
}

TEST_F(UtcClock, ReadingTheClockPassesAnyAnswerOn) {
    tools.addTool("date", {{"-u +%Y%m%d%H%M%S", {"garbage here\n"}}});
    EXPECT_EQ(settings.getUtcClock(), "garbage");
    tools.addTool("date", {{"-u +%Y%m%d%H%M%S", {""}}});
    EXPECT_EQ(settings.getUtcClock(), "");
}

std::string utcNow() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &utc);
    return text;
}

TEST(UtcClockReading, TheRealClockInFourteenDigits) {
    // Reading only: the system's own date prints the time.
    const Settings settings;
    const std::string before = utcNow();
    const std::string clock = settings.getUtcClock();
    const std::string after = utcNow();
    ASSERT_EQ(clock.size(), 14u) << clock;
    EXPECT_EQ(clock.find_first_not_of("0123456789"), std::string::npos) << clock;
    EXPECT_LE(before, clock);
    EXPECT_LE(clock, after);
}

}  // namespace
}  // namespace lcfd
