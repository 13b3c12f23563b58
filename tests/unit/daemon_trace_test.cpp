// The trace line the daemon writes after every datagram.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "daemon/Trace.hpp"

namespace lcfd {
namespace {

// The 32-bit value of an IPv4 address in network byte order, as the transport hands it over.
std::uint32_t networkOrderAddress(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
    const std::uint8_t bytes[4] = {a, b, c, d};
    std::uint32_t address = 0;
    std::memcpy(&address, bytes, sizeof address);
    return address;
}

TEST(ComposeTrace, UnderstoodMessage) {
    EXPECT_EQ(composeTrace(networkOrderAddress(192, 168, 1, 50), true),
              "[192.168.1.50] Message understood... \n\n");
}

TEST(ComposeTrace, MessageNotUnderstood) {
    EXPECT_EQ(composeTrace(networkOrderAddress(192, 168, 1, 50), false),
              "[192.168.1.50] Message not understood... \n\n");
}

// The address arrives in network byte order: its first byte in memory is the first number.
TEST(ComposeTrace, AddressIsReadInNetworkByteOrder) {
    EXPECT_EQ(composeTrace(networkOrderAddress(10, 0, 0, 1), true),
              "[10.0.0.1] Message understood... \n\n");
    EXPECT_EQ(composeTrace(networkOrderAddress(1, 0, 0, 10), true),
              "[1.0.0.10] Message understood... \n\n");
}

TEST(ComposeTrace, LowestAndHighestAddresses) {
    EXPECT_EQ(composeTrace(0, false), "[0.0.0.0] Message not understood... \n\n");
    EXPECT_EQ(composeTrace(0xFFFFFFFFu, true), "[255.255.255.255] Message understood... \n\n");
}

TEST(AppendTrace, AppendsAfterWhatIsAlreadyThere) {
    std::string output = "LCF2#QUERY#seqid=17\n";
    appendTrace(output, networkOrderAddress(192, 168, 1, 50), true);
    EXPECT_EQ(output, "LCF2#QUERY#seqid=17\n[192.168.1.50] Message understood... \n\n");
    appendTrace(output, networkOrderAddress(10, 0, 0, 1), false);
    EXPECT_EQ(output,
              "LCF2#QUERY#seqid=17\n[192.168.1.50] Message understood... \n\n"
              "[10.0.0.1] Message not understood... \n\n");
}

}  // namespace
}  // namespace lcfd
