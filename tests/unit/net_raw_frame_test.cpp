// The hand-built IPv4/UDP broadcast frame of the raw send path and its checksum routine.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "net/RawFrame.hpp"

namespace lcfd {
namespace {

// Reference Internet checksum over big-endian byte pairs with an end-around carry after
// every addition, written independently of the daemon's routine.
std::uint16_t referenceChecksum(const std::uint8_t* bytes, std::size_t length) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i + 1 < length; i += 2) {
        sum += static_cast<std::uint32_t>((bytes[i] << 8) | bytes[i + 1]);
        sum = (sum & 0xFFFFu) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum & 0xFFFFu);
}

// The checksum routine reads and returns host-order units; stored back in memory it gives
// the byte pair of the standard checksum on either byte order.
std::vector<std::uint8_t> checksumBytes(const std::vector<std::uint8_t>& data) {
    std::vector<std::uint16_t> words(data.size() / 2);
    std::memcpy(words.data(), data.data(), words.size() * 2);
    const std::uint16_t result = checksum(words.data(), static_cast<std::int32_t>(words.size()));
    std::vector<std::uint8_t> stored(2);
    std::memcpy(stored.data(), &result, 2);
    return stored;
}

std::string samplePayload(std::size_t length) {
    std::string payload;
    for (std::size_t i = 0; i < length; ++i) {
        payload += static_cast<char>('a' + static_cast<char>(i % 26));
    }
    return payload;
}

// A frame whose buffer starts out dirty, so that the tests see it zeroed.
struct BuiltFrame {
    RawBroadcastFrame frame;
    std::size_t length;
};

BuiltFrame build(const std::string& payload) {
    BuiltFrame built;
    std::memset(built.frame.bytes, 0xAA, sizeof built.frame.bytes);
    built.length = buildRawBroadcastFrame(payload.data(), payload.size(), built.frame);
    return built;
}

std::vector<std::uint8_t> bytesAt(const RawBroadcastFrame& frame, std::size_t offset,
                                  std::size_t count) {
    return std::vector<std::uint8_t>(frame.bytes + offset, frame.bytes + offset + count);
}

std::uint16_t storedChecksum(const RawBroadcastFrame& frame) {
    return static_cast<std::uint16_t>((frame.bytes[10] << 8) | frame.bytes[11]);
}

bool isLittleEndian() {
    const std::uint16_t probe = 1;
    std::uint8_t first = 0;
    std::memcpy(&first, &probe, 1);
    return first == 1;
}

// ---- checksum ----

TEST(Checksum, ZeroUnitsGiveAllOnes) {
    const std::uint16_t words[2] = {0x1234, 0x5678};
    EXPECT_EQ(checksum(words, 0), 0xFFFF);
    EXPECT_EQ(checksum(nullptr, 0), 0xFFFF);
}

TEST(Checksum, NegativeCountGivesAllOnes) {
    const std::uint16_t words[2] = {0x1234, 0x5678};
    EXPECT_EQ(checksum(words, -1), 0xFFFF);
    EXPECT_EQ(checksum(words, std::numeric_limits<std::int32_t>::min()), 0xFFFF);
}

TEST(Checksum, SingleUnitIsItsComplement) {
    const std::uint16_t word = 0x1234;
    EXPECT_EQ(checksum(&word, 1), 0xEDCB);
}

TEST(Checksum, AllZeroUnitsGiveAllOnes) {
    const std::uint16_t words[4] = {0, 0, 0, 0};
    EXPECT_EQ(checksum(words, 4), 0xFFFF);
}

// The worked example of the usual description of the Internet checksum.
TEST(Checksum, WorkedExampleGivesItsKnownBytePair) {
    const std::vector<std::uint8_t> data = {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6, 0xF7};
    ASSERT_EQ(referenceChecksum(data.data(), data.size()), 0x220D);
    EXPECT_EQ(checksumBytes(data), (std::vector<std::uint8_t>{0x22, 0x0D}));
}

