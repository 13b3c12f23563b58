#include "daemon/Daemon.hpp"

#include <cstdio>
#include <exception>

#include "daemon/MessageDispatcher.hpp"

namespace lcfd {

int serveUntilException(std::uint16_t port, DeviceShell& shell) {
    try {
        MessageDispatcher dispatcher(port, shell);
        dispatcher.run();
    } catch (const std::exception& exception) {
        // COMPAT: exception-ends-normally
        std::fprintf(stderr, "Exception: %s\n", exception.what());
        return 0;
    }
}

}  // namespace lcfd
