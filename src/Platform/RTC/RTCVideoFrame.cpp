#include "VelmorinVideoChat/Platform/RTC/RTCVideoFrame.h"

#include <algorithm>

size_t RTCVideoFrame::i420Size(int32_t width, int32_t height) {
    if (width <= 0 || height <= 0) {
        return 0;
    }
    size_t cw = size_t(width + 1) / 2;
    size_t ch = size_t(height + 1) / 2;
    return size_t(width) * size_t(height) + 2 * cw * ch;
}

RTCVideoFrame::RTCVideoFrame(int32_t width, int32_t height, std::vector<uint8_t> i420,
                             RTCVideoRotation rotation, int64_t timeStampNs)
    : width_(width),
      height_(height),
      data_(std::move(i420)),
      rotation_(rotation),
      timeStampNs_(timeStampNs) {}

std::shared_ptr<const RTCVideoFrame> RTCVideoFrame::frameWithI420(int32_t width, int32_t height,
                                                                  std::vector<uint8_t> i420,
                                                                  RTCVideoRotation rotation,
                                                                  int64_t timeStampNs) {
    size_t size = i420Size(width, height);
    if (size == 0 || i420.size() != size) {
        return nullptr;
    }
    return std::make_shared<const RTCVideoFrame>(width, height, std::move(i420), rotation,
                                                 timeStampNs);
}

std::shared_ptr<const RTCVideoFrame> RTCVideoFrame::blackFrame(int32_t width, int32_t height,
                                                               int64_t timeStampNs) {
    size_t size = i420Size(width, height);
    if (size == 0) {
        return nullptr;
    }
    std::vector<uint8_t> data(size, 128);
    std::fill_n(data.begin(), size_t(width) * size_t(height), uint8_t{16});
    return std::make_shared<const RTCVideoFrame>(width, height, std::move(data), RTCVideoRotation_0,
                                                 timeStampNs);
}

std::vector<uint8_t> RTCVideoFrame::toRGBA() const {
    std::vector<uint8_t> out(size_t(width_) * size_t(height_) * 4);
    auto clamp = [](int v) { return static_cast<uint8_t>(std::clamp(v, 0, 255)); };
    for (int32_t y = 0; y < height_; ++y) {
        for (int32_t x = 0; x < width_; ++x) {
            int c = dataY()[size_t(y) * size_t(strideY()) + size_t(x)] - 16;
            size_t ci = size_t(y / 2) * size_t(strideU()) + size_t(x / 2);
            int d = dataU()[ci] - 128;
            int e = dataV()[ci] - 128;
            uint8_t* px = &out[(size_t(y) * size_t(width_) + size_t(x)) * 4];
            px[0] = clamp((298 * c + 409 * e + 128) >> 8);
            px[1] = clamp((298 * c - 100 * d - 208 * e + 128) >> 8);
            px[2] = clamp((298 * c + 516 * d + 128) >> 8);
            px[3] = 255;
        }
    }
    return out;
}
