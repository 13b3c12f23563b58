#include "TestSupport.hpp"

#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sys/stat.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace lcfd::test {
namespace {

int redirectTo(int fd, const std::string& path) {
    const int saved = dup(fd);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (saved < 0 || file < 0) {
        throw std::runtime_error("cannot redirect a stream for capture");
    }
    dup2(file, fd);
    close(file);
    return saved;
}

void restore(int fd, int saved) {
    dup2(saved, fd);
    close(saved);
}

// The text as one single-quoted shell word.
std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

}  // namespace

CapturedOutput captureOutput(const std::function<void()>& action) {
    TempDir dir;
    const std::string outPath = dir.path() + "/out";
    const std::string errPath = dir.path() + "/err";
    std::fflush(stdout);
    std::fflush(stderr);
    const int savedOut = redirectTo(1, outPath);
    const int savedErr = redirectTo(2, errPath);
    action();
    std::fflush(stdout);
    std::fflush(stderr);
    restore(1, savedOut);
    restore(2, savedErr);
    return CapturedOutput{readFile(outPath), readFile(errPath)};
}

TempDir::TempDir() {
    char pattern[] = "/tmp/lcfd-test-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TempDir::~TempDir() {
    const std::string command = "rm -rf '" + path_ + "'";
    if (std::system(command.c_str()) != 0) {  // NOLINT(cert-env33-c): a scratch directory
        std::fprintf(stderr, "could not remove %s\n", path_.c_str());
    }
}

std::string TempDir::writeFile(const std::string& name, const std::string& content,
                               bool executable) const {
    std::string filePath = path_ + "/" + name;
    {
        std::ofstream file(filePath, std::ios::binary | std::ios::trunc);
        file << content;
    }
    chmod(filePath.c_str(), executable ? 0755 : 0644);
    return filePath;
}

ScopedPathPrefix::ScopedPathPrefix(const std::string& directory) {
    const char* current = std::getenv("PATH");
    previous_ = current != nullptr ? current : "";
    const std::string updated = directory + ":" + previous_;
    setenv("PATH", updated.c_str(), 1);
}

ScopedPathPrefix::~ScopedPathPrefix() {
    setenv("PATH", previous_.c_str(), 1);
}

std::string captureInterleavedOutput(const std::function<void()>& action) {
    TempDir dir;
    const std::string path = dir.path() + "/out";
    std::fflush(stdout);
    std::fflush(stderr);
    const int savedOut = redirectTo(1, path);
    const int savedErr = dup(2);
    if (savedErr < 0) {
        throw std::runtime_error("cannot redirect a stream for capture");
    }
    dup2(1, 2);
    action();
    std::fflush(stdout);
    std::fflush(stderr);
    restore(1, savedOut);
    restore(2, savedErr);
    return readFile(path);
}

ScopedEnvironmentVariable::ScopedEnvironmentVariable(const std::string& name,
                                                     const std::string& value)
    : name_(name) {
    if (const char* current = std::getenv(name.c_str())) {
        hadValue_ = true;
        previous_ = current;
    }
    setenv(name.c_str(), value.c_str(), 1);
    tzset();
}

ScopedEnvironmentVariable::~ScopedEnvironmentVariable() {
    if (hadValue_) {
        setenv(name_.c_str(), previous_.c_str(), 1);
    } else {
        unsetenv(name_.c_str());
    }
    tzset();
}

StandInTools::StandInTools() : path_(dir_.path()) {}

