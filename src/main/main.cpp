#include <cstdio>
#include <cstring>
#include <exception>

#include "net/Version.hpp"
#include "protocol/MessageDispatcher.hpp"

int main(int argc, char** argv) {
    // Each line reaches a pipe or the journal as soon as it is written.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    if (argc != 1) {
        if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
            std::printf("Version: %s\n", lcfd::kVersion);
        } else {
            std::fputs("Usage: lcfd [--version]\n", stdout);
        }
        return 0;
    }

    try {
        lcfd::MessageDispatcher dispatcher(lcfd::kServicePort);
        dispatcher.run();
    } catch (const std::exception& exception) {
        // The daemon does not resume serving; it reports and ends normally.
        std::fprintf(stderr, "Exception: %s\n", exception.what());
        return 0;
    }
    return 0;
}
