// lcf watch on a sandboxed segment: while lcf discovers, assigns and clears from another tool
// host, the watch prints every request and reply that passed, each reply paired with its request,
// and keeps out of the way of the daemon and of other listeners on its own host.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <dirent.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "LcfSupport.hpp"

namespace e2e {
namespace {

using Watch = LcfdBed;

// The second tool host of the segment (lcfd-sandbox up --tool-hosts 2).
constexpr const char* kOtherToolAddress = "198.18.255.238";

// A program running in a network namespace of the sandbox, its output into files, until it is
// stopped. Killed by the destructor if the test ended first.
class Background {
  public:
    Background(const std::string& netns, const std::vector<std::string>& args,
               const std::string& directory, const std::string& name)
        : outPath_(directory + "/" + name + ".out"), errPath_(directory + "/" + name + ".err") {
        std::vector<std::string> argv = {"/usr/bin/nsenter", "--net=/run/netns/" + netns, "--"};
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<char*> pointers;
        pointers.reserve(argv.size() + 1);
        for (std::string& arg : argv) {
            pointers.push_back(arg.data());
        }
        pointers.push_back(nullptr);
        const int outFd = open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const int errFd = open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        pid_ = fork();
        if (pid_ == 0) {
            const int devNull = open("/dev/null", O_RDONLY);
            dup2(devNull, 0);
            dup2(outFd, 1);
            dup2(errFd, 2);
            execv(pointers[0], pointers.data());
            _exit(127);
        }
        close(outFd);
        close(errFd);
    }
    ~Background() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    pid_t pid() const { return pid_; }
    std::string out() const { return readFile(outPath_); }
    std::string err() const { return readFile(errPath_); }

    // Whether the process holds a UDP socket bound to the service port: then it hears the
    // segment. Read from its own namespace's socket table and its own descriptors.
    bool listening() const {
        std::set<std::string> inodes;
        const std::string fdDirectory = "/proc/" + std::to_string(pid_) + "/fd";
        if (DIR* directory = opendir(fdDirectory.c_str())) {
            while (const dirent* entry = readdir(directory)) {
                char target[128] = {};
                const std::string link = fdDirectory + "/" + entry->d_name;
                const ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
                const std::string text(target, length > 0 ? static_cast<std::size_t>(length) : 0);
                if (text.rfind("socket:[", 0) == 0) {
                    inodes.insert(text.substr(8, text.size() - 9));
                }
            }
            closedir(directory);
        }
        std::istringstream table(readFile("/proc/" + std::to_string(pid_) + "/net/udp"));
        char port[8];
        std::snprintf(port, sizeof port, ":%04X", kPort);
        for (std::string line; std::getline(table, line);) {
            std::istringstream columns(line);
            std::vector<std::string> column;
            for (std::string word; columns >> word;) {
                column.push_back(word);
            }
            // sl local_address rem_address st tx_queue:rx_queue tr:tm->when retrnsmt uid timeout
            // inode
            if (column.size() > 9 && column[1].size() > 5 &&
                column[1].substr(column[1].size() - 5) == port && inodes.count(column[9]) > 0) {
                return true;
            }
        }
        return false;
    }

