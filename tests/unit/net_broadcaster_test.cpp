// The UDP transport: setting up its socket, the receive loop, the choice between the plain
// and the raw send path, and the raw path's failures.
//
// Nothing here may reach a real network. In the process's own namespace, raw sends use
// interface names that name no device (checked first, the test is skipped otherwise), so they
// stop where the socket is bound to the device; plain sends are made too long for a datagram,
// so the kernel refuses them; the receive loop gets its datagrams over the loopback interface.
// Raw sends that succeed happen only in a child's private network namespace.

#include <arpa/inet.h>
#include <dirent.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "SocketFaults.hpp"
#include "TestSupport.hpp"
#include "net/Broadcaster.hpp"
#include "net/IBroadcasterCallback.hpp"
#include "wire/Protocol.hpp"

namespace lcfd {
namespace {

using test::CapturedOutput;
using test::captureOutput;
using test::failNextSocketOption;
using test::portIsFree;
using test::privateNamespacesAvailable;
using test::setUpLoopbackAs;
using test::socketOptionFailurePending;

// Longer than any UDP datagram can be, so a plain send of it always fails.
constexpr std::size_t kUnsendableLength = 70000;

class IgnoringCallback : public IBroadcasterCallback {
  public:
    void onMessage(const char*, std::int64_t, std::uint32_t) override {}
};

std::set<int> openDescriptors() {
    std::set<int> descriptors;
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        ADD_FAILURE() << "cannot list /proc/self/fd";
        return descriptors;
    }
    const int listing = dirfd(dir);
    // cppcheck-suppress readdirCalled ; the stream is this function's own (readdir_r is deprecated)
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        const int descriptor = static_cast<int>(std::strtol(entry->d_name, nullptr, 10));
        if (descriptor != listing) {
            descriptors.insert(descriptor);
        }
    }
    closedir(dir);
    return descriptors;
}

std::vector<int> addedDescriptors(const std::set<int>& before, const std::set<int>& after) {
    std::vector<int> added;
    for (const int descriptor : after) {
        if (before.count(descriptor) == 0) {
            added.push_back(descriptor);
        }
    }
    return added;
}

int socketOption(int descriptor, int level, int option) {
    int value = -1;
    socklen_t length = sizeof value;
    if (getsockopt(descriptor, level, option, &value, &length) != 0) {
        return -1;
    }
    return value;
}

bool isRawIpSocket(int descriptor) {
    return socketOption(descriptor, SOL_SOCKET, SO_TYPE) == SOCK_RAW &&
           socketOption(descriptor, SOL_SOCKET, SO_PROTOCOL) == 255;
}

void closeAll(const std::vector<int>& descriptors) {
    for (const int descriptor : descriptors) {
        close(descriptor);
    }
}

// The kernel is handed only the first four bytes of the name.
bool deviceExistsFor(const std::string& interfaceName) {
    const std::string seenByKernel = interfaceName.substr(0, 4);
    return !seenByKernel.empty() && if_nametoindex(seenByKernel.c_str()) != 0;
}

#define SKIP_IF_DEVICE_EXISTS(name)                                                         \
    if (deviceExistsFor(name)) {                                                            \
        GTEST_SKIP() << "a device answers to \"" << (name) << "\"; a raw send could leave"; \
    }

std::uint16_t boundPort(int descriptor) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

// A UDP port that was free a moment ago.
std::uint16_t freePort() {
    const int probe = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // A failed bind leaves port 0, which the caller's own checks then catch.
    static_cast<void>(bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    const std::uint16_t port = boundPort(probe);
    close(probe);
    return port;
}

rlimit descriptorLimit{};

void restoreDescriptorLimit() {
    setrlimit(RLIMIT_NOFILE, &descriptorLimit);
}

// From here on every call that needs a new descriptor fails with EMFILE. Only the soft limit
// drops, and it is raised again at exit: the exit handlers of a sanitizer build need a
// descriptor (a pipe to probe memory) and would otherwise report an error of their own.
void allowNoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &descriptorLimit);
    rlimit none = descriptorLimit;
    none.rlim_cur = 0;
    std::atexit(restoreDescriptorLimit);
    setrlimit(RLIMIT_NOFILE, &none);
}

// What a send left behind: its output and the descriptors it opened and did not close.
struct SendOutcome {
    CapturedOutput output;
    std::vector<int> leaked;
};

