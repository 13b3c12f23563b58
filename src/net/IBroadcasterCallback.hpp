#pragma once

#include <cstdint>

namespace lcfd {

// How the transport hands each received datagram to its owner.
class IBroadcasterCallback {
  public:
    // data: the received bytes, not terminated, valid only during the call (the receive buffer
    // is reused); length: 1 to 512; senderAddress: IPv4 address in network byte order.
    virtual void onMessage(const char* data, std::int64_t length, std::uint32_t senderAddress) = 0;
    virtual ~IBroadcasterCallback() = default;
};

}  // namespace lcfd