    // SIGTERM, then the exit status once it ended (-1: it did not, or not normally).
    int stop() {
        if (pid_ <= 0) {
            return -1;
        }
        kill(pid_, SIGTERM);
        int status = 0;
        pid_t ended = 0;
        waitUntil(
            [&] {
                ended = waitpid(pid_, &status, WNOHANG);
                return ended != 0;
            },
            Seconds(30));
        if (ended != pid_) {
            return -1;
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    std::string outPath_;
    std::string errPath_;
    pid_t pid_ = -1;
};

class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        char pattern[] = "/tmp/lcf-watch-test.XXXXXX";
        if (mkdtemp(pattern) != nullptr) {
            path_ = pattern;
        }
    }
    ~TemporaryDirectory() {
        if (!path_.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(path_, ignored);
        }
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

// lcf run on the second tool host.
LcfRun runLcfOnOtherHost(const Sandbox& sb, const std::vector<std::string>& args) {
    std::vector<std::string> argv = {"/usr/bin/nsenter", "--net=/run/netns/" + sb.toolNetns() + "2",
                                     "--", lcfBinary()};
    argv.insert(argv.end(), args.begin(), args.end());
    LcfRun run;
    const auto start = Clock::now();
    run.result = runProgram(argv, Seconds(120));
    run.seconds = Seconds(Clock::now() - start).count();
    return run;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A string member of a watch's JSON line, or `absent` when it is missing or not a string (null).
std::string textOf(const Json& object, const char* key, const std::string& absent) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : absent;
}

// A captured datagram as the watch must describe it, from its bytes alone: sender, length,
// command, seqid and MAC ("*" for a QUERY without one; only lcf's well-formed traffic is
// expected here).
std::string describeFrame(const IpFrame& frame) {
    const std::string payload = frame.payload();
    std::vector<std::string> fields;
    std::istringstream stream(payload);
    for (std::string field; std::getline(stream, field, '#');) {
        fields.push_back(field);
    }
    const auto valueOf = [](const std::string& field) { return field.substr(field.find('=') + 1); };
    std::string mac = "*";
    if (fields.size() > 3) {
        mac = valueOf(fields[3]);
    }
    return frame.source() + " " + std::to_string(payload.size()) + " " +
           (fields.size() > 1 ? fields[1] : "?") + " " +
           (fields.size() > 2 ? valueOf(fields[2]) : "?") + " " + mac;
}

// The same facts from one JSON line of the watch.
std::string describeJson(const Json& line) {
    return textOf(line, "sender", "?") + " " + std::to_string(line.value("length", 0)) + " " +
           textOf(line, "command", "?") + " " + textOf(line, "seqid", "?") + " " +
           (line.value("every_controller", false) ? std::string("*") : textOf(line, "mac", "?"));
}

// The line the plain watch prints for what its JSON line says.
std::string plainLineFor(const Json& line) {
    std::string command = textOf(line, "command", "?");
    command.resize(std::max<std::size_t>(command.size(), 6), ' ');
    std::string text =
        textOf(line, "time", "").substr(11, 12) + " " + textOf(line, "interface", "") + " " +
        textOf(line, "sender", "") + " " + command + " seqid=" + textOf(line, "seqid", "-") +
        " mac=" +
        (line.value("every_controller", false) ? std::string("*") : textOf(line, "mac", "-"));
    if (!textOf(line, "summary", "").empty()) {
        text += " " + textOf(line, "summary", "");
    }
    if (textOf(line, "kind", "") == "reply") {
        const auto delayMs = line.find("delay_ms");
        if (delayMs != line.end() && delayMs->is_number()) {
            char delay[32];
            std::snprintf(delay, sizeof delay, "+%.1f", delayMs->get<double>());
            text += std::string(" (") + delay + " ms after " + textOf(line, "request", "") + ")";
        } else {
            text += " (no request seen)";
        }
    }
    return text;
}

TEST_F(Watch, ShowsAnotherToolHostsTrafficPairedAndTakesNoBroadcastFromADaemonBesideIt) {
    const std::vector<std::string> specs = mixedBoards(3);
    ASSERT_TRUE(upServing(specs, {"--tool-hosts", "2"}));
    ASSERT_TRUE(openCapture());
    TemporaryDirectory scratch;
    ASSERT_FALSE(scratch.path().empty());

    // Two watches on the first tool host, each with its own copy of every datagram, and one on
    // controller 1's host, next to its daemon: the tool's requests are broadcasts, of which every
    // socket on the port gets a copy. (A unicast would reach only one of them: the watch belongs
    // on a tool host, and this checks only that broadcasts still reach the daemon.)
    Background json(sb().toolNetns(), {lcfBinary(), "watch", "--json"}, scratch.path(), "json");
    Background plain(sb().toolNetns(), {lcfBinary(), "watch", "-i", "lan0"}, scratch.path(),
                     "plain");
    Background beside(sb().controllerNetns(1), {lcfBinary(), "watch", "--json"}, scratch.path(),
                      "beside");
    ASSERT_TRUE(waitUntil([&] { return json.listening() && plain.listening(); }, Seconds(30)));
    ASSERT_TRUE(waitUntil([&] { return beside.listening(); }, Seconds(30)));

    const LcfRun discover = runLcfOnOtherHost(sb(), {"discover", "--json", "--expect", "3"});
    EXPECT_EQ(discover.result.status, 0);
    EXPECT_EQ(maskCounts(discover.result.err), "lan0: probed <n>, 3 controllers\n");
    EXPECT_EQ(macsIn(discover.result.out),
              (std::vector<std::string>{controllerMac(1), controllerMac(2), controllerMac(3)}));
    const LcfRun assign =
        runLcfOnOtherHost(sb(), {"assign", controllerMac(1), "ntpip=198.18.255.11"});
    EXPECT_EQ(assign.result.status, 0);
    EXPECT_EQ(assign.result.out, controllerMac(1) + " accept=yes\n");
    EXPECT_EQ(assign.result.err, "");
    const LcfRun clear = runLcfOnOtherHost(sb(), {"clear", controllerMac(2), "syslogip"});
    EXPECT_EQ(clear.result.status, 0);
    EXPECT_EQ(clear.result.out, controllerMac(2) + " accept=yes\n");
    EXPECT_EQ(clear.result.err, "");

    // Everything the segment carried to the first tool host, until the CLEAR's ACK: a
    // controller's last answer. The watches print each datagram after the capture had it.
    std::vector<IpFrame> frames;
    const std::string lastAck = "LCF2#ACK#";
    bool sawClearAck = false;
    for (auto deadline = Clock::now() + Seconds(60); !sawClearAck && Clock::now() < deadline;) {
        if (auto frame = capture().next(Seconds(1))) {
            sawClearAck = frame->payload().rfind(lastAck, 0) == 0 &&
                          frame->payload().find("#mac=" + controllerMac(2)) != std::string::npos;
            frames.push_back(std::move(*frame));
        }
    }
    ASSERT_TRUE(sawClearAck);
    const std::size_t wanted = frames.size();
    ASSERT_TRUE(waitUntil(
        [&] {
            return linesOf(json.out()).size() >= wanted && linesOf(plain.out()).size() >= wanted;
        },
        Seconds(30)))
        << json.out() << plain.out();
    EXPECT_EQ(json.stop(), 0);
    EXPECT_EQ(plain.stop(), 0);
    const auto requestsIn = [](const std::string& output) {
        std::vector<std::string> requests;
        for (const std::string& line : linesOf(output)) {
            const Json object = Json::parse(line, nullptr, false);
            if (object.is_object() && textOf(object, "kind", "") == "request") {
                requests.push_back(textOf(object, "command", "") + " " +
                                   textOf(object, "seqid", ""));
            }
        }
        return requests;
    };
    const std::vector<std::string> requestsHere = requestsIn(json.out());
    EXPECT_TRUE(waitUntil([&] { return requestsIn(beside.out()).size() >= requestsHere.size(); },
                          Seconds(30)))
        << beside.out();
    EXPECT_EQ(beside.stop(), 0);
    // Late answers to a second probe may have come meanwhile: the capture holds them too.
    while (auto frame = capture().next(Seconds(0))) {
        frames.push_back(std::move(*frame));
    }
    EXPECT_EQ(json.err(), "");
    EXPECT_EQ(plain.err(), "");
    EXPECT_EQ(beside.err(), "");

    // Every datagram, in order, each JSON line valid; nothing the capture did not see.
    const std::vector<std::string> jsonLines = linesOf(json.out());
    ASSERT_LE(jsonLines.size(), frames.size());
    std::vector<Json> objects;
    std::vector<std::string> described;
    std::vector<std::string> expected;
    for (std::size_t at = 0; at < jsonLines.size(); ++at) {
        const Json object = Json::parse(jsonLines[at], nullptr, false);
        EXPECT_TRUE(object.is_object()) << jsonLines[at];
        objects.push_back(object.is_object() ? object : Json::object());
        described.push_back(describeJson(objects.back()));
        expected.push_back(describeFrame(frames[at]));
    }
    EXPECT_EQ(described, expected);

    // Requests from the other host, replies from the controllers, each reply paired.
    std::map<std::string, int> counts;
    for (const Json& object : objects) {
        const std::string command = textOf(object, "command", "?");
        ++counts[command];
        EXPECT_EQ(textOf(object, "interface", ""), "lan0");
        EXPECT_TRUE(object.value("understood", false)) << object.dump();
        if (textOf(object, "kind", "") == "request") {
            EXPECT_EQ(textOf(object, "sender", ""), kOtherToolAddress) << object.dump();
            continue;
        }
        const std::string request = command == "STATUS"                             ? "QUERY"
                                    : textOf(object, "mac", "") == controllerMac(1) ? "ASSIGN"
                                                                                    : "CLEAR";
        EXPECT_EQ(textOf(object, "request", "?"), request) << object.dump();
        ASSERT_TRUE(object.at("delay_ms").is_number()) << object.dump();
    }

    // Each reply's delay is the time since the request it answers: of the copies of a request
    // (the tool's resends) the earliest its controller has not answered yet, else the latest.
    const auto millisecondOfDay = [](const Json& object) {
        const std::string time = textOf(object, "time", "");  // ...THH:MM:SS.mmm+hh:mm
        EXPECT_GE(time.size(), 23U) << object.dump();
        if (time.size() < 23) {
            return 0L;
        }
        return ((std::stol(time.substr(11, 2)) * 60 + std::stol(time.substr(14, 2))) * 60 +
                std::stol(time.substr(17, 2))) *
                   1000 +
               std::stol(time.substr(20, 3));
    };
    std::map<std::size_t, std::set<std::string>> answeredBy;  // request line: MACs that answered
    std::size_t pairedWithALaterProbe = 0;
    for (std::size_t at = 0; at < objects.size(); ++at) {
        const Json& reply = objects[at];
        if (textOf(reply, "kind", "") != "reply") {
            continue;
        }
        const bool status = textOf(reply, "command", "") == "STATUS";
        const std::string mac = textOf(reply, "mac", "");
        std::optional<std::size_t> earliestOpen;
        std::optional<std::size_t> latest;
        std::optional<std::size_t> firstCopy;
        for (std::size_t before = 0; before < at; ++before) {
            const Json& request = objects[before];
            const std::string command = textOf(request, "command", "");
            if (textOf(request, "kind", "") != "request" ||
                (status ? command != "QUERY" : command == "QUERY") ||
                textOf(request, "seqid", "") != textOf(reply, "seqid", "") ||
                !(textOf(request, "mac", "") == mac ||
                  (status && request.value("every_controller", false)))) {
                continue;
            }
            firstCopy = firstCopy.value_or(before);
            latest = before;
            if (!earliestOpen && answeredBy[before].count(mac) == 0) {
                earliestOpen = before;
            }
        }
        ASSERT_TRUE(latest.has_value()) << reply.dump();
        const std::size_t answered = earliestOpen.value_or(*latest);
        answeredBy[answered].insert(mac);
        pairedWithALaterProbe += answered != *firstCopy ? 1U : 0U;
        const double expectedMs =
            static_cast<double>(millisecondOfDay(reply) - millisecondOfDay(objects[answered]));
        EXPECT_NEAR(reply.at("delay_ms").get<double>(), expectedMs, 1.5)
            << reply.dump() << "\n"
            << objects[answered].dump();
    }
    RecordProperty("replies_paired_with_a_resent_copy", static_cast<int>(pairedWithALaterProbe));
    EXPECT_GE(counts["QUERY"], 1);
    EXPECT_GE(counts["STATUS"], 3);
    EXPECT_EQ(counts["ASSIGN"] + counts["CLEAR"], counts["ACK"]);
    EXPECT_GE(counts["ASSIGN"], 1);
    EXPECT_GE(counts["CLEAR"], 1);

    // The ASSIGN's change and the ACKs as the watch summarises them.
    bool sawAssign = false;
    for (const Json& object : objects) {
        if (textOf(object, "command", "") == "ASSIGN") {
            sawAssign = true;
            EXPECT_EQ(textOf(object, "summary", ""), "ntpip=198.18.255.11");
            EXPECT_EQ(textOf(object, "mac", ""), controllerMac(1));
        } else if (textOf(object, "command", "") == "CLEAR") {
            EXPECT_EQ(textOf(object, "server_key", ""), "syslogip");
        } else if (textOf(object, "command", "") == "ACK") {
            EXPECT_EQ(textOf(object, "summary", ""), "accept=yes");
        }
    }
    EXPECT_TRUE(sawAssign);

    // The plain watch printed the same datagrams, each line as its JSON line says.
    const std::vector<std::string> plainLines = linesOf(plain.out());
    const std::size_t common = std::min(plainLines.size(), objects.size());
    EXPECT_GE(common, wanted);
    for (std::size_t at = 0; at < common; ++at) {
        EXPECT_EQ(plainLines[at], plainLineFor(objects[at]));
    }

    // Next to the daemon: it still answered every broadcast request (above), and the watch there
    // got its own copy of each.
    for (const std::string& line : linesOf(beside.out())) {
        EXPECT_TRUE(Json::parse(line, nullptr, false).is_object()) << line;
    }
    std::vector<std::string> requestsThere = requestsIn(beside.out());
    requestsThere.resize(std::min(requestsThere.size(), requestsHere.size()));
    EXPECT_EQ(requestsThere, requestsHere);
}

TEST_F(Watch, AnUnknownInterfaceIsAUsageErrorAndDurationEndsTheWatch) {
    ASSERT_TRUE(upServing({"arm9"}));
    const LcfRun unknown = runLcf(sb(), {"watch", "-i", "nosuch0"});
    EXPECT_EQ(unknown.result.status, 2);
    EXPECT_EQ(unknown.result.out, "");
    EXPECT_EQ(unknown.result.err, "lcf: no interface nosuch0\n");

    const LcfRun zero = runLcf(sb(), {"watch", "--duration", "0"});
    EXPECT_EQ(zero.result.status, 2);
    EXPECT_EQ(zero.result.err,
              "lcf: --duration: expected seconds above 0 and at most 86400, got '0'\n"
              "Run 'lcf --help' or 'lcf COMMAND --help' for more information.\n");

    const LcfRun timed = runLcf(sb(), {"watch", "--duration", "0.5"});
    EXPECT_EQ(timed.result.status, 0);
    EXPECT_EQ(timed.result.out, "");
    EXPECT_EQ(timed.result.err, "");
    EXPECT_GE(timed.seconds, 0.5);
    EXPECT_LT(timed.seconds, 5.0);
}

// With a socket per interface, datagrams waiting on several are shown in the order the host
// received them, whichever socket is looked at first.
TEST_F(Watch, DatagramsOnSeveralInterfacesAreShownInTheOrderTheyCame) {
    ASSERT_TRUE(upStopped({"arm9"}));
    TemporaryDirectory scratch;
    ASSERT_FALSE(scratch.path().empty());
    ToolSocket tool(sb());
    ASSERT_TRUE(tool.ok());
    Background watch(sb().toolNetns(), {lcfBinary(), "watch", "-i", "lo", "-i", "lan0"},
                     scratch.path(), "watch");
    // Listening on both once a broadcast on lan0 is shown.
    ASSERT_TRUE(waitUntil(
        [&] {
            tool.send("LCF2#QUERY#seqid=ready");
            return watch.out().find("seqid=ready") != std::string::npos;
        },
        Seconds(30)))
        << watch.err();
    const std::size_t before = linesOf(watch.out()).size();

    // While the watch is stopped, one datagram on lan0, then one on lo: both wait, lo's socket
    // (the first named) holding the later one.
    ASSERT_EQ(kill(watch.pid(), SIGSTOP), 0);
    EXPECT_TRUE(tool.send("LCF2#QUERY#seqid=first"));
    bool sentOnLoopback = false;
    inNetns(sb().toolNetns(), [&] {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(kPort);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const std::string text = "LCF2#QUERY#seqid=second";
        sentOnLoopback = fd >= 0 && sendto(fd, text.data(), text.size(), 0,
                                           reinterpret_cast<const sockaddr*>(&to),
                                           sizeof to) == static_cast<ssize_t>(text.size());
        if (fd >= 0) {
            close(fd);
        }
    });
    EXPECT_TRUE(sentOnLoopback);
    ASSERT_EQ(kill(watch.pid(), SIGCONT), 0);
    ASSERT_TRUE(waitUntil([&] { return linesOf(watch.out()).size() >= before + 2; }, Seconds(30)))
        << watch.out();
    EXPECT_EQ(watch.stop(), 0);
    std::vector<std::string> shown;
    for (const std::string& line : linesOf(watch.out())) {
        if (line.find("seqid=ready") == std::string::npos) {
            shown.push_back(line.substr(13));  // without the time
        }
    }
    EXPECT_EQ(shown, (std::vector<std::string>{
                         "lan0 198.18.255.254 QUERY  seqid=first mac=*",
                         "lo 127.0.0.1 QUERY  seqid=second mac=*",
                     }));
    EXPECT_EQ(watch.err(), "");
}

TEST_F(Watch, APortNobodyMayShareIsANetworkError) {
    ASSERT_TRUE(upStopped({"arm9"}));
    const int occupied = occupyServicePort(sb(), 1);
    ASSERT_GE(occupied, 0);
    const ProcessResult watch =
        runProgram({"/usr/bin/nsenter", "--net=/run/netns/" + sb().controllerNetns(1), "--",
                    lcfBinary(), "watch", "--duration", "1"},
                   Seconds(30));
    close(occupied);
    EXPECT_EQ(watch.status, 1);
    EXPECT_EQ(watch.out, "");
    EXPECT_EQ(watch.err, "lcf: cannot listen on UDP port 7217: Address already in use\n");
}

}  // namespace
}  // namespace e2e
