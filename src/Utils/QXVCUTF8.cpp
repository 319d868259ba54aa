#include "Utils/QXVCUTF8.h"

namespace qxvc::utf8 {

namespace {

/// Length of the well-formed sequence that starts at `i`, or 0 when none does.
size_t sequenceLength(std::string_view s, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char b0 = byte(i);
    if (b0 < 0x80) {
        return 1;
    }
    size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        length = 2;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        length = 3;
        if (b0 == 0xE0) {
            low = 0xA0;  // no overlong forms
        } else if (b0 == 0xED) {
            high = 0x9F;  // no surrogates
        }
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        length = 4;
        if (b0 == 0xF0) {
            low = 0x90;
        } else if (b0 == 0xF4) {
            high = 0x8F;  // nothing above U+10FFFF
        }
    } else {
        return 0;
    }
    if (i + length > s.size()) {
        return 0;
    }
    if (byte(i + 1) < low || byte(i + 1) > high) {
        return 0;
    }
    for (size_t k = 2; k < length; ++k) {
        if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) {
            return 0;
        }
    }
    return length;
}

}  // namespace

bool isValid(std::string_view bytes) {
    size_t i = 0;
    while (i < bytes.size()) {
        const size_t length = sequenceLength(bytes, i);
        if (length == 0) {
            return false;
        }
        i += length;
    }
    return true;
}

size_t offsetOfCharacter(std::string_view text, size_t count) {
    size_t i = 0;
    for (size_t seen = 0; seen < count && i < text.size(); ++seen) {
        const size_t length = sequenceLength(text, i);
        i += length == 0 ? 1 : length;
    }
    return i;
}

size_t characterCount(std::string_view text) {
    size_t count = 0;
    size_t i = 0;
    while (i < text.size()) {
        const size_t length = sequenceLength(text, i);
        i += length == 0 ? 1 : length;
        ++count;
    }
    return count;
}

}  // namespace qxvc::utf8
