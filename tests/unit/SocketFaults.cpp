#include "SocketFaults.hpp"

#include <dlfcn.h>
#include <sys/socket.h>

#include <cerrno>

namespace lcfd::test {
namespace {

struct ArmedFailure {
    bool pending = false;
    int level = 0;
    int option = 0;
    int errorNumber = 0;
};

ArmedFailure armed;

using SetSocketOption = int (*)(int, int, int, const void*, socklen_t);

}  // namespace

void failNextSocketOption(int level, int option, int errorNumber) {
    armed = ArmedFailure{true, level, option, errorNumber};
}

bool socketOptionFailurePending() {
    return armed.pending;
}

}  // namespace lcfd::test

// Found before the C library's by every caller linked into the test executable.
extern "C" int setsockopt(int descriptor, int level, int option, const void* value,
                          socklen_t length) noexcept {
    using lcfd::test::armed;
    if (armed.pending && armed.level == level && armed.option == option) {
        armed.pending = false;
        errno = armed.errorNumber;
        return -1;
    }
    static const auto real =
        reinterpret_cast<lcfd::test::SetSocketOption>(dlsym(RTLD_NEXT, "setsockopt"));
    return real(descriptor, level, option, value, length);
}
