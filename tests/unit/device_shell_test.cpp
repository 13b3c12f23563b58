#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "TestSupport.hpp"
#include "device/DeviceShell.hpp"
#include "settings/Settings.hpp"

namespace lcfd {
namespace {

using test::captureOutput;

// Runs the command through a fresh record and checks that nothing reached the console.
std::string run(const std::string& command, bool firstWordOnly) {
    const Settings settings;
    std::string answer;
    const auto output =
        captureOutput([&] { answer = settings.runShellCommand(command, firstWordOnly); });
    EXPECT_EQ(output.out, "") << command;
    EXPECT_EQ(output.err, "") << command;
    return answer;
}

// 600 bytes without a blank: "0123456789" sixty times.
std::string longLine() {
    std::string line;
    for (int i = 0; i < 60; ++i) {
        line += "0123456789";
    }
    return line;
}

TEST(ShellRunner, FirstWordOfALine) {
    EXPECT_EQ(run("printf 'eth0 up\\n'", true), "eth0");
}

TEST(ShellRunner, WholeLineKeepsItsLineFeed) {
    EXPECT_EQ(run("printf 'eth0 up\\n'", false), "eth0 up\n");
}

TEST(ShellRunner, LeadingBlanksAreSkippedForTheFirstWord) {
    EXPECT_EQ(run("printf '   42%%\\n'", true), "42%");
    EXPECT_EQ(run("printf '   42%%\\n'", false), "   42%\n");
}

TEST(ShellRunner, ALineFeedAloneIsEmptyAsAWordAndKeptAsALine) {
    EXPECT_EQ(run("printf '\\n'", true), "");
    EXPECT_EQ(run("printf '\\n'", false), "\n");
}

TEST(ShellRunner, OnlyTheFirstOfSeveralLinesIsRead) {
    EXPECT_EQ(run("printf 'first line\\nsecond line\\n'", false), "first line\n");
    EXPECT_EQ(run("printf 'first line\\nsecond line\\n'", true), "first");
    EXPECT_EQ(run("printf '\\nsecond line\\n'", true), "");
}

TEST(ShellRunner, NoOutputGivesTheEmptyText) {
    EXPECT_EQ(run("exit 1", true), "");
    EXPECT_EQ(run("exit 1", false), "");
    EXPECT_EQ(run("true", false), "");
}

TEST(ShellRunner, ExitStatusIsNotLookedAt) {
    EXPECT_EQ(run("printf 'failed anyway\\n'; exit 3", false), "failed anyway\n");
    EXPECT_EQ(run("printf 'failed anyway\\n'; exit 3", true), "failed");
}

TEST(ShellRunner, ALastLineWithoutLineFeedIsTakenAsItIs) {
    EXPECT_EQ(run("printf 'no end'", false), "no end");
    EXPECT_EQ(run("printf 'no end'", true), "no");
}

TEST(ShellRunner, ALongLineIsCutToItsFirst510Bytes) {
    const std::string line = longLine();
    ASSERT_EQ(line.size(), 600u);
    const std::string command = "printf '%s\\n' '" + line + "'";
    EXPECT_EQ(run(command, false), line.substr(0, 510));
    EXPECT_EQ(run(command, true), line.substr(0, 510));
}

TEST(ShellRunner, ALineOf510BytesAndItsLineFeedComeInTwoReads) {
    // 510 bytes fill the one read; the line feed is left unread.
    const std::string line = longLine().substr(0, 510);
    EXPECT_EQ(run("printf '%s\\n' '" + line + "'", false), line);
    const std::string shorter = line.substr(0, 509);
    EXPECT_EQ(run("printf '%s\\n' '" + shorter + "'", false), shorter + "\n");
}

TEST(ShellRunner, OutputOnStandardErrorIsNotCaptured) {
    const Settings settings;
    std::string answer = "unset";
    const auto output =
        captureOutput([&] { answer = settings.runShellCommand("printf 'oops\\n' >&2", true); });
    EXPECT_EQ(answer, "");
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "oops\n");  // the command's own stream, passed through
}

TEST(ShellRunner, ErrorTextsPrintedByTheCommandAreReturnedUnjudged) {
    EXPECT_EQ(run("printf 'ERROR::no such key\\n'", false), "ERROR::no such key\n");
    EXPECT_EQ(run("printf 'ERROR::no such key\\n'", true), "ERROR::no");
}

TEST(ShellRunner, TheCommandLineReachesTheShellUnchanged) {
    EXPECT_EQ(run("echo \"a  b\" | sed 's/a/x/'", false), "x  b\n");
    EXPECT_EQ(run("echo $(printf 'sub')stituted", true), "substituted");
}

TEST(ShellRunner, TheTextStopsAtTheFirstZeroByte) {
    EXPECT_EQ(run("printf 'ab\\000cd\\n'", false), "ab");
}

TEST(ShellRunner, AWhitespaceOnlyLineGivesNoWord) {
    EXPECT_EQ(run("printf ' \\t\\v\\f\\r \\n'", true), "");
}

// Death-test style child: the open-file limit is lowered so that popen cannot make its pipe.
int checkPopenFailure() {
    const Settings settings;
    rlimit original{};
    if (getrlimit(RLIMIT_NOFILE, &original) != 0) {
        return 10;
    }
    std::string answer;
    bool limitSet = false;
    const auto output = captureOutput([&] {
        rlimit none = original;
        none.rlim_cur = 0;
        limitSet = setrlimit(RLIMIT_NOFILE, &none) == 0;
        answer = settings.runShellCommand("hostname", true);
        setrlimit(RLIMIT_NOFILE, &original);
    });
    if (!limitSet) {
        return 11;
    }
    if (answer != "ERROR::popen") {
        std::fprintf(stderr, "answer: [%s]\n", answer.c_str());
        return 1;
    }
    if (output.err != "lcfd:ERROR::popen:hostname\n") {
        std::fprintf(stderr, "stderr: [%s]\n", output.err.c_str());
        return 2;
    }
    if (!output.out.empty()) {
        std::fprintf(stderr, "stdout: [%s]\n", output.out.c_str());
        return 3;
    }
    return 0;
}

TEST(ShellRunnerDeathTest, PopenFailureAnswersErrorAndLogsTheCommand) {
    // Exit codes: 0 all as expected; 1 wrong answer; 2 wrong error line; 3 stdout not empty;
    // 10 and 11 the limit could not be changed.
    EXPECT_EXIT(std::exit(checkPopenFailure()), testing::ExitedWithCode(0), "");
}

// --- The word rule -----------------------------------------------------------------------

TEST(FirstWord, SkipsEveryKindOfLeadingWhitespace) {
    EXPECT_EQ(firstWord(" word"), "word");
    EXPECT_EQ(firstWord("\tword"), "word");
    EXPECT_EQ(firstWord("\nword"), "word");
    EXPECT_EQ(firstWord("\rword"), "word");
    EXPECT_EQ(firstWord("\vword"), "word");
    EXPECT_EQ(firstWord("\fword"), "word");
    EXPECT_EQ(firstWord(" \t\n\r\v\fword rest"), "word");
}

TEST(FirstWord, EndsBeforeEveryKindOfWhitespace) {
    EXPECT_EQ(firstWord("one two"), "one");
    EXPECT_EQ(firstWord("one\ttwo"), "one");
    EXPECT_EQ(firstWord("one\ntwo"), "one");
    EXPECT_EQ(firstWord("one\rtwo"), "one");
    EXPECT_EQ(firstWord("one\vtwo"), "one");
    EXPECT_EQ(firstWord("one\ftwo"), "one");
}

TEST(FirstWord, WholeTextWhenThereIsNoWhitespace) {
    EXPECT_EQ(firstWord("00:1a:2b:3c:4d:5e"), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(firstWord("ERROR::popen"), "ERROR::popen");
}

TEST(FirstWord, EmptyForEmptyOrWhitespaceOnlyText) {
    EXPECT_EQ(firstWord(""), "");
    EXPECT_EQ(firstWord(" \t\n\r\v\f"), "");
}

TEST(FirstWord, OtherBytesBelongToTheWord) {
    EXPECT_EQ(firstWord("a\xa0"
                        "b c"),
              "a\xa0"
              "b");
    EXPECT_EQ(firstWord("x\x1fy z"), "x\x1fy");
}

}  // namespace
}  // namespace lcfd
