#include "client/Transport.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "net/Version.hpp"

namespace lcf {
namespace {

// Room for the answers of a few hundred controllers arriving at once.
constexpr int kReceiveBufferBytes = 8 * 1024 * 1024;
constexpr std::size_t kLargestDatagram = 65536;

std::runtime_error systemError(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

void enable(int fd, int level, int option, const char* what) {
    const int one = 1;
    if (setsockopt(fd, level, option, &one, sizeof one) != 0) {
        throw systemError(what);
    }
}

}  // namespace

std::vector<NetworkInterface> probeInterfaces(const std::vector<std::string>& names) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        throw systemError("cannot list the network interfaces");
    }
    std::vector<NetworkInterface> found;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        const bool usable = (entry->ifa_flags & IFF_UP) != 0 &&
                            (entry->ifa_flags & IFF_BROADCAST) != 0 &&
                            (entry->ifa_flags & IFF_LOOPBACK) == 0;
        bool wanted = names.empty();
        for (const std::string& name : names) {
            wanted = wanted || name == entry->ifa_name;
        }
        if (!usable || !wanted) {
            continue;
        }
        NetworkInterface networkInterface;
        networkInterface.name = entry->ifa_name;
        networkInterface.address =
            reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr;
        if (entry->ifa_netmask != nullptr) {
            networkInterface.netmask =
                reinterpret_cast<const sockaddr_in*>(entry->ifa_netmask)->sin_addr.s_addr;
        }
        networkInterface.index = if_nametoindex(entry->ifa_name);
        bool duplicate = false;
        for (const NetworkInterface& known : found) {
            duplicate = duplicate || known.name == networkInterface.name;
        }
        if (!duplicate) {
            found.push_back(networkInterface);
        }
    }
    freeifaddrs(list);
    for (const std::string& name : names) {
        bool present = false;
        for (const NetworkInterface& known : found) {
            present = present || known.name == name;
        }
        if (!present) {
            throw UnusableInterface("interface " + name +
                                    " is not up with an IPv4 broadcast address");
        }
    }
    return found;
}

std::string adapterDoubt(const std::string& interfaceName) {
    const std::filesystem::path device = std::filesystem::path("/sys/class/net") / interfaceName;
    std::error_code error;
    if (std::filesystem::is_directory(device / "bridge", error) &&
        std::filesystem::is_empty(device / "brif", error) && !error) {
        return "a bridge with no ports";
    }
    std::ifstream carrier(device / "carrier");
    std::string state;
    if (carrier && std::getline(carrier, state) && state == "0") {
        return "no carrier";
    }
    return std::string();
}

ToolSocket::ToolSocket() {
    receiveFd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (receiveFd_ < 0) {
        throw systemError("cannot open a UDP socket");
    }
    enable(receiveFd_, SOL_SOCKET, SO_REUSEADDR, "cannot share the service port");
    enable(receiveFd_, SOL_SOCKET, SO_BROADCAST, "cannot enable broadcast");
    enable(receiveFd_, IPPROTO_IP, IP_PKTINFO, "cannot ask for the arrival interface");
    // As root the buffer may exceed the system's default ceiling; otherwise take what is given.
    if (setsockopt(receiveFd_, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBufferBytes,
                   sizeof kReceiveBufferBytes) != 0) {
        setsockopt(receiveFd_, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferBytes,
                   sizeof kReceiveBufferBytes);
    }
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(lcfd::kServicePort);
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(receiveFd_, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
        throw systemError("cannot listen on UDP port " + std::to_string(lcfd::kServicePort));
    }
}

ToolSocket::~ToolSocket() {
    if (receiveFd_ >= 0) {
        close(receiveFd_);
    }
    for (const auto& entry : sendFds_) {
        close(entry.second);
    }
}

void ToolSocket::broadcastOn(const NetworkInterface& networkInterface, const std::string& text) {
    auto found = sendFds_.find(networkInterface.name);
    if (found == sendFds_.end()) {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            throw systemError("cannot open a UDP socket");
        }
        found = sendFds_.emplace(networkInterface.name, fd).first;
        enable(fd, SOL_SOCKET, SO_BROADCAST, "cannot enable broadcast");
        const std::string& name = networkInterface.name;
        if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, name.c_str(),
                       static_cast<socklen_t>(name.size() + 1)) != 0) {
            throw systemError("cannot bind to interface " + name);
        }
    }
    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_port = htons(lcfd::kServicePort);
    destination.sin_addr.s_addr = htonl(INADDR_BROADCAST);
    if (sendto(found->second, text.data(), text.size(), 0,
               reinterpret_cast<const sockaddr*>(&destination), sizeof destination) < 0) {
        throw systemError("cannot broadcast on " + networkInterface.name);
    }
}

std::optional<Datagram> ToolSocket::receive(std::chrono::steady_clock::time_point deadline) {
    std::vector<char> buffer(kLargestDatagram);
    for (;;) {
        const auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (remaining.count() <= 0) {
            return std::nullopt;
        }
        pollfd waiting{receiveFd_, POLLIN, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(remaining.count()) + 1);
        if (ready < 0 && errno != EINTR) {
            throw systemError("cannot wait for replies");
        }
        if (ready <= 0) {
            continue;
        }
        iovec part{buffer.data(), buffer.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))];
        msghdr header{};
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        const ssize_t received = recvmsg(receiveFd_, &header, 0);
        if (received < 0) {
            continue;
        }
        Datagram datagram;
        datagram.text.assign(buffer.data(), static_cast<std::size_t>(received));
        for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr;
             item = CMSG_NXTHDR(&header, item)) {
            if (item->cmsg_level == IPPROTO_IP && item->cmsg_type == IP_PKTINFO) {
                in_pktinfo info{};
                std::memcpy(&info, CMSG_DATA(item), sizeof info);
                datagram.interfaceIndex = static_cast<unsigned>(info.ipi_ifindex);
            }
        }
        return datagram;
    }
}

}  // namespace lcf
