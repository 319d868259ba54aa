// Compression of session descriptions for the wire: a gzip stream (zlib, level 9)
// carried as base64 text in 64-character lines joined by CR LF.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "VelmorinVideoChat/Platform/Chat/QXDError.h"

class QXVCUtils {
  public:
    /// The base64 text of the gzip stream of `text`'s UTF-8 bytes, whatever its
    /// size. Never nil: on failure returns "" and, when `error` is given, stores
    /// the error there (code 820400 for a nil text, 820000 otherwise; both carry
    /// the description of code 820000). On success `*error` is left as it was.
    static std::string compressString(const std::optional<std::string>& text,
                                      QXDErrorPtr* error = nullptr);

    /// Security limit: the most a compressed text may inflate to (1 MiB).
    /// Compressed text comes from peers, and a few hundred bytes of it can
    /// inflate to gigabytes; a session description is a few kilobytes. This is
    /// the one place where the library deliberately refuses a valid stream:
    /// decompressString fails on anything that inflates further, even the
    /// compressed form of a longer text made by compressString.
    static constexpr size_t kMaxDecompressedSize = 1024 * 1024;

    /// The text inside a compressed form. Accepts a gzip or a zlib stream; the
    /// base64 decoding skips every character outside the alphabet, so line breaks
    /// and stray white space do no harm. Exactly one stream is accepted, with
    /// nothing after it. On failure (nil or empty text, not a stream, truncated,
    /// corrupt, trailing bytes, or more than kMaxDecompressedSize bytes once
    /// inflated) returns "" and stores error 820000 when `error` is given.
    /// Returns nullopt, without an error, only when the inflated bytes are not
    /// valid UTF-8.
    static std::optional<std::string> decompressString(const std::optional<std::string>& text,
                                                       QXDErrorPtr* error = nullptr);
};
