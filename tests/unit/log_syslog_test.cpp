#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <regex>
#include <string>

#include "TestSupport.hpp"
#include "log/Log.hpp"
#include "settings/Settings.hpp"

// The syslog records are read in a child process of their own that starts fresh
// (kFreshProcessDeathTestStyle), so no earlier test has logged yet. The child takes a private mount
// namespace and puts a datagram socket of its own where the C library sends records, /dev/log;
// the host's /dev is never changed.

namespace lcfd {
namespace {

constexpr int kSyslogReaderFailed = 90;

// Receives the records the C library sends to /dev/log in this process's mount namespace.
class PrivateSyslog {
  public:
    // Returns 0, or an exit code naming the set-up step that failed.
    int setUp() {
        diagnostics_ = dup(2);
        char pattern[] = "/tmp/lcfd-syslog-XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            return report(80, "mkdtemp");
        }
        directory_ = pattern;
        socketPath_ = directory_ + "/log";
        socket_ = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socketPath_.c_str(), sizeof address.sun_path - 1);
        if (socket_ < 0 ||
            bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            return report(81, "socket");
        }
        // The console lines are checked elsewhere; here they would only clutter the report.
        const int devNull = open("/dev/null", O_WRONLY);
        if (devNull < 0 || dup2(devNull, 1) < 0 || dup2(devNull, 2) < 0) {
            return report(82, "/dev/null");
        }
        close(devNull);
        if (unshare(CLONE_NEWNS) != 0) {
            return report(83, "unshare(CLONE_NEWNS)");
        }
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            return report(84, "making mounts private");
        }
        struct stat existing {};
        if (lstat("/dev/log", &existing) != 0) {
            // No /dev/log to cover: an empty /dev of this namespace's own gets one.
            if (mount("tmpfs", "/dev", "tmpfs", 0, "mode=0755") != 0) {
                return report(85, "tmpfs over /dev");
            }
            const int placeholder = open("/dev/log", O_WRONLY | O_CREAT | O_EXCL, 0666);
            if (placeholder < 0) {
                return report(86, "creating /dev/log in the private /dev");
            }
            close(placeholder);
        }
        if (mount(socketPath_.c_str(), "/dev/log", nullptr, MS_BIND, nullptr) != 0) {
            return report(87, "bind-mounting the socket over /dev/log");
        }
        return 0;
    }

    ~PrivateSyslog() {
        if (socket_ >= 0) {
            close(socket_);
        }
        if (!socketPath_.empty()) {
            unlink(socketPath_.c_str());
        }
        if (!directory_.empty()) {
            rmdir(directory_.c_str());
        }
    }

    // The next record, or "<none>" when nothing is waiting. A record is sent before syslog()
    // returns, so no waiting is needed.
    std::string next() {
        char buffer[2048];
        const ssize_t length = recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT);
        if (length < 0) {
            return "<none>";
        }
        return std::string(buffer, static_cast<std::size_t>(length));
    }

    // Writes a line to the test's own standard error (the child's fd 2 points elsewhere).
    int report(int code, const std::string& text) const {
        const std::string line = text + "\n";
        if (write(diagnostics_, line.data(), line.size()) < 0) {
            return code;
        }
        return code;
    }

  private:
    int diagnostics_ = 2;
    int socket_ = -1;
    std::string directory_;
    std::string socketPath_;
};

// "<PRI>Mmm dd hh:mm:ss " + the rest, as the C library formats a record; the rest is the
// ident, the process id if asked for, ": " and the message.
bool splitRecord(const std::string& record, int& priority, std::string& rest) {
    static const std::regex format(
        "<([0-9]+)>[A-Z][a-z]{2} [ 1-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] ([\\s\\S]*)");
    std::smatch match;
    if (!std::regex_match(record, match, format)) {
        return false;
    }
    priority = std::stoi(match[1].str());
    rest = match[2].str();
    return true;
}

// Checks the next record against a priority value and the text after the time stamp.
bool expectRecord(PrivateSyslog& syslogReader, int priority, const std::string& rest) {
    const std::string record = syslogReader.next();
    int actualPriority = -1;
    std::string actualRest;
    if (!splitRecord(record, actualPriority, actualRest) || actualPriority != priority ||
        actualRest != rest) {
        syslogReader.report(0, "record [" + record + "], expected <" + std::to_string(priority) +
                                   "> and [" + rest + "]");
        return false;
    }
    return true;
}

// Runs the check in the private namespace and ends the child with its exit code.
[[noreturn]] void runInPrivateSyslog(const std::function<int(PrivateSyslog&)>& check) {
    int code = kSyslogReaderFailed;
    {
        PrivateSyslog syslogReader;
        // cppcheck-suppress redundantInitialization ; the failure code stands until this point
        code = syslogReader.setUp();
        if (code == 0) {
            code = check(syslogReader);
        }
    }
    std::fflush(nullptr);
    _exit(code);
}

constexpr int kDaemon = LOG_DAEMON;  // 3 << 3

struct Severity {
    const char* name;
    void (*log)(const std::string&);
    int priority;
};

class FirstLogMessageDeathTest : public testing::TestWithParam<Severity> {};

