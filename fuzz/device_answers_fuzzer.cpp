// What the device tools print, arbitrary: the runner's first-word extraction and the reading
// rules that turn an answer into a value (usable answers, platform detection, SD usage, NTP
// synchronisation, the display time). The runner's one read is imitated in memory; nothing
// here starts a command.

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

#include "FuzzCheck.hpp"
#include "device/ControllerType.hpp"
#include "device/DeviceShell.hpp"
#include "settings/DeviceReading.hpp"

namespace {

using lcfd::ControllerType;

bool isFormattedSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

bool isAllSpace(const std::string& text) {
    for (const char c : text) {
        if (!isFormattedSpace(c)) {
            return false;
        }
    }
    return true;
}

// What the runner's single fgets read of a command's output yields: up to 510 bytes, up to
// and including the first line feed, cut at the first zero byte.
std::string firstRead(const std::string& output) {
    std::string line =
        output.substr(0, static_cast<std::size_t>(lcfd::kCommandOutputReadLimit) - 1);
    const std::size_t lineFeed = line.find('\n');
    if (lineFeed != std::string::npos) {
        line.erase(lineFeed + 1);
    }
    const std::size_t zero = line.find('\0');
    if (zero != std::string::npos) {
        line.erase(zero);
    }
    return line;
}

void checkFirstWord(const std::string& text) {
    const std::string word = lcfd::firstWord(text);
    for (const char c : word) {
        FUZZ_CHECK(!isFormattedSpace(c));
    }
    FUZZ_CHECK(word.empty() == isAllSpace(text));
    const std::size_t at = text.find(word);
    FUZZ_CHECK(at != std::string::npos);
    if (!word.empty()) {
        // The word is the first run of non-blanks: only blanks before it, a blank or the end
        // after it.
        const std::size_t begin = text.find_first_not_of(" \t\n\r\v\f");
        FUZZ_CHECK(begin == at);
        FUZZ_CHECK(text.compare(begin, word.size(), word) == 0);
        const std::size_t end = begin + word.size();
        FUZZ_CHECK(end == text.size() || isFormattedSpace(text[end]));
    }
    // Taking the first word again changes nothing.
    FUZZ_CHECK(lcfd::firstWord(word) == word);
}

// Days since 1970-01-01 to a proleptic Gregorian date; an independent reference for the
// display time in UTC.
void civilFromDays(long long days, long long& year, int& month, int& day) {
    days += 719468;
    const long long era = (days >= 0 ? days : days - 146096) / 146097;
    const long long dayOfEra = days - era * 146097;
    const long long yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const long long monthIndex = (5 * dayOfYear + 2) / 153;
    day = static_cast<int>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
    month = static_cast<int>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
    year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
}

std::string twoDigits(long long value) {
    return std::string(1, static_cast<char>('0' + value / 10)) +
           static_cast<char>('0' + value % 10);
}

void checkDisplayTime(const std::string& answer) {
    std::string shown = "untouched";
    const bool converted = lcfd::displayTimeFromSeconds(answer, shown);

    const char* begin = answer.c_str();
    char* end = nullptr;
    errno = 0;
    const long seconds = std::strtol(begin, &end, 10);
    const bool number = end != begin && errno != ERANGE;
    if (!number) {
        FUZZ_CHECK(!converted && shown == "untouched");
        return;
    }

    long long days = seconds / 86400;
    long long secondOfDay = seconds % 86400;
    if (secondOfDay < 0) {
        secondOfDay += 86400;
        --days;
    }
    long long year = 0;
    int month = 0;
    int day = 0;
    civilFromDays(days, year, month, day);
    // The calendar conversion fails exactly when the year does not fit its int field.
    const long long yearField = year - 1900;
    const bool fits = yearField >= INT_MIN && yearField <= INT_MAX;
    FUZZ_CHECK(converted == fits);
    if (!converted) {
        FUZZ_CHECK(shown == "untouched");
        return;
    }
    const std::string rest = twoDigits(month) + twoDigits(day) + twoDigits(secondOfDay / 3600) +
                             twoDigits(secondOfDay / 60 % 60) + twoDigits(secondOfDay % 60);
    if (year >= -2000000000LL && year <= 2000000000LL) {
        FUZZ_CHECK(shown == std::to_string(year) + rest);
    } else {
        // Near the ends of the int range the C library prints the year as it likes; the rest
        // of the text still holds.
        FUZZ_CHECK(shown.size() > rest.size() && shown.size() <= 63);
        FUZZ_CHECK(shown.compare(shown.size() - rest.size(), rest.size(), rest) == 0);
        FUZZ_CHECK(fuzz::onlyCharsOf(shown, "-0123456789"));
    }
    // Years 1000 to 9999 give the fourteen digits of the protocol's clock form.
    if (year >= 1000 && year <= 9999) {
        FUZZ_CHECK(shown.size() == 14 && fuzz::isDigits(shown));
    }
}

void checkReadingRules(const std::string& answer) {
    const bool usable = lcfd::isUsableAnswer(answer);
    FUZZ_CHECK(usable == (answer.find("ERROR::") == std::string::npos));

    const ControllerType type = lcfd::controllerTypeFromSdk(answer);
    FUZZ_CHECK(type == ControllerType::Generic || type == ControllerType::Arm9 ||
               type == ControllerType::Imx || type == ControllerType::Qmt);
    FUZZ_CHECK((type == ControllerType::Imx) == (answer == "imx"));
    FUZZ_CHECK((type == ControllerType::Qmt) == (answer == "qmt"));
    FUZZ_CHECK((type == ControllerType::Arm9) == (answer == "arm9"));

    FUZZ_CHECK(lcfd::meansSynchronised(answer) == (usable && !answer.empty()));

    for (const ControllerType platform :
         {ControllerType::Unknown, ControllerType::Generic, ControllerType::Arm9,
          ControllerType::Imx, ControllerType::Qmt}) {
        const std::string usage = lcfd::sdUsageFromAnswer(platform, answer);
        const bool absent =
            platform == ControllerType::Imx && answer.find("No") != std::string::npos;
        if (absent || !usable || answer.empty()) {
            FUZZ_CHECK(usage == "n/a");
        } else {
            FUZZ_CHECK(usage == answer);
        }
    }

    FUZZ_CHECK(lcfd::isPublicResolver(answer) == (answer == "1.1.1.1" || answer == "8.8.8.8" ||
                                                  answer == "1.0.0.1" || answer == "8.8.4.4"));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The display time is local time; the reference above is UTC.
    setenv("TZ", "UTC", 1);
    tzset();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string output = fuzz::asText(data, size);

    // The runner as the reading uses it: the first read, then its first word.
    const std::string line = firstRead(output);
    FUZZ_CHECK(line.size() <= 510);
    FUZZ_CHECK(line.find('\0') == std::string::npos);
    checkFirstWord(output);
    checkFirstWord(line);
    const std::string word = lcfd::firstWord(line);

    // The rules see the word (most steps) and the whole line (uptime, loadavg); the raw bytes
    // as well, for good measure.
    checkReadingRules(word);
    checkReadingRules(line);
    checkReadingRules(output);
    checkDisplayTime(word);
    checkDisplayTime(output);
    return 0;
}
