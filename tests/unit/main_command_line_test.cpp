#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>
#include "wire/Protocol.hpp"

// The built daemon is run with command lines that answer at once. It is never started
// without arguments here: that would bind the service port and run device commands.

namespace {

// The words that start the built daemon: its path, after the emulator's command line when it
// was built for another machine (the kernel here would refuse to run it directly).
std::vector<std::string> lcfdLaunchWords() {
    std::vector<std::string> words;
    std::istringstream launcher(LCFD_LAUNCHER);
    for (std::string word; launcher >> word;) {
        words.push_back(word);
    }
    words.emplace_back(LCFD_BINARY);
    return words;
}

struct ProcessResult {
    std::string out;
    std::string err;
    int status = -1;  // wait status
};

// Reads both pipes to their end, whichever has data first.
void drain(int outFd, int errFd, ProcessResult& run) {
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    std::string* targets[2] = {&run.out, &run.err};
    int open = 2;
    while (open > 0) {
        if (poll(fds, 2, -1) < 0) {
            return;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) {
                continue;
            }
            char chunk[4096];
            const ssize_t count = read(fds[i].fd, chunk, sizeof chunk);
            if (count > 0) {
                targets[i]->append(chunk, static_cast<std::size_t>(count));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
}

ProcessResult runLcfd(const std::vector<std::string>& arguments) {
    ProcessResult run;
    int outPipe[2];
    int errPipe[2];
    if (pipe(outPipe) != 0 || pipe(errPipe) != 0) {
        ADD_FAILURE() << "pipe";
        return run;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
    posix_spawn_file_actions_addclose(&actions, outPipe[0]);
    posix_spawn_file_actions_addclose(&actions, errPipe[0]);
    posix_spawn_file_actions_addclose(&actions, outPipe[1]);
    posix_spawn_file_actions_addclose(&actions, errPipe[1]);

    std::vector<std::string> words = lcfdLaunchWords();
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    pid_t child = 0;
    const int spawned = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(outPipe[1]);
    close(errPipe[1]);
    if (spawned != 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        ADD_FAILURE() << "posix_spawn " << words.front() << ": " << spawned;
        return run;
    }
    drain(outPipe[0], errPipe[0], run);
    waitpid(child, &run.status, 0);
    return run;
}

bool exitedWithZero(int status) {
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(CommandLine, VersionPrintsTheVersion) {
    const ProcessResult run = runLcfd({"--version"});
    EXPECT_EQ(run.out, std::string("Version: ") + lcfd::kVersion + "\n");
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(exitedWithZero(run.status)) << run.status;
}

TEST(CommandLine, FurtherArgumentsAfterVersionAreIgnored) {
    const ProcessResult run = runLcfd({"--version", "extra"});
    EXPECT_EQ(run.out, std::string("Version: ") + lcfd::kVersion + "\n");
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(exitedWithZero(run.status)) << run.status;
    const ProcessResult twice = runLcfd({"--version", "--version", "-v"});
    EXPECT_EQ(twice.out, std::string("Version: ") + lcfd::kVersion + "\n");
    EXPECT_EQ(twice.err, "");
    EXPECT_TRUE(exitedWithZero(twice.status)) << twice.status;
}

class UsageText : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(UsageText, AnyOtherFirstArgumentPrintsTheUsage) {
    const ProcessResult run = runLcfd(GetParam());
    EXPECT_EQ(run.out, "Usage: lcfd [--version]\n");
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(exitedWithZero(run.status)) << run.status;
}

INSTANTIATE_TEST_SUITE_P(
    OtherArguments, UsageText,
    testing::Values(std::vector<std::string>{"-v"}, std::vector<std::string>{"--Version"},
                    std::vector<std::string>{""}, std::vector<std::string>{"--version="},
                    std::vector<std::string>{"--versio"}, std::vector<std::string>{" --version"},
                    std::vector<std::string>{"--version "},
                    std::vector<std::string>{"extra", "--version"},
                    std::vector<std::string>{"--help"}));

}  // namespace
