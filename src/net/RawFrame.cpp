#include "net/RawFrame.hpp"

#include <arpa/inet.h>

#include <cstring>

namespace lcfd {
namespace {

void putHostOrder16(RawBroadcastFrame& frame, std::size_t offset, std::uint16_t value) {
    std::memcpy(frame.bytes + offset, &value, sizeof value);
}

void putNetworkOrder16(RawBroadcastFrame& frame, std::size_t offset, std::uint16_t value) {
    putHostOrder16(frame, offset, htons(value));
}

void putAddress(RawBroadcastFrame& frame, std::size_t offset, const char* dottedAddress) {
    const in_addr_t address = inet_addr(dottedAddress);
    std::memcpy(frame.bytes + offset, &address, sizeof address);
}

}  // namespace

std::uint16_t checksum(const std::uint16_t* words, std::int32_t count) {
    if (count < 1) {
        return 0xFFFF;
    }
    const auto* bytes = reinterpret_cast<const unsigned char*>(words);
    std::uint64_t sum = 0;
    for (std::int32_t unit = 0; unit < count; ++unit) {
        std::uint16_t word = 0;
        std::memcpy(&word, bytes + 2 * static_cast<std::size_t>(unit), sizeof word);
        sum += word;
    }
    sum = (sum & 0xFFFF) + (sum >> 16);
    sum = sum + (sum >> 16);
    return static_cast<std::uint16_t>(~sum);
}

std::size_t buildRawBroadcastFrame(const char* payload, std::size_t length,
                                   RawBroadcastFrame& frame) {
    std::memset(frame.bytes, 0, kRawFrameSize);
    // The payload can never spill past the end of the frame buffer.
    if (length > kRawFrameSize - kRawHeadersSize) {
        length = kRawFrameSize - kRawHeadersSize;
    }
    const std::size_t frameLength = length + kRawHeadersSize;

    frame.bytes[0] = 0x45;  // IPv4, five 32-bit words of header
    frame.bytes[1] = 0;     // type of service
    // COMPAT: total-length-host-order
    // The total length goes in unconverted; the kernel rewrites it on every header-included
    // frame, so the wire still carries the right value.
    putHostOrder16(frame, 2, static_cast<std::uint16_t>(frameLength));
    putNetworkOrder16(frame, 4, kRawFrameIdentification);
    frame.bytes[6] = 0x40;  // don't fragment
    frame.bytes[7] = 0x00;
    frame.bytes[8] = kRawFrameTimeToLive;
    frame.bytes[9] = 17;               // UDP
    putAddress(frame, 12, "0.0.0.0");  // the kernel puts in the interface's address
    putAddress(frame, 16, "255.255.255.255");

    putNetworkOrder16(frame, 20, kRawFramePort);
    putNetworkOrder16(frame, 22, kRawFramePort);
    putNetworkOrder16(frame, 24, static_cast<std::uint16_t>(length + 8));
    putNetworkOrder16(frame, 26, 0);  // no UDP checksum

    std::memcpy(frame.bytes + kRawHeadersSize, payload, length);

    // Taken over the first 28 units (headers and the start of the payload), not only the IP
    // header; the kernel recomputes the header checksum before the frame leaves.
    const std::uint16_t headerChecksum =
        checksum(reinterpret_cast<const std::uint16_t*>(frame.bytes), kFrameChecksumUnits);
    putHostOrder16(frame, 10, headerChecksum);
    return frameLength;
}

}  // namespace lcfd
