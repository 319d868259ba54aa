#include "VelmorinVideoChat/Platform/RTC/RTCVideoFrame.h"

#include <libyuv/convert_argb.h>

#include <algorithm>
#include <cstdint>

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
    if (width_ > INT32_MAX / 4) {
        return {};
    }
    std::vector<uint8_t> out(size_t(width_) * size_t(height_) * 4);
    // libyuv names formats by their little-endian word: ABGR is R, G, B, A in memory.
    libyuv::I420ToABGR(dataY(), strideY(), dataU(), strideU(), dataV(), strideV(), out.data(),
                       width_ * 4, width_, height_);
    return out;
}
