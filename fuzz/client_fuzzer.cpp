// The configuration tool's side: a received datagram through parseReply, discovery, the
// three renderings and the comparisons of verification and plans, and the tool's own input checks
// (isMacAddress, checkAssignment, the unchecked forms and the server names), whose accepted values
// must reach the daemon as typed and pass its validators. No socket is opened.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "FuzzCheck.hpp"
#include "client/Controllers.hpp"
#include "client/Plan.hpp"
#include "client/Rendering.hpp"
#include "client/Validation.hpp"
#include "client/Verification.hpp"
#include "device/DeviceCommands.hpp"
#include "settings/Settings.hpp"
#include "wire/Message.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Replies.hpp"
#include "wire/Request.hpp"
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

// The length of the well-formed UTF-8 sequence `text` starts with (at least one byte), or 0
// when it does not start with one: no overlong forms, surrogates or code points past U+10FFFF.
std::size_t utf8Length(std::string_view text) {
    const auto c = static_cast<unsigned char>(text[0]);
    std::size_t length = 0;
    unsigned minimum = 0;
    unsigned codePoint = 0;
    if (c < 0x80) {
        return 1;
    }
    if (c >= 0xC2 && c <= 0xDF) {
        length = 2;
        minimum = 0x80;
        codePoint = c & 0x1Fu;
    } else if (c >= 0xE0 && c <= 0xEF) {
        length = 3;
        minimum = 0x800;
        codePoint = c & 0x0Fu;
    } else if (c >= 0xF0 && c <= 0xF4) {
        length = 4;
        minimum = 0x10000;
        codePoint = c & 0x07u;
    } else {
        return 0;
    }
    if (length > text.size()) {
        return 0;
    }
    for (std::size_t k = 1; k < length; ++k) {
        const auto next = static_cast<unsigned char>(text[k]);
        if ((next & 0xC0u) != 0x80u) {
            return 0;
        }
        codePoint = (codePoint << 6) | (next & 0x3Fu);
    }
    if (codePoint < minimum || codePoint > 0x10FFFF ||
        (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
        return 0;
    }
    return length;
}

// Well-formed UTF-8, as the JSON writer requires of its strings.
bool isUtf8(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t length = utf8Length(text.substr(i));
        if (length == 0) {
            return false;
        }
        i += length;
    }
    return true;
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

// A strict reader of the tool's JSON output (RFC 8259: the grammar, escapes, surrogate pairs
// and well-formed UTF-8 in strings, nothing after the value but white space), written here
// rather than taken from the JSON library that wrote the text, and reading in place: once its
// buffers have grown, checking the output allocates nothing. What a parsed document would
// answer is recorded as it goes by: the shape (one array holding exactly one object), the
// last value of "interface" and "outside_subnet" in that object (a document keeps the last of
// repeated keys), and which of the expected keys occurred.
class RenderedJsonCheck {
  public:
    enum class Member { Missing, String, Boolean, Other };

    Member interface = Member::Missing;
    bool interfaceIsEth0 = false;
    Member outsideSubnet = Member::Missing;
    bool outsideSubnetValue = false;
    Member duplicateIp = Member::Missing;
    bool duplicateIpValue = false;

    // The keys to look for are the reply's (seqid, interface and outside_subnet left out),
    // only when every byte of the reply is UTF-8: otherwise keys may have been replaced.
    void reset(const Reply& reply, bool expectKeys) {
        interface = Member::Missing;
        interfaceIsEth0 = false;
        outsideSubnet = Member::Missing;
        outsideSubnetValue = false;
        duplicateIp = Member::Missing;
        duplicateIpValue = false;
        rootIsArray_ = false;
        elements_ = 0;
        objectElements_ = 0;
        expected_.clear();
        if (expectKeys) {
            for (const auto& field : reply.fields) {
                const std::string& fieldKey = field.first;
                if (fieldKey != "seqid" && fieldKey != "interface" &&
                    fieldKey != "outside_subnet" && fieldKey != "duplicate_ip") {
                    expected_.emplace_back(fieldKey);
                }
            }
            std::sort(expected_.begin(), expected_.end());
            expected_.erase(std::unique(expected_.begin(), expected_.end()), expected_.end());
        }
        seen_.assign(expected_.size(), 0);
    }

    // Whether `json` is one well-formed JSON text; the members above are filled on the way.
    bool read(std::string_view json) {
        text_ = json;
        position_ = 0;
        if (text_.substr(0, 3) == "\xEF\xBB\xBF") {
            position_ = 3;  // a byte order mark may open a JSON text
        }
        skipSpace();
        if (!value(0)) {
            return false;
        }
        skipSpace();
        return position_ == text_.size();
    }

    bool isOneObjectArray() const { return rootIsArray_ && elements_ == 1 && objectElements_ == 1; }

    bool everyExpectedKeySeen() const {
        return std::find(seen_.begin(), seen_.end(), 0) == seen_.end();
    }

  private:
    // Nesting far beyond the one array of flat objects the tool writes is refused rather than
    // followed down the stack.
    static constexpr int kMaxDepth = 64;

    bool atEnd() const { return position_ >= text_.size(); }
    char peek() const { return text_[position_]; }

    void skipSpace() {
        while (!atEnd() && (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r')) {
            ++position_;
        }
    }

    bool literal(std::string_view word) {
        if (text_.substr(position_, word.size()) != word) {
            return false;
        }
        position_ += word.size();
        return true;
    }

    // One value at `depth` (0 the document, 1 an element of the outer array, 2 a member of
    // an object in it); `member` says which recorded member it is the value of, if any.
    bool value(int depth, Member* member = nullptr, bool* flag = nullptr, bool* isEth0 = nullptr) {
        if (atEnd()) {
            return false;
        }
        if (depth == 1) {
            ++elements_;
        }
        Member kind = Member::Other;
        bool ok = false;
        switch (peek()) {
            case '[':
                if (depth == 0) {
                    rootIsArray_ = true;
                }
                ok = array(depth);
                break;
            case '{':
                if (depth == 1) {
                    ++objectElements_;
                }
                ok = object(depth);
                break;
            case '"':
                kind = Member::String;
                ok = string(isEth0 != nullptr ? &scratch_ : nullptr);
                if (ok && isEth0 != nullptr) {
                    *isEth0 = scratch_ == "eth0";
                }
                break;
            case 't':
                kind = Member::Boolean;
                ok = literal("true");
                if (flag != nullptr) {
                    *flag = true;
                }
                break;
            case 'f':
                kind = Member::Boolean;
                ok = literal("false");
                if (flag != nullptr) {
                    *flag = false;
                }
                break;
            case 'n':
                ok = literal("null");
                break;
            default:
                ok = number();
                break;
        }
        if (member != nullptr) {
            *member = kind;
        }
        return ok;
    }

    bool array(int depth) {
        if (depth >= kMaxDepth) {
            return false;
        }
        ++position_;  // '['
        skipSpace();
        if (!atEnd() && peek() == ']') {
            ++position_;
            return true;
        }
        for (;;) {
            if (!value(depth + 1)) {
                return false;
            }
            bool closed = false;
            if (!nextElement(']', closed)) {
                return false;
            }
            if (closed) {
                return true;
            }
        }
    }

    // After an element of an array or a member of an object: the closing bracket (taken, and
    // `closed` set) or a comma (taken, with the space after it); anything else is an error.
    bool nextElement(char closing, bool& closed) {
        skipSpace();
        if (atEnd()) {
            return false;
        }
        if (peek() == closing) {
            ++position_;
            closed = true;
            return true;
        }
        if (peek() != ',') {
            return false;
        }
        ++position_;
        skipSpace();
        return true;
    }

    bool object(int depth) {
        if (depth >= kMaxDepth) {
            return false;
        }
        ++position_;  // '{'
        skipSpace();
        if (!atEnd() && peek() == '}') {
            ++position_;
            return true;
        }
        const bool recorded = depth == 1;  // the members of an element of the outer array
        for (;;) {
            if (atEnd() || peek() != '"' || !string(recorded ? &scratch_ : nullptr)) {
                return false;
            }
            Member* member = nullptr;
            bool* flag = nullptr;
            bool* isEth0 = nullptr;
            if (recorded) {
                noteKey(scratch_);
                if (scratch_ == "interface") {
                    member = &interface;
                    isEth0 = &interfaceIsEth0;
                } else if (scratch_ == "outside_subnet") {
                    member = &outsideSubnet;
                    flag = &outsideSubnetValue;
                } else if (scratch_ == "duplicate_ip") {
                    member = &duplicateIp;
                    flag = &duplicateIpValue;
                }
            }
            skipSpace();
            if (atEnd() || peek() != ':') {
                return false;
            }
            ++position_;
            skipSpace();
            if (!value(depth + 1, member, flag, isEth0)) {
                return false;
            }
            bool closed = false;
            if (!nextElement('}', closed)) {
                return false;
            }
            if (closed) {
                return true;
            }
        }
    }

    void noteKey(const std::string& name) {
        const std::string_view nameView(name);
        const auto found = std::lower_bound(expected_.begin(), expected_.end(), nameView);
        if (found != expected_.end() && *found == nameView) {
            seen_[static_cast<std::size_t>(found - expected_.begin())] = 1;
        }
    }

    // Four hexadecimal digits after "\u".
    bool hexQuad(unsigned& unit) {
        if (text_.size() - position_ < 4) {
            return false;
        }
        unit = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = text_[position_++];
            unsigned digit = 0;
            if (c >= '0' && c <= '9') {
                digit = static_cast<unsigned>(c - '0');
            } else if (c >= 'a' && c <= 'f') {
                digit = static_cast<unsigned>(c - 'a' + 10);
            } else if (c >= 'A' && c <= 'F') {
                digit = static_cast<unsigned>(c - 'A' + 10);
            } else {
                return false;
            }
            unit = unit * 16 + digit;
        }
        return true;
    }

    static void appendUtf8(std::string& out, unsigned codePoint) {
        if (codePoint < 0x80) {
            out += static_cast<char>(codePoint);
        } else if (codePoint < 0x800) {
            out += static_cast<char>(0xC0 | (codePoint >> 6));
            out += static_cast<char>(0x80 | (codePoint & 0x3F));
        } else if (codePoint < 0x10000) {
            out += static_cast<char>(0xE0 | (codePoint >> 12));
            out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (codePoint & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (codePoint >> 18));
            out += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (codePoint & 0x3F));
        }
    }

    // A string at the current '"'; its decoded bytes go to `decoded` when one is given.
    bool string(std::string* decoded) {
        if (decoded != nullptr) {
            decoded->clear();
        }
        ++position_;  // '"'
        for (;;) {
            // Plain printable ASCII, most of any string, is taken as one run.
            const std::size_t runStart = position_;
            while (position_ < text_.size()) {
                const auto c = static_cast<unsigned char>(text_[position_]);
                if (c < 0x20 || c >= 0x80 || c == '"' || c == '\\') {
                    break;
                }
                ++position_;
            }
            if (decoded != nullptr) {
                decoded->append(text_.substr(runStart, position_ - runStart));
            }
            if (atEnd()) {
                return false;
            }
            const auto c = static_cast<unsigned char>(text_[position_]);
            if (c == '"') {
                ++position_;
                return true;
            }
            if (c < 0x20) {
                return false;  // control characters must be escaped
            }
            if (c == '\\') {
                ++position_;
                if (atEnd()) {
                    return false;
                }
                const char escape = text_[position_++];
                char byte = 0;
                switch (escape) {
                    case '"':
                    case '\\':
                    case '/':
                        byte = escape;
                        break;
                    case 'b':
                        byte = '\b';
                        break;
                    case 'f':
                        byte = '\f';
                        break;
                    case 'n':
                        byte = '\n';
                        break;
                    case 'r':
                        byte = '\r';
                        break;
                    case 't':
                        byte = '\t';
                        break;
                    case 'u': {
                        unsigned unit = 0;
                        if (!hexQuad(unit)) {
                            return false;
                        }
                        unsigned codePoint = unit;
                        if (unit >= 0xDC00 && unit <= 0xDFFF) {
                            return false;  // a low surrogate without its high one
                        }
                        if (unit >= 0xD800 && unit <= 0xDBFF) {
                            unsigned low = 0;
                            if (!literal("\\u") || !hexQuad(low) || low < 0xDC00 || low > 0xDFFF) {
                                return false;
                            }
                            codePoint = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                        }
                        if (decoded != nullptr) {
                            appendUtf8(*decoded, codePoint);
                        }
                        continue;
                    }
                    default:
                        return false;
                }
                if (decoded != nullptr) {
                    *decoded += byte;
                }
                continue;
            }
            // Raw bytes: one well-formed UTF-8 sequence.
            const std::size_t length = utf8Length(text_.substr(position_));
            if (length == 0) {
                return false;
            }
            if (decoded != nullptr) {
                decoded->append(text_.substr(position_, length));
            }
            position_ += length;
        }
    }

    bool digits() {
        const std::size_t begin = position_;
        while (!atEnd() && peek() >= '0' && peek() <= '9') {
            ++position_;
        }
        return position_ > begin;
    }

    bool number() {
        const std::size_t begin = position_;
        if (!atEnd() && peek() == '-') {
            ++position_;
        }
        if (atEnd()) {
            return false;
        }
        if (peek() == '0') {
            ++position_;
        } else if (!digits()) {
            return false;
        }
        if (!atEnd() && peek() == '.') {
            ++position_;
            if (!digits()) {
                return false;
            }
        }
        if (!atEnd() && (peek() == 'e' || peek() == 'E')) {
            ++position_;
            if (!atEnd() && (peek() == '+' || peek() == '-')) {
                ++position_;
            }
            if (!digits()) {
                return false;
            }
        }
        // A number too large for a double (infinite when read) is refused, as JSON readers
        // do that hold numbers as doubles.
        const std::string number(text_.substr(begin, position_ - begin));
        return std::isfinite(std::strtod(number.c_str(), nullptr));
    }

    std::string_view text_;
    std::size_t position_ = 0;
    bool rootIsArray_ = false;
    int elements_ = 0;        // values directly in the outer array
    int objectElements_ = 0;  // of which objects
    std::string scratch_;     // the last key or recorded string, decoded
    std::vector<std::string_view> expected_;
    std::vector<char> seen_;
};

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

    bool allUtf8 = isUtf8(controller.interfaceName);
    for (const auto& [fieldKey, value] : reply.fields) {
        allUtf8 = allUtf8 && isUtf8(fieldKey) && isUtf8(value);
    }
    // Bytes that are not UTF-8 are replaced, never thrown over: the list is always printed.
    const std::string json = lcf::renderJson(controllers);
    // Whatever came in, the output is one JSON array holding one object with a member for
    // every key of the reply (seqid left out).
    static RenderedJsonCheck check;
    check.reset(reply, allUtf8);
    FUZZ_CHECK(check.read(json));
    FUZZ_CHECK(check.isOneObjectArray());
    FUZZ_CHECK(check.interface == RenderedJsonCheck::Member::String && check.interfaceIsEth0);
    FUZZ_CHECK(check.outsideSubnet == RenderedJsonCheck::Member::Boolean &&
               check.outsideSubnetValue == controller.outsideSubnet);
    // One controller is nobody's duplicate.
    FUZZ_CHECK(check.duplicateIp == RenderedJsonCheck::Member::Boolean && !check.duplicateIpValue &&
               !controller.duplicateIp);
    FUZZ_CHECK(check.everyExpectedKeySeen());
}

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

    checkMacAddress(text);
    checkAssignmentArgument(text);
    checkUncheckedForms(text);
    return 0;
}
