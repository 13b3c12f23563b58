#include <gtest/gtest.h>

#include <string>

#include "TestSupport.hpp"
#include "log/Log.hpp"

namespace lcfd {
namespace {

using test::captureOutput;

TEST(LogConsole, ErrorGoesToStandardErrorOnly) {
    const auto output = captureOutput([] { logError("Error setting ntp IP"); });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "lcfd:Error setting ntp IP\n");
}

TEST(LogConsole, WarningGoesToStandardErrorOnly) {
    const auto output = captureOutput([] { logWarning("Invalid format for UTC - length"); });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "lcfd:Invalid format for UTC - length\n");
}

TEST(LogConsole, InfoGoesToStandardOutputOnly) {
    const auto output = captureOutput([] { logInfo("Writing network settings"); });
    EXPECT_EQ(output.out, "lcfd:Writing network settings\n");
    EXPECT_EQ(output.err, "");
}

TEST(LogConsole, DebugGoesToStandardOutputOnly) {
    const auto output = captureOutput([] { logDebug("debug detail"); });
    EXPECT_EQ(output.out, "lcfd:debug detail\n");
    EXPECT_EQ(output.err, "");
}

TEST(LogConsole, EmptyMessageIsThePrefixAndALineFeed) {
    const auto output = captureOutput([] {
        logInfo("");
        logDebug("");
        logError("");
        logWarning("");
    });
    EXPECT_EQ(output.out, "lcfd:\nlcfd:\n");
    EXPECT_EQ(output.err, "lcfd:\nlcfd:\n");
}

TEST(LogConsole, PercentSignsArePrintedLiterally) {
    const auto output = captureOutput([] {
        logInfo("%s %d 100%");
        logError("%n%x%%");
    });
    EXPECT_EQ(output.out, "lcfd:%s %d 100%\n");
    EXPECT_EQ(output.err, "lcfd:%n%x%%\n");
}

TEST(LogConsole, AMessageStopsAtItsFirstNul) {
    const std::string message("before\0after", 12);
    const auto output = captureOutput([&] {
        logInfo(message);
        logWarning(message);
    });
    EXPECT_EQ(output.out, "lcfd:before\n");
    EXPECT_EQ(output.err, "lcfd:before\n");
}

TEST(LogConsole, AMessageIsNotTrimmedOrChanged) {
    const auto output = captureOutput([] { logInfo(" tarnsetup setip 10.0.0.5 \t"); });
    EXPECT_EQ(output.out, "lcfd: tarnsetup setip 10.0.0.5 \t\n");
}

TEST(LogConsole, EachMessageIsOneLineInCallOrder) {
    const auto output = captureOutput([] {
        logInfo("one");
        logError("two");
        logDebug("three");
        logWarning("four");
    });
    EXPECT_EQ(output.out, "lcfd:one\nlcfd:three\n");
    EXPECT_EQ(output.err, "lcfd:two\nlcfd:four\n");
}

TEST(LogConsole, OpenLogWritesNothing) {
    const auto output = captureOutput([] { openLog(); });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

}  // namespace
}  // namespace lcfd
