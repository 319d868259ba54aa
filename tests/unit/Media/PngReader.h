// Reads back the PNG files our writer makes (8-bit RGB, filter 0, no interlace),
// checking every chunk's CRC with zlib on the way.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace pngtest {

struct Image {
    bool ok = false;
    std::string error;
    uint32_t width = 0;
    uint32_t height = 0;
    uint8_t bitDepth = 0;
    uint8_t colourType = 0;
    std::vector<std::string> chunkTypes;
    std::vector<uint8_t> rgb;
};

inline uint32_t readU32(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

inline Image decode(const std::vector<uint8_t>& bytes) {
    Image img;
    static const uint8_t kSig[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (bytes.size() < 8 || !std::equal(kSig, kSig + 8, bytes.begin())) {
        img.error = "signature";
        return img;
    }
    std::vector<uint8_t> idat;
    size_t at = 8;
    while (at + 12 <= bytes.size()) {
        const uint32_t len = readU32(&bytes[at]);
        if (at + 12 + len > bytes.size()) {
            img.error = "truncated chunk";
            return img;
        }
        const uint8_t* type = &bytes[at + 4];
        const uint8_t* data = type + 4;
        const uLong crc = crc32(crc32(0L, Z_NULL, 0), type, 4 + len);
        if (crc != readU32(data + len)) {
            img.error = "bad crc";
            return img;
        }
        const std::string name(reinterpret_cast<const char*>(type), 4);
        img.chunkTypes.push_back(name);
        if (name == "IHDR" && len == 13) {
            img.width = readU32(data);
            img.height = readU32(data + 4);
            img.bitDepth = data[8];
            img.colourType = data[9];
        } else if (name == "IDAT") {
            idat.insert(idat.end(), data, data + len);
        }
        at += 12 + len;
    }
    if (at != bytes.size()) {
        img.error = "trailing bytes";
        return img;
    }
    const size_t rowBytes = size_t{img.width} * 3 + 1;
    std::vector<uint8_t> raw(rowBytes * img.height);
    uLongf rawLen = raw.size();
    if (uncompress(raw.data(), &rawLen, idat.data(), idat.size()) != Z_OK || rawLen != raw.size()) {
        img.error = "inflate";
        return img;
    }
    for (uint32_t row = 0; row < img.height; ++row) {
        if (raw[row * rowBytes] != 0) {
            img.error = "filter";
            return img;
        }
        img.rgb.insert(img.rgb.end(), raw.begin() + static_cast<long>(row * rowBytes + 1),
                       raw.begin() + static_cast<long>((row + 1) * rowBytes));
    }
    img.ok = true;
    return img;
}

inline std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace pngtest
