#include "Utils/QXVCPng.h"

#include <libyuv/convert_argb.h>
#include <png.h>

#include <climits>
#include <cstdio>

namespace qxvc::png {

std::vector<uint8_t> encodeRGB8(const uint8_t* rgb, size_t size, uint32_t width, uint32_t height) {
    constexpr uint32_t kMaxSide = 0x7fffffffu;
    if (rgb == nullptr || width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) {
        return {};
    }
    const size_t rowBytes = static_cast<size_t>(width) * 3;
    if (size / rowBytes < height || size != rowBytes * height) {
        return {};
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = PNG_FORMAT_RGB;
    // The first call only measures; the second writes into a buffer of that size.
    png_alloc_size_t bytes = 0;
    if (!png_image_write_to_memory(&image, nullptr, &bytes, 0, rgb, 0, nullptr)) {
        png_image_free(&image);
        return {};
    }
    std::vector<uint8_t> out(bytes);
    if (!png_image_write_to_memory(&image, out.data(), &bytes, 0, rgb, 0, nullptr)) {
        png_image_free(&image);
        return {};
    }
    out.resize(bytes);
    return out;
}

std::vector<uint8_t> rgbFromI420(const uint8_t* y, size_t sizeY, int strideY, const uint8_t* u,
                                 size_t sizeU, int strideU, const uint8_t* v, size_t sizeV,
                                 int strideV, uint32_t width, uint32_t height) {
    // libyuv takes int sides and an int stride of 3 * width for the output.
    if (y == nullptr || u == nullptr || v == nullptr || width == 0 || height == 0 ||
        width > INT_MAX / 3 || height > INT_MAX) {
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
    // libyuv names formats by their little-endian word: RAW is R, G, B in memory.
    const int rc = libyuv::I420ToRAW(y, strideY, u, strideU, v, strideV, rgb.data(),
                                     static_cast<int>(width) * 3, static_cast<int>(width),
                                     static_cast<int>(height));
    return rc == 0 ? rgb : std::vector<uint8_t>{};
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
