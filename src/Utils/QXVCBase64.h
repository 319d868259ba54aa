// Base64 with the standard alphabet (A-Z a-z 0-9 + /) and "=" padding.
#pragma once

#include <string>
#include <string_view>

namespace qxvc::base64 {

/// Encodes `bytes`, broken into lines of 64 characters joined by CR LF. No line
/// break follows the last line, even when the text length is a multiple of 64.
std::string encodeLines64(std::string_view bytes);

/// Decodes `text`, skipping every character outside the alphabet (line breaks,
/// spaces, stray punctuation and the "=" padding alike). Characters are taken in
/// groups of four; a trailing group of two or three gives its one or two whole
/// bytes and a lone trailing character gives nothing.
std::string decodeLenient(std::string_view text);

}  // namespace qxvc::base64
