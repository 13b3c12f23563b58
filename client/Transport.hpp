#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/Controllers.hpp"

namespace lcf {

// A name given with --interface that is not an up IPv4 interface with broadcast: the user's
// mistake, found before anything is sent.
struct UnusableInterface : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The interfaces a probe goes out on: up, IPv4, able to broadcast, not loopback. With names
// given, only those (an unusable name throws UnusableInterface).
std::vector<NetworkInterface> probeInterfaces(const std::vector<std::string>& names);

// Why an interface looks like a virtual or container adapter rather than a segment with
// controllers on it ("a bridge with no ports", "no carrier"), read from the kernel's view of it;
// empty when it does not.
std::string adapterDoubt(const std::string& interfaceName);

struct Datagram {
    std::string text;
    unsigned interfaceIndex = 0;  // where it came in
};

// Replies are broadcast to the service port, so the tool listens on it like the controllers
// do; requests leave on one socket per interface, bound to its device.
class ToolSocket {
  public:
    ToolSocket();  // throws std::runtime_error with a text for the user
    ~ToolSocket();
    ToolSocket(const ToolSocket&) = delete;
    ToolSocket& operator=(const ToolSocket&) = delete;

    void broadcastOn(const NetworkInterface& networkInterface, const std::string& text);
    // The next datagram, or nothing once `deadline` has passed.
    std::optional<Datagram> receive(std::chrono::steady_clock::time_point deadline);

  private:
    int receiveFd_ = -1;
    std::map<std::string, int> sendFds_;
};

}  // namespace lcf
