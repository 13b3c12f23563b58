#include "net/Broadcaster.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/Fatal.hpp"
#include "net/RawFrame.hpp"
#include "wire/Protocol.hpp"

namespace lcfd {
namespace {

// The kernel copies the device name from this buffer; the option length given with it is 4.
constexpr std::size_t kDeviceNameBufferSize = 10;
constexpr socklen_t kBindToDeviceOptionLength = 4;

// Transport errors are written as the text followed by errno in decimal.
void reportErrno(const char* text) {
    std::fprintf(stderr, "%s%d\n", text, errno);
}

[[noreturn]] void failSetup(const char* text) {
    exitOnSetupFailure(text, errno);
}

sockaddr_in ipv4Address(in_addr_t address, std::uint16_t port) {
    sockaddr_in result;
    std::memset(&result, 0, sizeof result);
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = address;
    return result;
}

}  // namespace

Broadcaster::Broadcaster(IBroadcasterCallback* callback, std::uint16_t port,
                         const std::string& interfaceName)
    : interfaceName_(interfaceName),
      port_(port),
      callback_(callback),
      socketFd_(0),
      bindAddress_(ipv4Address(htonl(INADDR_ANY), port)),
      broadcastAddress_(ipv4Address(htonl(INADDR_BROADCAST), port)) {
    socketFd_ = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    // COMPAT: zero-descriptor-means-none
    // 0 is this class's "no socket"; -1 is caught by the next call failing on a bad descriptor.
    if (socketFd_ == 0) {
        failSetup("Error creating socket: ");
    }
    const int enable = 1;
    if (setsockopt(socketFd_, SOL_SOCKET, SO_BROADCAST, &enable, sizeof enable) == -1) {
        failSetup("Error setting socket options: ");
    }
    if (setsockopt(socketFd_, SOL_SOCKET, SO_REUSEADDR, &enable, sizeof enable) == -1) {
        failSetup("Error setting socket options: ");
    }
    if (bind(socketFd_, reinterpret_cast<const sockaddr*>(&bindAddress_), sizeof bindAddress_) ==
        -1) {
        const int bindError = errno;
        close(socketFd_);
        exitOnSetupFailure("Error binding socket: ", bindError);
    }
}

Broadcaster::~Broadcaster() {
    if (socketFd_ != 0) {
        close(socketFd_);
    }
    socketFd_ = 0;
}

void Broadcaster::listen() {
    std::fputs("LAN Config Facility ", stdout);
    std::fputs(kVersion, stdout);
    std::fputs(" : Listening for broadcast packets\n", stdout);

    char buffer[kReceiveBufferSize];
    sockaddr_in sender;
    std::memset(&sender, 0, sizeof sender);
    socklen_t senderLength = sizeof sender;
    for (;;) {
        const ssize_t received = recvfrom(socketFd_, buffer, sizeof buffer, 0,
                                          reinterpret_cast<sockaddr*>(&sender), &senderLength);
        if (received < 1) {
            continue;  // errors and empty datagrams carry nothing to handle
        }
        callback_->onMessage(buffer, received, sender.sin_addr.s_addr);
    }
}

void Broadcaster::broadcast(const char* text, std::int64_t length) {
    if (interfaceName_ == kDefaultInterface) {
        if (socketFd_ == 0) {
            return;
        }
        const auto count = static_cast<std::size_t>(static_cast<std::int32_t>(length));
        if (sendto(socketFd_, text, count, 0, reinterpret_cast<const sockaddr*>(&broadcastAddress_),
                   sizeof broadcastAddress_) != -1) {
            return;
        }
        reportErrno("Broadcast failed: ");
        std::fputs("Trying to send as raw package\n", stderr);
    }
    sendRaw(text);
}

void Broadcaster::sendRaw(const char* text) {
    const std::size_t length = std::strlen(text);
    // COMPAT: raw-payload-limit
    if (length > kMaxRawPayload) {
        std::fprintf(stderr, "Discarding oversize message: %zu\n", length);
        return;
    }
    sendRawFrame(text);
}

void Broadcaster::sendRawFrame(const char* text) {
    RawBroadcastFrame frame;
    std::memset(frame.bytes, 0, sizeof frame.bytes);
    const sockaddr_in destination = ipv4Address(inet_addr("255.255.255.255"), kRawFramePort);

    const int rawFd = socket(AF_INET, SOCK_RAW, IPPROTO_RAW);
    if (rawFd < 0) {
        reportErrno("Failed to create raw socket: ");
        return;
    }
    // COMPAT: raw-socket-left-open
    // On every failure below the raw socket stays open: each failed send costs a descriptor.
    const int enable = 1;
    if (setsockopt(rawFd, SOL_SOCKET, SO_BROADCAST, &enable, sizeof enable) == -1) {
        reportErrno("Error setting socket broadcast option: ");
        // cppcheck-suppress resourceLeak ; left open on purpose, see above
        return;
    }
    if (setsockopt(rawFd, IPPROTO_IP, IP_HDRINCL, &enable, sizeof enable) == -1) {
        reportErrno("Error setting socket hdrincl option: ");
        // cppcheck-suppress resourceLeak ; left open on purpose, see above
        return;
    }
    char deviceName[kDeviceNameBufferSize] = {};
    if (interfaceName_.size() >= kDeviceNameBufferSize) {
        abortOnBrokenPromise();  // interface selection never yields a name this long
    }
    std::memcpy(deviceName, interfaceName_.data(), interfaceName_.size());
    // COMPAT: four-character-interface-match
    // Only four bytes reach the kernel: br0 and eth0 bind as named, longer names by their
    // first four characters.
    if (setsockopt(rawFd, SOL_SOCKET, SO_BINDTODEVICE, deviceName, kBindToDeviceOptionLength) < 0) {
        std::fprintf(stderr, "Error binding to %s interface: %d\n", interfaceName_.c_str(), errno);
        // cppcheck-suppress resourceLeak ; left open on purpose, see above
        return;
    }

    const std::size_t frameLength = buildRawBroadcastFrame(text, std::strlen(text), frame);
    if (sendto(rawFd, frame.bytes, frameLength, 0, reinterpret_cast<const sockaddr*>(&destination),
               sizeof destination) < 0) {
        reportErrno("Failed to send raw data: ");
        return;
    }
    close(rawFd);
}

}  // namespace lcfd
