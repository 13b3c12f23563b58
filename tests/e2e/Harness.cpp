#include "Harness.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace e2e {

namespace {

std::atomic<int> sandboxCounter{0};

int remainingMs(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) {
        return 0;
    }
    return static_cast<int>(left.count());
}

std::uint16_t be16(const std::string& b, std::size_t at) {
    return static_cast<std::uint16_t>((static_cast<unsigned char>(b[at]) << 8) |
                                      static_cast<unsigned char>(b[at + 1]));
}

std::string dotted(const std::string& b, std::size_t at) {
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, b.data() + at, text, sizeof text);
    return text;
}

std::string& chosenLcfdBinary() {
    static std::string path = LCFD_BINARY;
    return path;
}

}  // namespace

std::string lcfdBinary() {
    return chosenLcfdBinary();
}

void useLcfdBinary(const std::string& path) {
    chosenLcfdBinary() = path;
}

std::string sourceDir() {
    return LCFD_SOURCE_DIR;
}

bool runningAsRoot() {
    return geteuid() == 0;
}

std::string controllerAddress(int k) {
    return "198.18." + std::to_string((k - 1) / 250) + "." + std::to_string((k - 1) % 250 + 1);
}

std::string controllerMac(int k) {
    char text[32];
    std::snprintf(text, sizeof text, "02:4C:43:00:%02X:%02X", (k >> 8) & 0xFF, k & 0xFF);
    return text;
}

