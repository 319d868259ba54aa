#include "VelmorinVideoChat/Utils/QXVCJSON.h"

#include <cmath>
#include <limits>

namespace qxvc::json {

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

/// True when the arrays and objects of `text` nest deeper than `limit`.
/// Brackets inside strings do not count; one pass, no recursion. Exact for
/// well-formed JSON, which is all that matters: the parser refuses the rest.
bool deeperThan(std::string_view text, size_t limit) {
    size_t depth = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) {
                return true;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

int64_t saturate(double d) {
    if (std::isnan(d)) {
        return 0;
    }
    if (d >= 9223372036854775807.0) {
        return std::numeric_limits<int64_t>::max();
    }
    if (d <= -9223372036854775808.0) {
        return std::numeric_limits<int64_t>::min();
    }
    return static_cast<int64_t>(d);
}

}  // namespace

int64_t int64FromText(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && isSpace(text[i])) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    uint64_t magnitude = 0;
    bool overflow = false;
    const uint64_t limit = negative ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const auto digit = static_cast<uint64_t>(text[i] - '0');
        if (overflow || magnitude > (limit - digit) / 10) {
            overflow = true;
            continue;
        }
        magnitude = magnitude * 10 + digit;
    }
    if (overflow) {
        return negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    }
    if (negative) {
        return magnitude == (uint64_t{1} << 63) ? std::numeric_limits<int64_t>::min()
                                                : -static_cast<int64_t>(magnitude);
    }
    return static_cast<int64_t>(magnitude);
}

bool boolFromText(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && isSpace(text[i])) {
        ++i;
    }
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        ++i;
    }
    while (i < text.size() && text[i] == '0') {
        ++i;
    }
    if (i >= text.size()) {
        return false;
    }
    const char c = text[i];
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

const Json* member(const Json& object, std::string_view key) {
    if (!object.is_object()) {
        return nullptr;
    }
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) {
        return nullptr;
    }
    return &*it;
}

const Json* objectMember(const Json& object, std::string_view key) {
    const Json* value = member(object, key);
    return value != nullptr && value->is_object() ? value : nullptr;
}

std::optional<std::string> stringValue(const Json& value) {
    if (value.is_string()) {
        return value.get_ref<const std::string&>();
    }
    if (value.is_boolean()) {
        return std::string(value.get<bool>() ? "1" : "0");
    }
    if (value.is_number()) {
        return value.dump();
    }
    return std::nullopt;
}

std::optional<bool> boolValue(const Json& value) {
    if (value.is_boolean()) {
        return value.get<bool>();
    }
    if (value.is_number_integer()) {
        return value.get<int64_t>() != 0;  // unsigned values above 2^63 wrap, still non-zero
    }
    if (value.is_number_float()) {
        return value.get<double>() != 0.0;
    }
    if (value.is_string()) {
        return boolFromText(value.get_ref<const std::string&>());
    }
    return std::nullopt;
}

std::optional<int64_t> int64Value(const Json& value) {
    if (value.is_number_unsigned()) {
        const auto u = value.get<uint64_t>();
        return u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())
                   ? std::numeric_limits<int64_t>::max()
                   : static_cast<int64_t>(u);
    }
    if (value.is_number_integer()) {
        return value.get<int64_t>();
    }
    if (value.is_number_float()) {
        return saturate(value.get<double>());
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? 1 : 0;
    }
    if (value.is_string()) {
        return int64FromText(value.get_ref<const std::string&>());
    }
    return std::nullopt;
}

std::optional<std::string> getString(const Json& object, std::string_view key) {
    const Json* value = member(object, key);
    return value != nullptr ? stringValue(*value) : std::nullopt;
}

std::string getString(const Json& object, std::string_view key, const std::string& fallback) {
    return getString(object, key).value_or(fallback);
}

bool getBool(const Json& object, std::string_view key, bool fallback) {
    const Json* value = member(object, key);
    return value != nullptr ? boolValue(*value).value_or(fallback) : fallback;
}

int64_t getInt64(const Json& object, std::string_view key, int64_t fallback) {
    const Json* value = member(object, key);
    return value != nullptr ? int64Value(*value).value_or(fallback) : fallback;
}

int32_t getInt32(const Json& object, std::string_view key, int32_t fallback) {
    const Json* value = member(object, key);
    if (value == nullptr) {
        return fallback;
    }
    const auto wide = int64Value(*value);
    if (!wide) {
        return fallback;
    }
    if (*wide > std::numeric_limits<int32_t>::max()) {
        return std::numeric_limits<int32_t>::max();
    }
    if (*wide < std::numeric_limits<int32_t>::min()) {
        return std::numeric_limits<int32_t>::min();
    }
    return static_cast<int32_t>(*wide);
}

std::optional<Json> parse(std::string_view text) {
    if (deeperThan(text, kMaxDepth)) {
        return std::nullopt;
    }
    Json value = Json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
    if (value.is_discarded()) {
        return std::nullopt;
    }
    return value;
}

bool nestsTooDeep(std::string_view text) {
    // accept() checks the syntax without building anything, iteratively.
    return deeperThan(text, kMaxDepth) && Json::accept(text.begin(), text.end());
}

}  // namespace qxvc::json
