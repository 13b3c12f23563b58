// The dispatcher's handling of whole datagrams that need no answer: what it writes to
// standard output for each, and that it sends nothing.
//
// The dispatcher reads the device and opens its transport when it is built, and a reply
// would be broadcast. So it is built only in a forked child that has a network namespace of
// its own without any working device: a reply could reach nothing, and any attempt to send
// one shows on standard error.

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "TestSupport.hpp"
#include "daemon/MessageDispatcher.hpp"
#include "wire/Protocol.hpp"

namespace lcfd {
namespace {

using test::CapturedOutput;
using test::captureOutput;
using test::privateNamespacesAvailable;

std::uint32_t networkOrderAddress(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
    const std::uint8_t bytes[4] = {a, b, c, d};
    std::uint32_t address = 0;
    std::memcpy(&address, bytes, sizeof address);
    return address;
}

// Runs in the child: builds a dispatcher, hands it each datagram as coming from
// 192.168.1.50, and writes to standard error, quoted, what the datagrams made it write to
// standard output and to standard error.
[[noreturn]] void dispatchInPrivateNamespace(const std::vector<std::string>& datagrams) {
    if (unshare(CLONE_NEWNET) != 0) {
        std::fprintf(stderr, "no private network namespace\n");
        _exit(2);
    }
    std::unique_ptr<MessageDispatcher> dispatcher;
    // What reading the device prints is not under test here.
    captureOutput([&] { dispatcher = std::make_unique<MessageDispatcher>(kServicePort); });
    const CapturedOutput output = captureOutput([&] {
        for (const std::string& datagram : datagrams) {
            dispatcher->onMessage(datagram.data(), static_cast<std::int64_t>(datagram.size()),
                                  networkOrderAddress(192, 168, 1, 50));
        }
    });
    std::fprintf(stderr, "out: [");
    std::fwrite(output.out.data(), 1, output.out.size(), stderr);
    std::fprintf(stderr, "] err: [%s]", output.err.c_str());
    _exit(0);
}

std::string expectedSummary(const std::string& out) {
    return "out: [" + out + "] err: []";
}

class MessageDispatcherDeathTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!privateNamespacesAvailable()) {
            GTEST_SKIP() << "no private network namespace can be made here";
        }
    }
};

TEST_F(MessageDispatcherDeathTest, HeaderAloneIsNotUnderstood) {
    EXPECT_EXIT(dispatchInPrivateNamespace({"LCF2"}), ::testing::ExitedWithCode(0),
                ::testing::Eq(expectedSummary("LCF2\n"
                                              "[192.168.1.50] Message not understood... \n\n")));
}

TEST_F(MessageDispatcherDeathTest, BadHeadersAreNotUnderstood) {
    EXPECT_EXIT(dispatchInPrivateNamespace(
                    {"LCF9#QUERY#seqid=1", "LCF#QUERY#seqid=1", "LCF22#QUERY#seqid=1"}),
                ::testing::ExitedWithCode(0),
                ::testing::Eq(expectedSummary("LCF9#QUERY#seqid=1\n"
                                              "[192.168.1.50] Message not understood... \n\n"
                                              "LCF#QUERY#seqid=1\n"
                                              "[192.168.1.50] Message not understood... \n\n"
                                              "LCF22#QUERY#seqid=1\n"
                                              "[192.168.1.50] Message not understood... \n\n")));
}

// Replies reach every daemon, this one included; they are understood and cause nothing.
TEST_F(MessageDispatcherDeathTest, RepliesAreUnderstoodAndAnsweredWithNothing) {
    EXPECT_EXIT(dispatchInPrivateNamespace(
                    {"LCF2#ACK#seqid=1#mac=00:1A:2B:3C:4D:5E#accept=yes", "LCF2#STATUS"}),
                ::testing::ExitedWithCode(0),
                ::testing::Eq(expectedSummary("LCF2#ACK#seqid=1#mac=00:1A:2B:3C:4D:5E#accept=yes\n"
                                              "[192.168.1.50] Message understood... \n\n"
                                              "LCF2#STATUS\n"
                                              "[192.168.1.50] Message understood... \n\n")));
}

TEST_F(MessageDispatcherDeathTest, UnknownAndLowerCaseCommandsAreNotUnderstood) {
    EXPECT_EXIT(dispatchInPrivateNamespace({"LCF2#REBOOT#seqid=1", "LCF2#query#seqid=1"}),
                ::testing::ExitedWithCode(0),
                ::testing::Eq(expectedSummary("LCF2#REBOOT#seqid=1\n"
                                              "[192.168.1.50] Message not understood... \n\n"
                                              "LCF2#query#seqid=1\n"
                                              "[192.168.1.50] Message not understood... \n\n")));
}

TEST_F(MessageDispatcherDeathTest, QueryWithABadSeqidIsNotUnderstoodAndNotAnswered) {
    EXPECT_EXIT(dispatchInPrivateNamespace(
                    {"LCF2#QUERY#mac=00:1A:2B:3C:4D:5E#seqid=1", "LCF2#QUERY#seqid=a=b"}),
                ::testing::ExitedWithCode(0),
                ::testing::Eq(expectedSummary("LCF2#QUERY#mac=00:1A:2B:3C:4D:5E#seqid=1\n"
                                              "[192.168.1.50] Message not understood... \n\n"
                                              "LCF2#QUERY#seqid=a=b\n"
                                              "[192.168.1.50] Message not understood... \n\n")));
}

// The text is as long as the datagram: a zero byte neither ends the trace nor the command.
TEST_F(MessageDispatcherDeathTest, ZeroBytesAreTracedAndParsedAsText) {
    const std::string statusWithZeros("LCF2#STATUS#\0\0x", 15);
    const std::string ackWithZero("LCF2#ACK\0", 9);
    EXPECT_EXIT(
        dispatchInPrivateNamespace({statusWithZeros, ackWithZero}), ::testing::ExitedWithCode(0),
        ::testing::Eq(expectedSummary(statusWithZeros +
                                      "\n[192.168.1.50] Message understood... \n\n" + ackWithZero +
                                      "\n[192.168.1.50] Message not understood... \n\n")));
}

// Nothing is trimmed: trailing blanks and line breaks stay part of the command word.
TEST_F(MessageDispatcherDeathTest, TrailingBlanksAndLineBreaksAreKept) {
    EXPECT_EXIT(dispatchInPrivateNamespace({"LCF2#STATUS \r\n"}), ::testing::ExitedWithCode(0),
                ::testing::Eq(expectedSummary("LCF2#STATUS \r\n\n"
                                              "[192.168.1.50] Message not understood... \n\n")));
}

}  // namespace
}  // namespace lcfd
