#include "client/SocketSupport.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "wire/Protocol.hpp"

namespace lcf {
namespace {

constexpr int kReceiveBufferBytes = 8 * 1024 * 1024;

}  // namespace

std::runtime_error systemError(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

void enableOption(int fd, int level, int option, const char* what) {
    const int one = 1;
    if (setsockopt(fd, level, option, &one, sizeof one) != 0) {
        throw systemError(what);
    }
}

void growReceiveBuffer(int fd) {
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBufferBytes,
                   sizeof kReceiveBufferBytes) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferBytes, sizeof kReceiveBufferBytes);
    }
}

void bindServicePort(int fd) {
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(lcfd::kServicePort);
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
        throw systemError("cannot listen on UDP port " + std::to_string(lcfd::kServicePort));
    }
}

}  // namespace lcf
