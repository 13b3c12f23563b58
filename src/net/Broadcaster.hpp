#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "net/IBroadcasterCallback.hpp"

namespace lcfd {

// The most bytes of one datagram the receive loop reads; the rest of a longer one is lost.
constexpr std::size_t kReceiveBufferSize = 512;

// The daemon's UDP transport: one socket bound to the service port on every address, an
// endless receive loop, and replies broadcast to 255.255.255.255. Replies leave through the
// UDP socket only on the bridge "br0"; otherwise, and when that send fails, they go out as a
// hand-built IPv4/UDP frame on a raw socket bound to the interface.
class Broadcaster {
  public:
    // Opens and binds the socket; a failure ends the process with status 1.
    Broadcaster(IBroadcasterCallback* callback, std::uint16_t port,
                const std::string& interfaceName);
    ~Broadcaster();
    Broadcaster(const Broadcaster&) = delete;
    Broadcaster& operator=(const Broadcaster&) = delete;

    // Prints the banner and hands every non-empty datagram to the callback; never returns.
    [[noreturn]] void listen();

    // Sends one zero-terminated reply; `length` is used only by the plain UDP path.
    void broadcast(const char* text, std::int64_t length);

    // The raw path: size limit, then sendRawFrame.
    void sendRaw(const char* text);
    void sendRawFrame(const char* text);

  private:
    std::string interfaceName_;
    // The port the transport was opened on; the addresses below carry it, nothing reads it.
    [[maybe_unused]] std::uint16_t port_;
    std::string auxText_;  // unused; kept empty
    IBroadcasterCallback* callback_;
    int socketFd_;  // 0 means "no socket"
    sockaddr_in bindAddress_;
    sockaddr_in broadcastAddress_;
};

}  // namespace lcfd
