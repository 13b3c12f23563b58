#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "wire/Replies.hpp"

namespace lcf {

// A local IPv4 interface the tool probes on.
struct NetworkInterface {
    std::string name;
    std::uint32_t address = 0;  // network byte order
    std::uint32_t netmask = 0;  // network byte order
    unsigned index = 0;
};

// One controller as discovery saw it: its STATUS reply and where it answered.
struct Controller {
    lcfd::Reply status;
    std::string interfaceName;
    // Its address is missing or outside the subnet of the interface it answered on: only a
    // broadcast tool like this one reaches it.
    bool outsideSubnet = false;
    // Another controller that answered on the same interface reports the same address.
    bool duplicateIp = false;

    // The reply's value of `key`, or the empty text when it has none.
    const std::string& field(std::string_view key) const;
};

// Whether `ipText` is missing, not an address, or outside `networkInterface`'s subnet.
bool isOutsideSubnet(const std::string& ipText, const NetworkInterface& networkInterface);

// Flags every controller whose address another controller on the same interface reports too;
// a missing address is nobody's duplicate.
void flagDuplicateAddresses(std::vector<Controller>& controllers);

// Collects the STATUS replies of a discovery, one per MAC address (the first answer wins),
// handed out sorted by MAC with duplicate addresses flagged. Which replies belong to the
// discovery (their seqids) is the caller's to decide.
class DiscoveryResults {
  public:
    // Returns true when the reply was a STATUS of a controller not seen before, and taken.
    bool add(const lcfd::Reply& reply, const NetworkInterface& arrivedOn);
    std::vector<Controller> sorted() const;
    std::size_t size() const { return byMac_.size(); }

  private:
    std::map<std::string, Controller> byMac_;
};

}  // namespace lcf
