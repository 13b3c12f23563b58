// Checks of the text lcf writes, shared by the fuzz targets: well-formed UTF-8, and a JSON
// text read strictly and taken apart as lcf's listing of controllers. Plain C++ without
// libFuzzer, so that the unit tests pin down what they accept (tests/unit/fuzz_checks_test.cpp).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace fuzz {

// Well-formed UTF-8 (RFC 3629): every sequence complete, no overlong form, no surrogate
// (U+D800..U+DFFF), nothing past U+10FFFF. The JSON library checks this only inside the JSON
// texts it reads, so the check of raw bytes is written here.
bool isUtf8(std::string_view text);

// `text` read by the JSON library's strict parser: one JSON text (RFC 8259) with its grammar,
// escapes, surrogate pairs in "\u" escapes, control characters escaped, well-formed UTF-8 in
// strings, an optional byte order mark, nothing after the value but white space (no raw NUL
// byte anywhere), and no number too large for a double. A discarded value (is_discarded()) when it
// is not one; of repeated keys in an object, the last counts.
nlohmann::json readJson(std::string_view text);

// Whether `document` is one array holding exactly one value, an object: lcf's listing of one
// controller.
bool isOneObjectArray(const nlohmann::json& document);

// The member `name` of `object` when it is a string (a boolean); nothing when `object` has no
// such member or it holds another type.
std::optional<std::string> stringMember(const nlohmann::json& object, const std::string& name);
std::optional<bool> booleanMember(const nlohmann::json& object, const std::string& name);

// Whether `object` has a member for each of `names`.
bool hasMembers(const nlohmann::json& object, const std::vector<std::string_view>& names);

}  // namespace fuzz
