#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "settings/Settings.hpp"

TEST(SettingsSmoke, CapturesWhatTheRunnerLogs) {
    const auto output = lcfd::test::captureOutput([] { std::printf("x\n"); });
    EXPECT_EQ(output.out, "x\n");
    EXPECT_EQ(output.err, "");
}
