#include "log/Fatal.hpp"

#include <cstdio>
#include <cstdlib>

namespace lcfd {

void exitOnSetupFailure(const char* text, int errorNumber) {
    std::fprintf(stderr, "%s%d\n", text, errorNumber);
    std::exit(1);
}

void abortOnBrokenPromise() {
    std::abort();
}

}  // namespace lcfd
