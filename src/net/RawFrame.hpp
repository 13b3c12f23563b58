#pragma once

#include <cstddef>
#include <cstdint>

#include "wire/Protocol.hpp"

namespace lcfd {

// A reply sent on the raw path is wrapped by hand in an IPv4 and a UDP header.
constexpr std::size_t kRawFrameSize = 1500;
constexpr std::size_t kRawHeadersSize = 28;  // 20 bytes of IPv4 header, 8 of UDP header
// COMPAT: raw-payload-limit
// One byte less than the frame could carry; replies longer than this are discarded.
constexpr std::size_t kMaxRawPayload = 1471;
// The checksum at offset 10 is taken over this many 16-bit units of the frame.
constexpr std::int32_t kFrameChecksumUnits = 28;
constexpr std::uint16_t kRawFramePort = kServicePort;
constexpr std::uint16_t kRawFrameIdentification = 54321;
constexpr std::uint8_t kRawFrameTimeToLive = 64;

struct alignas(4) RawBroadcastFrame {
    std::uint8_t bytes[kRawFrameSize];
};

// Internet checksum over `count` 16-bit units read in host byte order, folded twice;
// 0xFFFF when count is below 1.
std::uint16_t checksum(const std::uint16_t* words, std::int32_t count);

// Fills `frame` (zeroed first) with the headers and `length` payload bytes and returns the
// number of bytes to send (length + 28). `length` must not exceed kRawFrameSize - 28.
std::size_t buildRawBroadcastFrame(const char* payload, std::size_t length,
                                   RawBroadcastFrame& frame);

}  // namespace lcfd
