#include "net/InterfaceSelection.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace lcfd {
namespace {

// Names of four or more characters match every interface sharing their first four (eth0 and
// eth0:1, wlan0 and wlan1); shorter ones match only themselves.
constexpr std::size_t kComparedNameLength = 4;

std::string readWholeFile(std::FILE* file) {
    std::string content;
    char chunk[512];
    std::size_t count = 0;
    while ((count = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        content.append(chunk, count);
    }
    return content;
}

}  // namespace

std::string& selectInterfaceName(const char* path, std::string& interfaceName) {
    std::FILE* file = std::fopen(path, "r");
    if (file != nullptr) {
        interfaceName = readWholeFile(file);
        interfaceName.erase(std::remove(interfaceName.begin(), interfaceName.end(), '\n'),
                            interfaceName.end());
        std::fputs("LCFD using interface: ", stdout);
        std::fwrite(interfaceName.data(), 1, interfaceName.size(), stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
    }
    if (interfaceName.empty() || interfaceName.size() > kMaxInterfaceNameLength) {
        interfaceName = kDefaultInterface;
    }
    if (file != nullptr) {
        std::fclose(file);
    }
    return interfaceName;
}

std::string findInterfaceNetmask(const ifaddrs* list, const std::string& interfaceName) {
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr) {
            continue;
        }
        // COMPAT: four-character-interface-match
        if (std::strncmp(entry->ifa_name, interfaceName.c_str(), kComparedNameLength) != 0) {
            continue;
        }
        if (entry->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        in_addr netmask{};
        if (entry->ifa_netmask != nullptr) {
            netmask = reinterpret_cast<const sockaddr_in*>(entry->ifa_netmask)->sin_addr;
        }
        return inet_ntoa(netmask);
    }
    return kInterfaceNotFound;
}

std::string lookupInterfaceNetmask(const std::string& interfaceName) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) == -1) {
        return kNetmaskLookupFailed;
    }
    // COMPAT: interface-list-kept
    // The list is deliberately not released.
    return findInterfaceNetmask(list, interfaceName);
}

}  // namespace lcfd
