// The hand-built IPv4/UDP frame of the raw send path and its checksum routine, on arbitrary
// payloads (a reply of up to 1471 bytes is sent this way; longer ones are cut by the
// builder). Only the frame is built; no socket is opened.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "FuzzCheck.hpp"
#include "net/RawFrame.hpp"

namespace {

using lcfd::RawBroadcastFrame;

// One's-complement sum of 16-bit units read in host order, with the carries folded in.
std::uint32_t foldedSum(const std::uint8_t* bytes, std::size_t units) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < units; ++i) {
        std::uint16_t unit = 0;
        std::memcpy(&unit, bytes + 2 * i, sizeof unit);
        sum += unit;
    }
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint32_t>(sum);
}

std::uint16_t bigEndianAt(const RawBroadcastFrame& frame, std::size_t offset) {
    return static_cast<std::uint16_t>((frame.bytes[offset] << 8) | frame.bytes[offset + 1]);
}

std::uint16_t hostOrderAt(const RawBroadcastFrame& frame, std::size_t offset) {
    std::uint16_t value = 0;
    std::memcpy(&value, frame.bytes + offset, sizeof value);
    return value;
}

void checkFrame(const std::uint8_t* payload, std::size_t length) {
    RawBroadcastFrame frame;
    std::memset(frame.bytes, 0xA5, sizeof frame.bytes);  // dirty, so zeroing shows
    const std::size_t sent =
        lcfd::buildRawBroadcastFrame(reinterpret_cast<const char*>(payload), length, frame);
    const std::size_t carried = length < 1472 ? length : 1472;
    FUZZ_CHECK(sent == carried + 28);
    FUZZ_CHECK(sent <= lcfd::kRawFrameSize);

    // The fixed header bytes.
    const std::uint8_t fixedIp[] = {0x45, 0x00};
    FUZZ_CHECK(std::memcmp(frame.bytes, fixedIp, 2) == 0);
    FUZZ_CHECK(hostOrderAt(frame, 2) == sent);  // total length, host order on purpose
    const std::uint8_t identToProtocol[] = {0xD4, 0x31, 0x40, 0x00, 0x40, 0x11};
    FUZZ_CHECK(std::memcmp(frame.bytes + 4, identToProtocol, 6) == 0);
    const std::uint8_t addresses[] = {0, 0, 0, 0, 255, 255, 255, 255};
    FUZZ_CHECK(std::memcmp(frame.bytes + 12, addresses, 8) == 0);
    FUZZ_CHECK(bigEndianAt(frame, 20) == 7217 && bigEndianAt(frame, 22) == 7217);
    FUZZ_CHECK(bigEndianAt(frame, 24) == carried + 8);  // UDP length
    FUZZ_CHECK(bigEndianAt(frame, 26) == 0);            // no UDP checksum

    // The payload as given, then zeros to the end of the buffer.
    FUZZ_CHECK(carried == 0 || std::memcmp(frame.bytes + 28, payload, carried) == 0);
    for (std::size_t i = 28 + carried; i < lcfd::kRawFrameSize; ++i) {
        FUZZ_CHECK(frame.bytes[i] == 0);
    }

    // The checksum verifies: the 28 units with the stored checksum sum to 0xFFFF.
    FUZZ_CHECK(foldedSum(frame.bytes, 28) == 0xFFFF);
    // And it is what the routine gives over the same units with the field at zero.
    RawBroadcastFrame cleared = frame;
    cleared.bytes[10] = 0;
    cleared.bytes[11] = 0;
    const std::uint16_t again = lcfd::checksum(
        reinterpret_cast<const std::uint16_t*>(cleared.bytes), lcfd::kFrameChecksumUnits);
    FUZZ_CHECK(again == hostOrderAt(frame, 10));
}

void checkChecksum(const std::uint8_t* data, std::size_t size) {
    // Any run of units: the routine equals the complement of the folded sum, and appending
    // the result makes the whole sum 0xFFFF.
    const std::size_t units = size / 2;
    std::vector<std::uint16_t> words(units + 1, 0);
    if (units > 0) {
        std::memcpy(words.data(), data, units * 2);
    }
    const auto count = static_cast<std::int32_t>(units);
    const std::uint16_t sum = lcfd::checksum(words.data(), count);
    if (units == 0) {
        FUZZ_CHECK(sum == 0xFFFF);
        return;
    }
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(words.data());
    FUZZ_CHECK(sum == static_cast<std::uint16_t>(~foldedSum(bytes, units)));
    words[units] = sum;
    FUZZ_CHECK(foldedSum(reinterpret_cast<const std::uint8_t*>(words.data()), units + 1) == 0xFFFF);
    FUZZ_CHECK(lcfd::checksum(words.data(), 0) == 0xFFFF);
    FUZZ_CHECK(lcfd::checksum(words.data(), -count) == 0xFFFF);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Replies up to the limit of the raw path, and past it (the builder cuts at 1472).
    checkFrame(data, size);
    if (size > lcfd::kMaxRawPayload) {
        checkFrame(data, lcfd::kMaxRawPayload);
    }
    checkChecksum(data, size);
    return 0;
}