ProcessResult runProgram(const std::vector<std::string>& argv, Seconds timeout) {
    ProcessResult result;
    int outPipe[2];
    int errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0) {
        return result;
    }
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
        close(outPipe[0]);
        close(outPipe[1]);
        return result;
    }
    std::vector<char*> args;
    args.reserve(argv.size() + 1);
    for (const auto& a : argv) {
        args.push_back(const_cast<char*>(a.c_str()));
    }
    args.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        int devNull = open("/dev/null", O_RDONLY);
        dup2(devNull, 0);
        dup2(outPipe[1], 1);
        dup2(errPipe[1], 2);
        execv(args[0], args.data());
        _exit(127);
    }
    close(outPipe[1]);
    close(errPipe[1]);
    if (pid < 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        return result;
    }
    auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open = 2;
    bool killed = false;
    while (open > 0) {
        int wait = remainingMs(deadline);
        if (wait == 0 && !killed) {
            kill(pid, SIGKILL);
            killed = true;
        }
        int n = poll(fds, 2, killed ? 1000 : wait);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (killed) {
                break;
            }
            continue;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) {
                continue;
            }
            char buffer[4096];
            ssize_t got = read(fds[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                sinks[i]->append(buffer, static_cast<std::size_t>(got));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (const auto& f : fds) {
        if (f.fd >= 0) {
            close(f.fd);
        }
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!killed && WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    }
    return result;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

bool fileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

bool waitUntil(const std::function<bool()>& predicate, Seconds timeout) {
    auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    while (true) {
        if (predicate()) {
            return true;
        }
        if (Clock::now() >= deadline) {
            return predicate();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

std::vector<std::string> readingCommands(const std::string& platform, const std::string& before,
                                         const std::string& after) {
    auto form = [](const std::string& command, const std::string& interface) {
        return interface == "br0" ? command : command + " " + interface;
    };
    std::vector<std::string> c = {
        "tarnsetup getsdk",
        form("tarnsetup getmacaddr", before),
        form("tarnsetup getipscheme", before),
        form("tarnsetup getipaddr", after),
        "route -n | grep ^0.0.0.0 | awk '{ print $2 }'",
    };
    if (platform == "generic") {
        c.push_back("ubootenv /dev/mtd1 print timeserver | cut -d\"=\" -f2");
        c.push_back("ubootenv /dev/mtd1 print serverip | cut -d\"=\" -f2");
    } else {
        c.push_back("tarnsetup gettimeserver");
        c.push_back("tarnsetup getsyslogserver");
    }
    if (platform == "imx") {
        c.push_back("tarnsetup getnameserver");
    }
    c.push_back("hostname");
    if (platform == "imx") {
        c.push_back("ntpq -pn | grep -v LOCL | grep ^*");
    } else if (platform == "qmt") {
        c.push_back("timedatectl | grep \"NTP synchronized\" | awk '{ print $3 }'");
    } else {
        c.push_back("ntpdc -pn |grep ^*");
    }
    if (platform == "imx") {
        c.push_back("tarnsetup sdcard info usage");
    } else if (platform == "arm9") {
        c.push_back("df -h | grep mmcblk | awk '{ print$5 }'");
    } else if (platform != "qmt") {
        c.push_back("df -h | grep sdcard | awk '{ print$5 }'");
    }
    if (platform == "imx") {
        c.push_back("tarnsetup getsdkversion");
        c.push_back("tarnsetup getmacaddr fromfuses primary");
        c.push_back("tarnsetup getmacaddr fromfuses secondary");
        c.push_back("cat /proc/uptime");
        c.push_back("cat /proc/loadavg");
        c.push_back(
            "Get $(grep HS_REALTIME_SEC_SINCE_1970_BEFORE "
            "/etc/tarn/ConfigurationFiles/HardCodedHSSets.xml | sed -e "
            "'s/.*value=\"\\([^\"]*\\)\".*/\\1/')");
    }
    return c;
}

std::string maskClock(const std::string& reply, std::string* clock) {
    const std::string key = "#utcclock=";
    std::size_t at = reply.find(key);
    if (at == std::string::npos) {
        clock->clear();
        return reply;
    }
    std::size_t start = at + key.size();
    std::size_t end = reply.find('#', start);
    if (end == std::string::npos) {
        end = reply.size();
    }
    *clock = reply.substr(start, end - start);
    return reply.substr(0, start) + "<clock>" + reply.substr(end);
}

std::string utcNow() {
    std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &parts);
    return text;
}

std::vector<std::string> parseShellLog(const std::string& content) {
    std::vector<std::string> lines;
    std::size_t at = 0;
    while (at < content.size()) {
        std::size_t colon = content.find(':', at);
        if (colon == std::string::npos) {
            lines.push_back("<malformed shell log: " + content.substr(at) + ">");
            break;
        }
        std::size_t length = std::stoul(content.substr(at, colon - at));
        lines.push_back(content.substr(colon + 1, length));
        at = colon + 1 + length + 1;  // the record's closing line feed
    }
    return lines;
}

std::vector<std::string> syslogRecords(const std::string& content) {
    std::vector<std::string> records;
    std::istringstream in(content);
    std::string line;
    while (std::getline(in, line)) {
        std::size_t close = line.find('>');
        std::size_t tag = line.find(" lcfd: ");
        if (line.empty() || line[0] != '<' || close == std::string::npos ||
            tag == std::string::npos) {
            records.push_back("<malformed: " + line + ">");
            continue;
        }
        records.push_back(line.substr(0, close + 1) + line.substr(tag + 7));
    }
    return records;
}

void inNetns(const std::string& netnsName, const std::function<void()>& work) {
    std::thread worker([&] {
        int ns = open(("/var/run/netns/" + netnsName).c_str(), O_RDONLY | O_CLOEXEC);
        if (ns < 0) {
            return;
        }
        int joined = setns(ns, CLONE_NEWNET);
        close(ns);
        if (joined == 0) {
            work();
        }
    });
    worker.join();
}

// ---------------------------------------------------------------------------

Sandbox::Sandbox(const std::vector<std::string>& specs, bool startDaemons)
    : Sandbox(specs,
              startDaemons ? std::vector<std::string>{} : std::vector<std::string>{"--no-start"}) {}

Sandbox::Sandbox(const std::vector<std::string>& specs, const std::vector<std::string>& upOptions)
    : name_("e2e" + std::to_string(getpid()) + "-" + std::to_string(sandboxCounter++)) {
    std::vector<std::string> args = {"up", "--lcfd", lcfdBinary(), "--owner-pid",
                                     std::to_string(getpid())};
    for (const auto& board : specs) {
        args.push_back("-c");
        args.push_back(board);
    }
    args.insert(args.end(), upOptions.begin(), upOptions.end());
    ProcessResult up = tool(args, Seconds(60));
    upOutput_ = up.out + up.err;
    ok_ = up.status == 0;
}

Sandbox::~Sandbox() {
    // The daemons are stopped first, so that a report is complete when it is read.
    tool({"stop"}, Seconds(60));
    for (const std::string& report : sanitizerReports()) {
        ADD_FAILURE() << "sanitizer report of a daemon in sandbox " << name_ << ": " << report;
    }
    tool({"down"}, Seconds(60));
}

std::vector<std::string> Sandbox::sanitizerReports() const {
    // The launcher gives a sanitizer build of lcfd log_path=<controller dir>/sanitizer, so each
    // report is a file sanitizer.PID there (see tools/lcfd-sandbox).
    std::vector<std::string> reports;
    const std::filesystem::path root = "/tmp/lcfd-sandbox/" + name_;
    std::error_code error;
    for (const auto& controller : std::filesystem::directory_iterator(root, error)) {
        std::error_code inner;
        for (const auto& entry : std::filesystem::directory_iterator(controller.path(), inner)) {
            if (entry.path().filename().string().rfind("sanitizer.", 0) == 0) {
                reports.push_back(entry.path().string() + "\n" + readFile(entry.path().string()));
            }
        }
    }
    return reports;
}

ProcessResult Sandbox::tool(const std::vector<std::string>& args, Seconds timeout) const {
    std::vector<std::string> argv = {"/usr/bin/python3", sourceDir() + "/tools/lcfd-sandbox", "-n",
                                     name_};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, timeout);
}

std::string Sandbox::toolNetns() const {
    return "lcfdsb." + name_ + ".tool";
}

std::string Sandbox::controllerNetns(int k) const {
    return "lcfdsb." + name_ + ".c" + std::to_string(k);
}

std::string Sandbox::dir(int k) const {
    return "/tmp/lcfd-sandbox/" + name_ + "/c" + std::to_string(k);
}

std::vector<std::string> Sandbox::shellLog(int k) const {
    return parseShellLog(readFile(dir(k) + "/shell.log"));
}

void Sandbox::clearShellLog(int k) const {
    writeFile(dir(k) + "/shell.log", "");
}

bool Sandbox::waitOut(int k, const std::string& text, Seconds timeout) const {
    return waitUntil([&] { return out(k).find(text) != std::string::npos; }, timeout);
}

bool Sandbox::waitErr(int k, const std::string& text, Seconds timeout) const {
    return waitUntil([&] { return err(k).find(text) != std::string::npos; }, timeout);
}

std::optional<int> Sandbox::waitExit(int k, Seconds timeout) const {
    std::string path = dir(k) + "/exit";
    if (!waitUntil([&] { return fileExists(path); }, timeout)) {
        return std::nullopt;
    }
    return std::stoi(readFile(path));
}

void Sandbox::setValue(int k, const std::string& key, const std::string& value) const {
    writeFile(dir(k) + "/sim/" + key, value + "\n");
}

void Sandbox::setFault(int k, const std::string& key, const std::string& mode) const {
    writeFile(dir(k) + "/fault/" + key, mode + "\n");
}

ProcessResult Sandbox::start(int k) const {
    return tool({"start", std::to_string(k), "--wait", "0"}, Seconds(30));
}

ProcessResult Sandbox::execInController(int k, const std::string& commandLine) const {
    return tool({"exec", "-c", std::to_string(k), "--", "/bin/sh", "-c", commandLine}, Seconds(30));
}

// ---------------------------------------------------------------------------

ToolSocket::ToolSocket(const Sandbox& sandbox) {
    inNetns(sandbox.toolNetns(), [this] {
        int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            return;
        }
        int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(kPort);
        local.sin_addr.s_addr = htonl(INADDR_ANY);
        if (bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
            close(fd);
            return;
        }
        fd_ = fd;
    });
}

ToolSocket::~ToolSocket() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool ToolSocket::send(const std::string& bytes) const {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(kPort);
    to.sin_addr.s_addr = htonl(INADDR_BROADCAST);
    ssize_t sent =
        sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    return sent == static_cast<ssize_t>(bytes.size());
}

std::optional<Datagram> ToolSocket::receive(Seconds timeout) const {
    auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    while (true) {
        pollfd pfd{fd_, POLLIN, 0};
        int n = poll(&pfd, 1, remainingMs(deadline));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return std::nullopt;
        }
        char buffer[65536];
        sockaddr_in from{};
        socklen_t fromLength = sizeof from;
        ssize_t got = recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from),
                               &fromLength);
        if (got < 0) {
            return std::nullopt;
        }
        Datagram d;
        d.data.assign(buffer, static_cast<std::size_t>(got));
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
        d.sender = text;
        d.senderPort = ntohs(from.sin_port);
        if (d.sender == kToolAddress) {
            continue;  // our own broadcast, looped back
        }
        return d;
    }
}

