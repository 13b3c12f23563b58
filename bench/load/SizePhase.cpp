#include "SizePhase.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "Harness.hpp"

namespace load {

namespace {

// The size of a stripped copy of `lcfd` in `bytes` (left alone when strip failed); what strip
// said on its standard error.
std::string strippedSize(const std::string& lcfd, std::optional<std::int64_t>* bytes) {
    char path[] = "/tmp/lcfd_load.strip.XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) {
        return "";
    }
    close(fd);
    const auto run = e2e::runProgram({"/usr/bin/strip", "-o", path, lcfd}, Seconds(30));
    struct stat info {};
    if (run.status == 0 && stat(path, &info) == 0) {
        *bytes = info.st_size;
    }
    std::remove(path);
    return run.err;
}

}  // namespace

void measureSize(const std::string& lcfd, Report& report) {
    std::optional<std::int64_t> stripped;
    const std::string stripError = strippedSize(lcfd, &stripped);
    if (stripped) {
        report.add("size.stripped_kib", "size: stripped lcfd",
                   fixed(static_cast<double>(*stripped) / 1024.0, 1) + " KiB", "<= 200 KiB",
                   *stripped <= std::int64_t{200} * 1024);
    } else {
        report.note("strip failed: " + stripError);
    }
}

}  // namespace load