template <typename Send>
SendOutcome observe(Send send) {
    SendOutcome outcome;
    const std::set<int> before = openDescriptors();
    outcome.output = captureOutput(send);
    outcome.leaked = addedDescriptors(before, openDescriptors());
    return outcome;
}

// ---- construction ----

TEST(BroadcasterSetup, BindsTheUdpPortOnAllAddressesWithBroadcastAndReuse) {
    IgnoringCallback callback;
    const std::uint16_t port = freePort();
    const std::set<int> before = openDescriptors();
    std::vector<int> opened;
    {
        CapturedOutput output;
        std::unique_ptr<Broadcaster> broadcaster;
        output = captureOutput(
            [&] { broadcaster = std::make_unique<Broadcaster>(&callback, port, "zzz9"); });
        EXPECT_EQ(output.out, "");
        EXPECT_EQ(output.err, "");
        opened = addedDescriptors(before, openDescriptors());
        ASSERT_EQ(opened.size(), 1u);
        const int descriptor = opened.front();
        EXPECT_EQ(socketOption(descriptor, SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
        EXPECT_EQ(socketOption(descriptor, SOL_SOCKET, SO_PROTOCOL), IPPROTO_UDP);
        EXPECT_EQ(socketOption(descriptor, SOL_SOCKET, SO_BROADCAST), 1);
        EXPECT_EQ(socketOption(descriptor, SOL_SOCKET, SO_REUSEADDR), 1);
        sockaddr_in bound{};
        socklen_t length = sizeof bound;
        ASSERT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&bound), &length), 0);
        EXPECT_EQ(ntohs(bound.sin_port), port);
        EXPECT_EQ(bound.sin_addr.s_addr, htonl(INADDR_ANY));
        EXPECT_FALSE(portIsFree(port));
    }
    // The destructor closes the socket and so frees the port.
    EXPECT_TRUE(addedDescriptors(before, openDescriptors()).empty());
    EXPECT_TRUE(portIsFree(port));
}

