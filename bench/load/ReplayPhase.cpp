#include "ReplayPhase.hpp"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>

namespace load {

namespace {

// What the daemon's popen reader takes of a command's output (one line of up to 510 bytes).
constexpr int kCommandOutputReadLimit = 511;

// Where the daemon runs: its namespaces (open descriptors), working directory and environment
// (as /proc/PID/environ has it).
struct Place {
    int netns = -1;
    int mntns = -1;
    std::string cwd;
    std::string environ;
};

// Moves the calling process into the daemon's place.  Single-threaded only (after fork), so
// that the mount namespace can be joined.  The environment's texts are kept in `variables`,
// which putenv points into.
bool enter(const Place& place, std::vector<std::string>& variables) {
    if (place.netns < 0 || place.mntns < 0 || setns(place.netns, CLONE_NEWNET) != 0 ||
        setns(place.mntns, CLONE_NEWNS) != 0 || chdir(place.cwd.c_str()) != 0 || clearenv() != 0) {
        return false;
    }
    for (std::size_t at = 0; at < place.environ.size();) {
        const std::size_t end = place.environ.find('\0', at);
        variables.push_back(place.environ.substr(at, end - at));
        at = end == std::string::npos ? place.environ.size() : end + 1;
    }
    for (std::string& v : variables) {
        putenv(v.data());
    }
    return true;
}

// The rounds of the lines, each line's first line of output taken as the daemon takes it;
// "TOTAL OWN ANSWERED": the wall seconds, this process's own CPU seconds, and how many lines
// answered.  Empty when popen fails.
std::string timeRounds(const std::vector<std::string>& lines, std::size_t rounds) {
    char buffer[kCommandOutputReadLimit + 1];
    timespec cpu0{};
    timespec cpu1{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu0);
    const auto start = Clock::now();
    std::size_t answered = 0;
    for (std::size_t r = 0; r < rounds; ++r) {
        for (const std::string& line : lines) {
            std::FILE* pipe = popen(line.c_str(), "r");  // NOLINT(cert-env33-c)
            if (pipe == nullptr) {
                return "";
            }
            // Taken as the daemon takes it: the first line, copied.
            if (std::fgets(buffer, kCommandOutputReadLimit, pipe) != nullptr) {
                const std::string answer = buffer;
                answered += answer.empty() ? 0U : 1U;
            }
            pclose(pipe);
        }
    }
    const double total = Seconds(Clock::now() - start).count();
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu1);
    const double own = static_cast<double>(cpu1.tv_sec - cpu0.tv_sec) +
                       static_cast<double>(cpu1.tv_nsec - cpu0.tv_nsec) / 1e9;
    return std::to_string(total) + " " + std::to_string(own) + " " + std::to_string(answered);
}

// The child's whole life: into the daemon's place, the rounds, the figures down the pipe.
[[noreturn]] void replayAndExit(const Place& place, const std::vector<std::string>& lines,
                                std::size_t rounds, int resultFd) {
    std::vector<std::string> variables;
    if (!enter(place, variables)) {
        _exit(1);
    }
    const std::string text = timeRounds(lines, rounds);
    if (text.empty()) {
        _exit(1);
    }
    const ssize_t written = write(resultFd, text.data(), text.size());
    _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
}

}  // namespace

bool ReplayPhase::measure() {
    if (commandLines_.empty() || wallPerQuery_ <= 0) {
        return false;
    }
    const std::size_t rounds = roundsWithinDeadline();
    const std::optional<std::string> figures = replayInController(rounds);
    if (!figures) {
        return false;
    }
    if (figures->empty()) {
        run_.report.note("device replay: did not finish");
        return false;
    }
    reportFigures(*figures, rounds);
    return true;
}

// One round of the lines takes about a QUERY's wall time; fewer rounds when the time limit
// is near, but never under ten.
std::size_t ReplayPhase::roundsWithinDeadline() const {
    std::size_t rounds = run_.options.replays;
    const double left = run_.secondsLeft();
    if (left < static_cast<double>(rounds) * wallPerQuery_) {
        rounds = std::max<std::size_t>(10, static_cast<std::size_t>(left / wallPerQuery_));
        rounds = std::min(rounds, run_.options.replays);
    }
    return rounds;
}

// Runs the rounds in a child inside the controller; the figures it wrote ("" when it did not
// finish), or nothing when the child could not be started.
std::optional<std::string> ReplayPhase::replayInController(std::size_t rounds) const {
    const std::string proc = "/proc/" + std::to_string(run_.pid);
    Place place;
    place.environ = e2e::readFile(proc + "/environ");
    place.cwd = run_.sandbox.dir(1);
    int result[2];
    if (pipe2(result, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    place.netns = open((proc + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
    place.mntns = open((proc + "/ns/mnt").c_str(), O_RDONLY | O_CLOEXEC);
    const pid_t child = fork();
    if (child == 0) {
        replayAndExit(place, commandLines_, rounds, result[1]);
    }
    close(result[1]);
    if (place.netns >= 0) {
        close(place.netns);
    }
    if (place.mntns >= 0) {
        close(place.mntns);
    }
    if (child < 0) {
        close(result[0]);
        return std::nullopt;
    }
    std::string figures = waitForFigures(child, result[0]);
    close(result[0]);
    return figures;
}

// The child's figures once it ended; it is killed when it takes longer than what is left of
// the time limit (at least 30 s).
std::string ReplayPhase::waitForFigures(pid_t child, int resultFd) const {
    std::string text;
    const auto limit = std::max(Seconds(30), Seconds(run_.deadline - Clock::now()));
    const bool ended = e2e::waitUntil(
        [&] {
            int status = 0;
            const pid_t done = waitpid(child, &status, WNOHANG);
            if (done == child) {
                char chunk[64];
                ssize_t got = 0;
                while ((got = read(resultFd, chunk, sizeof chunk)) > 0) {
                    text.append(chunk, static_cast<std::size_t>(got));
                }
                return true;
            }
            return false;
        },
        limit);
    if (!ended) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    return text;
}

void ReplayPhase::reportFigures(const std::string& figures, std::size_t rounds) const {
    std::istringstream in(figures);
    double total = 0;
    double own = 0;
    in >> total >> own;
    const double perQuery = total / static_cast<double>(rounds);
    run_.report.add(
        "query.device_ms", "QUERY: device commands' own time (sh -c replay)",
        fixed(perQuery * 1e3, 2) + " ms (" + fixed(perQuery / wallPerQuery_ * 100, 1) + " %)");
    // What popen itself costs its caller, children excluded: the part of the daemon's own
    // CPU time that any program running these lines this way would spend.
    run_.report.add("query.replay_own_ms", "QUERY: the replay loop's own CPU (popen, pipe, wait)",
                    fixed(own / static_cast<double>(rounds) * 1e3, 3) + " ms");
    if (rounds < run_.options.replays) {
        run_.report.note("device replay: " + std::to_string(rounds) + " of " +
                         std::to_string(run_.options.replays) + " rounds (time limit)");
    }
}

}  // namespace load
