// lcf's checks of what is typed on its command line: isMacAddress, checkAssignment, the
// unchecked forms and the server names. Whatever the tool accepts must reach the daemon as
// typed and pass the daemon's own validators; what it refuses is refused with a reason and
// leaves nothing behind. No socket is opened. The replies lcf reads have a target of their
// own (client_reply_fuzzer.cpp).

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "FuzzCheck.hpp"
#include "client/Validation.hpp"
#include "settings/Settings.hpp"
#include "wire/Message.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Request.hpp"
#include "wire/Validators.hpp"

namespace {

void checkMacAddress(const std::string& text) {
    if (!lcf::isMacAddress(text)) {
        return;
    }
    FUZZ_CHECK(text.size() == 17);
    // The daemon takes the address the tool accepted, upper-cased, and a device reporting
    // that address is the one addressed.
    lcfd::Message message;
    FUZZ_CHECK(lcfd::parseMac("mac=" + text, message));
    FUZZ_CHECK(message.mac == lcfd::upperCased(text));
    FUZZ_CHECK(!fuzz::hasLowerCaseLetter(message.mac));
    lcfd::Message queried;
    const std::string query = lcfd::composeQuery("7", text);
    const lcfd::Request request = lcfd::parseRequest(std::string_view(query).substr(5), queried);
    FUZZ_CHECK(request.command == lcfd::Command::Query && request.parsed);
    FUZZ_CHECK(lcfd::isAddressedTo(request, queried, lcfd::upperCased(text)));
}

void checkAssignmentArgument(const std::string& argument) {
    std::pair<std::string, std::string> assignment{"untouched", "untouched"};
    const std::optional<std::string> problem = lcf::checkAssignment(argument, assignment);
    if (problem) {
        FUZZ_CHECK(!problem->empty());
        FUZZ_CHECK(assignment.first == "untouched" && assignment.second == "untouched");
        return;
    }
    const auto& [fieldKey, value] = assignment;
    FUZZ_CHECK(fieldKey + "=" + value == argument);
    bool assignable = false;
    for (const std::string& candidate : lcf::assignableKeys()) {
        assignable = assignable || candidate == fieldKey;
    }
    FUZZ_CHECK(assignable);
    FUZZ_CHECK(argument.find_first_of("#;") == std::string::npos);

    // The daemon takes the field as it is and stores the value unchanged.
    lcfd::Message message;
    FUZZ_CHECK(lcfd::parseField(argument, message));
    lcfd::Settings settings;
    if (fieldKey == "ipscheme") {
        FUZZ_CHECK(value == "STATIC" || value == "DHCP");
        FUZZ_CHECK(message.ipscheme == value);
    } else if (fieldKey == "utcclock") {
        FUZZ_CHECK(lcfd::checkClockValue(value) == lcfd::ClockValueCheck::Valid);
        FUZZ_CHECK(message.utcclock == value);
    } else {
        FUZZ_CHECK(lcfd::isDottedQuad(value));
        FUZZ_CHECK(fuzz::isStrictDottedQuad(value));
        FUZZ_CHECK(settings.setIp(value) && settings.setNtpIp(value));
    }

    // Sent in an ASSIGN, it is accepted and lands in its field.
    const std::string mac = "00:1A:2B:3C:4D:5E";
    const std::string request = lcfd::composeAssign("9", mac, {assignment});
    lcfd::Message received;
    const lcfd::Request parsed = lcfd::parseRequest(std::string_view(request).substr(5), received);
    FUZZ_CHECK(parsed.command == lcfd::Command::Assign && parsed.parsed);
    FUZZ_CHECK(received.mac == mac);
    const std::pair<const char*, const std::string*> stored[] = {
        {"ip", &received.ip},
        {"netmask", &received.netmask},
        {"gateway", &received.gateway},
        {"ipscheme", &received.ipscheme},
        {"ntpip", &received.ntpip},
        {"syslogip", &received.syslogip},
        {"nameserver", &received.nameserver},
        {"utcclock", &received.utcclock},
    };
    for (const auto& [storedKey, storedValue] : stored) {
        FUZZ_CHECK(*storedValue == (fieldKey == storedKey ? value : std::string()));
    }
}

// The tool's unchecked forms send what the daemon is meant to judge; they refuse only what
// the request text cannot carry, so the daemon sees exactly the field that was typed.
void checkUncheckedForms(const std::string& argument) {
    const std::string mac = "00:1A:2B:3C:4D:5E";
    std::pair<std::string, std::string> assignment{"untouched", "untouched"};
    if (const auto problem = lcf::splitUncheckedAssignment(argument, assignment)) {
        FUZZ_CHECK(!problem->empty());
        FUZZ_CHECK(argument.find('=') == std::string::npos ||
                   argument.find('#') != std::string::npos);
    } else {
        FUZZ_CHECK(argument.find('#') == std::string::npos);
        FUZZ_CHECK(assignment.first + "=" + assignment.second == argument);
        FUZZ_CHECK(assignment.first.find('=') == std::string::npos);
        lcfd::Message alone;
        const bool fieldAccepted = lcfd::parseField(argument, alone);
        lcfd::Message received;
        const std::string request = lcfd::composeAssign("9", mac, {assignment});
        const lcfd::Request parsed =
            lcfd::parseRequest(std::string_view(request).substr(5), received);
        FUZZ_CHECK(parsed.command == lcfd::Command::Assign);
        FUZZ_CHECK(parsed.parsed == fieldAccepted);
        FUZZ_CHECK(received.mac == mac);
    }

    const bool serverKey = !lcf::checkServerKey(argument).has_value();
    FUZZ_CHECK(serverKey == lcfd::isServerKey(argument));
    if (!lcf::checkUncheckedServerKey(argument)) {
        FUZZ_CHECK(argument.find('#') == std::string::npos);
        lcfd::Message received;
        const std::string request = lcfd::composeClear("3", mac, argument);
        const lcfd::Request parsed =
            lcfd::parseRequest(std::string_view(request).substr(5), received);
        FUZZ_CHECK(parsed.command == lcfd::Command::Clear);
        FUZZ_CHECK(parsed.parsed == lcfd::isServerKey(argument));
        // Only a CLEAR that parsed keeps its key, and then it is exactly the typed one.
        FUZZ_CHECK(parsed.serverKey == (parsed.parsed ? argument : std::string()));
    } else {
        FUZZ_CHECK(argument.find('#') != std::string::npos);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::asText(data, size);
    checkMacAddress(text);
    checkAssignmentArgument(text);
    checkUncheckedForms(text);
    return 0;
}
