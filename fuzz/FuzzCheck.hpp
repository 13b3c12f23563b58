// Shared helpers of the fuzz targets: a check that stops the run on a broken invariant, and
// small independent reference routines the targets compare the daemon's code against.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

// A broken invariant is a finding: say which one and stop with a trap, so that libFuzzer
// writes the input out as a crash artifact.
#define FUZZ_CHECK(condition)                                                                 \
    do {                                                                                      \
        if (!(condition)) {                                                                   \
            std::fprintf(stderr, "\n*** invariant broken at %s:%d: %s\n", __FILE__, __LINE__, \
                         #condition);                                                         \
            std::fflush(stderr);                                                              \
            __builtin_trap();                                                                 \
        }                                                                                     \
    } while (0)

namespace fuzz {

inline std::string asText(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

inline bool onlyCharsOf(const std::string& text, const char* allowed) {
    return text.find_first_not_of(allowed) == std::string::npos;
}

inline bool hasLowerCaseLetter(const std::string& text) {
    for (const char c : text) {
        if (c >= 'a' && c <= 'z') {
            return true;
        }
    }
    return false;
}

inline bool isDigits(const std::string& text) {
    return !text.empty() && onlyCharsOf(text, "0123456789");
}

// A strict dotted IPv4 address: four numbers 0..255 of one to three digits, no leading zero
// except "0" itself, separated by single dots, nothing before or after.
inline bool isStrictDottedQuad(const std::string& text) {
    if (text.size() < 7 || text.size() > 15) {
        return false;
    }
    std::size_t position = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (position >= text.size() || text[position] != '.') {
                return false;
            }
            ++position;
        }
        const std::size_t begin = position;
        unsigned value = 0;
        while (position < text.size() && text[position] >= '0' && text[position] <= '9' &&
               position - begin < 3) {
            value = value * 10 + static_cast<unsigned>(text[position] - '0');
            ++position;
        }
        const std::size_t digits = position - begin;
        if (digits == 0 || value > 255 || (digits > 1 && text[begin] == '0')) {
            return false;
        }
    }
    return position == text.size();
}

}  // namespace fuzz