TEST(Checksum, ClassicIpv4HeaderGivesItsKnownBytePair) {
    const std::vector<std::uint8_t> header = {0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40,
                                              0x00, 0x40, 0x11, 0x00, 0x00, 0xC0, 0xA8,
                                              0x00, 0x01, 0xC0, 0xA8, 0x00, 0xC7};
    ASSERT_EQ(referenceChecksum(header.data(), header.size()), 0xB861);
    EXPECT_EQ(checksumBytes(header), (std::vector<std::uint8_t>{0xB8, 0x61}));
}

TEST(Checksum, OnlyTheCountedUnitsAreSummed) {
    const std::uint16_t words[3] = {0x1000, 0x0200, 0x7777};
    EXPECT_EQ(checksum(words, 2), static_cast<std::uint16_t>(~0x1200));
}

TEST(Checksum, CarryOutOfSixteenBitsIsFoldedBackIn) {
    const std::uint16_t onePlusCarry[2] = {0xFFFF, 0x0001};  // 0x10000 folds to 0x0001
    EXPECT_EQ(checksum(onePlusCarry, 2), 0xFFFE);
    const std::uint16_t twoAllOnes[2] = {0xFFFF, 0xFFFF};  // 0x1FFFE folds to 0xFFFF
    EXPECT_EQ(checksum(twoAllOnes, 2), 0x0000);
}

// Here the first fold itself overflows 16 bits, and only the second fold brings it back.
TEST(Checksum, SecondFoldCatchesTheCarryOfTheFirst) {
    const std::uint16_t words[4] = {0xFFFF, 0xFFFF, 0xFFFF, 0x0002};  // 0x2FFFF
    EXPECT_EQ(checksum(words, 4), 0xFFFD);
}

TEST(Checksum, LongRunAgreesWithTheReference) {
    std::vector<std::uint8_t> data(4000);
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<std::uint8_t>(0xF0 + i * 7);
    }
    const std::uint16_t expected = referenceChecksum(data.data(), data.size());
    EXPECT_EQ(checksumBytes(data),
              (std::vector<std::uint8_t>{static_cast<std::uint8_t>(expected >> 8),
                                         static_cast<std::uint8_t>(expected & 0xFF)}));
}

// ---- frame layout ----

TEST(RawFrameLayout, HundredCharacterReplyHasTheExpectedHeaders) {
    ASSERT_TRUE(isLittleEndian()) << "the total length is written in host byte order";
    const BuiltFrame built = build(samplePayload(100));
    EXPECT_EQ(built.length, 128u);
    EXPECT_EQ(
        bytesAt(built.frame, 0, 10),
        (std::vector<std::uint8_t>{0x45, 0x00, 0x80, 0x00, 0xD4, 0x31, 0x40, 0x00, 0x40, 0x11}));
    EXPECT_EQ(bytesAt(built.frame, 12, 8),
              (std::vector<std::uint8_t>{0, 0, 0, 0, 255, 255, 255, 255}));
    EXPECT_EQ(bytesAt(built.frame, 20, 8),
              (std::vector<std::uint8_t>{0x1C, 0x31, 0x1C, 0x31, 0x00, 0x6C, 0x00, 0x00}));
}

TEST(RawFrameLayout, PayloadFollowsTheHeadersWithoutTerminator) {
    const std::string payload = samplePayload(100);
    const BuiltFrame built = build(payload);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(built.frame.bytes) + 28, 100), payload);
    // The rest of the buffer is zeroed, so nothing follows the payload.
    for (std::size_t offset = 128; offset < kRawFrameSize; ++offset) {
        ASSERT_EQ(built.frame.bytes[offset], 0) << offset;
    }
}

TEST(RawFrameLayout, TotalLengthIsInHostByteOrder) {
    const BuiltFrame built = build(samplePayload(300));
    std::uint16_t totalLength = 0;
    std::memcpy(&totalLength, built.frame.bytes + 2, 2);
    EXPECT_EQ(totalLength, 328);
}

