// lcfd_load: what the real daemon costs, measured in the sandbox the end-to-end tests use.
//
//  - ignore path: CPU time per datagram that is not for the controller (other controllers'
//    replies, requests for other MACs), against a minimal recvfrom loop in the same namespace;
//  - QUERY: wall time from request to reply, split into the device commands' own time and
//    the daemon's own CPU time;
//  - memory and size: the stripped program, VmRSS and Pss along the run, and what each
//    reading keeps.
//
// Every phase is bounded in count and by one overall deadline; docs/performance.md explains
// the method of each figure.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <mutex>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "FloodSupport.hpp"
#include "Harness.hpp"

namespace {

using e2e::Clock;
using e2e::Seconds;

// The minimal receiver listens beside the daemon, on a port of its own.
constexpr std::uint16_t kMinimalPort = 7218;
// The daemon's receive buffer (Broadcaster's kReceiveBufferSize): the minimal loop reads into
// one of the same size.
constexpr std::size_t kDatagramBuffer = 512;
// What the daemon's popen reader takes of a command's output (one line of up to 510 bytes).
constexpr int kCommandOutputReadLimit = 511;
// The trace that closes every datagram from the tool side in the daemon's standard output.
const std::string kToolTrace = std::string("[") + e2e::kToolAddress + "] Message ";

struct Options {
    std::string lcfd;
    std::string platform = "imx";
    std::size_t datagrams = 100000;
    std::size_t queries = 1000;
    std::size_t replays = 100;
    std::size_t warmupQueries = 10;
    double timeLimit = 240;
    std::string tsv;
    std::string label;
};

[[noreturn]] void usage(const std::string& problem) {
    if (!problem.empty()) {
        std::cerr << "lcfd_load: " << problem << "\n";
    }
    std::cerr
        << "usage: lcfd_load [--lcfd PATH] [--platform arm9|imx|qmt|generic|unknown]\n"
           "                 [--datagrams N] [--queries N] [--replays N] [--time-limit S]\n"
           "                 [--tsv FILE] [--label TEXT]\n"
           "Runs one simulated controller with a real lcfd (as root, in namespaces) and prints\n"
           "the ignore-path rate, the cost of a QUERY and the daemon's memory.\n";
    std::exit(2);
}

std::size_t countArgument(const std::string& name, const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || *end != '\0' || value == 0 || text[0] == '-') {
        usage(name + " needs a positive whole number, got '" + text + "'");
    }
    return static_cast<std::size_t>(value);
}

Options parseOptions(int argc, char** argv) {
    Options options;
    const std::vector<std::string> args(argv + 1, argv + argc);
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "-h" || arg == "--help") {
            usage("");
        }
        if (i + 1 >= args.size()) {
            usage("unknown argument or missing value: " + arg);
        }
        const std::string& value = args[++i];
        if (arg == "--lcfd") {
            options.lcfd = value;
        } else if (arg == "--platform") {
            options.platform = value;
        } else if (arg == "--datagrams") {
            options.datagrams = countArgument(arg, value);
        } else if (arg == "--queries") {
            options.queries = countArgument(arg, value);
        } else if (arg == "--replays") {
            options.replays = countArgument(arg, value);
        } else if (arg == "--time-limit") {
            options.timeLimit = static_cast<double>(countArgument(arg, value));
        } else if (arg == "--tsv") {
            options.tsv = value;
        } else if (arg == "--label") {
            options.label = value;
        } else {
            usage("unknown argument: " + arg);
        }
    }
    const std::vector<std::string> platforms = {"arm9", "imx", "qmt", "generic", "unknown"};
    if (std::find(platforms.begin(), platforms.end(), options.platform) == platforms.end()) {
        usage("unknown platform: " + options.platform);
    }
    options.warmupQueries = std::min<std::size_t>(10, options.queries / 2);
    return options;
}

// ---------------------------------------------------------------------------------------------
// What the host sees of the daemon's process.

struct ProcessTimes {
    double ownSeconds = 0;       // utime + stime
    double childrenSeconds = 0;  // cutime + cstime of reaped children
    char state = '?';
};

std::optional<ProcessTimes> processTimes(int pid) {
    const std::string stat = e2e::readFile("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t close = stat.rfind(')');
    if (close == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(stat.substr(close + 2));
    std::vector<std::string> field;
    std::string word;
    while (fields >> word) {
        field.push_back(word);
    }
    // Counted from the state (field 3 of proc(5)): utime is 14, stime 15, cutime 16, cstime 17.
    if (field.size() < 15 || field[0].empty()) {
        return std::nullopt;
    }
    const auto tick = static_cast<double>(sysconf(_SC_CLK_TCK));
    ProcessTimes times;
    times.state = field[0][0];
    times.ownSeconds = (std::stod(field[11]) + std::stod(field[12])) / tick;
    times.childrenSeconds = (std::stod(field[13]) + std::stod(field[14])) / tick;
    return times;
}

// Nanoseconds the (single-threaded) process has run on a CPU: the scheduler's own count,
// finer than the clock ticks of /proc/PID/stat.
std::optional<std::uint64_t> runNanoseconds(int pid) {
    std::istringstream in(e2e::readFile("/proc/" + std::to_string(pid) + "/schedstat"));
    std::uint64_t ns = 0;
    if (!(in >> ns)) {
        return std::nullopt;
    }
    return ns;
}

// A "Name:   N kB" line of a /proc file, in KiB.
std::optional<long> procKiB(const std::string& path, const std::string& name) {
    std::istringstream in(e2e::readFile(path));
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(name + ":", 0) == 0) {
            return std::stol(line.substr(name.size() + 1));
        }
    }
    return std::nullopt;
}

