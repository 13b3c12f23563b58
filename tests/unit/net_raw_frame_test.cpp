// The hand-built IPv4/UDP broadcast frame of the raw send path and its checksum routine.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <ostream>
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

// The routine is handed the row's units and count; a row without units hands it no buffer.
struct ChecksumCase {
    const char* name;
    std::vector<std::uint16_t> words;
    std::int32_t count;
    std::uint16_t checksum;
};

void PrintTo(const ChecksumCase& row, std::ostream* out) {
    *out << row.name;
}

const ChecksumCase kChecksumCases[] = {
    // Zero units give all ones.
    {"ZeroUnitsGiveAllOnes", {0x1234, 0x5678}, 0, 0xFFFF},
    {"ZeroUnitsOfNoBufferGiveAllOnes", {}, 0, 0xFFFF},
    // A negative count gives all ones.
    {"CountOfMinusOneGivesAllOnes", {0x1234, 0x5678}, -1, 0xFFFF},
    {"SmallestCountGivesAllOnes",
     {0x1234, 0x5678},
     std::numeric_limits<std::int32_t>::min(),
     0xFFFF},
    {"SingleUnitIsItsComplement", {0x1234}, 1, 0xEDCB},
    {"AllZeroUnitsGiveAllOnes", {0, 0, 0, 0}, 4, 0xFFFF},
    {"OnlyTheCountedUnitsAreSummed",
     {0x1000, 0x0200, 0x7777},
     2,
     static_cast<std::uint16_t>(~0x1200)},
    // A carry out of sixteen bits is folded back in.
    {"OnePlusCarryFoldsToOne", {0xFFFF, 0x0001}, 2, 0xFFFE},   // 0x10000 folds to 0x0001
    {"TwoAllOnesFoldToAllOnes", {0xFFFF, 0xFFFF}, 2, 0x0000},  // 0x1FFFE folds to 0xFFFF
    // Here the first fold itself overflows 16 bits, and only the second fold brings it back.
    {"SecondFoldCatchesTheCarry", {0xFFFF, 0xFFFF, 0xFFFF, 0x0002}, 4, 0xFFFD},  // 0x2FFFF
};

class ChecksumOfUnits : public ::testing::TestWithParam<ChecksumCase> {};

TEST_P(ChecksumOfUnits, IsTheComplementOfTheFoldedSum) {
    const ChecksumCase& row = GetParam();
    EXPECT_EQ(checksum(row.words.empty() ? nullptr : row.words.data(), row.count), row.checksum);
}

INSTANTIATE_TEST_SUITE_P(Checksum, ChecksumOfUnits, ::testing::ValuesIn(kChecksumCases),
                         [](const ::testing::TestParamInfo<ChecksumCase>& param) {
                             return std::string(param.param.name);
                         });

// Known byte strings: the reference routine must give their checksum, and the daemon's
// routine, stored back in memory, its byte pair.
struct KnownBytesCase {
    const char* name;
    std::vector<std::uint8_t> bytes;
    std::uint16_t reference;
    std::vector<std::uint8_t> pair;
};

void PrintTo(const KnownBytesCase& row, std::ostream* out) {
    *out << row.name;
}

const KnownBytesCase kKnownBytesCases[] = {
    // The worked example of the usual description of the Internet checksum.
    {"WorkedExampleGivesItsKnownBytePair",
     {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6, 0xF7},
     0x220D,
     {0x22, 0x0D}},
    {"ClassicIpv4HeaderGivesItsKnownBytePair",
     {0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
      0x00, 0x00, 0xC0, 0xA8, 0x00, 0x01, 0xC0, 0xA8, 0x00, 0xC7},
     0xB861,
     {0xB8, 0x61}},
};

class ChecksumOfKnownBytes : public ::testing::TestWithParam<KnownBytesCase> {};

TEST_P(ChecksumOfKnownBytes, IsItsKnownBytePair) {
    const KnownBytesCase& row = GetParam();
    ASSERT_EQ(referenceChecksum(row.bytes.data(), row.bytes.size()), row.reference);
    EXPECT_EQ(checksumBytes(row.bytes), row.pair);
}

INSTANTIATE_TEST_SUITE_P(Checksum, ChecksumOfKnownBytes, ::testing::ValuesIn(kKnownBytesCases),
                         [](const ::testing::TestParamInfo<KnownBytesCase>& param) {
                             return std::string(param.param.name);
                         });

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
