#include "client/Verification.hpp"

#include <cmath>

#include "wire/MessageFormat.hpp"

namespace lcf {
namespace {

constexpr std::size_t kClockDigits = 14;
constexpr long long kSecondsPerDay = 86400;

bool isLeapYear(long long year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysInMonth(long long year, int month) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// Days from 1970-01-01 to the given date of the proleptic Gregorian calendar.
long long daysSinceEpoch(long long year, int month, int day) {
    const long long shiftedYear = month <= 2 ? year - 1 : year;
    const long long era = (shiftedYear >= 0 ? shiftedYear : shiftedYear - 399) / 400;
    const long long yearOfEra = shiftedYear - era * 400;
    const long long dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const long long dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

int digitsAt(std::string_view text, std::size_t at, std::size_t count) {
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

}  // namespace

std::string describe(const Mismatch& mismatch) {
    const std::string asked = mismatch.asked.empty() ? std::string("to clear") : mismatch.asked;
    const std::string reported = mismatch.reported.empty() ? "nothing" : mismatch.reported;
    return mismatch.key + ": asked " + asked + ", reports " + reported;
}

std::optional<long long> clockSeconds(std::string_view clock) {
    if (clock.size() != kClockDigits ||
        clock.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    const int year = digitsAt(clock, 0, 4);
    const int month = digitsAt(clock, 4, 2);
    const int day = digitsAt(clock, 6, 2);
    const int hour = digitsAt(clock, 8, 2);
    const int minute = digitsAt(clock, 10, 2);
    const int second = digitsAt(clock, 12, 2);
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 ||
        minute > 59 || second > 59) {
        return std::nullopt;
    }
    return daysSinceEpoch(year, month, day) * kSecondsPerDay + hour * 3600LL + minute * 60LL +
           second;
}

bool clockTook(std::string_view asked, std::string_view reported, double secondsSinceAsked) {
    const auto askedSeconds = clockSeconds(asked);
    const auto reportedSeconds = clockSeconds(reported);
    if (!askedSeconds || !reportedSeconds) {
        return asked == reported;  // not a clock: only the same text took
    }
    const double ahead = static_cast<double>(*reportedSeconds - *askedSeconds);
    return ahead >= -kClockToleranceSeconds &&
           ahead <= std::ceil(secondsSinceAsked) + kClockToleranceSeconds;
}

std::vector<Mismatch> checkAssigned(const std::vector<std::pair<std::string, std::string>>& asked,
                                    const lcfd::Reply& status, double secondsSinceAsked) {
    std::vector<Mismatch> mismatches;
    for (const auto& [fieldKey, value] : asked) {
        const std::string* reported = status.find(fieldKey);
        const std::string shown = reported != nullptr ? *reported : std::string();
        const bool took = fieldKey == lcfd::key::kUtcClock
                              ? clockTook(value, shown, secondsSinceAsked)
                              : shown == value;
        if (!took) {
            mismatches.push_back(Mismatch{fieldKey, value, shown});
        }
    }
    return mismatches;
}

std::optional<Mismatch> checkCleared(const std::string& serverKey, const lcfd::Reply& status) {
    const std::string* reported = status.find(serverKey);
    if (reported == nullptr || reported->empty()) {
        return std::nullopt;
    }
    return Mismatch{serverKey, "", *reported};
}

}  // namespace lcf
