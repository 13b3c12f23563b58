#include "daemon/StatusSources.hpp"

namespace lcfd {

const std::vector<StatusSource>& statusSources() {
    static const std::vector<StatusSource> sources = {
        {&StatusValues::ip, &Settings::getIp},
        {&StatusValues::netmask, &Settings::getNetmask},
        {&StatusValues::gateway, &Settings::getGateway},
        {&StatusValues::hostname, &Settings::getHostname},
        {&StatusValues::ipscheme, &Settings::getIpScheme},
        {&StatusValues::ntpip, &Settings::getNtpIp},
        {&StatusValues::controller, &Settings::getController},
        {&StatusValues::housenames, &Settings::getHousenames},
        {&StatusValues::syslogip, &Settings::getSyslogIp},
        {&StatusValues::nameserver, &Settings::getNameserver},
        {&StatusValues::ntpsync, &Settings::getNtpSync},
        {&StatusValues::sdusage, &Settings::getSdUsage},
        {&StatusValues::sdkversion, &Settings::getSdkVersion},
        {&StatusValues::mac1, &Settings::getMac1},
        {&StatusValues::mac2, &Settings::getMac2},
        {&StatusValues::uptime, &Settings::getUptime},
        {&StatusValues::loadavg, &Settings::getLoadavg},
        {&StatusValues::utcclock, &Settings::getUtcClock},
        {&StatusValues::displaytime, &Settings::getDisplayTime},
    };
    return sources;
}

StatusValues readStatusValues(const Settings& settings) {
    StatusValues values;
    for (const StatusSource& source : statusSources()) {
        values.*source.value = (settings.*source.getter)();
    }
    return values;
}

}  // namespace lcfd
