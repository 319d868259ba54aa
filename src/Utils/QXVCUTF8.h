// UTF-8 checks and character counting for text received from the wire.
#pragma once

#include <cstddef>
#include <string_view>

namespace qxvc::utf8 {

/// True when `bytes` is well-formed UTF-8 (no overlong forms, no surrogates,
/// nothing above U+10FFFF).
bool isValid(std::string_view bytes);

/// The byte offset where character number `count` (from 0) begins, or
/// `text.size()` when the text has no more than `count` characters. A character
/// is one well-formed UTF-8 sequence; every byte that does not start one counts
/// as a character of its own, as a decoder that substitutes U+FFFD would see it.
size_t offsetOfCharacter(std::string_view text, size_t count);

/// The number of characters of `text`, counted as offsetOfCharacter counts them.
size_t characterCount(std::string_view text);

}  // namespace qxvc::utf8
