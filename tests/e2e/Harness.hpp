// The bed of the end-to-end tests, and everything the tests share: running programs, polling
// files, a sandboxed segment of simulated controllers (tools/lcfd-sandbox), sockets on the
// segment's tool side with the one reply collector, what a controller is expected to show
// (Session, statusReply, ...), and the fixture every test on a segment uses (LcfdBed).
//
// Two helper headers stay apart, each for a concern of its own: LcfSupport.hpp (the lcf
// client: its program and its JSON output, which need what only the test program links) and
// FloodSupport.hpp (flooding a daemon and watching its process from the host, which the load
// tool in bench/ includes too).
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "wire/Protocol.hpp"

namespace e2e {

// Address of the tool side of every sandbox segment.
inline constexpr const char* kToolAddress = "198.18.255.254";
inline constexpr std::uint16_t kPort = 7217;

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// The banner a daemon prints once it serves.
inline const std::string kListening =
    std::string("LAN Config Facility ") + lcfd::kVersion + " : Listening for broadcast packets\n";

// The lcfd program every Sandbox runs: the one built with the tests, unless a tool (the load
// tool measuring an older build, say) chose another before its first Sandbox, or the
// environment names one: LCFD_E2E_LCFD, a board's build, run as LCFD_E2E_LCFD_PREFIX (its
// emulator's command line, "qemu-arm -L /usr/arm-linux-gnueabi") says (scripts/cross.sh).
std::string lcfdBinary();
void useLcfdBinary(const std::string& path);
// The command line put before lcfd, empty when the daemon runs as it is.
std::string lcfdPrefix();
// Whether the daemon runs under a board's emulator: its process is then the emulator's, with
// the emulator's own descriptors beside the daemon's.
bool lcfdUnderEmulation();
std::string sourceDir();
bool runningAsRoot();

// The address and MAC the sandbox gives controller k (1-based), the second MAC an imx board
// of the sandbox reports (02:4C:43:01:HH:LL), and k in three digits as its names carry it.
std::string controllerAddress(int k);
std::string controllerMac(int k);
std::string controllerSecondMac(int k);
std::string threeDigits(int k);

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
// What a QUERY makes the device run: a reading on `interface`, then the clock for the reply.
std::vector<std::string> queryCommands(const std::string& platform,
                                       const std::string& interface = "br0");
// The commands a CLEAR of `key` (ntpip, syslogip, nameserver) runs on a board of the platform.
std::vector<std::string> clearCommands(const std::string& key, const std::string& platform);

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
    ProcessResult stop(int k) const;
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
    Clock::time_point arrived{};  // when the tool side took it from its socket
};

// Whether a collection of replies keeps those that do not count towards it.
enum class Others { Dropped, Kept };

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
    // The reply collector of every test: replies in arrival order until `count` of them began
    // with `prefix` (every reply counts when it is empty) or the timeout passed.  Replies
    // without the prefix are dropped, or with Others::Kept kept among the others, uncounted.
    std::vector<Datagram> receiveMany(std::size_t count, Seconds timeout,
                                      const std::string& prefix = "",
                                      Others others = Others::Dropped) const;

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

// Replies by sender address; a second reply from one sender is kept apart, under
// "ADDRESS again".
std::map<std::string, std::string> bySender(const std::vector<Datagram>& replies);

// A UDP socket bound to the service port inside a controller's namespace
// without SO_REUSEADDR, so that the daemon cannot bind it.
int occupyServicePort(const Sandbox& sandbox, int k);

// ---------------------------------------------------------------------------
// What the daemons are expected to show.

// The number a daemon logs for the platform it detected.
int platformNumber(const std::string& platform);

// Standard output without the replies of daemons (other controllers' and the
// daemon's own): they come back as broadcasts in no fixed order against the
// tool's requests.  Each shows as its echo (one line, or more when a value in
// it holds a line feed) and its trace; nothing else is printed between the
// end of the previous datagram (or the banner) and such a trace.
std::string withoutDaemonReplies(const std::string& out);

// Everything one controller is expected to have shown, in order.
class Session {
  public:
    // `interfaceFile`: the name the interface file gives (printed as read), or
    // empty when there is no file; `interface`: the name the daemon then uses.
    explicit Session(std::string platform, std::string interfaceFile = "",
                     std::string interface = "br0");
    // The session of a controller the sandbox makes from `board` ("imx", "arm9,iface=eth0",
    // ...): an interface file naming eth0 when the board has one.
    static Session forBoard(const std::string& board);

    // Marks that the interface file exists even though it names nothing.
    void fileIsPresent() { hasFile_ = true; }

    const std::string& platform() const { return platform_; }

    std::string out;
    std::string err;
    std::vector<std::string> syslog;
    std::vector<std::string> shell;

    void info(const std::string& message);
    void error(const std::string& message);
    void warning(const std::string& message);
    void ran(const std::string& commandLine) { shell.push_back(commandLine); }
    // A command run through `system` that is logged before it runs.
    void ranLogged(const std::string& commandLine);

    // Start-up: the first reading (the interface file is first read in its
    // middle), the interface once more for the transport, the banner.
    void startup();
    // One reading of the device.
    void reading() { reading(interface_); }

