#pragma once

// Setting and reading the device's clock: Settings::setUtcClock and Settings::getUtcClock,
// members of the record, are defined with these texts in UtcClock.cpp.

namespace lcfd {

// The warnings of a clock value that is refused before any command runs.
constexpr const char* kWrongClockLength = "Invalid format for UTC - length";
constexpr const char* kClockNotNumbers = "Invalid format for UTC - not numbers";

}  // namespace lcfd
