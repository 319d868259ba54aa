// The compressed "sdp" of an offer or answer, as any peer could send it; and the
// round trip of arbitrary text through compression.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Utils/QXVCUTF8.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    QXDErrorPtr error;
    const auto plain = QXVCUtils::decompressString(text, &error);
    // Failure is exactly "" with an error; nil comes only without one.
    if (error && plain != std::optional<std::string>("")) {
        std::abort();
    }

    QXDErrorPtr writeError;
    const std::string packed = QXVCUtils::compressString(text, &writeError);
    if (writeError || packed.empty()) {
        std::abort();
    }
    QXDErrorPtr readError;
    const auto back = QXVCUtils::decompressString(packed, &readError);
    if (readError) {
        std::abort();
    }
    if (qxvc::utf8::isValid(text) ? back != text : back.has_value()) {
        std::abort();
    }
    return 0;
}
