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

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

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

std::string environmentOr(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

std::string& chosenLcfdBinary() {
    static std::string path = environmentOr("LCFD_E2E_LCFD", LCFD_BINARY);
    return path;
}

}  // namespace

std::string lcfdBinary() {
    return chosenLcfdBinary();
}

void useLcfdBinary(const std::string& path) {
    chosenLcfdBinary() = path;
}

std::string lcfdPrefix() {
    return environmentOr("LCFD_E2E_LCFD_PREFIX", "");
}

bool lcfdUnderEmulation() {
    return !lcfdPrefix().empty();
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

std::string controllerSecondMac(int k) {
    std::string mac = controllerMac(k);
    mac[10] = '1';  // 02:4C:43:01:HH:LL
    return mac;
}

std::string threeDigits(int k) {
    char text[16];
    std::snprintf(text, sizeof text, "%03d", k);
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

std::vector<std::string> queryCommands(const std::string& platform, const std::string& interface) {
    std::vector<std::string> commands = readingCommands(platform, interface, interface);
    commands.push_back("date -u +%Y%m%d%H%M%S");
    return commands;
}

std::vector<std::string> clearCommands(const std::string& key, const std::string& platform) {
    static const std::map<std::string, std::map<std::string, std::vector<std::string>>> table = {
        {"ntpip",
         {{"generic", {"ubootenv /dev/mtd1 del timeserver"}},
          {"arm9", {"rm /etc/tarnsetup.d/timeserver"}},
          {"imx", {"tarnsetup settimeserver --delete"}},
          {"qmt",
           {"rm /etc/systemd/timesyncd.conf", "systemctl restart systemd-timesyncd.service"}},
          {"unknown", {}}}},
        {"syslogip",
         {{"generic", {"ubootenv /dev/mtd1 del serverip"}},
          {"arm9", {"rm /etc/tarnsetup.d/syslogserver"}},
          {"imx", {"tarnsetup setsyslogserver --delete"}},
          {"qmt", {"tarnsetup setsyslogserver disabled"}},
          {"unknown", {}}}},
        {"nameserver",
         {{"generic", {}},
          {"arm9", {}},
          {"imx", {"tarnsetup setnameserver --delete"}},
          {"qmt", {}},
          {"unknown", {}}}},
    };
    return table.at(key).at(platform);
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
    if (lcfdUnderEmulation()) {
        args.insert(args.end(), {"--lcfd-prefix", lcfdPrefix()});
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

namespace {

// Replaces a file that the simulated device may be reading at this very moment (a daemon
// reads its device while a test sets the next value): written beside it and renamed over it,
// so a device tool sees the old content or the new one, never an emptied file.
void replaceFile(const std::string& path, const std::string& content) {
    const std::string fresh = path + ".new";
    writeFile(fresh, content);
    if (std::rename(fresh.c_str(), path.c_str()) != 0) {
        ADD_FAILURE() << "cannot replace " << path << ": " << std::strerror(errno);
    }
}

}  // namespace

void Sandbox::setValue(int k, const std::string& key, const std::string& value) const {
    replaceFile(dir(k) + "/sim/" + key, value + "\n");
}

void Sandbox::setFault(int k, const std::string& key, const std::string& mode) const {
    replaceFile(dir(k) + "/fault/" + key, mode + "\n");
}

ProcessResult Sandbox::start(int k) const {
    return tool({"start", std::to_string(k), "--wait", "0"}, Seconds(30));
}

ProcessResult Sandbox::stop(int k) const {
    return tool({"stop", std::to_string(k)}, Seconds(30));
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
        d.arrived = Clock::now();
        if (d.sender == kToolAddress) {
            continue;  // our own broadcast, looped back
        }
        return d;
    }
}

std::vector<Datagram> ToolSocket::receiveMany(std::size_t count, Seconds timeout,
                                              const std::string& prefix, Others others) const {
    std::vector<Datagram> got;
    std::size_t counted = 0;
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    while (counted < count) {
        const auto left = Seconds(deadline - Clock::now());
        if (left.count() <= 0) {
            break;
        }
        auto d = receive(left);
        if (!d) {
            break;
        }
        const bool counts = d->data.rfind(prefix, 0) == 0;
        counted += counts ? 1 : 0;
        if (counts || others == Others::Kept) {
            got.push_back(std::move(*d));
        }
    }
    return got;
}

std::map<std::string, std::string> bySender(const std::vector<Datagram>& replies) {
    std::map<std::string, std::string> result;
    for (const auto& d : replies) {
        auto [it, fresh] = result.emplace(d.sender, d.data);
        if (!fresh) {
            result[d.sender + " again"] = d.data;
        }
    }
    return result;
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

// ---------------------------------------------------------------------------

int platformNumber(const std::string& platform) {
    if (platform == "generic") {
        return 1;
    }
    if (platform == "arm9") {
        return 2;
    }
    if (platform == "imx") {
        return 3;
    }
    if (platform == "qmt") {
        return 4;
    }
    return 0;  // a board whose SDK query fails
}

std::string withoutDaemonReplies(const std::string& out) {
    const std::string tool = std::string("[") + kToolAddress + "]";
    std::string kept;
    std::size_t at = 0;
    std::size_t blockStart = 0;  // in `kept`: where the current datagram's echo began
    while (at < out.size()) {
        std::size_t end = out.find('\n', at);
        std::string line =
            out.substr(at, end == std::string::npos ? std::string::npos : end - at + 1);
        at += line.size();
        const bool trace = line.rfind('[', 0) == 0 && out.compare(at, 1, "\n") == 0 &&
                           (line.find("] Message understood... \n") != std::string::npos ||
                            line.find("] Message not understood... \n") != std::string::npos);
        if (trace) {
            at += 1;  // the empty line closing the trace
            if (line.rfind(tool, 0) == 0) {
                kept += line + "\n";
            } else {
                kept.erase(blockStart);
            }
            blockStart = kept.size();
            continue;
        }
        kept += line;
        if (line == kListening) {
            blockStart = kept.size();
        }
    }
    return kept;
}

Session::Session(std::string platform, std::string interfaceFile, std::string interface)
    : platform_(std::move(platform)),
      interfaceFile_(std::move(interfaceFile)),
      interface_(std::move(interface)),
      hasFile_(!interfaceFile_.empty() || interface_ != lcfd::kDefaultInterface) {}

Session Session::forBoard(const std::string& board) {
    const std::string boardPlatform = board.substr(0, board.find(','));
    if (board.find(",iface=eth0") != std::string::npos) {
        return Session(boardPlatform, "eth0", "eth0");
    }
    return Session(boardPlatform);
}

void Session::info(const std::string& message) {
    out += "lcfd:" + message + "\n";
    syslog.push_back("<30>" + message);
}

void Session::error(const std::string& message) {
    err += "lcfd:" + message + "\n";
    syslog.push_back("<27>" + message);
}

void Session::warning(const std::string& message) {
    err += "lcfd:" + message + "\n";
    syslog.push_back("<28>" + message);
}

void Session::ranLogged(const std::string& commandLine) {
    info(commandLine);
    ran(commandLine);
}

void Session::startup() {
    reading("br0");
    announce();
    out += kListening;
}

void Session::trace(bool understood) {
    out += std::string("[") + kToolAddress + "] Message " +
           (understood ? "understood" : "not understood") + "... \n\n";
}

void Session::passes(const std::string& datagram, bool understood) {
    echo(datagram);
    trace(understood);
}

void Session::queried(const std::string& request) {
    echo(request);
    reading();
    ran("date -u +%Y%m%d%H%M%S");
    trace(true);
}

void Session::announce() {
    if (hasFile_) {
        out += "LCFD using interface: " + interfaceFile_ + "\n";
    }
}

void Session::reading(const std::string& before) {
    info("Detected controller type: " + std::to_string(platformNumber(platform_)));
    announce();
    info("Finished reading network settings");
    auto commands = readingCommands(platform_, before, interface_);
    shell.insert(shell.end(), commands.begin(), commands.end());
}

void expectRequest(std::vector<Session>& sessions, int target, const std::string& request,
                   const std::function<void(Session&)>& handle, bool understood) {
    for (std::size_t i = 0; i < sessions.size(); ++i) {
        Session& s = sessions[i];
        if (static_cast<int>(i) + 1 != target) {
            s.passes(request);
            continue;
        }
        s.echo(request);
        handle(s);
        s.trace(understood);
    }
}

namespace {

bool sessionMatches(const Sandbox& sb, int k, const Session& s) {
    return withoutDaemonReplies(sb.out(k)) == s.out && sb.err(k) == s.err &&
           syslogRecords(sb.syslog(k)) == s.syslog && sb.shellLog(k) == s.shell;
}

void compareSession(const Sandbox& sb, int k, const Session& s) {
    const std::string who = "controller " + std::to_string(k) + " (" + s.platform() + ")";
    EXPECT_EQ(withoutDaemonReplies(sb.out(k)), s.out) << who << ": standard output";
    EXPECT_EQ(sb.err(k), s.err) << who << ": standard error";
    EXPECT_EQ(syslogRecords(sb.syslog(k)), s.syslog) << who << ": syslog";
    EXPECT_EQ(sb.shellLog(k), s.shell) << who << ": shell log";
}

}  // namespace

namespace {

void expectAllSessions(const Sandbox& sb, const std::vector<const Session*>& sessions,
                       Seconds timeout) {
    waitUntil(
        [&] {
            for (std::size_t i = 0; i < sessions.size(); ++i) {
                if (!sessionMatches(sb, static_cast<int>(i) + 1, *sessions[i])) {
                    return false;
                }
            }
            return true;
        },
        timeout);
    for (std::size_t i = 0; i < sessions.size(); ++i) {
        compareSession(sb, static_cast<int>(i) + 1, *sessions[i]);
    }
}

}  // namespace

void expectSessions(const Sandbox& sb, std::initializer_list<const Session*> sessions,
                    Seconds timeout) {
    expectAllSessions(sb, sessions, timeout);
}

void expectSessions(const Sandbox& sb, const std::vector<Session>& sessions, Seconds timeout) {
    std::vector<const Session*> all;
    all.reserve(sessions.size());
    for (const Session& s : sessions) {
        all.push_back(&s);
    }
    expectAllSessions(sb, all, timeout);
}

std::vector<std::pair<std::string, std::string>> deviceValues(int k, const std::string& platform) {
    const bool imx = platform == "imx";
    return {
        {"ip", controllerAddress(k)},
        {"netmask", "255.255.0.0"},
        {"gateway", "198.18.255.1"},
        {"hostname", platform + "-" + threeDigits(k)},
        {"ipscheme", "STATIC"},
        {"ntpip", "198.18.255.10"},
        {"controller", "CTRL-" + threeDigits(k)},
        {"housenames", "Hall A,Hall B"},
        {"syslogip", "198.18.255.20"},
        // Only imx boards have a name server query; the others report their syslog server.
        {"nameserver", imx ? "198.18.255.53" : "198.18.255.20"},
        {"ntpsync", "yes"},
        {"sdusage", platform == "qmt" ? "n/a" : std::to_string(30 + k % 60) + "%"},
        {"sdkversion", imx ? "4.2." + std::to_string(k % 10) : ""},
        {"mac1", imx ? controllerMac(k) : ""},
        {"mac2", imx ? controllerSecondMac(k) : ""},
        {"uptime", imx ? "3605.21 7011.40" : ""},
        {"loadavg", imx ? "0.08 0.03 0.01 1/87 1234" : ""},
    };
}

std::string displayTime(const std::string& platform) {
    return platform == "imx" ? "20231114221320" : "";
}

std::string statusReply(const std::string& seqid, int k, const std::string& platform,
                        const std::map<std::string, std::string>& changes) {
    std::string text = "LCF2#STATUS#seqid=" + seqid + "#mac=" + controllerMac(k);
    for (const auto& [key, standard] : deviceValues(k, platform)) {
        auto changed = changes.find(key);
        const std::string& value = changed == changes.end() ? standard : changed->second;
        if (!value.empty()) {
            text += "#" + key + "=" + value;
        }
    }
    auto shown = changes.find("displaytime");
    text += "#utcclock=<clock>#displaytime=";
    text += shown != changes.end() ? shown->second : displayTime(platform);
    return text;
}

std::string ackText(const std::string& seqid, int k, bool accepted) {
    return "LCF2#ACK#seqid=" + seqid + "#mac=" + controllerMac(k) +
           "#accept=" + (accepted ? "yes" : "no");
}

bool traced(const Sandbox& sb, int k, const std::string& requestEnd, const std::string& verdict,
            Seconds timeout) {
    const std::string request = requestEnd + "\n";
    const std::string trace =
        std::string("\n[") + kToolAddress + "] Message " + verdict + "... \n\n";
    return waitUntil(
        [&] {
            const std::string out = sb.out(k);
            const std::size_t at = out.find(request);
            return at != std::string::npos && out.find(trace, at) != std::string::npos;
        },
        timeout);
}

bool contains(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// ---------------------------------------------------------------------------

void LcfdBed::SetUp() {
    if (needsRoot() && !runningAsRoot()) {
        GTEST_SKIP() << "needs root for network and mount namespaces";
    }
}

void LcfdBed::TearDown() {
    capture_.reset();
    tool_.reset();
    sandbox_.reset();  // stops the daemons, reports sanitizer findings, removes the segment
}

::testing::AssertionResult LcfdBed::bringUp(const std::vector<std::string>& specs,
                                            const std::vector<std::string>& upOptions) {
    controllers_ = static_cast<int>(specs.size());
    sandbox_.emplace(specs, upOptions);
    if (!sandbox_->ok()) {
        return ::testing::AssertionFailure() << "the segment did not come up:\n"
                                             << sandbox_->upOutput();
    }
    const bool started =
        std::find(upOptions.begin(), upOptions.end(), "--no-start") == upOptions.end();
    return started ? runningAsChosen() : ::testing::AssertionSuccess();
}

// A board's daemon must really run under its emulator (the process is the emulator's
// program), or the tests would prove nothing of the board's build.
::testing::AssertionResult LcfdBed::runningAsChosen() const {
    if (!lcfdUnderEmulation()) {
        return ::testing::AssertionSuccess();
    }
    const std::string emulator = lcfdPrefix().substr(0, lcfdPrefix().find(' '));
    for (int k = 1; k <= controllers_; ++k) {
        const std::string pid = std::to_string(std::stoi(readFile(sb().dir(k) + "/pid")));
        std::error_code error;
        const std::filesystem::path program =
            std::filesystem::read_symlink("/proc/" + pid + "/exe", error);
        if (error || program.filename() != std::filesystem::path(emulator).filename()) {
            return ::testing::AssertionFailure()
                   << "daemon " << k << " runs as " << program.string() << ", not " << emulator;
        }
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult LcfdBed::up(const std::vector<std::string>& specs) {
    auto result = bringUp(specs, {});
    return result ? openTool() : result;
}

::testing::AssertionResult LcfdBed::upServing(const std::vector<std::string>& specs,
                                              const std::vector<std::string>& upOptions) {
    return bringUp(specs, upOptions);
}

::testing::AssertionResult LcfdBed::upStopped(const std::vector<std::string>& specs) {
    return bringUp(specs, {"--no-start"});
}

::testing::AssertionResult LcfdBed::startDaemons() {
    for (int k = 1; k <= controllers_; ++k) {
        const ProcessResult started = sb().start(k);
        if (started.status != 0) {
            return ::testing::AssertionFailure()
                   << "daemon " << k << " did not start: " << started.out << started.err;
        }
    }
    for (int k = 1; k <= controllers_; ++k) {
        if (!sb().waitOut(k, kListening, Seconds(15))) {
            return ::testing::AssertionFailure() << "daemon " << k << " does not serve:\n"
                                                 << sb().out(k) << sb().err(k);
        }
    }
    const ::testing::AssertionResult chosen = runningAsChosen();
    return chosen ? openTool() : chosen;
}

::testing::AssertionResult LcfdBed::openTool() {
    tool_.emplace(sb());
    if (!tool_->ok()) {
        return ::testing::AssertionFailure() << "no socket on the tool side";
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult LcfdBed::openCapture() {
    capture_.emplace(sb());
    if (!capture_->ok()) {
        return ::testing::AssertionFailure() << "no frame capture on the tool side";
    }
    return ::testing::AssertionSuccess();
}

void LcfdBed::expectBr0DespiteTheInterfaceFiles(std::vector<InterfaceFileCase> cases,
                                                const std::string& seqid) {
    std::vector<std::string> boards;
    for (const auto& c : cases) {
        boards.push_back(c.board);
    }
    ASSERT_TRUE(upStopped(boards));
    const std::string file = "/home/etc/tarnsetup.d/lcfd_interface";
    for (int k = 1; k <= controllers_; ++k) {
        const auto& content = cases[static_cast<std::size_t>(k - 1)].file;
        const std::string path = sb().dir(k) + file;
        if (content) {
            writeFile(path, *content);
        } else {
            std::remove(path.c_str());
            ASSERT_TRUE(std::filesystem::create_directory(path));
        }
    }
    std::vector<Session> sessions;
    for (auto& c : cases) {
        c.session.startup();
        sessions.push_back(c.session);
    }
    ASSERT_TRUE(startDaemons());
    ASSERT_TRUE(openCapture());
    const std::string query = "LCF2#QUERY#seqid=" + seqid;
    ASSERT_TRUE(tool().send(query));
    for (Session& s : sessions) {
        s.queried(query);
    }
    for (int i = 0; i < controllers_; ++i) {
        auto frame = capture().next(Seconds(10));
        ASSERT_TRUE(frame.has_value());
        EXPECT_NE(frame->udpChecksum(), 0) << frame->source();
        EXPECT_EQ(frame->sourcePort(), kPort);
        std::string clock;
        const std::string reply = maskClock(frame->payload(), &clock);
        bool known = false;
        for (int k = 1; k <= controllers_; ++k) {
            if (frame->source() == controllerAddress(k)) {
                known = true;
                EXPECT_EQ(reply, statusReply(seqid, k,
                                             sessions[static_cast<std::size_t>(k - 1)].platform()));
            }
        }
        EXPECT_TRUE(known) << frame->source();
    }
    expectSessions(sb(), sessions);
}

}  // namespace e2e
