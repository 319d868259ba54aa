#include "VelmorinVideoChat/Utils/QXVCUtils.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "Utils/QXVCBase64.h"
#include "Utils/QXVCUTF8.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"

namespace {

constexpr size_t kScratchSize = 1024;
constexpr int kGzipWindowBits = 15 + 16;
constexpr int kAutoDetectWindowBits = 15 + 32;
constexpr int kMemoryLevel = 8;

void fail(QXDErrorPtr* error, unsigned long code) {
    if (error != nullptr) {
        *error = QXVCMakeError(code, QXVCErrorUnknown);
    }
}

Bytef* inputBytes(const std::string& bytes) {
    return reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
}

}  // namespace

std::string QXVCUtils::compressString(const std::optional<std::string>& text, QXDErrorPtr* error) {
    if (!text) {
        fail(error, QXVCErrorInvalidParameter);
        return "";
    }
    const std::string& input = *text;
    if (input.size() > UINT_MAX) {
        fail(error, QXVCErrorUnknown);
        return "";
    }
    z_stream stream;
    std::memset(&stream, 0, sizeof(stream));
    if (deflateInit2_(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipWindowBits, kMemoryLevel,
                      Z_DEFAULT_STRATEGY, ZLIB_VERSION,
                      static_cast<int>(sizeof(z_stream))) != Z_OK) {
        fail(error, QXVCErrorUnknown);
        return "";
    }
    std::string output;
    output.reserve(input.size() / 4);
    stream.next_in = inputBytes(input);
    stream.avail_in = static_cast<uInt>(input.size());
    unsigned char scratch[kScratchSize];
    for (;;) {
        stream.next_out = scratch;
        stream.avail_out = kScratchSize;
        const int result = deflate(&stream, Z_FINISH);
        if (result != Z_OK && result != Z_STREAM_END) {
            deflateEnd(&stream);
            fail(error, QXVCErrorUnknown);
            return "";
        }
        const size_t produced = kScratchSize - stream.avail_out;
        if (output.size() + produced > kMaxDecompressedSize) {
            // Far beyond any session description: a bomb, not an SDP.
            inflateEnd(&stream);
            fail(error, QXVCErrorUnknown);
            return "";
        }
        if (produced > 0) {
            output.append(reinterpret_cast<const char*>(scratch), produced);
        }
        if (result == Z_STREAM_END) {
            deflateEnd(&stream);
            break;
        }
    }
    return qxvc::base64::encodeLines64(output);
}

std::optional<std::string> QXVCUtils::decompressString(const std::optional<std::string>& text,
                                                       QXDErrorPtr* error) {
    if (!text || text->empty()) {
        fail(error, QXVCErrorUnknown);
        return "";
    }
    const std::string input = qxvc::base64::decodeLenient(*text);
    if (input.size() > UINT_MAX / 4) {
        fail(error, QXVCErrorUnknown);
        return "";
    }
    z_stream stream;
    std::memset(&stream, 0, sizeof(stream));
    stream.next_in = inputBytes(input);
    stream.avail_in = static_cast<uInt>(input.size());
    if (inflateInit2_(&stream, kAutoDetectWindowBits, ZLIB_VERSION,
                      static_cast<int>(sizeof(z_stream))) != Z_OK) {
        fail(error, QXVCErrorUnknown);
        return "";
    }
    std::string output;
    output.reserve(std::min(input.size() * 4, kMaxDecompressedSize));
    unsigned char scratch[kScratchSize];
    for (;;) {
        stream.next_out = scratch;
        stream.avail_out = kScratchSize;
        const int result = inflate(&stream, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END) {
            inflateEnd(&stream);
            fail(error, QXVCErrorUnknown);
            return "";
        }
        const size_t produced = kScratchSize - stream.avail_out;
        if (output.size() + produced > kMaxDecompressedSize) {
            // Far beyond any session description: a bomb, not an SDP.
            inflateEnd(&stream);
            fail(error, QXVCErrorUnknown);
            return "";
        }
        if (produced > 0) {
            output.append(reinterpret_cast<const char*>(scratch), produced);
        }
        if (result == Z_STREAM_END) {
            const bool trailing = stream.avail_in > 0;
            inflateEnd(&stream);
            if (trailing) {
                fail(error, QXVCErrorUnknown);
                return "";
            }
            break;
        }
    }
    if (!qxvc::utf8::isValid(output)) {
        return std::nullopt;
    }
    return output;
}
