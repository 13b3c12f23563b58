// lcf's side of a reply: a received datagram through parseReply, the STATUS and ACK texts
// composed back from what was parsed, discovery, the three renderings (table, details, JSON)
// and the comparisons of verification and plans. No socket is opened. The tool's own input
// checks have a target of their own (client_input_fuzzer.cpp).

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "FuzzCheck.hpp"
#include "JsonCheck.hpp"
#include "client/Controllers.hpp"
#include "client/Plan.hpp"
#include "client/Rendering.hpp"
#include "client/Verification.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Replies.hpp"
#include "wire/Validators.hpp"

namespace {

using lcfd::Reply;

// Independent split of the fields after the command word: pieces between "#", the last one
// left out when the text ends in "#" (an empty rest ends the list). Views into `rest`, so a
// reply of many fields costs no copy of its tail per field.
const std::vector<std::string_view>& referenceFields(std::string_view rest) {
    static std::vector<std::string_view> pieces;
    pieces.clear();
    std::string_view remainder = rest;
    while (!remainder.empty()) {
        const std::size_t hash = remainder.find('#');
        pieces.push_back(remainder.substr(0, hash));
        remainder =
            hash == std::string_view::npos ? std::string_view() : remainder.substr(hash + 1);
    }
    return pieces;
}

// The value of the first field named `fieldKey`, as Reply::value finds it, without copying
// it out: nullptr when there is none.
const std::string* firstValue(const Reply& reply, std::string_view fieldKey) {
    for (const auto& [name, value] : reply.fields) {
        if (name == fieldKey) {
            return &value;
        }
    }
    return nullptr;
}

// The value or, like Reply::value(...).value_or(""), the empty text.
const std::string& valueOrEmpty(const Reply& reply, std::string_view fieldKey) {
    static const std::string empty;
    const std::string* value = firstValue(reply, fieldKey);
    return value != nullptr ? *value : empty;
}

bool hasValue(const Reply& reply, std::string_view fieldKey, std::string_view expected) {
    const std::string* value = firstValue(reply, fieldKey);
    return value != nullptr && *value == expected;
}

// The inputs a group of checks has already passed with, the last few thousand of them. The
// code those checks call is deterministic and keeps no state between calls, so the same input
// gives the same outputs and the same verdicts: a check group runs once per distinct input
// rather than once per execution. Fuzzing meets the same input often (a mutation that only
// changes the header's version character, a trailing "#", or a field the group does not
// read), and skipping exact repeats is what lets the expensive renderings keep up. Inputs are
// compared whole, never by hash alone.
class CheckedInputs {
  public:
    // Set while the fuzzer runs the same bytes as in the execution before. libFuzzer does that
    // straight away to confirm a suspected leak (more allocations than frees), and the second
    // run must make every call of the first for the leak to show again.
    static inline bool sameBytesAsBefore = false;

    // True when `input` passed before and is still remembered, and the checks may be skipped;
    // otherwise remembers it (the caller goes on to check it, and a failure ends the run).
    bool seenBefore(const std::string& input) {
        const std::size_t slot = std::hash<std::string>{}(input) % kSlots;
        if (filled_[slot] && slots_[slot] == input) {
            return !sameBytesAsBefore;
        }
        slots_[slot].assign(input);  // keeps the slot's storage
        filled_[slot] = true;
        return false;
    }

    CheckedInputs() {
        // Every slot gets storage up front. A slot filled for the first time would otherwise
        // allocate without freeing anything, which libFuzzer takes for a possible leak and
        // answers by running the input again; growing storage later frees the old one.
        for (std::string& slot : slots_) {
            slot.reserve(kSlotCapacity);
        }
    }