struct Memory {
    long rssKiB = -1;
    long anonKiB = -1;  // the part of VmRSS that is the process's own (heap, stack, data)
    long pssKiB = -1;
    long pssAnonKiB = -1;  // the process's own pages, whoever else maps its libraries
};

Memory memoryOf(int pid) {
    const std::string base = "/proc/" + std::to_string(pid);
    Memory m;
    m.rssKiB = procKiB(base + "/status", "VmRSS").value_or(-1);
    m.anonKiB = procKiB(base + "/status", "RssAnon").value_or(-1);
    m.pssKiB = procKiB(base + "/smaps_rollup", "Pss").value_or(-1);
    m.pssAnonKiB = procKiB(base + "/smaps_rollup", "Pss_Anon").value_or(-1);
    return m;
}

bool waitForState(int pid, char state, Seconds timeout) {
    return e2e::waitUntil(
        [&] {
            auto t = processTimes(pid);
            return t && t->state == state;
        },
        timeout);
}

// Polls every 100 us (finer than waitUntil, the phases are short) until the predicate holds.
bool pollUntil(const std::function<bool()>& predicate, Clock::time_point deadline) {
    while (!predicate()) {
        if (Clock::now() >= deadline) {
            return predicate();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

// Bytes of a file from `offset` on.
std::string readFrom(const std::string& path, std::size_t offset) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    std::ostringstream rest;
    rest << in.rdbuf();
    return rest.str();
}

std::size_t countOf(const std::string& text, const std::string& what) {
    std::size_t n = 0;
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + what.size())) {
        ++n;
    }
    return n;
}

// ---------------------------------------------------------------------------------------------
// Traffic a controller sees on a busy segment and ignores.

template <typename... Parts>
std::string concat(const Parts&... parts) {
    std::string text;
    (text.append(parts), ...);
    return text;
}

// A fixed-seed pool: other controllers' STATUS replies (the bulk of a discovery), their ACKs,
// QUERY/ASSIGN/CLEAR for other MACs, and a few datagrams that are no request at all.  None
// names controller 1 and none is a QUERY without a MAC, so the device is never read.
std::vector<std::string> ignoredMix(std::size_t count) {
    std::mt19937 rng(7217U);  // NOLINT(cert-msc32-c,cert-msc51-cpp) the same mix in every run
    auto below = [&rng](unsigned n) {
        return std::uniform_int_distribution<unsigned>(0, n - 1)(rng);
    };
    std::vector<std::string> pool;
    pool.reserve(count);
    while (pool.size() < count) {
        // Every draw in a fixed order, so the pool is the same whatever the compiler.
        const unsigned kind = below(100);
        const unsigned n = 2 + below(998);
        char mac[32];
        std::snprintf(mac, sizeof mac, "02:4C:43:00:%02X:%02X", n >> 8, n & 0xFFU);
        const std::string seqid = std::to_string(1000000 + below(9000000));
        const unsigned k = 2 + below(200);
        const bool yes = below(4) != 0;
        const std::string num = std::to_string(k);
        std::string d;
        if (kind < 45) {
            d = concat("LCF2#STATUS#seqid=", seqid, "#mac=", mac, "#ip=198.18.0.", num,
                       "#netmask=255.255.0.0#gateway=198.18.255.1#hostname=imx-", num,
                       "#ipscheme=STATIC#ntpip=198.18.255.10#controller=CTRL-", num,
                       "#housenames=Hall A,Hall B#syslogip=198.18.255.20"
                       "#nameserver=198.18.255.53#ntpsync=yes#sdusage=",
                       std::to_string(30 + k % 60), "%#sdkversion=4.2.", std::to_string(k % 10),
                       "#mac1=", mac,
                       "#mac2=02:4C:43:01:00:02#uptime=3605.21 7011.40"
                       "#loadavg=0.08 0.03 0.01 1/87 1234#utcclock=20261122101500"
                       "#displaytime=20231114221320");
        } else if (kind < 60) {
            d = concat("LCF2#ACK#seqid=", seqid, "#mac=", mac, yes ? "#accept=yes" : "#accept=no");
        } else if (kind < 85) {
            d = concat("LCF2#QUERY#seqid=", seqid, "#mac=", mac);
        } else if (kind < 90) {
            d = concat("LCF2#ASSIGN#seqid=", seqid, "#mac=", mac, "#ip=198.18.1.", num,
                       "#netmask=255.255.0.0#gateway=198.18.255.1#ipscheme=STATIC"
                       "#ntpip=198.18.255.10#syslogip=198.18.255.20#nameserver=198.18.255.53"
                       "#utcclock=20261122101500");
        } else if (kind < 95) {
            d = concat("LCF2#CLEAR#seqid=", seqid, "#mac=", mac, yes ? "#ntpip" : "#syslogip");
        } else if (kind < 98) {
            d = concat("LCF3#QUERY#seqid=", seqid);  // a newer tool's probe, refused
        } else {
            d.resize(32 + below(200));
            for (char& c : d) {
                c = static_cast<char>(below(256));
            }
        }
        pool.push_back(std::move(d));
    }
    return pool;
}

// ---------------------------------------------------------------------------------------------

struct Row {
    std::string key;
    std::string figure;
    std::string value;
    std::string target;
    std::string met;  // "yes", "no", or "" when there is no target
};