    // A datagram from the tool: its echo, then (between echo and trace) what
    // handling it does, then the trace.
    void echo(const std::string& datagram) { out += datagram + "\n"; }
    void trace(bool understood);
    // A request that this controller only echoes and traces.
    void passes(const std::string& datagram, bool understood = true);
    // A QUERY this controller answers: the echo, a reading, the clock read for the reply, the
    // trace.
    void queried(const std::string& request);

  private:
    void announce();
    void reading(const std::string& before);

    std::string platform_;
    std::string interfaceFile_;
    std::string interface_;
    bool hasFile_;
};

// What one request shows on the controllers of `sessions` (1, 2, ...) when it is addressed
// to controller `target` (0: to none): the others only echo and trace it; the target echoes
// it, shows what `handle` adds, and traces it as `understood`.
void expectRequest(std::vector<Session>& sessions, int target, const std::string& request,
                   const std::function<void(Session&)>& handle, bool understood = true);

// Waits until the streams, syslog records and shell log of controllers 1, 2,
// ... are what their sessions say (or one deadline for all passed), then
// compares each exactly.
void expectSessions(const Sandbox& sb, std::initializer_list<const Session*> sessions,
                    Seconds timeout = Seconds(15));
void expectSessions(const Sandbox& sb, const std::vector<Session>& sessions,
                    Seconds timeout = Seconds(15));

// The values the sandbox gives controller k's device, in the order of a STATUS reply, from
// "ip" to "loadavg" (the MAC before them, the clocks after them); an empty value is one the
// platform does not report.
std::vector<std::pair<std::string, std::string>> deviceValues(int k, const std::string& platform);
// The display time a controller of the platform reports (empty where it has none).
std::string displayTime(const std::string& platform);

// The STATUS reply of controller k as the sandbox makes it, the live clock
// shown as "<clock>" (see maskClock).  `changes` replaces values by key; an
// empty value leaves an optional field out.
std::string statusReply(const std::string& seqid, int k, const std::string& platform,
                        const std::map<std::string, std::string>& changes = {});

std::string ackText(const std::string& seqid, int k, bool accepted);

// Whether daemon k has traced the request from the tool side that ends with `requestEnd` with
// `verdict` ("understood" or "not understood"); the daemon's own log lines may stand between
// the request it echoes and its trace line. Waits for it until `timeout`.
bool traced(const Sandbox& sb, int k, const std::string& requestEnd, const std::string& verdict,
            Seconds timeout);

bool contains(const std::vector<std::string>& lines, const std::string& line);

// ---------------------------------------------------------------------------
// The fixture of every test on a segment.  SetUp skips the test without root (the namespaces
// need it); the test brings its own segment up (up, upServing, upStopped); TearDown closes the
// tool side's sockets and tears the segment down, whatever the outcome.  Suites keep their
// names through aliases (`using Query = LcfdBed;`, then TEST_F(Query, ...)) or by deriving.
class LcfdBed : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Whether the running test needs root; a suite with a test that brings no segment up
    // overrides this for it.
    virtual bool needsRoot() const { return true; }

    // The segment of `specs` (one per controller, see Sandbox), every daemon serving, and the
    // tool's socket open.
    ::testing::AssertionResult up(const std::vector<std::string>& specs);
    // The same without the tool's socket, for tests that send nothing themselves (lcf does on
    // the tool side); `upOptions` are options of "lcfd-sandbox up" (e.g. {"--loss", "10"}).
    ::testing::AssertionResult upServing(const std::vector<std::string>& specs,
                                         const std::vector<std::string>& upOptions = {});
    // The segment with no daemon started yet: the test prepares the devices, then calls
    // startDaemons() (or starts them itself).
    ::testing::AssertionResult upStopped(const std::vector<std::string>& specs);
    // Starts every daemon, waits for each banner, and opens the tool's socket.
    ::testing::AssertionResult startDaemons();
    ::testing::AssertionResult openTool();
    ::testing::AssertionResult openCapture();

    // A board whose interface file names nothing usable: what the file holds (none: a
    // directory stands in its place), and the session that follows.
    struct InterfaceFileCase {
        std::string board;
        std::optional<std::string> file;
        Session session;
    };
    // Brings up a segment of the cases' boards with their interface files, has every daemon
    // answer the discovery `seqid` and expects br0 of each: the netmask found on it, the
    // replies plain broadcasts of the service socket, which the kernel checksums; then every
    // session exactly.
    void expectBr0DespiteTheInterfaceFiles(std::vector<InterfaceFileCase> cases,
                                           const std::string& seqid);

    const Sandbox& sb() const { return *sandbox_; }
    const ToolSocket& tool() const { return *tool_; }
    const FrameCapture& capture() const { return *capture_; }
    int controllers() const { return controllers_; }

  private:
    ::testing::AssertionResult bringUp(const std::vector<std::string>& specs,
                                       const std::vector<std::string>& upOptions);
    ::testing::AssertionResult runningAsChosen() const;

    // Made in this order, so a fixture that is not torn down by TearDown still closes the
    // sockets before the segment goes.
    std::optional<Sandbox> sandbox_;
    std::optional<ToolSocket> tool_;
    std::optional<FrameCapture> capture_;
    int controllers_ = 0;
};

}  // namespace e2e