  private:
    static constexpr std::size_t kSlots = 4096;
    static constexpr std::size_t kSlotCapacity = 256;
    std::vector<std::string> slots_ = std::vector<std::string>(kSlots);
    std::vector<bool> filled_ = std::vector<bool>(kSlots, false);
};

// Appends `text` so that no two sequences of texts give the same result: its length first.
void appendFramed(std::string& key, const std::string& text) {
    const std::size_t size = text.size();
    key.append(reinterpret_cast<const char*>(&size), sizeof size);
    key.append(text);
}

// The text before the first "#" and the text after it (empty when there is none).
std::pair<std::string_view, std::string_view> splitAtHash(std::string_view text) {
    const std::size_t hash = text.find('#');
    if (hash == std::string_view::npos) {
        return {text, std::string_view()};
    }
    return {text.substr(0, hash), text.substr(hash + 1)};
}

void checkParsedReply(const std::string& text, const Reply& reply) {
    const auto [header, remainder] = splitAtHash(text);
    FUZZ_CHECK(lcfd::checkHeader(header));
    FUZZ_CHECK(reply.command == "STATUS" || reply.command == "ACK");
    const auto [command, rest] = splitAtHash(remainder);
    FUZZ_CHECK(command == reply.command);

    const std::vector<std::string_view>& pieces = referenceFields(rest);
    FUZZ_CHECK(pieces.size() == reply.fields.size());
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const auto& [fieldKey, value] = reply.fields[i];
        const std::string_view piece = pieces[i];
        FUZZ_CHECK(fieldKey.find_first_of("#=") == std::string::npos);
        FUZZ_CHECK(value.find('#') == std::string::npos);
        const std::size_t equals = piece.find('=');
        if (equals == std::string_view::npos) {
            FUZZ_CHECK(fieldKey == piece && value.empty());
        } else {
            // The piece is exactly key "=" value.
            FUZZ_CHECK(piece.size() == fieldKey.size() + 1 + value.size());
            FUZZ_CHECK(piece.substr(0, fieldKey.size()) == fieldKey);
            FUZZ_CHECK(piece[fieldKey.size()] == '=');
            FUZZ_CHECK(piece.substr(fieldKey.size() + 1) == value);
        }
    }
}

// The first value (Reply::value's rule) of seqid, mac and every status field of a reply,
// found in one pass over its fields instead of one pass per key.
class StatusLookup {
  public:
    static constexpr std::size_t kSeqid = 0;
    static constexpr std::size_t kMac = 1;
    static constexpr std::size_t kFirstStatusField = 2;  // then in statusFields() order

    void fill(const Reply& reply) {
        const Keys& keys = Keys::get();
        found_.assign(keys.names.size(), nullptr);
        for (const auto& [fieldKey, value] : reply.fields) {
            if (fieldKey.size() >= keys.byLength.size()) {
                continue;
            }
            for (const std::size_t index : keys.byLength[fieldKey.size()]) {
                if (keys.names[index] == fieldKey) {
                    if (found_[index] == nullptr) {
                        found_[index] = &value;
                    }
                    break;
                }
            }
        }
    }

    const std::string* find(std::size_t index) const { return found_[index]; }
    const std::string& orEmpty(std::size_t index) const {
        static const std::string empty;
        return found_[index] != nullptr ? *found_[index] : empty;
    }

  private:
    // The key names, and for each length the indexes of the names that long.
    struct Keys {
        std::vector<std::string_view> names;
        std::vector<std::vector<std::size_t>> byLength;

        static const Keys& get() {
            static const Keys keys = [] {
                Keys made;
                made.names = {"seqid", "mac"};
                for (const lcfd::StatusField& field : lcfd::statusFields()) {
                    made.names.emplace_back(field.key);
                }
                for (std::size_t index = 0; index < made.names.size(); ++index) {
                    const std::size_t length = made.names[index].size();
                    if (made.byLength.size() <= length) {
                        made.byLength.resize(length + 1);
                    }
                    made.byLength[length].push_back(index);
                }
                return made;
            }();
            return keys;
        }
    };

    std::vector<const std::string*> found_;
};

