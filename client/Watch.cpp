#include "client/Watch.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "client/Validation.hpp"
#include "net/Broadcaster.hpp"
#include "wire/AssignableFields.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Replies.hpp"
#include "wire/Request.hpp"
#include "wire/Validators.hpp"

namespace lcf {

const char* const kEveryControllerMark = "*";

namespace {

// The texts of the notes and marks; each is printed as it stands here.
constexpr const char* kNotUnderstood = "not understood: ";
constexpr const char* kBadHeader = "bad header";
constexpr const char* kUnknownCommand = "unknown command";
constexpr const char* kBadSeqid = "bad seqid field";
constexpr const char* kMacGroup = "MAC group ";
constexpr const char* kNotHexadecimal = " is not hexadecimal";
constexpr const char* kIgnoredByEvery = "ignored by every controller: ";
constexpr const char* kNoMac = "no MAC address";
constexpr const char* kMatchesNone = "matches no controller: not a MAC address";
constexpr const char* kRefused = "refused: accept=no";
constexpr const char* kNotServerKey = ", not a server key";
constexpr const char* kAfterEmptyField = "fields after an empty field are not read";
constexpr const char* kNoRequestSeen = "no request seen";
constexpr const char* kAfter = " ms after ";
constexpr const char* kEmpty = "empty: ignored by every daemon";
// What a line shows for a seqid or MAC the datagram does not have.
constexpr const char* kAbsent = "-";
// What a line shows for a datagram without a command word.
constexpr const char* kNoCommand = "?";

const char* markText(FieldMark mark) {
    switch (mark) {
        case FieldMark::None:
            return "";
        case FieldMark::Dropped:
            return "dropped";
        case FieldMark::Ignored:
            return "ignored";
        case FieldMark::Refused:
            return "refused";
    }
    return "";
}

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

void addNote(std::string& note, const std::string& more) {
    if (!note.empty()) {
        note += "; ";
    }
    note += more;
}

// The fields after the MAC field of an ASSIGN, each with what its controller does with it: the
// wire library's own field rule decides, on a scratch message, and the list ends where the
// daemon's ends (an empty field, or a refused one).
void readAssignFields(std::string_view list, WatchRecord& record) {
    lcfd::Message scratch;
    std::string_view remainder = list;
    for (;;) {
        const lcfd::TextSplit field = lcfd::splitView(remainder, lcfd::kFieldSeparator);
        remainder = field.rest;
        if (field.head.empty()) {
            if (field.found && !remainder.empty()) {
                addNote(record.note, kAfterEmptyField);
            }
            return;
        }
        const lcfd::TextSplit keyAndValue = lcfd::splitView(field.head, lcfd::kKeyValueSeparator);
        WatchField watched{std::string(keyAndValue.head), std::string(keyAndValue.rest),
                           FieldMark::None, keyAndValue.found};
        if (!lcfd::parseField(field.head, scratch)) {
            watched.mark = FieldMark::Refused;
            record.fields.push_back(std::move(watched));
            return;
        }
        if (const lcfd::AssignableField* assignable = lcfd::findAssignableField(keyAndValue.head)) {
            if (scratch.*assignable->field != keyAndValue.rest) {
                watched.mark = FieldMark::Dropped;
            }
        } else {
            watched.mark = FieldMark::Ignored;
        }
        record.fields.push_back(std::move(watched));
    }
}

// A MAC address no controller has: a daemon compares a request's MAC with its own, and no
// controller's contains a field separator.
const std::string kNoControllersMac(1, lcfd::kFieldSeparator);

// The first two-character group of a MAC value the wire library refuses as not hexadecimal.
std::string_view badMacGroup(std::string_view value) {
    std::string_view remainder = value;
    while (!remainder.empty()) {
        const lcfd::TextSplit group = lcfd::splitView(remainder, ':');
        remainder = group.rest;
        lcfd::Message scratch;
        if (!lcfd::parseMac(
                std::string(lcfd::key::kMac) + lcfd::kKeyValueSeparator + std::string(group.head),
                scratch)) {
            return group.head;
        }
    }
    return {};
}

// A request as the daemons read it: the verdict is that of the controller it names, or, when it
// names none that can exist, that of every controller.
void readRequest(std::string_view text, lcfd::Command command, WatchRecord& record) {
    record.kind = WatchKind::Request;
    lcfd::Message message;
    lcfd::Decision decision = lcfd::decideRequest(text, message, kNoControllersMac);
    const bool namesAController = !message.mac.empty() && !macProblem(message.mac);
    if (namesAController) {
        // Decided again for the controller the request names.
        const std::string named = message.mac;
        message.reset();
        decision = lcfd::decideRequest(text, message, named);
    }
    record.understood = decision.understood;

    // The positions parseRequest reads: header, command, seqid field, MAC field, then the rest.
    const lcfd::TextSplit afterHeader = lcfd::splitView(text, lcfd::kFieldSeparator);
    const lcfd::TextSplit afterCommand = lcfd::splitView(afterHeader.rest, lcfd::kFieldSeparator);
    const lcfd::TextSplit afterSeqid = lcfd::splitView(afterCommand.rest, lcfd::kFieldSeparator);
    // A QUERY's MAC field is all that follows its seqid field; the others' ends at a separator.
    const std::string_view macField =
        command == lcfd::Command::Query
            ? afterSeqid.rest
            : lcfd::splitView(afterSeqid.rest, lcfd::kFieldSeparator).head;
    lcfd::Message probe;
    const bool seqidRead = lcfd::parseSeqId(afterSeqid.head, probe);
    const bool macRead = seqidRead && lcfd::parseMac(macField, probe);
    if (seqidRead) {
        record.seqid = probe.seqid;
    }
    std::string macTrouble;
    if (macRead) {
        if (!probe.mac.empty()) {
            record.mac = probe.mac;
        }
    } else if (seqidRead) {
        // The MAC as written, since no controller reads it.
        const std::string_view written = lcfd::splitView(macField, lcfd::kKeyValueSeparator).rest;
        record.mac = std::string(written);
        macTrouble = std::string(kMacGroup) + quoted(badMacGroup(written)) + kNotHexadecimal;
    }

    if (command == lcfd::Command::Query) {
        record.everyController = decision.request.parsed && message.mac.empty();
        if (!seqidRead) {
            addNote(record.note, std::string(kNotUnderstood) + kBadSeqid);
        } else if (!macRead) {
            addNote(record.note, std::string(kNotUnderstood) + macTrouble);
        } else if (!probe.mac.empty() && !namesAController) {
            addNote(record.note, kMatchesNone);
        }
        return;
    }

    // ASSIGN and CLEAR name one controller; every other controller only traces them.
    if (!seqidRead) {
        addNote(record.note, std::string(kIgnoredByEvery) + kBadSeqid);
        return;
    }
    if (!macRead) {
        addNote(record.note, std::string(kIgnoredByEvery) + macTrouble);
        return;
    }
    if (probe.mac.empty()) {
        addNote(record.note, std::string(kIgnoredByEvery) + kNoMac);
        return;
    }
    if (!namesAController) {
        // No controller reads further: what it would refuse does not matter.
        addNote(record.note, kMatchesNone);
        return;
    }
    const lcfd::TextSplit afterMac = lcfd::splitView(afterSeqid.rest, lcfd::kFieldSeparator);
    if (command == lcfd::Command::Assign) {
        readAssignFields(afterMac.rest, record);
        if (!decision.request.parsed) {
            addNote(record.note, kRefused);
        }
    } else if (decision.request.parsed) {
        record.serverKey = decision.request.serverKey;
    } else {
        addNote(record.note, kRefused + std::string(kNotServerKey) + " " + quoted(afterMac.rest));
    }
}

void readReply(std::string_view text, WatchRecord& record) {
    record.kind = WatchKind::Reply;
    // Every daemon traces a reply as understood and does nothing else with it.
    record.understood = true;
    const std::optional<lcfd::Reply> reply = lcfd::parseReply(text);
    if (!reply) {
        return;
    }
    if (const std::string* seqid = reply->find(lcfd::key::kSeqid)) {
        record.seqid = *seqid;
    }
    if (const std::string* mac = reply->find(lcfd::key::kMac)) {
        record.mac = lcfd::upperCased(*mac);
    }
    if (const std::string* accept = reply->find(lcfd::key::kAccept)) {
        record.accept = *accept;
    }
    if (reply->command == lcfd::word::kStatus) {
        for (const auto& [fieldKey, value] : reply->fields) {
            if (fieldKey != lcfd::key::kSeqid && fieldKey != lcfd::key::kMac) {
                record.fields.push_back({fieldKey, value, FieldMark::None, true});
            }
        }
    }
}

// How many bytes the UTF-8 sequence at `at` takes, and its code point; 0 when none starts there.
std::size_t utf8Sequence(std::string_view text, std::size_t at, std::uint32_t& codePoint) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const std::size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                               : lead >= 0xE0 && lead <= 0xEF ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 0;
    if (length == 0 || at + length > text.size()) {
        return 0;
    }
    codePoint = lead & (0x7Fu >> length);
    for (std::size_t next = 1; next < length; ++next) {
        const auto byte = static_cast<unsigned char>(text[at + next]);
        if ((byte & 0xC0u) != 0x80u) {
            return 0;
        }
        codePoint = (codePoint << 6) | (byte & 0x3Fu);
    }
    return length;
}

// Escapes what would upset a terminal as \xNN: control bytes, DEL, and the C1 controls, whether
// as single bytes or as UTF-8 characters; and the backslash itself, so that an escape on the line
// is always one. Other UTF-8 characters pass.
std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    const auto escape = [&out](unsigned char byte) {
        char escaped[5];
        std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(byte));
        out += escaped;
    };
    for (std::size_t at = 0; at < text.size();) {
        const auto byte = static_cast<unsigned char>(text[at]);
        std::uint32_t codePoint = 0;
        const std::size_t length = byte >= 0x80 ? utf8Sequence(text, at, codePoint) : 0;
        if (length > 0) {
            for (std::size_t next = 0; next < length; ++next) {
                if (codePoint <= 0x9F) {
                    escape(static_cast<unsigned char>(text[at + next]));
                } else {
                    out += text[at + next];
                }
            }
            at += length;
            continue;
        }
        if (byte < 0x20 || byte == 0x7f || (byte >= 0x80 && byte <= 0x9f) || byte == '\\') {
            escape(byte);
        } else {
            out += text[at];
        }
        ++at;
    }
    return out;
}

