// Test hook of QXVCClient: the compressor used for offers and answers can be
// replaced, so tests can make compression fail. Not for production code.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "VelmorinVideoChat/Platform/Chat/QXDError.h"

namespace qxvc::client {

/// Same contract as QXVCUtils::compressString.
using Compressor =
    std::function<std::string(const std::optional<std::string>& text, QXDErrorPtr* error)>;

/// For tests only: replaces the compressor; nullptr restores the real one.
void setCompressorForTesting(Compressor compressor);

}  // namespace qxvc::client
