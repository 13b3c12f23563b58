#include "JsonCheck.hpp"

#include <cstddef>

namespace fuzz {

namespace {

// The length of the well-formed UTF-8 sequence `text` starts with (at least one byte), or 0
// when it does not start with one.
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
        return 0;  // a continuation byte, C0 and C1 (always overlong), F5..FF
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

}  // namespace

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

nlohmann::json readJson(std::string_view text) {
    // The library's reader takes a NUL byte for the end of the input, so that anything after
    // one would pass unread. JSON has no place for a raw NUL (in a string it must be escaped,
    // and it is no white space), so a text with one is refused here.
    if (text.find('\0') != std::string_view::npos) {
        return nlohmann::json(nlohmann::json::value_t::discarded);
    }
    // No callback, no exceptions (a discarded value instead), no comments.
    return nlohmann::json::parse(text.begin(), text.end(), nullptr, false, false);
}

bool isOneObjectArray(const nlohmann::json& document) {
    return document.is_array() && document.size() == 1 && document.front().is_object();
}

std::optional<std::string> stringMember(const nlohmann::json& object, const std::string& name) {
    const auto found = object.find(name);
    if (found == object.end() || !found->is_string()) {
        return std::nullopt;
    }
    return found->get<std::string>();
}

std::optional<bool> booleanMember(const nlohmann::json& object, const std::string& name) {
    const auto found = object.find(name);
    if (found == object.end() || !found->is_boolean()) {
        return std::nullopt;
    }
    return found->get<bool>();
}

bool hasMembers(const nlohmann::json& object, const std::vector<std::string_view>& names) {
    for (const std::string_view name : names) {
        if (!object.contains(std::string(name))) {
            return false;
        }
    }
    return true;
}

}  // namespace fuzz