std::string fieldText(const WatchField& field) {
    // As sent: a field without a separator is shown without one.
    std::string text = field.key;
    if (field.separated) {
        text += lcfd::kKeyValueSeparator + field.value;
    }
    if (field.mark != FieldMark::None) {
        text += "(" + std::string(markText(field.mark)) + ")";
    }
    return text;
}

// The delay as a line shows it: milliseconds to a tenth.
std::string delayText(double delayMs) {
    char text[32];
    std::snprintf(text, sizeof text, "+%.1f", delayMs);
    return text;
}

std::tm localParts(WallClock::time_point time, int& milliseconds) {
    const auto sinceEpoch =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch);
    auto rest = sinceEpoch - seconds;
    if (rest.count() < 0) {
        rest += std::chrono::seconds(1);
        seconds -= std::chrono::seconds(1);
    }
    milliseconds = static_cast<int>(rest.count());
    const std::time_t whole = static_cast<std::time_t>(seconds.count());
    std::tm parts{};
    localtime_r(&whole, &parts);
    return parts;
}

// strftime with a literal format each, so that the compiler checks every one.
#define LCF_FORMATTED(format, parts)                                                  \
    [&] {                                                                             \
        char text[64];                                                                \
        return std::string(text, std::strftime(text, sizeof text, format, &(parts))); \
    }()

