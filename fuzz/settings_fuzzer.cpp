// The settings record with arbitrary values: the validating setters, isValidIpv4, the
// cleaning and upper-casing getters, the change predicates and the copy assignment. Only
// pure operations of Settings are called: nothing reads or changes the device.

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.hpp"
#include "settings/Settings.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Validators.hpp"

namespace {

using lcfd::Settings;

using Setter = bool (Settings::*)(const std::string&);
using Field = const std::string& (Settings::*)() const;

struct AddressSetting {
    Setter set;
    Field field;
};

const AddressSetting kAddressSettings[] = {
    {&Settings::setIp, &Settings::ipRef},
    {&Settings::setNetmask, &Settings::netmaskRef},
    {&Settings::setGateway, &Settings::gatewayRef},
    {&Settings::setAuxIp, &Settings::auxipRef},
    {&Settings::setNtpIp, &Settings::ntpipRef},
    {&Settings::setSyslogIp, &Settings::syslogipRef},
    {&Settings::setNameserver, &Settings::nameserverRef},
};

// Four parts of digits, 7 to 15 characters: the shape of every address a setter stores.
bool looksLikeStoredAddress(const std::string& text) {
    if (text.size() < 7 || text.size() > 15 || !fuzz::onlyCharsOf(text, "0123456789.")) {
        return false;
    }
    std::size_t dots = 0;
    for (const char c : text) {
        dots += c == '.' ? 1 : 0;
    }
    return dots == 3 && text.front() != '.' && text.back() != '.' &&
           text.find("..") == std::string::npos;
}

std::string removedAll(const std::string& text, const char* unwanted) {
    std::string kept;
    for (const char c : text) {
        if (std::string(unwanted).find(c) == std::string::npos) {
            kept += c;
        }
    }
    return kept;
}

// cppcheck-suppress constParameter ; the setters are called through member pointers
void checkAddressSetters(Settings& settings, const std::string& value) {
    const bool valid = lcfd::isValidIpv4(value);
    for (const AddressSetting& setting : kAddressSettings) {
        const std::string before = (settings.*setting.field)();
        const bool stored = (settings.*setting.set)(value);
        const std::string& after = (settings.*setting.field)();
        FUZZ_CHECK(stored == valid);
        if (stored) {
            FUZZ_CHECK(after == value);
            FUZZ_CHECK(looksLikeStoredAddress(after));
        } else {
            // cppcheck-suppress knownConditionTrueFalse ; the setter ran in between
            FUZZ_CHECK(after == before);
        }
        FUZZ_CHECK(after.empty() || looksLikeStoredAddress(after));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string value = fuzz::asText(data, size);

    // The validator takes exactly the strict dotted form, and nothing else.
    const bool valid = lcfd::isValidIpv4(value);
    FUZZ_CHECK(valid == fuzz::isStrictDottedQuad(value));

    // A new record: every address setter either stores the value as given or keeps the old.
    Settings fresh;
    checkAddressSetters(fresh, value);
    FUZZ_CHECK(fresh.getIp() == fresh.ipRef());
    FUZZ_CHECK(fresh.getNetmask() == fresh.netmaskRef());
    FUZZ_CHECK(fresh.getGateway() == fresh.gatewayRef());

    // A record that already holds addresses keeps them when the value is refused.
    Settings held;
    for (const AddressSetting& setting : kAddressSettings) {
        FUZZ_CHECK((held.*setting.set)("10.1.2.3"));
    }
    held.takeSnapshot();
    FUZZ_CHECK(!held.networkChanged() && !held.ntpipChanged() && !held.syslogipChanged() &&
               !held.nameserverChanged() && !held.ipschemeChanged() && !held.hostnameChanged());
    checkAddressSetters(held, value);
    const bool changed = valid && value != "10.1.2.3";
    FUZZ_CHECK(held.networkChanged() == changed);
    FUZZ_CHECK(held.ntpipChanged() == changed);
    FUZZ_CHECK(held.syslogipChanged() == changed);
    FUZZ_CHECK(held.nameserverChanged() == changed);
    FUZZ_CHECK(!held.ipschemeChanged());
    FUZZ_CHECK(!held.hasPendingUtcClock());

    // The scheme is stored as given; only the scheme predicate and the network one see it.
    held.takeSnapshot();
    held.setIpScheme(value);
    FUZZ_CHECK(held.ipschemeRef() == value);
    FUZZ_CHECK(held.ipschemeChanged() == (value != "STATIC"));
    FUZZ_CHECK(held.networkChanged() == (value != "STATIC"));
    FUZZ_CHECK(!held.ntpipChanged());

    // The unvalidated fields and the getters that clean or upper-case them.
    Settings texts;
    texts.setMac(value);
    texts.setController(value);
    FUZZ_CHECK(texts.setHousenames(value));
    FUZZ_CHECK(texts.setHostname(value));
    texts.setDeviceHostname(value);
    texts.setMac1(value);
    texts.setUptime(value);
    const std::string upper = lcfd::upperCased(value);
    const std::string cleaned = lcfd::cleanText(value);
    FUZZ_CHECK(upper.size() == value.size());
    FUZZ_CHECK(!fuzz::hasLowerCaseLetter(upper));
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        FUZZ_CHECK(upper[i] == ((c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c));
    }
    FUZZ_CHECK(cleaned == removedAll(value, "\r\n\t"));
    FUZZ_CHECK(texts.getMac() == upper);
    FUZZ_CHECK(texts.getController() == cleaned);
    FUZZ_CHECK(texts.getHousenames() == cleaned);
    FUZZ_CHECK(texts.getHostname() == value);
    FUZZ_CHECK(texts.getUptime() == cleaned);
    FUZZ_CHECK(texts.getMac1() == lcfd::upperCased(cleaned));
    FUZZ_CHECK(texts.getSerialNumber() == "_serialNumber");

    // Copy assignment takes the device-read fields only.
    Settings copy;
    copy.setHousenames("kept");
    copy.setNtpSync("kept");
    copy = texts;
    FUZZ_CHECK(copy.macRef() == value && copy.controllerRef() == value &&
               copy.hostnameRef() == value && copy.devicehostnameRef() == value);
    FUZZ_CHECK(copy.housenamesRef() == "kept" && copy.ntpsyncRef() == "kept");
    FUZZ_CHECK(copy.mac1Ref().empty() && copy.uptimeRef().empty());
    return 0;
}
