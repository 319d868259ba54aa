// PNG snapshots of video frames: libpng writes the file image, libyuv turns the
// frame's I420 planes into RGB.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qxvc::png {

/// Encodes `rgb` (width * height * 3 bytes, rows top to bottom, no padding) as a
/// PNG file image. Returns an empty vector when the sizes do not match, a side is
/// 0 or larger than 2^31 - 1, or libpng fails.
std::vector<uint8_t> encodeRGB8(const uint8_t* rgb, size_t size, uint32_t width, uint32_t height);

/// Converts a planar I420 image (BT.601, limited range) to packed RGB8 (R, G, B
/// in memory order). `strideY`, `strideU` and `strideV` are the plane row lengths
/// in bytes; the chroma planes hold (width + 1) / 2 by (height + 1) / 2 samples.
/// Returns an empty vector when a plane is too small for the given size.
std::vector<uint8_t> rgbFromI420(const uint8_t* y, size_t sizeY, int strideY, const uint8_t* u,
                                 size_t sizeU, int strideU, const uint8_t* v, size_t sizeV,
                                 int strideV, uint32_t width, uint32_t height);

/// Writes `bytes` to `path` (replacing the file). False on any I/O error.
bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes);

}  // namespace qxvc::png