void StandInTools::addTool(const std::string& name,
                           const std::map<std::string, ToolAnswer>& answers,
                           const ToolAnswer& fallback) {
    std::string script =
        "#!/bin/sh\n"
        "args=\n"
        "for arg in \"$@\"; do\n"
        "  case \"$arg\" in\n"
        "    ''|*' '*) args=\"$args '$arg'\" ;;\n"
        "    *) args=\"$args $arg\" ;;\n"
        "  esac\n"
        "done\n"
        "printf '%s\\n' " +
        shellQuoted(name) + "\"$args\" >> " + shellQuoted(dir_.path() + "/calls.log") +
        "\n"
        "case \"${args# }\" in\n";
    for (const auto& [arguments, answer] : answers) {
        script += "  " + shellQuoted(arguments) + ") printf '%s' " + shellQuoted(answer.output) +
                  "; exit " + std::to_string(answer.status) + " ;;\n";
    }
    script +=
        "esac\n"
        "printf '%s' " +
        shellQuoted(fallback.output) + "\nexit " + std::to_string(fallback.status) + "\n";
    dir_.writeFile(name, script, true);
}

std::vector<std::string> StandInTools::calls() const {
    return splitLines(readFile(dir_.path() + "/calls.log"));
}

void StandInTools::clearCalls() const {
    dir_.writeFile("calls.log", "");
}

bool StandInTools::shadows(const std::string& name) const {
    const std::string command = "command -v " + shellQuoted(name);
    // The shell's own lookup is what the daemon's command lines go through.
    std::FILE* pipe = popen(command.c_str(), "r");  // NOLINT(cert-env33-c)
    if (pipe == nullptr) {
        return false;
    }
    char line[4096] = {};
    const bool answered = std::fgets(line, sizeof line, pipe) != nullptr;
    pclose(pipe);
    return answered && std::string(line) == dir_.path() + "/" + name + "\n";
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::string line;
    std::istringstream stream(text);
    while (std::getline(stream, line)) {
        lines.push_back(line);
    }
    return lines;
}

void ScriptedShell::answer(const std::string& command, const std::string& text) {
    answers_[command] = text;
}

void ScriptedShell::runOutcome(const std::string& command, bool succeeds) {
    outcomes_[command] = succeeds;
}

void ScriptedShell::throwFrom(std::size_t count, const std::string& text) {
    throwFrom_ = count;
    throwText_ = text;
}

void ScriptedShell::record(const std::string& line) {
    lines_.push_back(line);
    if (throwFrom_ != 0 && lines_.size() >= throwFrom_) {
        throw std::runtime_error(throwText_);
    }
}

std::string ScriptedShell::query(const std::string& command, bool firstWordOnly) {
    record(firstWordOnly ? command + " [word]" : command);
    const auto found = answers_.find(command);
    return found == answers_.end() ? std::string() : found->second;
}

bool ScriptedShell::run(const std::string& command) {
    record(command);
    const auto found = outcomes_.find(command);
    return found == outcomes_.end() || found->second;
}

bool privateNamespacesAvailable() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(unshare(CLONE_NEWNET) == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool setUpLoopbackAs(const std::string& deviceName, bool up) {
    const int control = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq rename{};
    std::strncpy(rename.ifr_name, "lo", IFNAMSIZ - 1);
    std::strncpy(rename.ifr_newname, deviceName.c_str(), IFNAMSIZ - 1);
    bool done = deviceName == "lo" || ioctl(control, SIOCSIFNAME, &rename) == 0;
    if (!done && errno == ENOSYS) {
        // Under a board's emulator, which does not pass this request on: the build machine's
        // own tool renames it, in the same namespace.
        const std::string command = "ip link set dev lo name " + deviceName;
        done = std::system(command.c_str()) == 0;  // NOLINT(cert-env33-c)
    }
    ifreq flags{};
    std::strncpy(flags.ifr_name, deviceName.c_str(), IFNAMSIZ - 1);
    done = done && ioctl(control, SIOCGIFFLAGS, &flags) == 0;
    if (up) {
        flags.ifr_flags = static_cast<short>(flags.ifr_flags | IFF_UP);
    }
    done = done && ioctl(control, SIOCSIFFLAGS, &flags) == 0;
    close(control);
    return done;
}

bool portIsFree(std::uint16_t port) {
    const int probe = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool bound =
        bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return bound;
}

}  // namespace lcfd::test
