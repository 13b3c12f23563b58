#pragma once

#include <cstdint>

#include "device/DeviceShell.hpp"

namespace lcfd {

// Serves `port` with the device reached through `shell` until something throws: the
// exception's text goes to standard error after "Exception: ", the transport is closed as the
// dispatcher goes, and the answer is 0. The daemon does not resume serving; it reports and
// ends normally, so a supervisor that restarts only failures leaves it ended.
int serveUntilException(std::uint16_t port, DeviceShell& shell);

}  // namespace lcfd