// A STATUS composed from what was parsed reads back to the same values.
void checkStatusRoundTrip(const Reply& reply) {
    const std::vector<lcfd::StatusField>& fields = lcfd::statusFields();
    static StatusLookup parsed;
    parsed.fill(reply);
    static lcfd::StatusValues values;  // reused: its strings keep their storage
    for (std::size_t i = 0; i < fields.size(); ++i) {
        (values.*fields[i].value).assign(parsed.orEmpty(StatusLookup::kFirstStatusField + i));
    }
    const std::string& seqid = parsed.orEmpty(StatusLookup::kSeqid);
    const std::string& mac = parsed.orEmpty(StatusLookup::kMac);
    const std::string composed = lcfd::composeStatus(seqid, mac, values);
    // What follows depends on seqid, mac and the values alone, and the composed text gives
    // them back one to one (no value holds a "#", checked above, and each piece names its key).
    static CheckedInputs checked;
    if (checked.seenBefore(composed)) {
        return;
    }
    const std::optional<Reply> again = lcfd::parseReply(composed);
    FUZZ_CHECK(again.has_value());
    FUZZ_CHECK(again->command == "STATUS");
    static StatusLookup readBack;
    readBack.fill(*again);
    const std::string* seqidAgain = readBack.find(StatusLookup::kSeqid);
    const std::string* macAgain = readBack.find(StatusLookup::kMac);
    FUZZ_CHECK(seqidAgain != nullptr && *seqidAgain == seqid);
    FUZZ_CHECK(macAgain != nullptr && *macAgain == mac);
    std::size_t written = 2;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const std::string& value = values.*fields[i].value;
        const std::string* valueAgain = readBack.find(StatusLookup::kFirstStatusField + i);
        if (fields[i].omittedWhenEmpty && value.empty()) {
            FUZZ_CHECK(valueAgain == nullptr);
        } else {
            FUZZ_CHECK(valueAgain != nullptr && *valueAgain == value);
            ++written;
        }
    }
    FUZZ_CHECK(again->fields.size() == written);
    // And once more gives the same text.
    static lcfd::StatusValues valuesAgain;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        (valuesAgain.*fields[i].value)
            .assign(readBack.orEmpty(StatusLookup::kFirstStatusField + i));
    }
    FUZZ_CHECK(lcfd::composeStatus(*seqidAgain, *macAgain, valuesAgain) == composed);
}

void checkAckRoundTrip(const Reply& reply) {
    const std::string& seqid = valueOrEmpty(reply, "seqid");
    const std::string& mac = valueOrEmpty(reply, "mac");
    const bool accepted = hasValue(reply, "accept", "yes");
    const std::optional<Reply> again = lcfd::parseReply(lcfd::composeAck(seqid, mac, accepted));
    FUZZ_CHECK(again.has_value() && again->command == "ACK" && again->fields.size() == 3);
    FUZZ_CHECK(hasValue(*again, "seqid", seqid) && hasValue(*again, "mac", mac));
    FUZZ_CHECK(hasValue(*again, "accept", accepted ? "yes" : "no"));
}

