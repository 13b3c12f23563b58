#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "TestSupport.hpp"
#include "settings/Settings.hpp"

// The clear commands run through stand-ins for tarnsetup, ubootenv, rm and systemctl, first
// on PATH; each test checks that the shell finds them before anything runs, so no host file
// is ever removed and no service restarted.

namespace lcfd {
namespace {

using test::CapturedOutput;
using test::captureOutput;
using test::StandInTools;
using test::ToolAnswer;
using Calls = std::vector<std::string>;

constexpr const char* kClearTools[] = {"tarnsetup", "ubootenv", "rm", "systemctl"};

enum class Clear { TimeServer, SyslogServer, NameServer };

// What `action` wrote to file descriptors 1 and 2. The files are anonymous: the usual capture
// removes its files with the shell's rm, which these tests replace by a stand-in.
CapturedOutput captureWithoutRm(const std::function<void()>& action) {
    std::FILE* outFile = std::tmpfile();
    std::FILE* errFile = std::tmpfile();
    if (outFile == nullptr || errFile == nullptr) {
        ADD_FAILURE() << "tmpfile";
        return {};
    }
    std::fflush(stdout);
    std::fflush(stderr);
    const int savedOut = dup(1);
    const int savedErr = dup(2);
    dup2(fileno(outFile), 1);
    dup2(fileno(errFile), 2);
    action();
    std::fflush(stdout);
    std::fflush(stderr);
    dup2(savedOut, 1);
    dup2(savedErr, 2);
    close(savedOut);
    close(savedErr);
    CapturedOutput output;
    for (auto [file, text] : {std::pair{outFile, &output.out}, std::pair{errFile, &output.err}}) {
        std::rewind(file);
        char chunk[512];
        std::size_t count = 0;
        while ((count = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
            text->append(chunk, count);
        }
        std::fclose(file);
    }
    return output;
}

bool runClear(Settings& settings, Clear clear) {
    switch (clear) {
        case Clear::TimeServer:
            return settings.clearNtpIp();
        case Clear::SyslogServer:
            return settings.clearSyslogIp();
        case Clear::NameServer:
            return settings.clearNameserver();
    }
    return false;
}

class ClearServer : public testing::Test {
  protected:
    void SetUp() override { installTools(ToolAnswer{"done\n", 0}); }

    // Every tool answers the same for any arguments.
    void installTools(const ToolAnswer& answer) {
        for (const char* name : kClearTools) {
            tools.addTool(name, {}, answer);
            ASSERT_TRUE(tools.shadows(name)) << name;
        }
    }

    bool clear(ControllerType type, Clear which) {
        settings.setControllerType(type);
        bool succeeded = false;
        output = captureWithoutRm([&] { succeeded = runClear(settings, which); });
        return succeeded;
    }

    StandInTools tools;
    Settings settings;
    CapturedOutput output;
};

struct ClearCase {
    const char* name;
    Clear which;
    ControllerType type;
    Calls calls;
};

class ClearByPlatform : public ClearServer, public testing::WithParamInterface<ClearCase> {};

TEST_P(ClearByPlatform, RunsExactlyThePlatformsCommands) {
    EXPECT_TRUE(clear(GetParam().type, GetParam().which));
    EXPECT_EQ(tools.calls(), GetParam().calls);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

TEST_P(ClearByPlatform, AnAnswerBeginningWithErrorFails) {
    installTools(ToolAnswer{"ERROR: cannot delete\n", 1});
    const bool ranSomething = !GetParam().calls.empty();
    EXPECT_EQ(clear(GetParam().type, GetParam().which), !ranSomething);
    EXPECT_EQ(tools.calls(), GetParam().calls);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

TEST_P(ClearByPlatform, ErrorLaterInTheLineStillSucceeds) {
    installTools(ToolAnswer{"deleted; ERROR log rotated\n", 0});
    EXPECT_TRUE(clear(GetParam().type, GetParam().which));
    EXPECT_EQ(tools.calls(), GetParam().calls);
}

TEST_P(ClearByPlatform, NoAnswerSucceeds) {
    installTools(ToolAnswer{"", 1});
    EXPECT_TRUE(clear(GetParam().type, GetParam().which));
    EXPECT_EQ(tools.calls(), GetParam().calls);
}

const Calls kNone{};

INSTANTIATE_TEST_SUITE_P(
    EveryOperationAndPlatform, ClearByPlatform,
    testing::Values(
        ClearCase{"NtpGeneric",
                  Clear::TimeServer,
                  ControllerType::Generic,
                  {"ubootenv /dev/mtd1 del timeserver"}},
        ClearCase{
            "NtpArm9", Clear::TimeServer, ControllerType::Arm9, {"rm /etc/tarnsetup.d/timeserver"}},
        ClearCase{
            "NtpImx", Clear::TimeServer, ControllerType::Imx, {"tarnsetup settimeserver --delete"}},
        ClearCase{
            "NtpQmt",
            Clear::TimeServer,
            ControllerType::Qmt,
            {"rm /etc/systemd/timesyncd.conf", "systemctl restart systemd-timesyncd.service"}},
        ClearCase{"NtpUnknown", Clear::TimeServer, ControllerType::Unknown, kNone},
        ClearCase{"SyslogGeneric",
                  Clear::SyslogServer,
                  ControllerType::Generic,
                  {"ubootenv /dev/mtd1 del serverip"}},
        ClearCase{"SyslogArm9",
                  Clear::SyslogServer,
                  ControllerType::Arm9,
                  {"rm /etc/tarnsetup.d/syslogserver"}},
        ClearCase{"SyslogImx",
                  Clear::SyslogServer,
                  ControllerType::Imx,
                  {"tarnsetup setsyslogserver --delete"}},
        ClearCase{"SyslogQmt",
                  Clear::SyslogServer,
                  ControllerType::Qmt,
                  {"tarnsetup setsyslogserver disabled"}},
        ClearCase{"SyslogUnknown", Clear::SyslogServer, ControllerType::Unknown, kNone},
        ClearCase{"NameserverGeneric", Clear::NameServer, ControllerType::Generic, kNone},
        ClearCase{"NameserverArm9", Clear::NameServer, ControllerType::Arm9, kNone},
        ClearCase{"NameserverImx",
                  Clear::NameServer,
                  ControllerType::Imx,
                  {"tarnsetup setnameserver --delete"}},
        ClearCase{"NameserverQmt", Clear::NameServer, ControllerType::Qmt, kNone},
        ClearCase{"NameserverUnknown", Clear::NameServer, ControllerType::Unknown, kNone}),
    [](const testing::TestParamInfo<ClearCase>& param) { return std::string(param.param.name); });

TEST_F(ClearServer, QmtTimeServerRunsBothEvenWhenTheFirstFails) {
    tools.addTool("rm", {}, ToolAnswer{"ERROR: no such file\n", 1});
    EXPECT_TRUE(clear(ControllerType::Qmt, Clear::TimeServer));
    EXPECT_EQ(tools.calls(), (Calls{"rm /etc/systemd/timesyncd.conf",
                                    "systemctl restart systemd-timesyncd.service"}));
}

TEST_F(ClearServer, QmtTimeServerResultComesFromTheRestart) {
    tools.addTool("rm", {}, ToolAnswer{"", 0});
    tools.addTool("systemctl", {}, ToolAnswer{"ERROR: unit not found\n", 5});
    EXPECT_FALSE(clear(ControllerType::Qmt, Clear::TimeServer));
    EXPECT_EQ(tools.calls(), (Calls{"rm /etc/systemd/timesyncd.conf",
                                    "systemctl restart systemd-timesyncd.service"}));
}

TEST_F(ClearServer, OnlyTheFirstWordCounts) {
    tools.addTool("tarnsetup", {}, ToolAnswer{"  ERROR:\n", 0});
    EXPECT_FALSE(clear(ControllerType::Imx, Clear::SyslogServer));
    tools.addTool("tarnsetup", {}, ToolAnswer{"ok ERROR\n", 0});
    EXPECT_TRUE(clear(ControllerType::Imx, Clear::SyslogServer));
    tools.addTool("tarnsetup", {}, ToolAnswer{"first line\nERROR: second line\n", 0});
    EXPECT_TRUE(clear(ControllerType::Imx, Clear::SyslogServer));
    tools.addTool("tarnsetup", {}, ToolAnswer{"ERRORS\n", 0});
    EXPECT_FALSE(clear(ControllerType::Imx, Clear::SyslogServer));
}

TEST_F(ClearServer, TheToolsOwnErrorStreamIsNotJudged) {
    // rm and systemctl complain on standard error; that still counts as success.
    tools.addTool("rm", {}, ToolAnswer{"", 1});
    EXPECT_TRUE(clear(ControllerType::Arm9, Clear::TimeServer));
}

TEST_F(ClearServer, TheValuesInMemoryAreKept) {
    ASSERT_TRUE(settings.setNtpIp("10.0.0.8"));
    ASSERT_TRUE(settings.setSyslogIp("10.0.0.6"));
    ASSERT_TRUE(settings.setNameserver("10.0.0.2"));
    settings.takeSnapshot();
    EXPECT_TRUE(clear(ControllerType::Imx, Clear::TimeServer));
    EXPECT_TRUE(clear(ControllerType::Imx, Clear::SyslogServer));
    EXPECT_TRUE(clear(ControllerType::Imx, Clear::NameServer));
    EXPECT_EQ(settings.ntpipRef(), "10.0.0.8");
    EXPECT_EQ(settings.syslogipRef(), "10.0.0.6");
    EXPECT_EQ(settings.nameserverRef(), "10.0.0.2");
    EXPECT_FALSE(settings.ntpipChanged());
    EXPECT_FALSE(settings.syslogipChanged());
    EXPECT_FALSE(settings.nameserverChanged());
}

// Death-test style child: with no file descriptors left, popen fails for the clear command.
int checkClearWithoutPopen() {
    Settings settings;
    settings.setControllerType(ControllerType::Imx);
    rlimit original{};
    if (getrlimit(RLIMIT_NOFILE, &original) != 0) {
        return 10;
    }
    bool succeeded = true;
    const CapturedOutput output = captureOutput([&] {
        rlimit none = original;
        none.rlim_cur = 0;
        setrlimit(RLIMIT_NOFILE, &none);
        succeeded = settings.clearSyslogIp();
        setrlimit(RLIMIT_NOFILE, &original);
    });
    if (succeeded) {
        return 1;
    }
    if (output.err != "lcfd:ERROR::popen:tarnsetup setsyslogserver --delete\n") {
        std::fprintf(stderr, "stderr: [%s]\n", output.err.c_str());
        return 2;
    }
    return output.out.empty() ? 0 : 3;
}

TEST(ClearServerDeathTest, ACommandThatCannotStartFails) {
    // Exit codes: 0 as expected; 1 reported success; 2 wrong error line; 3 stdout not empty.
    EXPECT_EXIT(std::exit(checkClearWithoutPopen()), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace lcfd