TEST(RawFrameLayout, HeaderChecksumCoversTheFirst56BytesOfTheFrame) {
    const BuiltFrame built = build(samplePayload(100));
    std::uint8_t covered[56];
    std::memcpy(covered, built.frame.bytes, sizeof covered);
    covered[10] = 0;
    covered[11] = 0;
    EXPECT_EQ(storedChecksum(built.frame), referenceChecksum(covered, sizeof covered));
}

// Without its payload the 28 units are the two headers and eight zero units.
TEST(RawFrameLayout, EmptyReplyGivesA28ByteFrameWithUdpLength8) {
    ASSERT_TRUE(isLittleEndian());
    const BuiltFrame built = build("");
    EXPECT_EQ(built.length, 28u);
    EXPECT_EQ(
        bytesAt(built.frame, 0, 10),
        (std::vector<std::uint8_t>{0x45, 0x00, 0x1C, 0x00, 0xD4, 0x31, 0x40, 0x00, 0x40, 0x11}));
    EXPECT_EQ(bytesAt(built.frame, 20, 8),
              (std::vector<std::uint8_t>{0x1C, 0x31, 0x1C, 0x31, 0x00, 0x08, 0x00, 0x00}));
    std::uint8_t covered[56] = {};
    std::memcpy(covered, built.frame.bytes, 28);
    covered[10] = 0;
    covered[11] = 0;
    EXPECT_EQ(storedChecksum(built.frame), referenceChecksum(covered, sizeof covered));
    for (std::size_t offset = 28; offset < kRawFrameSize; ++offset) {
        ASSERT_EQ(built.frame.bytes[offset], 0) << offset;
    }
}

TEST(RawFrameLayout, LongestReplyGivesA1499ByteFrame) {
    ASSERT_TRUE(isLittleEndian());
    const std::string payload = samplePayload(kMaxRawPayload);
    ASSERT_EQ(payload.size(), 1471u);
    const BuiltFrame built = build(payload);
    EXPECT_EQ(built.length, 1499u);
    EXPECT_EQ(bytesAt(built.frame, 2, 2), (std::vector<std::uint8_t>{0xDB, 0x05}));   // 1499
    EXPECT_EQ(bytesAt(built.frame, 24, 2), (std::vector<std::uint8_t>{0x05, 0xC7}));  // 1479
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(built.frame.bytes) + 28, 1471), payload);
    EXPECT_EQ(built.frame.bytes[1499], 0);
}

TEST(RawFrameLayout, PortsAreFixedAt7217) {
    EXPECT_EQ(kRawFramePort, 7217);
    EXPECT_EQ(kMaxRawPayload, 1471u);
    EXPECT_EQ(kRawFrameSize, 1500u);
}

TEST(RawFrameLayout, ChecksumChangesWithEachOfTheFirst28PayloadBytes) {
    const std::string payload = samplePayload(100);
    const std::uint16_t original = storedChecksum(build(payload).frame);
    for (std::size_t index = 0; index < 28; ++index) {
        std::string changed = payload;
        changed[index] = static_cast<char>(changed[index] + 1);
        const BuiltFrame built = build(changed);
        EXPECT_NE(storedChecksum(built.frame), original) << "payload byte " << index;
    }
}

TEST(RawFrameLayout, ChecksumIgnoresPayloadBytesFrom28On) {
    const std::string payload = samplePayload(100);
    const std::uint16_t original = storedChecksum(build(payload).frame);
    for (std::size_t index = 28; index < payload.size(); ++index) {
        std::string changed = payload;
        changed[index] = static_cast<char>(changed[index] + 1);
        EXPECT_EQ(storedChecksum(build(changed).frame), original) << "payload byte " << index;
    }
}

// The unconverted total length is part of the summed units as well.
TEST(RawFrameLayout, ChecksumDependsOnThePayloadLength) {
    const std::string payload = samplePayload(100);
    EXPECT_NE(storedChecksum(build(payload).frame), storedChecksum(build(payload + "a").frame));
}

}  // namespace
}  // namespace lcfd
