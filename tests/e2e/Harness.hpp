// Helpers for the end-to-end tests: running programs, polling files, a
// sandboxed segment of simulated controllers (tools/lcfd-sandbox) and sockets
// on the segment's tool side.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace e2e {

// Address of the tool side of every sandbox segment.
inline constexpr const char* kToolAddress = "198.18.255.254";
inline constexpr std::uint16_t kPort = 7217;

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// The lcfd program every Sandbox runs: the one built with the tests, unless a tool (the load
// tool measuring an older build, say) chose another before its first Sandbox.
std::string lcfdBinary();
void useLcfdBinary(const std::string& path);
std::string sourceDir();
bool runningAsRoot();

// The address and MAC the sandbox gives controller k (1-based).
std::string controllerAddress(int k);
std::string controllerMac(int k);

struct ProcessResult {
    int status = -1;  // exit status, or -1 when killed or not started
    std::string out;
    std::string err;
};

// Runs argv (no shell) with empty standard input, collecting both streams.
// A program still running after the timeout is killed.
ProcessResult runProgram(const std::vector<std::string>& argv, Seconds timeout);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);
bool fileExists(const std::string& path);

// Polls the predicate every few milliseconds until it holds or the deadline
// passes; answers whether it held.
bool waitUntil(const std::function<bool()>& predicate, Seconds timeout);

// The command lines one reading of the device runs, in order, on a board of
// the given platform ("arm9", "imx", "qmt", "generic", or "unknown" for a board
// whose SDK query fails).  `before` is the interface the MAC and scheme queries
// use, `after` the one used from the address query on (they differ only at
// start-up, when the interface file is first read in the middle of a reading).
std::vector<std::string> readingCommands(const std::string& platform, const std::string& before,
                                         const std::string& after);

// Replaces the value of the live clock field "#utcclock=..." of a STATUS reply
// by "<clock>" and hands the value out.
std::string maskClock(const std::string& reply, std::string* clock);

// The simulated clock now (host clock, no offset), as fourteen digits.
std::string utcNow();

// Decodes a shell log: records "LENGTH:LINE\n".
std::vector<std::string> parseShellLog(const std::string& content);

// Syslog records as received ("<PRI>TIMESTAMP lcfd: MESSAGE"), reduced to
// "<PRI>MESSAGE" so that they can be compared exactly.
std::vector<std::string> syslogRecords(const std::string& content);

// Runs a function on a thread that has joined the given network namespace
// (a name under /var/run/netns).  Sockets made there stay in that namespace.
void inNetns(const std::string& netnsName, const std::function<void()>& work);

// A segment of simulated controllers, each with its own lcfd.  Torn down
// by the destructor, whatever the test's outcome.
class Sandbox {
  public:
    // specs: one per controller, e.g. "arm9", "imx,iface=eth0", "arm9,nobcast".
    explicit Sandbox(const std::vector<std::string>& specs, bool startDaemons = true);
    // With options of "lcfd-sandbox up" (e.g. {"--loss", "10"}); the daemons are started.
    Sandbox(const std::vector<std::string>& specs, const std::vector<std::string>& upOptions);
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    bool ok() const { return ok_; }
    const std::string& upOutput() const { return upOutput_; }
    const std::string& name() const { return name_; }
    std::string toolNetns() const;
    std::string controllerNetns(int k) const;
    std::string dir(int k) const;

    std::string out(int k) const { return readFile(dir(k) + "/stdout"); }
    std::string err(int k) const { return readFile(dir(k) + "/stderr"); }
    std::string syslog(int k) const { return readFile(dir(k) + "/syslog"); }
    std::vector<std::string> shellLog(int k) const;
    void clearShellLog(int k) const;

    bool waitOut(int k, const std::string& text, Seconds timeout) const;
    bool waitErr(int k, const std::string& text, Seconds timeout) const;
    // Exit status of a daemon that ended, once it has.
    std::optional<int> waitExit(int k, Seconds timeout) const;

    // Controls the simulated device: set a value, or make a command misbehave.
    void setValue(int k, const std::string& key, const std::string& value) const;
    void setFault(int k, const std::string& key, const std::string& mode) const;

    ProcessResult start(int k) const;
    // The reports a sanitizer build of lcfd wrote in this sandbox, each with its file name.
    // The destructor fails the test on any.
    std::vector<std::string> sanitizerReports() const;
    // Runs a command line inside controller k (its namespaces and sim tools).
    ProcessResult execInController(int k, const std::string& commandLine) const;

  private:
    ProcessResult tool(const std::vector<std::string>& args, Seconds timeout) const;

    std::string name_;
    bool ok_ = false;
    std::string upOutput_;
};

struct Datagram {
    std::string data;
    std::string sender;
    std::uint16_t senderPort = 0;
};

// A UDP socket of the tool side bound to the service port: sends requests as
// broadcasts and receives replies (its own looped-back requests are skipped).
class ToolSocket {
  public:
    explicit ToolSocket(const Sandbox& sandbox);
    ~ToolSocket();
    ToolSocket(const ToolSocket&) = delete;
    ToolSocket& operator=(const ToolSocket&) = delete;

    bool ok() const { return fd_ >= 0; }
    bool send(const std::string& bytes) const;
    std::optional<Datagram> receive(Seconds timeout) const;
    // Replies until `count` arrived or the timeout passed.
    std::vector<Datagram> receiveMany(std::size_t count, Seconds timeout) const;

  private:
    int fd_ = -1;
};

struct IpFrame {
    std::string bytes;  // the whole IPv4 packet as seen on the wire
    std::uint8_t versionIhl() const;
    std::uint16_t totalLength() const;
    std::uint16_t id() const;
    std::uint16_t flagsFragment() const;
    std::uint8_t ttl() const;
    std::uint8_t protocol() const;
    std::string source() const;
    std::string destination() const;
    std::uint16_t sourcePort() const;
    std::uint16_t destinationPort() const;
    std::uint16_t udpLength() const;
    std::uint16_t udpChecksum() const;
    std::string payload() const;
    bool headerChecksumValid() const;
};

// Captures the IPv4/UDP frames for the service port that reach the tool side,
// as they are on the wire.
class FrameCapture {
  public:
    explicit FrameCapture(const Sandbox& sandbox);
    ~FrameCapture();
    FrameCapture(const FrameCapture&) = delete;
    FrameCapture& operator=(const FrameCapture&) = delete;

    bool ok() const { return fd_ >= 0; }
    // Next frame to the service port that was not sent by the tool side.
    std::optional<IpFrame> next(Seconds timeout) const;

  private:
    int fd_ = -1;
};

// A UDP socket bound to the service port inside a controller's namespace
// without SO_REUSEADDR, so that the daemon cannot bind it.
int occupyServicePort(const Sandbox& sandbox, int k);

}  // namespace e2e

// Namespaces need root; without it the sandboxed tests are skipped.
#define E2E_REQUIRE_ROOT()                                                 \
    do {                                                                   \
        if (!e2e::runningAsRoot()) {                                       \
            GTEST_SKIP() << "needs root for network and mount namespaces"; \
        }                                                                  \
    } while (false)
