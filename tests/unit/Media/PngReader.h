// Reads a PNG file image back with libpng, as RGB8.
#pragma once

#include <png.h>

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
    std::vector<uint8_t> rgb;
};

inline Image decode(const std::vector<uint8_t>& bytes) {
    Image img;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size())) {
        image.format = PNG_FORMAT_RGB;
        img.rgb.resize(PNG_IMAGE_SIZE(image));
        img.ok = png_image_finish_read(&image, nullptr, img.rgb.data(), 0, nullptr) != 0;
    }
    img.error = image.message;
    img.width = image.width;
    img.height = image.height;
    png_image_free(&image);
    return img;
}

inline std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace pngtest
