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

/// A zlib stream that is ended on every way out of the scope that owns it.
class ZStream {
  public:
    enum class Kind { Deflate, Inflate };
    explicit ZStream(Kind kind) : kind_(kind) { std::memset(&stream_, 0, sizeof(stream_)); }
    ~ZStream() {
        if (!initialised_) {
            return;
        }
        if (kind_ == Kind::Deflate) {
            deflateEnd(&stream_);
        } else {
            inflateEnd(&stream_);
        }
    }
    ZStream(const ZStream&) = delete;
    ZStream& operator=(const ZStream&) = delete;

    /// Records the result of deflateInit2_/inflateInit2_; true on success.
    bool initialised(int result) {
        initialised_ = result == Z_OK;
        return initialised_;
    }
    z_stream* get() { return &stream_; }

  private:
    z_stream stream_;
    Kind kind_;
    bool initialised_ = false;
};

}  // namespace

std::string QXVCUtils::compressString(const std::optional<std::string>& text, QXDErrorPtr* error) {
    if (!text) {
        fail(error, QXVCErrorInvalidParameter);
        return "";
    }
    const std::string& input = *text;
    ZStream guard(ZStream::Kind::Deflate);
    z_stream& stream = *guard.get();
    if (!guard.initialised(deflateInit2_(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipWindowBits,
                                         kMemoryLevel, Z_DEFAULT_STRATEGY, ZLIB_VERSION,
                                         static_cast<int>(sizeof(z_stream))))) {
        fail(error, QXVCErrorUnknown);
        return "";
    }
    std::string output;
    output.reserve(input.size() / 4);
    // zlib counts input in 32 bits: a text beyond that goes in several pieces,
    // the stream finishing with the last. Any smaller text goes in at once.
    size_t given = 0;
    unsigned char scratch[kScratchSize];
    for (;;) {
        if (stream.avail_in == 0 && given < input.size()) {
            const size_t piece = std::min<size_t>(input.size() - given, UINT_MAX);
            stream.next_in = inputBytes(input) + given;
            stream.avail_in = static_cast<uInt>(piece);
            given += piece;
        }
        stream.next_out = scratch;
        stream.avail_out = kScratchSize;
        const int flush = given == input.size() ? Z_FINISH : Z_NO_FLUSH;
        const int result = deflate(&stream, flush);
        if (result != Z_OK && result != Z_STREAM_END) {
            fail(error, QXVCErrorUnknown);
            return "";
        }
        const size_t produced = kScratchSize - stream.avail_out;
        if (produced > 0) {
            output.append(reinterpret_cast<const char*>(scratch), produced);
        }
        if (result == Z_STREAM_END) {
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
    ZStream guard(ZStream::Kind::Inflate);
    z_stream& stream = *guard.get();
    stream.next_in = inputBytes(input);
    stream.avail_in = static_cast<uInt>(input.size());
    if (!guard.initialised(inflateInit2_(&stream, kAutoDetectWindowBits, ZLIB_VERSION,
                                         static_cast<int>(sizeof(z_stream))))) {
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
            fail(error, QXVCErrorUnknown);
            return "";
        }
        const size_t produced = kScratchSize - stream.avail_out;
        if (output.size() + produced > kMaxDecompressedSize) {
            // Far beyond any session description: a bomb, not an SDP.
            fail(error, QXVCErrorUnknown);
            return "";
        }
        if (produced > 0) {
            output.append(reinterpret_cast<const char*>(scratch), produced);
        }
        if (result == Z_STREAM_END) {
            if (stream.avail_in > 0) {
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
