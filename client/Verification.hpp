#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "wire/Replies.hpp"

namespace lcf {

// A value that did not take: what was asked, and what the controller reports now. An empty
// `asked` stands for a server that was to be cleared, an empty `reported` for a field the
// controller no longer reports.
struct Mismatch {
    std::string key;
    std::string asked;
    std::string reported;
};

// "ip: asked 10.0.0.7, reports 10.0.0.5"; "syslogip: asked to clear, reports 10.0.0.20";
// "ntpip: asked 10.0.0.10, reports nothing".
std::string describe(const Mismatch& mismatch);

// How far a clock may be off what was asked, on top of the time that passed.
constexpr double kClockToleranceSeconds = 2.0;

// YYYYMMDDhhmmss (UTC) as seconds since 1970-01-01 00:00:00 UTC; nothing unless it is fourteen
// digits of a date and time that exist.
std::optional<long long> clockSeconds(std::string_view clock);

// Whether a clock set to `asked` and read `secondsSinceAsked` later at most shows `reported`:
// not before `asked` and not after `asked` plus the time that passed, each within the
// tolerance.
bool clockTook(std::string_view asked, std::string_view reported, double secondsSinceAsked);

// Every assigned value against a STATUS reply taken after the settling pause; `utcclock` with
// the clock rule above, the others byte for byte. `secondsSinceAsked`: from sending the
// ASSIGN to receiving the STATUS.
std::vector<Mismatch> checkAssigned(const std::vector<std::pair<std::string, std::string>>& asked,
                                    const lcfd::Reply& status, double secondsSinceAsked);

// A cleared server against a STATUS reply taken after the CLEAR: it must be gone (no value).
std::optional<Mismatch> checkCleared(const std::string& serverKey, const lcfd::Reply& status);

}  // namespace lcf
