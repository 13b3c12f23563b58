#include "client/Transport.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "client/SocketSupport.hpp"
#include "wire/Protocol.hpp"

namespace lcf {

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

namespace {

// What the kernel's link table says of one interface.
struct LinkFacts {
    int index = 0;
    bool carrier = true;
    bool bridge = false;
    int master = 0;  // the bridge it is a port of, if any
};

constexpr std::size_t alignedNetlink(std::size_t length) {
    return (length + 3U) & ~std::size_t{3U};
}

// Calls visit(type, payload, payloadLength) for each route attribute in [data, data + length).
template <typename Visit>
void forEachAttribute(const char* data, std::size_t length, Visit visit) {
    constexpr std::size_t kHeader = alignedNetlink(sizeof(rtattr));
    while (length >= sizeof(rtattr)) {
        rtattr attribute{};
        std::memcpy(&attribute, data, sizeof attribute);
        if (attribute.rta_len < kHeader || attribute.rta_len > length) {
            return;
        }
        visit(attribute.rta_type, data + kHeader, attribute.rta_len - kHeader);
        const std::size_t step = alignedNetlink(attribute.rta_len);
        if (step >= length) {
            return;
        }
        data += step;
        length -= step;
    }
}

// Reads the body of one RTM_NEWLINK message: its index, carrier, kind and master.
LinkFacts linkFacts(const char* body, std::size_t length) {
    LinkFacts facts;
    ifinfomsg info{};
    if (length < sizeof info) {
        return facts;
    }
    std::memcpy(&info, body, sizeof info);
    facts.index = info.ifi_index;
    const std::size_t header = alignedNetlink(sizeof info);
    if (length < header) {
        return facts;
    }
    forEachAttribute(body + header, length - header,
                     [&](unsigned short type, const char* payload, std::size_t size) {
                         if (type == IFLA_MASTER && size >= sizeof facts.master) {
                             std::memcpy(&facts.master, payload, sizeof facts.master);
                         } else if (type == IFLA_CARRIER && size >= 1) {
                             facts.carrier = payload[0] != 0;
                         } else if (type == IFLA_LINKINFO) {
                             forEachAttribute(
                                 payload, size,
                                 [&](unsigned short inner, const char* kind, std::size_t kindSize) {
                                     facts.bridge =
                                         facts.bridge ||
                                         (inner == IFLA_INFO_KIND &&
                                          std::string(kind, strnlen(kind, kindSize)) == "bridge");
                                 });
                         }
                     });
    return facts;
}

// Every link of this network namespace, from a netlink dump; empty when it cannot be had.
std::vector<LinkFacts> links() {
    std::vector<LinkFacts> found;
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd < 0) {
        return found;
    }
    struct {
        nlmsghdr header;
        ifinfomsg body;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.ifi_family = AF_UNSPEC;
    if (send(fd, &request, request.header.nlmsg_len, 0) < 0) {
        close(fd);
        return found;
    }
    // A dump comes in datagrams of at most a page or two; this holds any of them whole.
    constexpr std::size_t kDumpBufferBytes = std::size_t{64} * 1024;
    std::vector<char> buffer(kDumpBufferBytes);
    constexpr std::size_t kHeader = alignedNetlink(sizeof(nlmsghdr));
    for (bool done = false; !done;) {
        const ssize_t received = recv(fd, buffer.data(), buffer.size(), 0);
        if (received <= 0) {
            break;
        }
        std::size_t at = 0;
        const auto end = static_cast<std::size_t>(received);
        while (!done && end - at >= sizeof(nlmsghdr)) {
            nlmsghdr message{};
            std::memcpy(&message, buffer.data() + at, sizeof message);
            if (message.nlmsg_len < kHeader || message.nlmsg_len > end - at) {
                break;
            }
            if (message.nlmsg_type == NLMSG_DONE || message.nlmsg_type == NLMSG_ERROR) {
                done = true;
            } else if (message.nlmsg_type == RTM_NEWLINK) {
                found.push_back(
                    linkFacts(buffer.data() + at + kHeader, message.nlmsg_len - kHeader));
            }
            at += alignedNetlink(message.nlmsg_len);
        }
    }
    close(fd);
    return found;
}

}  // namespace

std::string adapterDoubt(const std::string& interfaceName) {
    const int index = static_cast<int>(if_nametoindex(interfaceName.c_str()));
    const std::vector<LinkFacts> all = links();
    for (const LinkFacts& link : all) {
        if (link.index != index) {
            continue;
        }
        const bool hasPorts = std::any_of(
            all.begin(), all.end(), [&](const LinkFacts& other) { return other.master == index; });
        if (link.bridge && !hasPorts) {
            return "a bridge with no ports";
        }
        if (!link.carrier) {
            return "no carrier";
        }
    }
    return std::string();
}

ToolSocket::ToolSocket() {
    receiveFd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (receiveFd_ < 0) {
        throw systemError("cannot open a UDP socket");
    }
    enableOption(receiveFd_, SOL_SOCKET, SO_REUSEADDR, "cannot share the service port");
    enableOption(receiveFd_, SOL_SOCKET, SO_BROADCAST, "cannot enable broadcast");
    enableOption(receiveFd_, IPPROTO_IP, IP_PKTINFO, "cannot ask for the arrival interface");
    growReceiveBuffer(receiveFd_);
    bindServicePort(receiveFd_);
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
        enableOption(fd, SOL_SOCKET, SO_BROADCAST, "cannot enable broadcast");
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
