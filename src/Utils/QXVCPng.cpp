#include "Utils/QXVCPng.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <limits>

namespace qxvc::png {
namespace {

void putU32(std::vector<uint8_t>& out, uint32_t value) {
    out.push_back(static_cast<uint8_t>(value >> 24));
    out.push_back(static_cast<uint8_t>(value >> 16));
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

// One chunk: length, type, data, CRC over type and data.
void putChunk(std::vector<uint8_t>& out, const char type[4], const uint8_t* data, size_t size) {
    putU32(out, static_cast<uint32_t>(size));
    const size_t typeAt = out.size();
    out.insert(out.end(), type, type + 4);
    if (size > 0) {
        out.insert(out.end(), data, data + size);
    }
    uLong crc = crc32(0L, Z_NULL, 0);
    crc = crc32(crc, out.data() + typeAt, static_cast<uInt>(4 + size));
    putU32(out, static_cast<uint32_t>(crc));
}

// zlib stream of the scanlines, each with filter type 0 (None).
bool deflateRows(const uint8_t* rgb, size_t rowBytes, uint32_t height, std::vector<uint8_t>& out) {
    z_stream stream{};
    if (deflateInit(&stream, Z_DEFAULT_COMPRESSION) != Z_OK) {
        return false;
    }
    std::vector<uint8_t> buffer(64 * 1024);
    bool ok = true;
    auto drain = [&](int flush) {
        do {
            stream.next_out = buffer.data();
            stream.avail_out = static_cast<uInt>(buffer.size());
            const int rc = deflate(&stream, flush);
            if (rc == Z_STREAM_ERROR) {
                ok = false;
                return;
            }
            out.insert(out.end(), buffer.data(),
                       buffer.data() + (buffer.size() - stream.avail_out));
        } while (stream.avail_out == 0);
    };
    Bytef filter = 0;
    for (uint32_t row = 0; row < height && ok; ++row) {
        stream.next_in = &filter;
        stream.avail_in = 1;
        drain(Z_NO_FLUSH);
        // Rows are at most 3 * (2^31 - 1) bytes; feed them in uInt-sized pieces.
        const uint8_t* at = rgb + static_cast<size_t>(row) * rowBytes;
        size_t left = rowBytes;
        while (left > 0 && ok) {
            const size_t piece = std::min<size_t>(left, std::numeric_limits<uInt>::max());
            stream.next_in = const_cast<Bytef*>(at);
            stream.avail_in = static_cast<uInt>(piece);
            drain(Z_NO_FLUSH);
            at += piece;
            left -= piece;
        }
    }
    if (ok) {
        stream.next_in = nullptr;
        stream.avail_in = 0;
        drain(Z_FINISH);
    }
    deflateEnd(&stream);
    return ok;
}

uint8_t clamp8(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

}  // namespace

std::vector<uint8_t> encodeRGB8(const uint8_t* rgb, size_t size, uint32_t width, uint32_t height) {
    constexpr uint32_t kMaxSide = 0x7fffffffu;
    if (rgb == nullptr || width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) {
        return {};
    }
    const size_t rowBytes = static_cast<size_t>(width) * 3;
    if (size / rowBytes < height || size != rowBytes * height) {
        return {};
    }
    std::vector<uint8_t> idat;
    if (!deflateRows(rgb, rowBytes, height, idat)) {
        return {};
    }

    std::vector<uint8_t> out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    std::vector<uint8_t> ihdr;
    putU32(ihdr, width);
    putU32(ihdr, height);
    ihdr.push_back(8);  // bit depth
    ihdr.push_back(2);  // colour type: truecolour
    ihdr.push_back(0);  // compression: deflate
    ihdr.push_back(0);  // filter method 0
    ihdr.push_back(0);  // no interlace
    putChunk(out, "IHDR", ihdr.data(), ihdr.size());
    // A chunk holds at most 2^31 - 1 bytes; split large images over several IDATs.
    constexpr size_t kMaxChunk = 0x7fffffffu;
    for (size_t at = 0; at < idat.size(); at += kMaxChunk) {
        putChunk(out, "IDAT", idat.data() + at, std::min(kMaxChunk, idat.size() - at));
    }
    putChunk(out, "IEND", nullptr, 0);
    return out;
}

std::vector<uint8_t> rgbFromI420(const uint8_t* y, size_t sizeY, int strideY, const uint8_t* u,
                                 size_t sizeU, int strideU, const uint8_t* v, size_t sizeV,
                                 int strideV, uint32_t width, uint32_t height) {
    if (y == nullptr || u == nullptr || v == nullptr || width == 0 || height == 0) {
        return {};
    }
    const size_t chromaW = (static_cast<size_t>(width) + 1) / 2;
    const size_t chromaH = (static_cast<size_t>(height) + 1) / 2;
    // A plane fits when its last row ends inside it: (rows - 1) * stride + rowLen <= size.
    auto fits = [](size_t planeSize, int stride, size_t rowLen, size_t rows) {
        if (stride < 0 || static_cast<size_t>(stride) < rowLen || planeSize < rowLen) {
            return false;
        }
        return rows - 1 <= (planeSize - rowLen) / static_cast<size_t>(stride);
    };
    if (!fits(sizeY, strideY, width, height) || !fits(sizeU, strideU, chromaW, chromaH) ||
        !fits(sizeV, strideV, chromaW, chromaH)) {
        return {};
    }
    std::vector<uint8_t> rgb(static_cast<size_t>(width) * height * 3);
    uint8_t* out = rgb.data();
    for (size_t row = 0; row < height; ++row) {
        const uint8_t* yRow = y + row * static_cast<size_t>(strideY);
        const uint8_t* uRow = u + (row / 2) * static_cast<size_t>(strideU);
        const uint8_t* vRow = v + (row / 2) * static_cast<size_t>(strideV);
        for (size_t col = 0; col < width; ++col) {
            // BT.601 limited range, fixed point with 8 fractional bits.
            const int c = 298 * (yRow[col] - 16);
            const int d = uRow[col / 2] - 128;
            const int e = vRow[col / 2] - 128;
            *out++ = clamp8((c + 409 * e + 128) >> 8);
            *out++ = clamp8((c - 100 * d - 208 * e + 128) >> 8);
            *out++ = clamp8((c + 516 * d + 128) >> 8);
        }
    }
    return rgb;
}

bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool wrote =
        bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const bool closed = std::fclose(file) == 0;
    return wrote && closed;
}

}  // namespace qxvc::png