TEST(BroadcasterSetupDeathTest, PortHeldWithoutReuseEndsTheProcessWithStatus1) {
    const int holder = socket(AF_INET, SOCK_DGRAM, 0);  // no SO_REUSEADDR
    // A failed assertion ends the test; the descriptor goes with the test process.
    // cppcheck-suppress resourceLeak
    ASSERT_GE(holder, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    // cppcheck-suppress resourceLeak
    ASSERT_EQ(bind(holder, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const std::uint16_t port = boundPort(holder);
    IgnoringCallback callback;
    EXPECT_EXIT(Broadcaster(&callback, port, "zzz9"), ::testing::ExitedWithCode(1),
                ::testing::Eq(std::string("Error binding socket: 98\n")));  // EADDRINUSE
    close(holder);
}

// With standard input closed the new socket gets descriptor 0, which means "no socket".
TEST(BroadcasterSetupDeathTest, SocketOnDescriptorZeroEndsTheProcessWithStatus1) {
    IgnoringCallback callback;
    EXPECT_EXIT(
        {
            close(0);
            Broadcaster broadcaster(&callback, 0, "zzz9");
        },
        ::testing::ExitedWithCode(1), ::testing::MatchesRegex("Error creating socket: -?[0-9]+\n"));
}

// A failed socket() is caught only by the option call that follows, on the bad descriptor.
TEST(BroadcasterSetupDeathTest, NoDescriptorLeftEndsTheProcessAtTheSocketOptions) {
    IgnoringCallback callback;
    EXPECT_EXIT(
        {
            allowNoMoreDescriptors();
            Broadcaster broadcaster(&callback, 0, "zzz9");
        },
        ::testing::ExitedWithCode(1),
        ::testing::Eq(std::string("Error setting socket options: 9\n")));  // EBADF
}

// ---- receive loop ----

// Reports every datagram through a pipe and ends the (forked) process after the last one.
class ReportingCallback : public IBroadcasterCallback {
  public:
    ReportingCallback(int reportFd, int expectedMessages)
        : reportFd_(reportFd), remaining_(expectedMessages) {}

    void onMessage(const char* data, std::int64_t length, std::uint32_t senderAddress) override {
        writeAll(&length, sizeof length);
        writeAll(&senderAddress, sizeof senderAddress);
        writeAll(data, static_cast<std::size_t>(length));
        if (--remaining_ == 0) {
            std::fflush(stdout);
            _exit(0);
        }
    }

  private:
    void writeAll(const void* data, std::size_t size) {
        const char* bytes = static_cast<const char*>(data);
        while (size > 0) {
            const ssize_t written = write(reportFd_, bytes, size);
            if (written <= 0) {
                _exit(3);
            }
            bytes += written;
            size -= static_cast<std::size_t>(written);
        }
    }

    int reportFd_;
    int remaining_;
};

// Reads until end of file; gives up (and says so) if nothing arrives for ten seconds.
bool readUntilClosed(int descriptor, std::string& content) {
    char chunk[4096];
    for (;;) {
        pollfd waiting{descriptor, POLLIN, 0};
        if (poll(&waiting, 1, 10000) != 1) {
            return false;
        }
        const ssize_t count = read(descriptor, chunk, sizeof chunk);
        if (count < 0) {
            return false;
        }
        if (count == 0) {
            return true;
        }
        content.append(chunk, static_cast<std::size_t>(count));
    }
}

struct Delivery {
    std::int64_t length;
    std::uint32_t senderAddress;
    std::string data;
};

std::vector<Delivery> decodeReports(const std::string& reports) {
    std::vector<Delivery> deliveries;
    std::size_t position = 0;
    while (position + sizeof(std::int64_t) + sizeof(std::uint32_t) <= reports.size()) {
        Delivery delivery{};
        std::memcpy(&delivery.length, reports.data() + position, sizeof delivery.length);
        position += sizeof delivery.length;
        std::memcpy(&delivery.senderAddress, reports.data() + position,
                    sizeof delivery.senderAddress);
        position += sizeof delivery.senderAddress;
        const auto size = static_cast<std::size_t>(delivery.length);
        delivery.data = reports.substr(position, size);
        position += size;
        deliveries.push_back(delivery);
    }
    return deliveries;
}

TEST(BroadcasterListen, DeliversAtMost512BytesAndSkipsEmptyDatagrams) {
    int reportPipe[2];
    int outputPipe[2];
    ASSERT_EQ(pipe(reportPipe), 0);
    ASSERT_EQ(pipe(outputPipe), 0);
    ReportingCallback callback(reportPipe[1], 2);

    const std::set<int> before = openDescriptors();
    Broadcaster broadcaster(&callback, 0, "zzz9");
    const std::vector<int> opened = addedDescriptors(before, openDescriptors());
    ASSERT_EQ(opened.size(), 1u);
    const std::uint16_t port = boundPort(opened.front());

    std::fflush(stdout);  // the child must not inherit anything still buffered
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(reportPipe[0]);
        close(outputPipe[0]);
        dup2(outputPipe[1], 1);
        close(outputPipe[1]);
        broadcaster.listen();
    }
    close(reportPipe[1]);
    close(outputPipe[1]);

    // Queued in the socket before or after the child starts receiving, alike.
    const int sender = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(port);
    target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string longDatagram;
    for (std::size_t i = 0; i < 600; ++i) {
        longDatagram += static_cast<char>('A' + static_cast<char>(i % 23));
    }
    for (const std::string& datagram : {std::string(), longDatagram, std::string("end")}) {
        EXPECT_EQ(sendto(sender, datagram.data(), datagram.size(), 0,
                         reinterpret_cast<const sockaddr*>(&target), sizeof target),
                  static_cast<ssize_t>(datagram.size()));
    }
    close(sender);

    std::string reports;
    std::string output;
    const bool finished =
        readUntilClosed(reportPipe[0], reports) && readUntilClosed(outputPipe[0], output);
    if (!finished) {
        kill(child, SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(reportPipe[0]);
    close(outputPipe[0]);
    ASSERT_TRUE(finished) << "the receive loop did not deliver two datagrams";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    EXPECT_EQ(output, std::string("LAN Config Facility ") + lcfd::kVersion +
                          " : Listening for broadcast packets\n");
    const std::vector<Delivery> deliveries = decodeReports(reports);
    ASSERT_EQ(deliveries.size(), 2u);
    EXPECT_EQ(deliveries[0].length, 512);
    EXPECT_EQ(deliveries[0].data, longDatagram.substr(0, 512));
    EXPECT_EQ(deliveries[1].length, 3);
    EXPECT_EQ(deliveries[1].data, "end");
    const std::uint8_t loopback[4] = {127, 0, 0, 1};
    std::uint32_t loopbackAddress = 0;
    std::memcpy(&loopbackAddress, loopback, sizeof loopbackAddress);
    EXPECT_EQ(deliveries[0].senderAddress, loopbackAddress);
    EXPECT_EQ(deliveries[1].senderAddress, loopbackAddress);
}

// ---- raw path: size limit ----

TEST(BroadcasterSendRaw, OversizeReplyIsDiscardedWithoutOpeningASocket) {
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "zzz9");
    const std::string reply(1472, 'x');
    const SendOutcome outcome = observe([&] { broadcaster.sendRaw(reply.c_str()); });
    EXPECT_EQ(outcome.output.err, "Discarding oversize message: 1472\n");
    EXPECT_EQ(outcome.output.out, "");
    EXPECT_TRUE(outcome.leaked.empty());
    closeAll(outcome.leaked);
}

TEST(BroadcasterSendRaw, ReplyOfExactly1471CharactersIsNotDiscarded) {
    SKIP_IF_DEVICE_EXISTS("zzz9");
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "zzz9");
    const std::string reply(1471, 'x');
    const SendOutcome outcome = observe([&] { broadcaster.sendRaw(reply.c_str()); });
    EXPECT_EQ(outcome.output.err, "Error binding to zzz9 interface: 19\n");  // ENODEV
    EXPECT_EQ(outcome.leaked.size(), 1u);
    closeAll(outcome.leaked);
}

// ---- raw path: binding to the device ----

// Only "wlan" reaches the kernel, but the message names the interface in full.
TEST(BroadcasterSendRaw, MissingDeviceIsReportedWithTheWholeName) {
    SKIP_IF_DEVICE_EXISTS("wlan0");
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "wlan0");
    const SendOutcome outcome = observe([&] { broadcaster.sendRaw("LCF2#ACK#seqid=1"); });
    EXPECT_EQ(outcome.output.err, "Error binding to wlan0 interface: 19\n");
    EXPECT_EQ(outcome.output.out, "");
    closeAll(outcome.leaked);
}

TEST(BroadcasterSendRaw, FourCharacterNameIsReportedAsItIs) {
    SKIP_IF_DEVICE_EXISTS("zzz9");
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "zzz9");
    const SendOutcome outcome = observe([&] { broadcaster.sendRaw("x"); });
    EXPECT_EQ(outcome.output.err, "Error binding to zzz9 interface: 19\n");
    closeAll(outcome.leaked);
}