std::string fixed(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

class Report {
  public:
    void add(const std::string& key, const std::string& figure, const std::string& value,
             const std::string& target = "", std::optional<bool> met = std::nullopt) {
        rows_.push_back({key, figure, value, target, met ? (*met ? "yes" : "no") : ""});
    }
    void note(const std::string& text) { notes_.push_back(text); }

    void print(std::ostream& out, const std::string& heading) const {
        std::size_t w0 = 6;
        std::size_t w1 = 5;
        std::size_t w2 = 6;
        for (const Row& r : rows_) {
            w0 = std::max(w0, r.figure.size());
            w1 = std::max(w1, r.value.size());
            w2 = std::max(w2, r.target.size());
        }
        out << heading << "\n";
        auto line = [&](const std::string& a, const std::string& b, const std::string& c,
                        const std::string& d) {
            out << "| " << a << std::string(w0 - a.size(), ' ') << " | " << b
                << std::string(w1 - b.size(), ' ') << " | " << c << std::string(w2 - c.size(), ' ')
                << " | " << d << std::string(3 - std::min<std::size_t>(3, d.size()), ' ') << " |\n";
        };
        line("figure", "value", "target", "met");
        out << "|" << std::string(w0 + 2, '-') << "|" << std::string(w1 + 2, '-') << "|"
            << std::string(w2 + 2, '-') << "|-----|\n";
        for (const Row& r : rows_) {
            line(r.figure, r.value, r.target, r.met);
        }
        for (const std::string& n : notes_) {
            out << "note: " << n << "\n";
        }
    }

    bool writeTsv(const std::string& path) const {
        std::ofstream out(path, std::ios::trunc);
        for (const Row& r : rows_) {
            out << r.key << '\t' << r.figure << '\t' << r.value << '\t' << r.target << '\t' << r.met
                << '\n';
        }
        for (const std::string& n : notes_) {
            out << "note\t" << n << "\t\t\t\n";
        }
        return static_cast<bool>(out);
    }

  private:
    std::vector<Row> rows_;
    std::vector<std::string> notes_;
};

// ---------------------------------------------------------------------------------------------

// Pins a task (a process, or a thread of this one: 0 is the caller) to one CPU; hands out the
// mask it had so that it can be given back.
std::optional<cpu_set_t> pinTo(pid_t task, int cpu) {
    cpu_set_t before;
    CPU_ZERO(&before);
    if (sched_getaffinity(task, sizeof before, &before) != 0) {
        return std::nullopt;
    }
    cpu_set_t only;
    CPU_ZERO(&only);
    CPU_SET(static_cast<std::size_t>(cpu), &only);
    if (sched_setaffinity(task, sizeof only, &only) != 0) {
        return std::nullopt;
    }
    return before;
}

void restoreAffinity(pid_t task, const std::optional<cpu_set_t>& mask) {
    if (mask) {
        sched_setaffinity(task, sizeof *mask, &*mask);
    }
}

// The minimal receive loop: recvfrom alone, on a thread of its own on the CPU the daemon is
// pinned to, so that both receivers are woken the same way and find the datagrams in the
// same caches (the sender fills both queues from the other CPU).
class MinimalReceiver {
  public:
    struct Drain {
        std::size_t taken = 0;
        std::uint64_t ns = 0;  // the thread's CPU time for the loop
    };

    MinimalReceiver(int fd, std::optional<int> cpu)
        : fd_(fd), worker_([this, cpu] { work(cpu); }) {}
    ~MinimalReceiver() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            quit_ = true;
        }
        changed_.notify_all();
        worker_.join();
    }
    MinimalReceiver(const MinimalReceiver&) = delete;
    MinimalReceiver& operator=(const MinimalReceiver&) = delete;

    Drain drain(std::size_t want) {
        std::unique_lock<std::mutex> lock(mutex_);
        want_ = want;
        done_ = false;
        changed_.notify_all();
        changed_.wait(lock, [this] { return done_; });
        return result_;
    }

  private:
    void work(std::optional<int> cpu) {
        if (cpu) {
            pinTo(0, *cpu);
        }
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            changed_.wait(lock, [this] { return quit_ || want_ > 0; });
            if (quit_) {
                return;
            }
            const std::size_t want = want_;
            want_ = 0;
            lock.unlock();
            char buffer[kDatagramBuffer];
            sockaddr_in from{};
            timespec t0{};
            timespec t1{};
            std::size_t taken = 0;
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t0);
            while (taken < want) {
                socklen_t fromLength = sizeof from;
                if (recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from),
                             &fromLength) < 1) {
                    break;
                }
                ++taken;
            }
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t1);
            lock.lock();
            result_.taken = taken;
            result_.ns = static_cast<std::uint64_t>((t1.tv_sec - t0.tv_sec) * 1000000000L +
                                                    (t1.tv_nsec - t0.tv_nsec));
            done_ = true;
            changed_.notify_all();
        }
    }

    int fd_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t want_ = 0;
    bool done_ = false;
    bool quit_ = false;
    Drain result_;
    std::thread worker_;  // last: it starts with everything above in place
};

class LoadRun {
  public:
    LoadRun(const Options& options, const e2e::Sandbox& sandbox, Report& report)
        : options_(options),
          sb_(sandbox),
          report_(report),
          pid_(std::stoi(e2e::readFile(sandbox.dir(1) + "/pid"))),
          stdoutPath_(sandbox.dir(1) + "/stdout"),
          deadline_(Clock::now() +
                    std::chrono::duration_cast<Clock::duration>(Seconds(options.timeLimit))) {}

