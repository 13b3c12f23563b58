#include "client/Controllers.hpp"

#include <arpa/inet.h>

#include "wire/MessageFormat.hpp"
#include "wire/Validators.hpp"

namespace lcf {

const std::string& Controller::field(std::string_view key) const {
    static const std::string none;
    const std::string* value = status.find(key);
    return value != nullptr ? *value : none;
}

bool isOutsideSubnet(const std::string& ipText, const NetworkInterface& networkInterface) {
    // The daemon's own validator: it also refuses an address followed by a zero byte, which
    // inet_pton alone would read as the address.
    if (!lcfd::isValidIpv4(ipText)) {
        return true;
    }
    in_addr address{};
    inet_pton(AF_INET, ipText.c_str(), &address);
    return (address.s_addr & networkInterface.netmask) !=
           (networkInterface.address & networkInterface.netmask);
}

bool DiscoveryResults::add(const lcfd::Reply& reply, const NetworkInterface& arrivedOn) {
    if (reply.command != lcfd::word::kStatus) {
        return false;
    }
    const std::string* mac = reply.find(lcfd::key::kMac);
    if (mac == nullptr || mac->empty() || byMac_.count(*mac) != 0) {
        return false;
    }
    Controller controller;
    controller.status = reply;
    controller.interfaceName = arrivedOn.name;
    controller.outsideSubnet = isOutsideSubnet(controller.field(lcfd::key::kIp), arrivedOn);
    byMac_.emplace(*mac, std::move(controller));
    return true;
}

void flagDuplicateAddresses(std::vector<Controller>& controllers) {
    std::map<std::pair<std::string, std::string>, std::size_t> users;  // (interface, ip) -> count
    for (const Controller& controller : controllers) {
        const std::string& ip = controller.field(lcfd::key::kIp);
        if (!ip.empty()) {
            ++users[{controller.interfaceName, ip}];
        }
    }
    for (Controller& controller : controllers) {
        const std::string& ip = controller.field(lcfd::key::kIp);
        controller.duplicateIp = !ip.empty() && users[{controller.interfaceName, ip}] > 1;
    }
}

std::vector<Controller> DiscoveryResults::sorted() const {
    std::vector<Controller> controllers;
    controllers.reserve(byMac_.size());
    for (const auto& entry : byMac_) {
        controllers.push_back(entry.second);
    }
    flagDuplicateAddresses(controllers);
    return controllers;
}

}  // namespace lcf
