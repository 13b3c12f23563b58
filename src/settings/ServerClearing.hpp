#pragma once

#include "device/DeviceCommands.hpp"
#include "settings/Settings.hpp"

// Forgetting a server: Settings::clearNtpIp, clearSyslogIp and clearNameserver, members of
// the record, are defined in ServerClearing.cpp on top of this one step.

namespace lcfd {

// Runs every command of the platform for `setting`, unconditionally, through the record's
// shell; only the last one's answer counts.
bool clearServerSetting(const Settings& settings, ServerSetting setting);

}  // namespace lcfd
