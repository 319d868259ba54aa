// One decoded or captured video frame.
//
// Pixel data is planar I420 (Y, then U, then V), tightly packed: the luma plane
// is width x height bytes, each chroma plane ceil(width/2) x ceil(height/2).
// Frames are immutable once made and shared between renderers.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

class RTCVideoFrame final {
  public:
    /// Takes `i420` as the frame's pixels; returns nullptr when the sizes are not
    /// positive or the buffer is not exactly i420Size(width, height) bytes.
    static std::shared_ptr<const RTCVideoFrame> frameWithI420(int32_t width, int32_t height,
                                                              std::vector<uint8_t> i420,
                                                              RTCVideoRotation rotation,
                                                              int64_t timeStampNs);
    /// A black frame (Y 16, U and V 128).
    static std::shared_ptr<const RTCVideoFrame> blackFrame(int32_t width, int32_t height,
                                                           int64_t timeStampNs);
    static size_t i420Size(int32_t width, int32_t height);

    int32_t width() const { return width_; }
    int32_t height() const { return height_; }
    RTCVideoRotation rotation() const { return rotation_; }
    /// Capture or presentation time in nanoseconds (monotonic).
    int64_t timeStampNs() const { return timeStampNs_; }

    const std::vector<uint8_t>& i420() const { return data_; }
    const uint8_t* dataY() const { return data_.data(); }
    const uint8_t* dataU() const { return data_.data() + size_t(width_) * size_t(height_); }
    const uint8_t* dataV() const {
        return dataU() + size_t(chromaWidth()) * size_t(chromaHeight());
    }
    int32_t strideY() const { return width_; }
    int32_t strideU() const { return chromaWidth(); }
    int32_t strideV() const { return chromaWidth(); }
    int32_t chromaWidth() const { return (width_ + 1) / 2; }
    int32_t chromaHeight() const { return (height_ + 1) / 2; }

    /// The pixels as RGBA, 4 bytes per pixel, rows top to bottom (BT.601 limited range).
    std::vector<uint8_t> toRGBA() const;

    RTCVideoFrame(int32_t width, int32_t height, std::vector<uint8_t> i420,
                  RTCVideoRotation rotation, int64_t timeStampNs);

  private:
    int32_t width_;
    int32_t height_;
    std::vector<uint8_t> data_;
    RTCVideoRotation rotation_;
    int64_t timeStampNs_;
};

using RTCVideoFramePtr = std::shared_ptr<const RTCVideoFrame>;
