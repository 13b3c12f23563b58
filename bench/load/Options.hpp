// The load tool's command line: what to run, how much of each phase, and where the figures go.
#pragma once

#include <cstddef>
#include <string>

namespace load {

struct Options {
    std::string lcfd;
    std::string platform = "imx";
    std::size_t datagrams = 100000;
    std::size_t queries = 1000;
    std::size_t replays = 100;
    std::size_t warmupQueries = 10;
    double timeLimit = 240;
    std::string tsv;
    std::string label;
};

// Prints the problem (if any) and the usage, and ends the program with status 2.
[[noreturn]] void usage(const std::string& problem);

// The options of the command line; a wrong one ends the program through usage().
Options parseOptions(int argc, char** argv);

// The program --lcfd named, made the one every Sandbox runs; a path that is no program ends
// the program through usage().  Without --lcfd, the one built with the tests stays.
void chooseLcfd(const Options& options);

}  // namespace load