TEST(BroadcasterSendRaw, NineCharacterNameIsReportedInFull) {
    SKIP_IF_DEVICE_EXISTS("zzzzzzzz9");
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "zzzzzzzz9");
    const SendOutcome outcome = observe([&] { broadcaster.sendRaw("x"); });
    EXPECT_EQ(outcome.output.err, "Error binding to zzzzzzzz9 interface: 19\n");
    closeAll(outcome.leaked);
}

// The failed send keeps its raw socket open: one descriptor more per failure.
TEST(BroadcasterSendRaw, FailedSendLeavesItsRawSocketOpen) {
    SKIP_IF_DEVICE_EXISTS("wlan0");
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "wlan0");
    const SendOutcome outcome = observe([&] { broadcaster.sendRaw("LCF2#ACK#seqid=1"); });
    ASSERT_EQ(outcome.leaked.size(), 1u);
    EXPECT_TRUE(isRawIpSocket(outcome.leaked.front()));
    EXPECT_EQ(socketOption(outcome.leaked.front(), SOL_SOCKET, SO_BROADCAST), 1);
    closeAll(outcome.leaked);
}

// The raw socket stays open whichever of its options fails; the reply is lost with it.
struct RefusedRawOption {
    const char* name;
    int level;
    int option;
    int errorNumber;
    const char* report;
    int broadcastOptionLeft;  // whether the broadcast option, set first, was set
};

class BroadcasterRefusedRawOption : public ::testing::TestWithParam<RefusedRawOption> {};