TEST_P(FirstLogMessageDeathTest, OpensSyslogAsLcfdWithFacilityDaemon) {
    GTEST_FLAG_SET(death_test_style, test::kFreshProcessDeathTestStyle);
    const Severity severity = GetParam();
    EXPECT_EXIT(
        runInPrivateSyslog([&](PrivateSyslog& records) {
            severity.log("first message");
            if (!expectRecord(records, kDaemon | severity.priority, "lcfd: first message")) {
                return 1;
            }
            return records.next() == "<none>" ? 0 : 2;
        }),
        testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(EverySeverity, FirstLogMessageDeathTest,
                         testing::Values(Severity{"error", &logError, LOG_ERR},
                                         Severity{"warning", &logWarning, LOG_WARNING},
                                         Severity{"info", &logInfo, LOG_INFO},
                                         Severity{"debug", &logDebug, LOG_DEBUG}),
                         [](const testing::TestParamInfo<Severity>& param) {
                             return std::string(param.param.name);
                         });

TEST(LogSyslogDeathTest, RecordsCarryPriorityIdentAndTheMessageUnformatted) {
    GTEST_FLAG_SET(death_test_style, test::kFreshProcessDeathTestStyle);
    EXPECT_EXIT(runInPrivateSyslog([](PrivateSyslog& records) {
                    logError("Error setting ntp IP");
                    logWarning("Invalid format for UTC - length");
                    logInfo("Writing network settings");
                    logDebug("debug detail");
                    logInfo("disk %s at %d 100%");
                    logError("");
                    logInfo(std::string("before\0after", 12));
                    const bool allAsExpected =
                        expectRecord(records, 27, "lcfd: Error setting ntp IP") &&
                        expectRecord(records, 28, "lcfd: Invalid format for UTC - length") &&
                        expectRecord(records, 30, "lcfd: Writing network settings") &&
                        expectRecord(records, 31, "lcfd: debug detail") &&
                        expectRecord(records, 30, "lcfd: disk %s at %d 100%") &&
                        expectRecord(records, 27, "lcfd: ") &&
                        expectRecord(records, 30, "lcfd: before");
                    if (!allAsExpected) {
                        return 1;
                    }
                    return records.next() == "<none>" ? 0 : 2;
                }),
                testing::ExitedWithCode(0), "");
}

TEST(LogSyslogDeathTest, TheConnectionIsOpenedOnlyOnce) {
    GTEST_FLAG_SET(death_test_style, test::kFreshProcessDeathTestStyle);
    EXPECT_EXIT(runInPrivateSyslog([](PrivateSyslog& records) {
                    logInfo("opens");
                    // If a later message opened the connection again, its record would carry
                    // "lcfd" and the daemon facility instead of what is set here.
                    openlog("other", LOG_PID, LOG_USER);
                    logError("error after");
                    logWarning("warning after");
                    logInfo("info after");
                    logDebug("debug after");
                    openLog();
                    logInfo("after openLog");
                    const std::string other = "other[" + std::to_string(getpid()) + "]: ";
                    const bool allAsExpected =
                        expectRecord(records, 30, "lcfd: opens") &&
                        expectRecord(records, LOG_USER | LOG_ERR, other + "error after") &&
                        expectRecord(records, LOG_USER | LOG_WARNING, other + "warning after") &&
                        expectRecord(records, LOG_USER | LOG_INFO, other + "info after") &&
                        expectRecord(records, LOG_USER | LOG_DEBUG, other + "debug after") &&
                        expectRecord(records, LOG_USER | LOG_INFO, other + "after openLog");
                    if (!allAsExpected) {
                        return 1;
                    }
                    return records.next() == "<none>" ? 0 : 2;
                }),
                testing::ExitedWithCode(0), "");
}

TEST(LogSyslogDeathTest, OpenLogOpensWithTheSameIdentityAndLogsNothing) {
    GTEST_FLAG_SET(death_test_style, test::kFreshProcessDeathTestStyle);
    EXPECT_EXIT(runInPrivateSyslog([](PrivateSyslog& records) {
                    openLog();
                    if (records.next() != "<none>") {
                        return 3;
                    }
                    // A record sent directly now shows the identity openLog chose.
                    syslog(LOG_NOTICE, "%s", "direct");
                    logInfo("then logged");
                    const bool allAsExpected = expectRecord(records, 29, "lcfd: direct") &&
                                               expectRecord(records, 30, "lcfd: then logged");
                    if (!allAsExpected) {
                        return 1;
                    }
                    return records.next() == "<none>" ? 0 : 2;
                }),
                testing::ExitedWithCode(0), "");
}

TEST(LogSyslogDeathTest, SettingsOperationsLogAtTheirSeverity) {
    GTEST_FLAG_SET(death_test_style, test::kFreshProcessDeathTestStyle);
    EXPECT_EXIT(runInPrivateSyslog([](PrivateSyslog& records) {
                    // None of these runs a command: they are refused or have nothing to run.
                    Settings settings;
                    settings.setControllerType(ControllerType::Imx);
                    settings.setUtcClock("2023111512304");
                    settings.setUtcClock("2023-11-15T123");
                    if (!settings.setIp("10.0.0.5") || !settings.setNetmask("255.255.255.0")) {
                        return 4;
                    }
                    settings.takeSnapshot();
                    settings.setIp("10.0.0.50");
                    settings.writeNetworkSettings();  // no gateway: nothing to run
                    settings.setIpScheme("static");
                    settings.writeNetworkSettings();  // an unknown scheme: nothing to run
                    const bool allAsExpected =
                        expectRecord(records, 28, "lcfd: Invalid format for UTC - length") &&
                        expectRecord(records, 28, "lcfd: Invalid format for UTC - not numbers") &&
                        expectRecord(records, 30, "lcfd: Writing network settings") &&
                        expectRecord(records, 27,
                                     "lcfd: Missing required parameters for setting static IP.") &&
                        expectRecord(records, 30, "lcfd: Finished writing network settings") &&
                        expectRecord(records, 30, "lcfd: Writing network settings") &&
                        expectRecord(records, 30, "lcfd: Finished writing network settings");
                    if (!allAsExpected) {
                        return 1;
                    }
                    return records.next() == "<none>" ? 0 : 2;
                }),
                testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace lcfd