std::string withMilliseconds(const std::string& text, int milliseconds) {
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03d", milliseconds);
    return text + fraction;
}

}  // namespace

WatchRecord takeApart(const WatchDatagram& datagram) {
    WatchRecord record;
    record.datagram = datagram;
    // A daemon reads no more than this of a datagram; the rest is lost to it.
    const std::string_view text =
        std::string_view(datagram.text)
            .substr(0, std::min(datagram.text.size(), lcfd::kReceiveBufferSize));
    const lcfd::TextSplit header = lcfd::splitView(text, lcfd::kFieldSeparator);
    const lcfd::TextSplit command = lcfd::splitView(header.rest, lcfd::kFieldSeparator);
    if (text.empty()) {
        addNote(record.note, kEmpty);  // a daemon skips it without a trace line
    } else if (!lcfd::checkHeader(header.head)) {
        addNote(record.note, std::string(kNotUnderstood) + kBadHeader + " " + quoted(header.head));
    } else {
        record.command.assign(command.head);
        const lcfd::Command known = lcfd::commandFromWord(command.head);
        switch (known) {
            case lcfd::Command::Query:
            case lcfd::Command::Assign:
            case lcfd::Command::Clear:
                readRequest(text, known, record);
                break;
            case lcfd::Command::Ack:
            case lcfd::Command::Status:
                readReply(text, record);
                break;
            case lcfd::Command::Unknown:
                addNote(record.note,
                        std::string(kNotUnderstood) + kUnknownCommand + " " + quoted(command.head));
                break;
        }
    }
    if (datagram.text.size() > lcfd::kReceiveBufferSize) {
        addNote(record.note, "a daemon reads only the first " +
                                 std::to_string(lcfd::kReceiveBufferSize) + " of its " +
                                 std::to_string(datagram.text.size()) + " bytes");
    }
    return record;
}