TEST_P(BroadcasterRefusedRawOption, LeavesItsRawSocketOpen) {
    const RefusedRawOption& refused = GetParam();
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "zzz9");
    const SendOutcome outcome = observe([&] {
        failNextSocketOption(refused.level, refused.option, refused.errorNumber);
        broadcaster.sendRaw("LCF2#ACK#seqid=1");
    });
    EXPECT_FALSE(socketOptionFailurePending());
    EXPECT_EQ(outcome.output.out, "");
    EXPECT_EQ(outcome.output.err, refused.report);
    ASSERT_EQ(outcome.leaked.size(), 1u);
    EXPECT_TRUE(isRawIpSocket(outcome.leaked.front()));
    EXPECT_EQ(socketOption(outcome.leaked.front(), SOL_SOCKET, SO_BROADCAST),
              refused.broadcastOptionLeft);
    closeAll(outcome.leaked);
}

INSTANTIATE_TEST_SUITE_P(
    EachOption, BroadcasterRefusedRawOption,
    ::testing::Values(RefusedRawOption{"Broadcast", SOL_SOCKET, SO_BROADCAST, EACCES,
                                       "Error setting socket broadcast option: 13\n", 0},
                      RefusedRawOption{"HeaderIncluded", IPPROTO_IP, IP_HDRINCL, EPERM,
                                       "Error setting socket hdrincl option: 1\n", 1}),
    [](const ::testing::TestParamInfo<RefusedRawOption>& row) { return row.param.name; });

TEST(BroadcasterSendRaw, EachFailedSendCostsOneMoreDescriptor) {
    SKIP_IF_DEVICE_EXISTS("zzz9");
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "zzz9");
    const SendOutcome outcome = observe([&] {
        broadcaster.sendRaw("one");
        broadcaster.sendRaw("two");
        broadcaster.sendRaw("three");
    });
    EXPECT_EQ(outcome.output.err,
              "Error binding to zzz9 interface: 19\n"
              "Error binding to zzz9 interface: 19\n"
              "Error binding to zzz9 interface: 19\n");
    EXPECT_EQ(outcome.leaked.size(), 3u);
    for (const int descriptor : outcome.leaked) {
        EXPECT_TRUE(isRawIpSocket(descriptor)) << descriptor;
    }
    closeAll(outcome.leaked);
}

TEST(BroadcasterSendRawDeathTest, TenCharacterNameEndsTheProcessAbnormally) {
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "zzzzzzzzz0");
    EXPECT_DEATH(broadcaster.sendRaw("x"), "");
}

TEST(BroadcasterSendRawDeathTest, NoDescriptorLeftForTheRawSocketIsReported) {
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "zzz9");
    EXPECT_EXIT(
        {
            allowNoMoreDescriptors();
            broadcaster.sendRaw("x");
            _exit(0);
        },
        ::testing::ExitedWithCode(0),
        ::testing::Eq(std::string("Failed to create raw socket: 24\n")));  // EMFILE
}

// ---- choice of send path ----

// The oversize reply makes either path harmless: a plain send would fail with a message, the
// raw one discards it.
TEST(BroadcasterBroadcast, NameOtherThanBr0NeverTriesThePlainSend) {
    IgnoringCallback callback;
    const std::string reply(kUnsendableLength, 'x');
    for (const std::string name : {"eth0", "br", "br0 ", "br01", "BR0", "", "zzz9"}) {
        Broadcaster broadcaster(&callback, 0, name);
        const SendOutcome outcome = observe(
            [&] { broadcaster.broadcast(reply.c_str(), static_cast<std::int64_t>(reply.size())); });
        EXPECT_EQ(outcome.output.err, "Discarding oversize message: 70000\n") << '"' << name << '"';
        EXPECT_TRUE(outcome.leaked.empty()) << '"' << name << '"';
        closeAll(outcome.leaked);
    }
}

// The raw path measures the text up to its zero byte; the length given is for the plain
// path only, and here it would make a plain send fail.
TEST(BroadcasterBroadcast, RawPathMeasuresTheTextAndIgnoresTheLength) {
    IgnoringCallback callback;
    std::string buffer(kUnsendableLength, 'x');
    buffer.replace(0, 6, std::string("hello\0", 6));
    SKIP_IF_DEVICE_EXISTS("br");
    SKIP_IF_DEVICE_EXISTS("br0 ");
    SKIP_IF_DEVICE_EXISTS("br01");
    for (const std::string name : {"br", "br0 ", "br01"}) {
        Broadcaster broadcaster(&callback, 0, name);
        const SendOutcome outcome = observe([&] {
            broadcaster.broadcast(buffer.data(), static_cast<std::int64_t>(buffer.size()));
        });
        EXPECT_EQ(outcome.output.err, "Error binding to " + name + " interface: 19\n")
            << '"' << name << '"';
        EXPECT_EQ(outcome.leaked.size(), 1u) << '"' << name << '"';
        closeAll(outcome.leaked);
    }
}

