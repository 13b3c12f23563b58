#include <cstdio>
#include <cstring>

#include "daemon/Daemon.hpp"
#include "wire/Protocol.hpp"

namespace {

// Standard output's buffer is the program's own, so that line buffering works the same
// however the daemon is started (a launcher's preload can leave stdout unbuffered, with a
// one-byte buffer that splits every write), and a datagram's echo and trace leave in one
// write. It holds any datagram's echo and trace.
char standardOutputBuffer[4096];

}  // namespace

int main(int argc, char** argv) {
    // Each line reaches a pipe or the journal as soon as it is written.
    std::setvbuf(stdout, standardOutputBuffer, _IOLBF, sizeof standardOutputBuffer);

    if (argc != 1) {
        if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
            std::printf("Version: %s\n", lcfd::kVersion);
        } else {
            std::fputs("Usage: lcfd [--version]\n", stdout);
        }
        return 0;
    }

    return lcfd::serveUntilException(lcfd::kServicePort, lcfd::systemShell());
}
