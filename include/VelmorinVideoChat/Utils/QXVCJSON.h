// Lenient reading of received JSON, used by every parser of the library.
//
// Rules (one place, so every parser agrees):
//  - An absent key, JSON null, or a container that is not an object gives the
//    caller's default.
//  - Strings: a JSON string is taken as it stands; a number gives its decimal
//    text (integers without a fraction, others as the shortest round-trip text);
//    a boolean gives "1" or "0". Arrays and objects give the default.
//  - Booleans: a JSON boolean as it stands; a number is true when non-zero; a
//    string is true when, after leading white space and an optional sign and
//    leading zeros, it starts with 'Y', 'y', 'T', 't' or a digit 1-9 (the usual
//    platform rule for "boolValue"). Arrays and objects give the default.
//  - Integers: a JSON integer as it stands, saturated to the target range; a
//    floating number is truncated toward zero and saturated (NaN gives 0); a
//    boolean gives 1 or 0; a string is read from its start: leading white space,
//    an optional sign, then decimal digits up to the first non-digit, saturated
//    (no digits gives 0). Arrays and objects give the default.
//  - Objects: a pointer to the member when it is a JSON object, else nullptr.
//
// Depth: copying, comparing or writing a JSON value recurses once per level of
// nesting, so parse() refuses text whose arrays and objects nest deeper than
// kMaxDepth. Every text from outside (a peer, a client, the chat server, a
// stored message) is read through it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace qxvc::json {

using Json = nlohmann::json;

/// The member `key` of `object`, or nullptr when `object` is not an object, the
/// key is absent or its value is JSON null.
const Json* member(const Json& object, std::string_view key);
/// The member `key` when it is a JSON object, else nullptr.
const Json* objectMember(const Json& object, std::string_view key);

std::optional<std::string> stringValue(const Json& value);
std::optional<bool> boolValue(const Json& value);
std::optional<int64_t> int64Value(const Json& value);

std::optional<std::string> getString(const Json& object, std::string_view key);
std::string getString(const Json& object, std::string_view key, const std::string& fallback);
bool getBool(const Json& object, std::string_view key, bool fallback);
int64_t getInt64(const Json& object, std::string_view key, int64_t fallback);
int32_t getInt32(const Json& object, std::string_view key, int32_t fallback);

/// The deepest nesting of arrays and objects parse() accepts: a top-level
/// object is one level, an object inside it two. Far beyond anything the
/// protocols here send, far below what the stack allows.
inline constexpr size_t kMaxDepth = 64;

/// Parses `text` without throwing and without recursion. nullopt on a syntax
/// error, an empty text, or nesting deeper than kMaxDepth.
std::optional<Json> parse(std::string_view text);
/// True when `text` is well-formed JSON that parse() refused only for nesting
/// deeper than kMaxDepth (so a caller can say why it refused).
bool nestsTooDeep(std::string_view text);

/// Platform string-to-number rules, exposed for callers reading plain text.
int64_t int64FromText(std::string_view text);
bool boolFromText(std::string_view text);

}  // namespace qxvc::json