std::vector<Datagram> ToolSocket::receiveMany(std::size_t count, Seconds timeout) const {
    std::vector<Datagram> got;
    auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    while (got.size() < count) {
        auto left = Seconds(deadline - Clock::now());
        if (left.count() <= 0) {
            break;
        }
        auto d = receive(left);
        if (!d) {
            break;
        }
        got.push_back(*d);
    }
    return got;
}

// ---------------------------------------------------------------------------

std::uint8_t IpFrame::versionIhl() const {
    return static_cast<std::uint8_t>(bytes[0]);
}
std::uint16_t IpFrame::totalLength() const {
    return be16(bytes, 2);
}
std::uint16_t IpFrame::id() const {
    return be16(bytes, 4);
}
std::uint16_t IpFrame::flagsFragment() const {
    return be16(bytes, 6);
}
std::uint8_t IpFrame::ttl() const {
    return static_cast<std::uint8_t>(bytes[8]);
}
std::uint8_t IpFrame::protocol() const {
    return static_cast<std::uint8_t>(bytes[9]);
}
std::string IpFrame::source() const {
    return dotted(bytes, 12);
}
std::string IpFrame::destination() const {
    return dotted(bytes, 16);
}
std::uint16_t IpFrame::sourcePort() const {
    return be16(bytes, 20);
}
std::uint16_t IpFrame::destinationPort() const {
    return be16(bytes, 22);
}
std::uint16_t IpFrame::udpLength() const {
    return be16(bytes, 24);
}
std::uint16_t IpFrame::udpChecksum() const {
    return be16(bytes, 26);
}
std::string IpFrame::payload() const {
    return bytes.substr(28);
}

