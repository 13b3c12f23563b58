// The command line: --version and the usage text, run directly.
#include <gtest/gtest.h>

#include "Harness.hpp"

namespace e2e {
namespace {

ProcessResult runLcfd(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {lcfdBinary()};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, Seconds(10));
}

// lcfd run with `args` prints its version alone and exits 0.
void expectVersion(const std::vector<std::string>& args) {
    ProcessResult r = runLcfd(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Version: 4.12\n");
    EXPECT_EQ(r.err, "");
}

TEST(CommandLine, VersionPrintsTheVersionAndExitsZero) {
    expectVersion({"--version"});
}

TEST(CommandLine, VersionIgnoresFurtherArguments) {
    expectVersion({"--version", "extra", "--help"});
}

TEST(CommandLine, AnyOtherFirstArgumentPrintsUsageAndExitsZero) {
    for (const char* arg : {"-v", "--Version", "", "--version ", "serve"}) {
        ProcessResult r = runLcfd({arg, "--version"});
        EXPECT_EQ(r.status, 0) << "argument '" << arg << "'";
        EXPECT_EQ(r.out, "Usage: lcfd [--version]\n") << "argument '" << arg << "'";
        EXPECT_EQ(r.err, "") << "argument '" << arg << "'";
    }
}

}  // namespace
}  // namespace e2e
