#include "Options.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "Harness.hpp"

namespace load {

namespace {

std::size_t countArgument(const std::string& name, const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || *end != '\0' || value == 0 || text[0] == '-') {
        usage(name + " needs a positive whole number, got '" + text + "'");
    }
    return static_cast<std::size_t>(value);
}

std::string realPath(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (resolved == nullptr) {
        return "";
    }
    std::string text = resolved;
    std::free(resolved);  // NOLINT(cppcoreguidelines-no-malloc) realpath's own allocation
    return text;
}

}  // namespace

void usage(const std::string& problem) {
    if (!problem.empty()) {
        std::cerr << "lcfd_load: " << problem << "\n";
    }
    std::cerr
        << "usage: lcfd_load [--lcfd PATH] [--platform arm9|imx|qmt|generic|unknown]\n"
           "                 [--datagrams N] [--queries N] [--replays N] [--time-limit S]\n"
           "                 [--tsv FILE] [--label TEXT]\n"
           "Runs one simulated controller with a real lcfd (as root, in namespaces) and prints\n"
           "the ignore-path rate, the cost of a QUERY and the daemon's memory.\n";
    std::exit(2);
}

Options parseOptions(int argc, char** argv) {
    Options options;
    const std::vector<std::string> args(argv + 1, argv + argc);
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "-h" || arg == "--help") {
            usage("");
        }
        if (i + 1 >= args.size()) {
            usage("unknown argument or missing value: " + arg);
        }
        const std::string& value = args[++i];
        if (arg == "--lcfd") {
            options.lcfd = value;
        } else if (arg == "--platform") {
            options.platform = value;
        } else if (arg == "--datagrams") {
            options.datagrams = countArgument(arg, value);
        } else if (arg == "--queries") {
            options.queries = countArgument(arg, value);
        } else if (arg == "--replays") {
            options.replays = countArgument(arg, value);
        } else if (arg == "--time-limit") {
            options.timeLimit = static_cast<double>(countArgument(arg, value));
        } else if (arg == "--tsv") {
            options.tsv = value;
        } else if (arg == "--label") {
            options.label = value;
        } else {
            usage("unknown argument: " + arg);
        }
    }
    const std::vector<std::string> platforms = {"arm9", "imx", "qmt", "generic", "unknown"};
    if (std::find(platforms.begin(), platforms.end(), options.platform) == platforms.end()) {
        usage("unknown platform: " + options.platform);
    }
    options.warmupQueries = std::min<std::size_t>(10, options.queries / 2);
    return options;
}

void chooseLcfd(const Options& options) {
    if (options.lcfd.empty()) {
        return;
    }
    const std::string chosen = realPath(options.lcfd);
    if (chosen.empty() || access(chosen.c_str(), X_OK) != 0) {
        usage("no program at " + options.lcfd);
    }
    e2e::useLcfdBinary(chosen);
}

}  // namespace load