void RequestPairing::see(WatchRecord& record) {
    const WallClock::time_point now = record.datagram.time;
    while (!requests_.empty() &&
           (requests_.size() > kMostRequests || now - requests_.front().time > kMemory)) {
        requests_.pop_front();
    }
    if (!record.seqid) {
        return;
    }
    if (record.kind == WatchKind::Request) {
        requests_.push_back({record.command,
                             *record.seqid,
                             record.mac.value_or(std::string()),
                             record.everyController,
                             now,
                             {}});
        return;
    }
    if (record.kind != WatchKind::Reply) {
        return;
    }
    const bool status = record.command == lcfd::word::kStatus;
    const std::string mac = record.mac.value_or(std::string());
    // A tool sends an unanswered request again with its seqid, and a daemon answers its queue in
    // order: the earliest copy not yet answered by this controller is the one answered. When
    // every copy has been, the reply is a duplicate, shown against the latest.
    Seen* latest = nullptr;
    Seen* earliestOpen = nullptr;
    for (Seen& seen : requests_) {
        const bool answers =
            status ? seen.command == lcfd::word::kQuery
                   : (seen.command == lcfd::word::kAssign || seen.command == lcfd::word::kClear);
        if (!answers || seen.seqid != *record.seqid ||
            !(seen.mac == mac || (status && seen.everyController))) {
            continue;
        }
        latest = &seen;
        if (earliestOpen == nullptr && std::find(seen.answeredBy.begin(), seen.answeredBy.end(),
                                                 mac) == seen.answeredBy.end()) {
            earliestOpen = &seen;
        }
    }
    Seen* const paired = earliestOpen != nullptr ? earliestOpen : latest;
    if (paired == nullptr) {
        return;
    }
    if (earliestOpen != nullptr) {
        earliestOpen->answeredBy.push_back(mac);
    }
    record.pairedCommand = paired->command;
    record.delayMs = std::chrono::duration<double, std::milli>(now - paired->time).count();
}

std::string localTimeOfDay(WallClock::time_point time) {
    int milliseconds = 0;
    const std::tm parts = localParts(time, milliseconds);
    return withMilliseconds(LCF_FORMATTED("%H:%M:%S", parts), milliseconds);
}

std::string isoLocalTime(WallClock::time_point time) {
    int milliseconds = 0;
    const std::tm parts = localParts(time, milliseconds);
    std::string offset = LCF_FORMATTED("%z", parts);  // "+0100"
    if (offset.size() == 5) {
        offset.insert(3, ":");
    }
    return withMilliseconds(LCF_FORMATTED("%Y-%m-%dT%H:%M:%S", parts), milliseconds) + offset;
}