// On br0 the plain send comes first; a reply too long for a datagram fails there
// (EMSGSIZE) and then meets the raw path's own limit.
TEST(BroadcasterBroadcast, FailedPlainSendOnBr0FallsBackToTheRawPath) {
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "br0");
    const std::string reply(kUnsendableLength, 'x');
    const SendOutcome outcome = observe(
        [&] { broadcaster.broadcast(reply.c_str(), static_cast<std::int64_t>(reply.size())); });
    EXPECT_EQ(outcome.output.err,
              "Broadcast failed: 90\n"
              "Trying to send as raw package\n"
              "Discarding oversize message: 70000\n");
    EXPECT_EQ(outcome.output.out, "");
    EXPECT_TRUE(outcome.leaked.empty());
    closeAll(outcome.leaked);
}

TEST(BroadcasterBroadcast, RawFallbackOnBr0BindsToBr0) {
    SKIP_IF_DEVICE_EXISTS("br0");
    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, "br0");
    std::string buffer(kUnsendableLength, 'x');
    buffer.replace(0, 6, std::string("hello\0", 6));
    const SendOutcome outcome = observe(
        [&] { broadcaster.broadcast(buffer.data(), static_cast<std::int64_t>(buffer.size())); });
    EXPECT_EQ(outcome.output.err,
              "Broadcast failed: 90\n"
              "Trying to send as raw package\n"
              "Error binding to br0 interface: 19\n");
    ASSERT_EQ(outcome.leaked.size(), 1u);
    EXPECT_TRUE(isRawIpSocket(outcome.leaked.front()));
    closeAll(outcome.leaked);
}

// ---- raw path inside a private network namespace ----
//
// A forked child gets a network namespace of its own whose only device is its loopback
// device, renamed and brought up. A frame sent there can reach nothing outside the child, so
// these tests let the raw send succeed and look at what arrives on port 7217.

// Runs in the child: sends `reply` on the raw path of a Broadcaster for `interfaceName`
// while the loopback device is called `deviceName`. Then writes to standard error, after
// whatever the send wrote there, how many descriptors the send left open, the size of the
// IPv4 datagram that came in and the UDP payload that arrived on port 7217.
[[noreturn]] void sendRawInPrivateNamespace(const std::string& deviceName,
                                            const std::string& interfaceName,
                                            const std::string& reply, bool deviceUp = true) {
    if (unshare(CLONE_NEWNET) != 0 || !setUpLoopbackAs(deviceName, deviceUp)) {
        std::fprintf(stderr, "no private network namespace\n");
        _exit(2);
    }
    // Sees every incoming UDP datagram whole, IPv4 header included.
    const int frameListener = socket(AF_INET, SOCK_RAW, IPPROTO_UDP);
    const int listener = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in servicePort{};
    servicePort.sin_family = AF_INET;
    servicePort.sin_port = htons(7217);
    if (frameListener < 0 ||
        bind(listener, reinterpret_cast<const sockaddr*>(&servicePort), sizeof servicePort) != 0) {
        std::fprintf(stderr, "cannot listen on port 7217\n");
        _exit(2);
    }

    IgnoringCallback callback;
    Broadcaster broadcaster(&callback, 0, interfaceName);
    const SendOutcome outcome = observe([&] { broadcaster.sendRaw(reply.c_str()); });

    // A send that reported an error sent nothing, so there is nothing to wait for.
    pollfd waiting{listener, POLLIN, 0};
    const int timeoutMs = outcome.output.err.empty() ? 10000 : 0;
    std::string arrived = "nothing";
    if (poll(&waiting, 1, timeoutMs) == 1) {
        char buffer[2048];
        // The raw copy is handed out before the datagram reaches the UDP socket.
        const ssize_t frameSize = recv(frameListener, buffer, sizeof buffer, MSG_DONTWAIT);
        sockaddr_in sender{};
        socklen_t senderLength = sizeof sender;
        const ssize_t count = recvfrom(listener, buffer, sizeof buffer, 0,
                                       reinterpret_cast<sockaddr*>(&sender), &senderLength);
        arrived = std::to_string(frameSize) + "-byte frame, \"" +
                  std::string(buffer, static_cast<std::size_t>(count < 0 ? 0 : count)) +
                  "\" from port " + std::to_string(ntohs(sender.sin_port));
    }
    std::fprintf(stderr, "%sleft open: %zu, arrived: %s\n", outcome.output.err.c_str(),
                 outcome.leaked.size(), arrived.c_str());
    _exit(0);
}

class BroadcasterRawSendDeathTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!privateNamespacesAvailable()) {
            GTEST_SKIP() << "no private network namespace can be made here";
        }
    }
};

TEST_F(BroadcasterRawSendDeathTest, FourCharacterNameBindsAndTheSocketIsClosedAfterTheSend) {
    EXPECT_EXIT(
        sendRawInPrivateNamespace("eth0", "eth0", "LCF2#ACK#seqid=1"), ::testing::ExitedWithCode(0),
        ::testing::Eq(std::string(
            "left open: 0, arrived: 44-byte frame, \"LCF2#ACK#seqid=1\" from port 7217\n")));
}

// Only four bytes of the name reach the kernel: wlan0 binds to a device called wlan...
TEST_F(BroadcasterRawSendDeathTest, LongerNameBindsByItsFirstFourCharacters) {
    EXPECT_EXIT(
        sendRawInPrivateNamespace("wlan", "wlan0", "LCF2#ACK#seqid=1"),
        ::testing::ExitedWithCode(0),
        ::testing::Eq(std::string(
            "left open: 0, arrived: 44-byte frame, \"LCF2#ACK#seqid=1\" from port 7217\n")));
}

// ...and does not find a device whose name really is wlan0.
TEST_F(BroadcasterRawSendDeathTest, LongerNameDoesNotFindTheDeviceOfThatName) {
    EXPECT_EXIT(sendRawInPrivateNamespace("wlan0", "wlan0", "LCF2#ACK#seqid=1"),
                ::testing::ExitedWithCode(0),
                ::testing::Eq(std::string("Error binding to wlan0 interface: 19\n"
                                          "left open: 1, arrived: nothing\n")));
}

TEST_F(BroadcasterRawSendDeathTest, NineCharacterNameBindsByItsFirstFourCharacters) {
    EXPECT_EXIT(
        sendRawInPrivateNamespace("zzzz", "zzzzzzzz9", "LCF2#STATUS"), ::testing::ExitedWithCode(0),
        ::testing::Eq(
            std::string("left open: 0, arrived: 39-byte frame, \"LCF2#STATUS\" from port 7217\n")));
}

// A device that is down has no route: the send itself fails, and its socket stays open.
TEST_F(BroadcasterRawSendDeathTest, FailedSendLeavesItsRawSocketOpen) {
    EXPECT_EXIT(sendRawInPrivateNamespace("wlan", "wlan0", "LCF2#STATUS", false),
                ::testing::ExitedWithCode(0),
                ::testing::Eq(std::string("Failed to send raw data: 101\n"  // ENETUNREACH
                                          "left open: 1, arrived: nothing\n")));
}

TEST_F(BroadcasterRawSendDeathTest, EmptyReplyTravelsAsA28ByteFrame) {
    EXPECT_EXIT(
        sendRawInPrivateNamespace("br0", "br0", ""), ::testing::ExitedWithCode(0),
        ::testing::Eq(std::string("left open: 0, arrived: 28-byte frame, \"\" from port 7217\n")));
}

TEST_F(BroadcasterRawSendDeathTest, LongestReplyArrivesWhole) {
    std::string reply;
    for (std::size_t i = 0; i < 1471; ++i) {
        reply += static_cast<char>('a' + static_cast<char>(i % 26));
    }
    EXPECT_EXIT(sendRawInPrivateNamespace("br0", "br0", reply), ::testing::ExitedWithCode(0),
                ::testing::Eq("left open: 0, arrived: 1499-byte frame, \"" + reply +
                              "\" from port 7217\n"));
}

}  // namespace
}  // namespace lcfd
