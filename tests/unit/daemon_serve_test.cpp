// Serving as the daemon's main does: what happens when something throws inside the receive
// loop. The fault comes from the device, through a scripted shell.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "TestSupport.hpp"
#include "daemon/Daemon.hpp"
#include "settings/Settings.hpp"
#include "wire/Protocol.hpp"

namespace lcfd {
namespace {

using test::portIsFree;
using test::privateNamespacesAvailable;
using test::ScriptedShell;
using test::setUpLoopbackAs;

// Sends `text` once to the service port on the loopback address, as soon as something is
// bound there (at most 30 s).
void sendOnceBound(const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (portIsFree(kServicePort) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const int sender = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in service{};
    service.sin_family = AF_INET;
    service.sin_port = htons(kServicePort);
    service.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sendto(sender, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&service),
           sizeof service);
    close(sender);
}

// Runs in the child: serves in a network namespace of its own, with a device that answers
// the start-up reading and throws from the next command line on, and one QUERY sent to it.
// Writes to standard error what serving wrote there, what it answered and whether the
// service port was free again afterwards.
[[noreturn]] void serveUntilTheDeviceThrows() {
    if (unshare(CLONE_NEWNET) != 0 || !setUpLoopbackAs("lo", true)) {
        std::fprintf(stderr, "no private network namespace\n");
        _exit(2);
    }
    // How many command lines one reading runs against this device.
    ScriptedShell counting;
    test::captureOutput([&] { Settings(counting).reload(); });

    ScriptedShell device;
    device.throwFrom(counting.lines().size() + 1, "device library gave up");
    std::thread client(sendOnceBound, "LCF2#QUERY#seqid=1");
    int answer = -1;
    const test::CapturedOutput output =
        test::captureOutput([&] { answer = serveUntilException(kServicePort, device); });
    client.join();
    std::fprintf(stderr, "err: [%s] answered %d, port free: %s\n", output.err.c_str(), answer,
                 portIsFree(kServicePort) ? "yes" : "no");
    _exit(0);
}

class DaemonServeDeathTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!privateNamespacesAvailable()) {
            GTEST_SKIP() << "no private network namespace can be made here";
        }
    }
};

TEST_F(DaemonServeDeathTest, ExceptionInTheReceiveLoopIsReportedTheSocketClosedAndZeroAnswered) {
    EXPECT_EXIT(serveUntilTheDeviceThrows(), ::testing::ExitedWithCode(0),
                ::testing::Eq(std::string("err: [Exception: device library gave up\n] "
                                          "answered 0, port free: yes\n")));
}

}  // namespace
}  // namespace lcfd
