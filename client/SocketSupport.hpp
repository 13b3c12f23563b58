#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

// What the tool's sockets on the service port share: lcf's own requests and replies, and the
// watch that only listens.
namespace lcf {

// Room for any UDP datagram, so that nothing a controller or tool sends is cut short here.
constexpr std::size_t kLargestDatagram = 65536;

// `what` and the text of errno, as the tool reports a failed system call.
std::runtime_error systemError(const std::string& what);

// Sets a boolean socket option, or throws systemError(what).
void enableOption(int fd, int level, int option, const char* what);

// Room for the answers of a few hundred controllers arriving at once: as root the buffer may
// exceed the system's default ceiling; otherwise the socket takes what is given.
void growReceiveBuffer(int fd);

// Binds to the service port on every address, or throws "cannot listen on UDP port 7217".
void bindServicePort(int fd);

}  // namespace lcf
