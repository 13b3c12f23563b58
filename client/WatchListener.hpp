#pragma once

// The edge of lcf watch that touches sockets: the service port, shared with the daemon and other
// tools on the host, on every interface or on those named.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "client/Watch.hpp"

namespace lcf {

class WatchListener {
  public:
    // Without names one socket on every interface, which learns each datagram's arrival
    // interface; with names one socket bound to each. Throws UnusableInterface for a name that is
    // no interface, std::runtime_error with a text for the user when the port cannot be had.
    explicit WatchListener(const std::vector<std::string>& interfaceNames);
    ~WatchListener();
    WatchListener(const WatchListener&) = delete;
    WatchListener& operator=(const WatchListener&) = delete;

    // The next datagram; nothing when `timeout` passed first (without one, no time limit) or a
    // signal came.
    // `signalMask` is the mask the wait runs under (ppoll), so that a signal blocked
    // elsewhere can interrupt it and nothing is missed between a check and the wait.
    std::optional<WatchDatagram> receive(std::optional<std::chrono::milliseconds> timeout,
                                         const void* signalMask);

  private:
    struct Socket {
        int fd = -1;
        std::string interfaceName;             // empty: every interface
        std::optional<WatchDatagram> pending;  // read, not yet handed out
    };
    // Of the datagrams in hand and those ready, the one the host received first.
    std::optional<WatchDatagram> earliest();
    // One datagram from the socket, without waiting.
    std::optional<WatchDatagram> readOne(const Socket& open);

    std::vector<Socket> sockets_;
    std::vector<char> buffer_;  // the largest datagram, reused for each
};

}  // namespace lcf