bool IpFrame::headerChecksumValid() const {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < 20; i += 2) {
        sum += be16(bytes, i);
    }
    while ((sum >> 16) != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return sum == 0xFFFF;
}

FrameCapture::FrameCapture(const Sandbox& sandbox) {
    inNetns(sandbox.toolNetns(), [this] {
        int fd = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_IP));
        if (fd < 0) {
            return;
        }
        sockaddr_ll link{};
        link.sll_family = AF_PACKET;
        link.sll_protocol = htons(ETH_P_IP);
        link.sll_ifindex = static_cast<int>(if_nametoindex("lan0"));
        if (link.sll_ifindex == 0 ||
            bind(fd, reinterpret_cast<sockaddr*>(&link), sizeof link) != 0) {
            close(fd);
            return;
        }
        fd_ = fd;
    });
}

FrameCapture::~FrameCapture() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

std::optional<IpFrame> FrameCapture::next(Seconds timeout) const {
    auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    while (true) {
        pollfd pfd{fd_, POLLIN, 0};
        int n = poll(&pfd, 1, remainingMs(deadline));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return std::nullopt;
        }
        char buffer[65536];
        sockaddr_ll from{};
        socklen_t fromLength = sizeof from;
        ssize_t got = recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from),
                               &fromLength);
        if (got < 28 || from.sll_pkttype == PACKET_OUTGOING) {
            continue;
        }
        IpFrame frame;
        frame.bytes.assign(buffer, static_cast<std::size_t>(got));
        if ((frame.versionIhl() >> 4) != 4 || frame.protocol() != IPPROTO_UDP ||
            frame.destinationPort() != kPort || frame.source() == kToolAddress) {
            continue;
        }
        return frame;
    }
}

int occupyServicePort(const Sandbox& sandbox, int k) {
    int result = -1;
    inNetns(sandbox.controllerNetns(k), [&result] {
        int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            return;
        }
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(kPort);
        local.sin_addr.s_addr = htonl(INADDR_ANY);
        if (bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
            close(fd);
            return;
        }
        result = fd;
    });
    return result;
}

}  // namespace e2e