void checkRenderings(const Reply& reply) {
    if (reply.command != "STATUS") {
        return;
    }
    lcf::NetworkInterface arrivedOn;
    arrivedOn.name = "eth0";
    arrivedOn.address = 0x0101A8C0;  // 192.168.1.1 in network byte order
    arrivedOn.netmask = 0x00FFFFFF;  // 255.255.255.0
    lcf::DiscoveryResults results;
    const bool taken = results.add(reply, arrivedOn);
    const std::string mac = reply.value("mac").value_or("");
    FUZZ_CHECK(taken == !mac.empty());
    FUZZ_CHECK(!results.add(reply, arrivedOn));  // one entry per MAC address
    if (!taken) {
        return;
    }
    const std::vector<lcf::Controller> controllers = results.sorted();
    FUZZ_CHECK(controllers.size() == 1);
    const lcf::Controller& controller = controllers.front();
    const std::string ip = controller.field("ip");
    FUZZ_CHECK(controller.outsideSubnet == lcf::isOutsideSubnet(ip, arrivedOn));
    if (!controller.outsideSubnet) {
        // Inside the subnet means a valid address, by the daemon's own validator.
        FUZZ_CHECK(lcfd::isValidIpv4(ip));
    }

    // The renderings read the controller (its reply, interface name and outsideSubnet), and
    // the checks below also the fields of the reply as parsed: nothing else.
    static CheckedInputs checked;
    static std::string renderingInput;
    const bool sameFields = controller.status.fields == reply.fields;
    renderingInput.assign(controller.outsideSubnet ? "1" : "0");
    // The controller holds its reply as it came; should it ever not, both field lists count.
    renderingInput.append(sameFields ? "=" : "+");
    appendFramed(renderingInput, controller.interfaceName);
    appendFramed(renderingInput, controller.status.command);
    const auto appendFields = [](const Reply& fieldsOf) {
        const std::size_t count = fieldsOf.fields.size();
        renderingInput.append(reinterpret_cast<const char*>(&count), sizeof count);
        for (const auto& [fieldKey, value] : fieldsOf.fields) {
            appendFramed(renderingInput, fieldKey);
            appendFramed(renderingInput, value);
        }
    };
    appendFields(controller.status);
    if (!sameFields) {
        appendFields(reply);
    }
    if (checked.seenBefore(renderingInput)) {
        return;
    }

    const std::string table = lcf::renderTable(controllers);
    FUZZ_CHECK(!table.empty() && table.back() == '\n');
    FUZZ_CHECK(table.find("1 controller found") != std::string::npos);
    const std::string details = lcf::renderDetails(controller);
    FUZZ_CHECK(details.find("interface:") != std::string::npos);

    // The JSON reader's keys are expected only when every byte that went into the listing is
    // UTF-8: other bytes are replaced, and a key may then read differently.
    bool allUtf8 = fuzz::isUtf8(controller.interfaceName);
    for (const auto& [fieldKey, value] : reply.fields) {
        allUtf8 = allUtf8 && fuzz::isUtf8(fieldKey) && fuzz::isUtf8(value);
    }
    std::vector<std::string_view> expectedKeys;
    if (allUtf8) {
        for (const auto& field : reply.fields) {
            const std::string& fieldKey = field.first;
            if (fieldKey != "seqid" && fieldKey != "interface" && fieldKey != "outside_subnet" &&
                fieldKey != "duplicate_ip") {
                expectedKeys.emplace_back(fieldKey);
            }
        }
    }
    // Bytes that are not UTF-8 are replaced, never thrown over: the list is always printed.
    const std::string json = lcf::renderJson(controllers);
    // Whatever came in, the output is one well-formed JSON text (read strictly: fuzz::readJson)
    // holding one array of one object, with a member for every key of the reply (seqid left
    // out); of repeated keys, the last one counts.
    const nlohmann::json document = fuzz::readJson(json);
    FUZZ_CHECK(!document.is_discarded());
    FUZZ_CHECK(fuzz::isOneObjectArray(document));
    const nlohmann::json& object = document.front();
    FUZZ_CHECK(fuzz::stringMember(object, "interface") == std::string("eth0"));
    FUZZ_CHECK(fuzz::booleanMember(object, "outside_subnet") == controller.outsideSubnet);
    // One controller is nobody's duplicate.
    FUZZ_CHECK(fuzz::booleanMember(object, "duplicate_ip") == false && !controller.duplicateIp);
    FUZZ_CHECK(fuzz::hasMembers(object, expectedKeys));
}

// A controller that reports what was asked of it took it, and a plan that names what it reports
// changes nothing; the value the reply reports first is the one compared.
void checkComparisons(const Reply& reply) {
    if (reply.command != "STATUS") {
        return;
    }
    lcf::PlanRow row;
    std::vector<std::pair<std::string, std::string>> asked;
    for (const std::string& planned : lcf::plannedKeys()) {
        if (const std::string* value = reply.find(planned)) {
            asked.emplace_back(planned, *value);
            if (!value->empty()) {
                row.values.emplace_back(planned, *value);
            }
        }
    }
    FUZZ_CHECK(lcf::checkAssigned(asked, reply, 0.0).empty());
    FUZZ_CHECK(lcf::planChanges(row, reply).empty());
    for (const char* server : {"ntpip", "syslogip", "nameserver"}) {
        const std::string* value = reply.find(server);
        FUZZ_CHECK(lcf::checkCleared(server, reply).has_value() ==
                   (value != nullptr && !value->empty()));
    }
    if (const std::string* clock = reply.find("utcclock")) {
        FUZZ_CHECK(lcf::clockTook(*clock, *clock, 0.0));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::asText(data, size);
    static std::string previousText;
    CheckedInputs::sameBytesAsBefore = text == previousText;
    previousText.assign(text);

    const std::optional<Reply> reply = lcfd::parseReply(text);
    if (reply) {
        checkParsedReply(text, *reply);
        if (reply->command == "STATUS") {
            checkStatusRoundTrip(*reply);
        } else {
            checkAckRoundTrip(*reply);
        }
        checkRenderings(*reply);
        checkComparisons(*reply);
    }
    return 0;
}
