#include "client/WatchListener.hpp"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "client/SocketSupport.hpp"
#include "client/Transport.hpp"
#include "wire/Protocol.hpp"

namespace lcf {
namespace {

constexpr const char* kCannotShare = "cannot share the service port";

// A socket on the service port that the daemon and other tools on the host share: every one of
// them bound with address reuse gets its own copy of each broadcast.
int openShared(const std::string& interfaceName) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        throw systemError("cannot open a UDP socket");
    }
    try {
        enableOption(fd, SOL_SOCKET, SO_REUSEADDR, kCannotShare);
        // Also next to a tool that shares the port through SO_REUSEPORT alone.
        enableOption(fd, SOL_SOCKET, SO_REUSEPORT, kCannotShare);
        enableOption(fd, SOL_SOCKET, SO_TIMESTAMPNS, "cannot ask for arrival times");
        if (interfaceName.empty()) {
            enableOption(fd, IPPROTO_IP, IP_PKTINFO, "cannot ask for the arrival interface");
        } else if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, interfaceName.c_str(),
                              static_cast<socklen_t>(interfaceName.size() + 1)) != 0) {
            throw systemError("cannot bind to interface " + interfaceName);
        }
        growReceiveBuffer(fd);
        bindServicePort(fd);
    } catch (...) {
        close(fd);
        throw;
    }
    return fd;
}

std::string interfaceNameOf(unsigned index) {
    char name[IF_NAMESIZE] = {};
    if (index == 0 || if_indextoname(index, name) == nullptr) {
        return "?";
    }
    return name;
}

}  // namespace

WatchListener::WatchListener(const std::vector<std::string>& interfaceNames)
    : buffer_(kLargestDatagram) {
    for (const std::string& name : interfaceNames) {
        if (name.empty() || name.size() >= IF_NAMESIZE || if_nametoindex(name.c_str()) == 0) {
            throw UnusableInterface("no interface " + name);
        }
    }
    try {
        if (interfaceNames.empty()) {
            sockets_.push_back({openShared(std::string()), std::string(), std::nullopt});
        }
        for (const std::string& name : interfaceNames) {
            bool known = false;
            for (const Socket& open : sockets_) {
                known = known || open.interfaceName == name;
            }
            if (!known) {
                sockets_.push_back({openShared(name), name, std::nullopt});
            }
        }
    } catch (...) {
        for (const Socket& open : sockets_) {
            close(open.fd);
        }
        throw;
    }
}

WatchListener::~WatchListener() {
    for (const Socket& open : sockets_) {
        close(open.fd);
    }
}

std::optional<WatchDatagram> WatchListener::receive(
    std::optional<std::chrono::milliseconds> timeout, const void* signalMask) {
    for (const Socket& open : sockets_) {
        if (open.pending) {
            return earliest();  // one is in hand: no need to wait
        }
    }
    std::vector<pollfd> waiting;
    waiting.reserve(sockets_.size());
    for (const Socket& open : sockets_) {
        waiting.push_back({open.fd, POLLIN, 0});
    }
    timespec wait{};
    if (timeout) {
        const auto whole = std::chrono::duration_cast<std::chrono::seconds>(*timeout);
        wait = {static_cast<time_t>(whole.count()),
                static_cast<long>((*timeout - whole).count()) * 1000000L};
    }
    const int ready = ppoll(waiting.data(), waiting.size(), timeout ? &wait : nullptr,
                            static_cast<const sigset_t*>(signalMask));
    if (ready < 0 && errno != EINTR) {
        throw systemError("cannot wait for datagrams");
    }
    if (ready <= 0) {
        return std::nullopt;
    }
    return earliest();
}

std::optional<WatchDatagram> WatchListener::earliest() {
    // The head datagram of every socket, so that of datagrams that came in on several
    // interfaces the first to arrive is shown first: a request before its reply.
    for (Socket& open : sockets_) {
        if (!open.pending) {
            open.pending = readOne(open);
        }
    }
    Socket* first = nullptr;
    for (Socket& open : sockets_) {
        if (open.pending && (first == nullptr || open.pending->time < first->pending->time)) {
            first = &open;
        }
    }
    if (first == nullptr) {
        return std::nullopt;
    }
    std::optional<WatchDatagram> datagram = std::move(first->pending);
    first->pending.reset();
    return datagram;
}

std::optional<WatchDatagram> WatchListener::readOne(const Socket& open) {
    iovec part{buffer_.data(), buffer_.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo)) + CMSG_SPACE(sizeof(timespec))];
    sockaddr_in from{};
    msghdr header{};
    header.msg_name = &from;
    header.msg_namelen = sizeof from;
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t received = recvmsg(open.fd, &header, MSG_DONTWAIT);
    if (received < 0) {
        return std::nullopt;
    }
    WatchDatagram datagram;
    datagram.text.assign(buffer_.data(), static_cast<std::size_t>(received));
    datagram.interfaceName = open.interfaceName;
    datagram.time = WallClock::now();
    char address[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &from.sin_addr, address, sizeof address);
    datagram.sender = address;
    datagram.senderPort = ntohs(from.sin_port);
    for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr;
         item = CMSG_NXTHDR(&header, item)) {
        if (item->cmsg_level == IPPROTO_IP && item->cmsg_type == IP_PKTINFO) {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(item), sizeof info);
            datagram.interfaceName = interfaceNameOf(static_cast<unsigned>(info.ipi_ifindex));
        } else if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SO_TIMESTAMPNS) {
            // When the host took it off the wire, not when this process got to it: delays
            // stay right on a busy machine.
            timespec stamp{};
            std::memcpy(&stamp, CMSG_DATA(item), sizeof stamp);
            datagram.time = WallClock::time_point(std::chrono::duration_cast<WallClock::duration>(
                std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec)));
        }
    }
    return datagram;
}

}  // namespace lcf