    int pid() const { return pid_; }
    bool ignorePath();
    bool queries();
    bool deviceReplay();

    Memory atStart;
    Memory afterFirstBatch;
    Memory afterIgnored;
    Memory afterWarmup;
    Memory afterQueries;
    std::size_t timedQueries = 0;

  private:
    bool timeLeft() const { return Clock::now() < deadline_; }
    std::optional<e2e::UdpQueue> queueOf(std::uint16_t port) const {
        return e2e::udpQueue(pid_, port);
    }
    bool waitQueueSettled(std::uint16_t port) const;
    std::optional<std::uint64_t> stopContinueCost() const;
    bool sendAll(int fd, const std::vector<std::string>& pool, std::size_t from, std::size_t n,
                 std::uint16_t port) const;

    const Options& options_;
    const e2e::Sandbox& sb_;
    Report& report_;
    int pid_;
    std::string stdoutPath_;
    Clock::time_point deadline_;
    std::vector<std::string> queryLines_;
    double wallPerQuery_ = 0;
};

// A queue just filled is settled once its size stays the same over a few polls: the senders'
// datagrams have all passed the segment's switch and been queued (or dropped).
bool LoadRun::waitQueueSettled(std::uint16_t port) const {
    unsigned long last = ~0UL;
    int same = 0;
    return pollUntil(
        [&] {
            auto q = queueOf(port);
            const unsigned long now = q ? q->receiveBytes : 0;
            same = now == last ? same + 1 : 0;
            last = now;
            return same >= 3;
        },
        Clock::now() + std::chrono::seconds(2));
}

bool LoadRun::sendAll(int fd, const std::vector<std::string>& pool, std::size_t from, std::size_t n,
                      std::uint16_t port) const {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, e2e::controllerAddress(1).c_str(), &to.sin_addr);
    for (std::size_t i = 0; i < n; ++i) {
        const std::string& d = pool[(from + i) % pool.size()];
        if (sendto(fd, d.data(), d.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) !=
            static_cast<ssize_t>(d.size())) {
            return false;
        }
    }
    return true;
}

// What one stop and continue costs the daemon by itself (woken in recvfrom to stop, resumed,
// blocking again): the median of empty rounds.  Every round of the measurement has exactly
// one of these in its CPU time, so it is taken off.
std::optional<std::uint64_t> LoadRun::stopContinueCost() const {
    std::vector<std::uint64_t> costs;
    for (int i = 0; i < 15; ++i) {
        if (kill(pid_, SIGSTOP) != 0 || !waitForState(pid_, 'T', Seconds(2))) {
            return std::nullopt;
        }
        const auto before = runNanoseconds(pid_);
        kill(pid_, SIGCONT);
        const bool blocked = waitForState(pid_, 'S', Seconds(2));
        kill(pid_, SIGSTOP);
        const bool stopped = waitForState(pid_, 'T', Seconds(2));
        const auto after = runNanoseconds(pid_);
        kill(pid_, SIGCONT);
        if (!blocked || !stopped || !before || !after) {
            return std::nullopt;
        }
        costs.push_back(*after - *before);
    }
    std::sort(costs.begin(), costs.end());
    return costs[costs.size() / 2];
}

