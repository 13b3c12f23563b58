#pragma once

#include <string>

#include "wire/Protocol.hpp"

struct ifaddrs;

namespace lcfd {

// The optional one-value file that names the interface the daemon serves.
constexpr const char* kInterfaceFilePath = "/home/etc/tarnsetup.d/lcfd_interface";
constexpr std::size_t kMaxInterfaceNameLength = 9;

constexpr const char* kNetmaskLookupFailed = "ERROR::getifaddrs failed";
constexpr const char* kInterfaceNotFound = "ERROR::interface not found";

// Reads the whole file at `path` into `interfaceName` with every line feed removed (nothing
// else: blanks, tabs and carriage returns stay), printing "LCFD using interface: " and the
// name. An empty or over-long name becomes "br0". A file that does not open leaves
// `interfaceName` as it was. Returns `interfaceName`.
std::string& selectInterfaceName(const char* path, std::string& interfaceName);

// The netmask of the first IPv4 entry of `list` whose name agrees with `interfaceName` in its
// first four characters, or kInterfaceNotFound.
std::string findInterfaceNetmask(const ifaddrs* list, const std::string& interfaceName);

// Asks the system for its interface addresses and looks the netmask up there. The address
// list is kept, not released.
std::string lookupInterfaceNetmask(const std::string& interfaceName);

}  // namespace lcfd