std::string watchSummary(const WatchRecord& record) {
    std::vector<std::string> parts;
    if (record.command == lcfd::word::kStatus) {
        for (const WatchField& field : record.fields) {
            if (field.key == lcfd::key::kIp || field.key == lcfd::key::kHostname) {
                parts.push_back(fieldText(field));
            }
        }
    } else {
        for (const WatchField& field : record.fields) {
            parts.push_back(fieldText(field));
        }
    }
    if (record.serverKey) {
        parts.push_back(*record.serverKey);
    }
    if (record.accept) {
        parts.push_back(std::string(lcfd::key::kAccept) + lcfd::kKeyValueSeparator +
                        *record.accept);
    }
    if (!record.note.empty()) {
        parts.push_back(record.note);
    }
    std::string summary;
    for (const std::string& part : parts) {
        if (!summary.empty()) {
            summary += ' ';
        }
        summary += part;
    }
    return summary;
}

std::string renderWatchLine(const WatchRecord& record) {
    // The command column is as wide as the longest command word.
    static const std::size_t kCommandWidth = [] {
        std::size_t widest = 0;
        for (const char* word : {lcfd::word::kQuery, lcfd::word::kAssign, lcfd::word::kClear,
                                 lcfd::word::kAck, lcfd::word::kStatus}) {
            widest = std::max(widest, std::string_view(word).size());
        }
        return widest;
    }();
    std::string command = record.command.empty() ? std::string(kNoCommand) : record.command;
    if (command.size() < kCommandWidth) {
        command.resize(kCommandWidth, ' ');
    }
    std::string line =
        localTimeOfDay(record.datagram.time) + " " + record.datagram.interfaceName + " " +
        record.datagram.sender + " " + command + " " + lcfd::key::kSeqid +
        lcfd::kKeyValueSeparator + record.seqid.value_or(kAbsent) + " " + lcfd::key::kMac +
        lcfd::kKeyValueSeparator +
        (record.everyController ? std::string(kEveryControllerMark) : record.mac.value_or(kAbsent));
    const std::string summary = watchSummary(record);
    if (!summary.empty()) {
        line += " " + summary;
    }
    if (record.kind == WatchKind::Reply) {
        if (record.pairedCommand && record.delayMs) {
            line += " (" + delayText(*record.delayMs) + kAfter + *record.pairedCommand + ")";
        } else {
            line += " (" + std::string(kNoRequestSeen) + ")";
        }
    }
    return printable(line) + "\n";
}

std::string renderWatchJson(const WatchRecord& record) {
    using Json = nlohmann::ordered_json;
    Json object = Json::object();
    object["time"] = isoLocalTime(record.datagram.time);
    object["interface"] = record.datagram.interfaceName;
    object["sender"] = record.datagram.sender;
    object["sender_port"] = record.datagram.senderPort;
    object["length"] = record.datagram.text.size();
    object["kind"] = record.kind == WatchKind::Request ? "request"
                     : record.kind == WatchKind::Reply ? "reply"
                                                       : "other";
    object["command"] = record.command.empty() ? Json(nullptr) : Json(record.command);
    object["seqid"] = record.seqid ? Json(*record.seqid) : Json(nullptr);
    object["mac"] = record.mac ? Json(*record.mac) : Json(nullptr);
    object["every_controller"] = record.everyController;
    Json fields = Json::array();
    for (const WatchField& field : record.fields) {
        Json entry = {{"key", field.key},
                      {"value", field.separated ? Json(field.value) : Json(nullptr)}};
        if (field.mark != FieldMark::None) {
            entry["mark"] = markText(field.mark);
        }
        fields.push_back(std::move(entry));
    }
    object["fields"] = std::move(fields);
    if (record.serverKey) {
        object["server_key"] = *record.serverKey;
    }
    if (record.accept) {
        object["accept"] = *record.accept;
    }
    object["understood"] = record.understood;
    object["note"] = record.note.empty() ? Json(nullptr) : Json(record.note);
    object["summary"] = watchSummary(record);
    if (record.kind == WatchKind::Reply) {
        object["request"] = record.pairedCommand ? Json(*record.pairedCommand) : Json(nullptr);
        object["delay_ms"] =
            record.delayMs ? Json(std::round(*record.delayMs * 1000.0) / 1000.0) : Json(nullptr);
    }
    // Bytes from the wire need not be UTF-8: what is not is replaced, never thrown on.
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace lcf