// The ignore path.  Each round stops the daemon (SIGSTOP), fills its receive queue with a
// batch of the mix, lets it run (SIGCONT) until every datagram of the batch is traced in its
// standard output, and takes the CPU time it used from the scheduler's count; then the same
// batch goes to the minimal loop's socket, which is drained by recvfrom alone on the
// CLOCK_THREAD_CPUTIME_ID of this thread.  Both receivers start with a full queue and never
// wait, both are charged only their own CPU time, and the rounds alternate so that both see
// the same machine.
bool LoadRun::ignorePath() {
    const std::vector<std::string> pool = ignoredMix(4096);
    int sender = -1;
    int minimal = -1;
    e2e::inNetns(sb_.toolNetns(), [&] { sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); });
    e2e::inNetns(sb_.controllerNetns(1), [&] {
        minimal = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(kMinimalPort);
        local.sin_addr.s_addr = htonl(INADDR_ANY);
        if (minimal >= 0 &&
            bind(minimal, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
            close(minimal);
            minimal = -1;
        }
    });
    if (sender < 0 || minimal < 0) {
        report_.note("ignore path: could not open the sockets");
        if (sender >= 0) {
            close(sender);
        }
        if (minimal >= 0) {
            close(minimal);
        }
        return false;
    }
    // A lost datagram must not hang the loop: recvfrom gives up after two seconds.
    timeval patience{2, 0};
    setsockopt(minimal, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    // The sender on the first CPU, both receivers on the last.
    const long cpus = sysconf(_SC_NPROCESSORS_ONLN);
    std::optional<int> receiverCpu;
    std::optional<cpu_set_t> senderMask;
    std::optional<cpu_set_t> daemonMask;
    if (cpus >= 2) {
        receiverCpu = static_cast<int>(cpus - 1);
        senderMask = pinTo(0, 0);
        daemonMask = pinTo(pid_, *receiverCpu);
    }
    std::optional<MinimalReceiver> receiver;
    receiver.emplace(minimal, receiverCpu);

    std::size_t batch = 192;
    std::size_t daemonSent = 0;
    std::size_t daemonTraced = 0;
    std::size_t daemonDropped = 0;
    std::uint64_t daemonNs = 0;
    std::size_t minimalTaken = 0;
    std::uint64_t minimalNs = 0;
    std::size_t rounds = 0;
    std::vector<double> blockRatios;  // daemon/minimal per tenth of the run
    std::size_t blockTraced = 0;
    std::uint64_t blockDaemonNs = 0;
    std::size_t blockTaken = 0;
    std::uint64_t blockMinimalNs = 0;
    const std::uint64_t perRound = stopContinueCost().value_or(0);
    std::uint64_t daemonRawNs = 0;
    std::size_t blockRounds = 0;
    std::size_t outOffset = static_cast<std::size_t>(e2e::readFile(stdoutPath_).size());
    sb_.clearShellLog(1);
    bool ok = true;
    std::string problem;
    const auto started = Clock::now();

    while (daemonSent < options_.datagrams && timeLeft()) {
        const std::size_t n = std::min(batch, options_.datagrams - daemonSent);
        // The daemon's turn.
        if (kill(pid_, SIGSTOP) != 0 || !waitForState(pid_, 'T', Seconds(2))) {
            problem = "the daemon could not be stopped";
            ok = false;
            break;
        }
        const auto dropsBefore = queueOf(e2e::kPort);
        const auto cpuBefore = runNanoseconds(pid_);
        const bool sent = sendAll(sender, pool, daemonSent, n, e2e::kPort);
        waitQueueSettled(e2e::kPort);
        kill(pid_, SIGCONT);
        if (!sent || !dropsBefore || !cpuBefore) {
            problem = "sending to the daemon failed";
            ok = false;
            break;
        }
        const auto dropsAfter = queueOf(e2e::kPort);
        const std::size_t dropped = dropsAfter ? dropsAfter->drops - dropsBefore->drops : 0;
        const std::size_t expected = n - dropped;
        std::size_t traced = 0;
        // Done when every datagram that was queued has its trace in standard output.
        const bool drained = pollUntil(
            [&] {
                auto q = queueOf(e2e::kPort);
                if (!q || q->receiveBytes != 0) {
                    return false;
                }
                traced = countOf(readFrom(stdoutPath_, outOffset), kToolTrace);
                return traced >= expected;
            },
            Clock::now() + std::chrono::seconds(5));
        // The CPU time is read with the daemon stopped again, so that all it did for the
        // batch (back to its recvfrom) is in it.
        kill(pid_, SIGSTOP);
        waitForState(pid_, 'T', Seconds(2));
        const auto cpuAfter = runNanoseconds(pid_);
        kill(pid_, SIGCONT);
        const std::string appended = readFrom(stdoutPath_, outOffset);
        traced = countOf(appended, kToolTrace);
        outOffset += appended.size();
        if (!drained || !cpuAfter) {
            problem = "the daemon did not trace a batch within 5 s";
            ok = false;
            break;
        }
        daemonSent += n;
        daemonTraced += traced;
        daemonDropped += dropped;
        const std::uint64_t roundNs = *cpuAfter - *cpuBefore;
        const std::uint64_t ownNs = roundNs > perRound ? roundNs - perRound : 0;
        daemonRawNs += roundNs;
        daemonNs += ownNs;
        blockTraced += traced;
        blockDaemonNs += ownNs;
        ++blockRounds;
        if (dropped > 0 && batch > 16) {
            batch = batch * 3 / 4;  // the queue holds fewer of these than hoped
        }

        // The minimal loop's turn, the same datagrams.
        const auto minBefore = queueOf(kMinimalPort);
        if (!sendAll(sender, pool, daemonSent - n, n, kMinimalPort) || !minBefore) {
            problem = "sending to the minimal loop failed";
            ok = false;
            break;
        }
        waitQueueSettled(kMinimalPort);
        const auto minAfter = queueOf(kMinimalPort);
        const std::size_t minDropped = minAfter ? minAfter->drops - minBefore->drops : 0;
        const MinimalReceiver::Drain got = receiver->drain(n - minDropped);
        const std::size_t taken = got.taken;
        const std::uint64_t ns = got.ns;
        minimalTaken += taken;
        minimalNs += ns;
        blockTaken += taken;
        blockMinimalNs += ns;
        if (rounds++ == 0) {
            afterFirstBatch = memoryOf(pid_);
        }
        if (blockTraced >= options_.datagrams / 10 && blockDaemonNs > 0 && blockMinimalNs > 0) {
            blockRatios.push_back(
                (static_cast<double>(blockTraced) / static_cast<double>(blockDaemonNs)) /
                (static_cast<double>(blockTaken) / static_cast<double>(blockMinimalNs)));
            blockTraced = 0;
            blockDaemonNs = 0;
            blockTaken = 0;
            blockMinimalNs = 0;
            blockRounds = 0;
        }
    }
    receiver.reset();
    restoreAffinity(pid_, daemonMask);
    restoreAffinity(0, senderMask);
    close(sender);
    close(minimal);
    if (!sb_.shellLog(1).empty()) {
        problem = "the mix made the daemon read the device; the rate is not the ignore path's";
        ok = false;
    }
    const double seconds = Seconds(Clock::now() - started).count();
    if (!problem.empty()) {
        report_.note("ignore path: " + problem);
    }
    if (daemonSent < options_.datagrams) {
        report_.note("ignore path: cut by the time limit after " + std::to_string(daemonSent) +
                     " datagrams");
    }
    if (daemonNs == 0 || minimalNs == 0 || daemonTraced == 0) {
        return false;
    }
    const double daemonRate =
        static_cast<double>(daemonTraced) / (static_cast<double>(daemonNs) / 1e9);
    const double minimalRate =
        static_cast<double>(minimalTaken) / (static_cast<double>(minimalNs) / 1e9);
    const double ratio = daemonRate / minimalRate;
    report_.add("ignore.daemon_rate", "ignore path: lcfd, datagrams per CPU second",
                fixed(daemonRate, 0));
    report_.add("ignore.daemon_us", "ignore path: lcfd, CPU time per datagram",
                fixed(1e6 / daemonRate, 2) + " us");
    report_.add(
        "ignore.daemon_raw_us",
        "  with its stop/continue (" + fixed(static_cast<double>(perRound) / 1e3, 1) +
            " us a round) left in",
        fixed(static_cast<double>(daemonRawNs) / 1e3 / static_cast<double>(daemonTraced), 2) +
            " us");
    report_.add("ignore.minimal_rate", "ignore path: minimal recvfrom loop, per CPU second",
                fixed(minimalRate, 0));
    report_.add("ignore.minimal_us", "ignore path: minimal loop, CPU time per datagram",
                fixed(1e6 / minimalRate, 2) + " us");
    std::string spread;
    if (!blockRatios.empty()) {
        const auto [lo, hi] = std::minmax_element(blockRatios.begin(), blockRatios.end());
        spread = " (tenths " + fixed(*lo * 100, 0) + "-" + fixed(*hi * 100, 0) + " %)";
    }
    report_.add("ignore.ratio", "ignore path: lcfd rate / minimal loop rate",
                fixed(ratio * 100, 1) + " %" + spread, ">= 50 %", ratio >= 0.5);
    report_.add("ignore.datagrams", "ignore path: datagrams traced (dropped) / rounds",
                std::to_string(daemonTraced) + " (" + std::to_string(daemonDropped) + ") / " +
                    std::to_string(rounds) + " in " + fixed(seconds, 1) + " s");
    return ok;
}

// QUERYs addressed to the controller's MAC, one at a time, each timed from sending to its
// STATUS reply.  The daemon's own CPU time (utime+stime, children excluded) is the delta over
// all of them.
bool LoadRun::queries() {
    e2e::ToolSocket tool(sb_);
    if (!tool.ok()) {
        report_.note("QUERY: no tool socket");
        return false;
    }
    const std::string mac = e2e::controllerMac(1);
    auto ask = [&](std::size_t i) -> std::optional<double> {
        const std::string seqid = std::to_string(500000 + i);
        const std::string prefix = "LCF2#STATUS#seqid=" + seqid + "#";
        const auto sentAt = Clock::now();
        if (!tool.send("LCF2#QUERY#seqid=" + seqid + "#mac=" + mac)) {
            return std::nullopt;
        }
        const auto until = sentAt + std::chrono::seconds(10);
        while (Clock::now() < until) {
            auto reply = tool.receive(Seconds(until - Clock::now()));
            if (!reply) {
                break;
            }
            if (reply->data.rfind(prefix, 0) == 0) {
                return Seconds(Clock::now() - sentAt).count();
            }
        }
        return std::nullopt;
    };
    sb_.clearShellLog(1);
    for (std::size_t i = 0; i < options_.warmupQueries; ++i) {
        if (!ask(i)) {
            report_.note("QUERY: no reply to a warm-up QUERY");
            return false;
        }
    }
    const std::size_t linesPerQuery = sb_.shellLog(1).size() / options_.warmupQueries;
    const auto lines = sb_.shellLog(1);
    queryLines_.assign(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(linesPerQuery));
    afterWarmup = memoryOf(pid_);

    const auto timesBefore = processTimes(pid_);
    const auto nsBefore = runNanoseconds(pid_);
    std::vector<double> walls;
    const auto started = Clock::now();
    for (std::size_t i = options_.warmupQueries; i < options_.queries && timeLeft(); ++i) {
        auto wall = ask(i);
        if (!wall) {
            report_.note("QUERY: no reply within 10 s to QUERY " + std::to_string(i + 1));
            break;
        }
        walls.push_back(*wall);
    }
    const double elapsed = Seconds(Clock::now() - started).count();
    const auto timesAfter = processTimes(pid_);
    const auto nsAfter = runNanoseconds(pid_);
    afterQueries = memoryOf(pid_);
    timedQueries = walls.size();
    const std::size_t done = options_.warmupQueries + walls.size();
    if (done < options_.queries) {
        report_.note("QUERY: " + std::to_string(done) + " of " + std::to_string(options_.queries) +
                     " done (time limit or no reply)");
    }
    if (walls.empty() || !timesBefore || !timesAfter || !nsBefore || !nsAfter) {
        return false;
    }
    const auto count = static_cast<double>(walls.size());
    double sum = 0;
    for (double w : walls) {
        sum += w;
    }
    wallPerQuery_ = sum / count;
    std::vector<double> sorted = walls;
    std::sort(sorted.begin(), sorted.end());
    const double median = sorted[sorted.size() / 2];
    const double p95 = sorted[std::min(sorted.size() - 1, sorted.size() * 95 / 100)];
    const double ownPerQuery = (timesAfter->ownSeconds - timesBefore->ownSeconds) / count;
    const double schedPerQuery = static_cast<double>(*nsAfter - *nsBefore) / 1e9 / count;
    const double share = ownPerQuery / wallPerQuery_;
    report_.add("query.count", "QUERY: timed QUERYs (after warm-up) / command lines each",
                std::to_string(walls.size()) + " in " + fixed(elapsed, 1) + " s / " +
                    std::to_string(linesPerQuery));
    report_.add("query.wall_ms", "QUERY: wall time request to reply, mean (median, p95)",
                fixed(wallPerQuery_ * 1e3, 2) + " ms (" + fixed(median * 1e3, 2) + ", " +
                    fixed(p95 * 1e3, 2) + ")");
    report_.add("query.daemon_cpu_ms", "QUERY: lcfd's own CPU time (utime+stime)",
                fixed(ownPerQuery * 1e3, 3) + " ms", "", std::nullopt);
    report_.add("query.daemon_cpu_share", "QUERY: lcfd's own CPU time / wall time",
                fixed(share * 100, 2) + " %", "<= 2 %", share <= 0.02);
    report_.add("query.daemon_sched_ms", "QUERY: lcfd's run time (schedstat, ns-exact)",
                fixed(schedPerQuery * 1e3, 3) + " ms (" +
                    fixed(schedPerQuery / wallPerQuery_ * 100, 2) + " %)");
    report_.add(
        "query.children_cpu_ms", "QUERY: CPU of the commands it ran (cutime+cstime)",
        fixed((timesAfter->childrenSeconds - timesBefore->childrenSeconds) / count * 1e3, 2) +
            " ms");
    return true;
}

// The command lines of one reading, run through `sh -c` by popen in a loop inside the
// controller (its mount and network namespaces, working directory and the daemon's own
// environment), reading what the daemon reads of each: the device commands' own time.
bool LoadRun::deviceReplay() {
    if (queryLines_.empty() || wallPerQuery_ <= 0) {
        return false;
    }
    // One round of the lines takes about a QUERY's wall time; fewer rounds when the time
    // limit is near, but never under ten.
    std::size_t replays = options_.replays;
    const double left = Seconds(deadline_ - Clock::now()).count();
    if (left < static_cast<double>(replays) * wallPerQuery_) {
        replays = std::max<std::size_t>(10, static_cast<std::size_t>(left / wallPerQuery_));
        replays = std::min(replays, options_.replays);
    }
    const std::string proc = "/proc/" + std::to_string(pid_);
    const std::string environ = e2e::readFile(proc + "/environ");
    const std::string cwd = sb_.dir(1);
    int result[2];
    if (pipe2(result, O_CLOEXEC) != 0) {
        return false;
    }
    const int netns = open((proc + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
    const int mntns = open((proc + "/ns/mnt").c_str(), O_RDONLY | O_CLOEXEC);
    const pid_t child = fork();
    if (child == 0) {
        // Single-threaded after fork, so the mount namespace can be joined.
        if (netns < 0 || mntns < 0 || setns(netns, CLONE_NEWNET) != 0 ||
            setns(mntns, CLONE_NEWNS) != 0 || chdir(cwd.c_str()) != 0 || clearenv() != 0) {
            _exit(1);
        }
        std::vector<std::string> variables;
        for (std::size_t at = 0; at < environ.size();) {
            const std::size_t end = environ.find('\0', at);
            variables.push_back(environ.substr(at, end - at));
            at = end == std::string::npos ? environ.size() : end + 1;
        }
        for (std::string& v : variables) {
            putenv(v.data());
        }
        char buffer[kCommandOutputReadLimit + 1];
        timespec cpu0{};
        timespec cpu1{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu0);
        const auto start = Clock::now();
        std::size_t answered = 0;
        for (std::size_t r = 0; r < replays; ++r) {
            for (const std::string& line : queryLines_) {
                std::FILE* pipe = popen(line.c_str(), "r");  // NOLINT(cert-env33-c)
                if (pipe == nullptr) {
                    _exit(1);
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
        const std::string text =
            std::to_string(total) + " " + std::to_string(own) + " " + std::to_string(answered);
        const ssize_t written = write(result[1], text.data(), text.size());
        _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    close(result[1]);
    if (netns >= 0) {
        close(netns);
    }
    if (mntns >= 0) {
        close(mntns);
    }
    if (child < 0) {
        close(result[0]);
        return false;
    }
    std::string text;
    const auto limit = std::max(Seconds(30), Seconds(deadline_ - Clock::now()));
    bool ended = e2e::waitUntil(
        [&] {
            int status = 0;
            const pid_t done = waitpid(child, &status, WNOHANG);
            if (done == child) {
                char chunk[64];
                ssize_t got = 0;
                while ((got = read(result[0], chunk, sizeof chunk)) > 0) {
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
    close(result[0]);
    if (text.empty()) {
        report_.note("device replay: did not finish");
        return false;
    }
    std::istringstream figures(text);
    double total = 0;
    double own = 0;
    figures >> total >> own;
    const double perQuery = total / static_cast<double>(replays);
    report_.add(
        "query.device_ms", "QUERY: device commands' own time (sh -c replay)",
        fixed(perQuery * 1e3, 2) + " ms (" + fixed(perQuery / wallPerQuery_ * 100, 1) + " %)");
    // What popen itself costs its caller, children excluded: the part of the daemon's own
    // CPU time that any program running these lines this way would spend.
    report_.add("query.replay_own_ms", "QUERY: the replay loop's own CPU (popen, pipe, wait)",
                fixed(own / static_cast<double>(replays) * 1e3, 3) + " ms");
    if (replays < options_.replays) {
        report_.note("device replay: " + std::to_string(replays) + " of " +
                     std::to_string(options_.replays) + " rounds (time limit)");
    }
    return true;
}

std::string strippedSize(const std::string& lcfd, std::optional<std::int64_t>* bytes) {
    char path[] = "/tmp/lcfd_load.strip.XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) {
        return "";
    }
    close(fd);
    const auto run = e2e::runProgram({"/usr/bin/strip", "-o", path, lcfd}, Seconds(30));
    struct stat info {};
    if (run.status == 0 && stat(path, &info) == 0) {
        *bytes = info.st_size;
    }
    std::remove(path);
    return run.err;
}

std::string realPath(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (resolved == nullptr) {
        return "";
    }
    std::string text = resolved;
    std::free(resolved);  // NOLINT(cppcoreguidelines-no-malloc) realpath's own allocation
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parseOptions(argc, argv);
    if (!e2e::runningAsRoot()) {
        std::cerr << "lcfd_load: needs root for the sandbox's network and mount namespaces\n";
        return 2;
    }
    if (!options.lcfd.empty()) {
        const std::string chosen = realPath(options.lcfd);
        if (chosen.empty() || access(chosen.c_str(), X_OK) != 0) {
            usage("no program at " + options.lcfd);
        }
        e2e::useLcfdBinary(chosen);
    }
    const auto started = Clock::now();
    Report report;
    report.add("lcfd", "lcfd program", e2e::lcfdBinary());

    std::optional<std::int64_t> stripped;
    const std::string stripError = strippedSize(e2e::lcfdBinary(), &stripped);
    if (stripped) {
        report.add("size.stripped_kib", "size: stripped lcfd",
                   fixed(static_cast<double>(*stripped) / 1024.0, 1) + " KiB", "<= 200 KiB",
                   *stripped <= std::int64_t{200} * 1024);
    } else {
        report.note("strip failed: " + stripError);
    }

    bool ok = true;
    {
        e2e::Sandbox sb({options.platform});
        if (!sb.ok()) {
            std::cerr << "lcfd_load: the sandbox did not come up:\n" << sb.upOutput();
            return 1;
        }
        LoadRun run(options, sb, report);
        run.atStart = memoryOf(run.pid());
        ok = run.ignorePath() && ok;
        run.afterIgnored = memoryOf(run.pid());
        ok = run.queries() && ok;
        ok = run.deviceReplay() && ok;

        auto kib = [](long v) { return std::to_string(v) + " KiB"; };
        report.add("mem.start", "memory at start: VmRSS / Pss",
                   kib(run.atStart.rssKiB) + " / " + kib(run.atStart.pssKiB));
        report.add(
            "mem.after_ignored",
            "memory after " + std::to_string(options.datagrams) + " ignored datagrams: VmRSS / Pss",
            kib(run.afterIgnored.rssKiB) + " / " + kib(run.afterIgnored.pssKiB));
        auto signedKiB = [](long v) { return (v >= 0 ? "+" : "") + std::to_string(v) + " KiB"; };
        const long growth = run.afterIgnored.rssKiB - run.atStart.rssKiB;
        report.add("mem.ignored_growth", "VmRSS change over the ignored datagrams",
                   signedKiB(growth), "+-4 KiB", growth >= -4 && growth <= 4);
        // What the first batch touched for the first time (code and library pages, the stdio
        // buffer) is no growth; from the first batch on, VmRSS and its anonymous part.
        report.add("mem.ignored_growth_warm", "  from the first batch on: VmRSS / RssAnon change",
                   signedKiB(run.afterIgnored.rssKiB - run.afterFirstBatch.rssKiB) + " / " +
                       signedKiB(run.afterIgnored.anonKiB - run.afterFirstBatch.anonKiB));
        report.add("mem.after_queries",
                   "memory after " + std::to_string(options.queries) + " QUERYs: VmRSS / Pss",
                   kib(run.afterQueries.rssKiB) + " / " + kib(run.afterQueries.pssKiB));
        const auto readings = static_cast<double>(run.timedQueries);
        if (run.timedQueries > 0 && run.afterWarmup.rssKiB > 0 && run.afterQueries.rssKiB > 0) {
            auto perReading = [&](long Memory::*field) {
                return fixed(static_cast<double>(run.afterQueries.*field - run.afterWarmup.*field) *
                                 1024.0 / readings,
                             0);
            };
            // Pss moves with every other process that maps the same libraries; Pss_Anon
            // is the daemon's own heap alone.
            report.add("mem.per_reading", "memory kept per reading: VmRSS / Pss / Pss_Anon growth",
                       perReading(&Memory::rssKiB) + " / " + perReading(&Memory::pssKiB) + " / " +
                           perReading(&Memory::pssAnonKiB) + " bytes",
                       "~1112 (valgrind)", std::nullopt);
        }
    }
    report.add("run.seconds", "whole run",
               fixed(Seconds(Clock::now() - started).count(), 1) + " s");
    double load[3] = {0, 0, 0};
    if (getloadavg(load, 3) == 3) {
        report.add("run.load", "load average at the end (1, 5, 15 min)",
                   fixed(load[0], 2) + " " + fixed(load[1], 2) + " " + fixed(load[2], 2));
    }
    report.print(std::cout, options.label.empty() ? "lcfd_load" : "lcfd_load: " + options.label);
    if (!options.tsv.empty() && !report.writeTsv(options.tsv)) {
        std::cerr << "lcfd_load: cannot write " << options.tsv << "\n";
        return 1;
    }
    return ok ? 0 : 1;
}
