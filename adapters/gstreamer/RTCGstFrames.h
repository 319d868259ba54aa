// Conversions between GStreamer samples and RTCVideoFrame.
#pragma once

#include <gst/gst.h>

#include <functional>

#include "VelmorinVideoChat/Platform/RTC/RTCVideoFrame.h"

namespace rtcgst {

/// The I420 frame of an appsink sample (copied, strides removed); nullptr when
/// the sample is not raw I420 video. `edit`, when given, may change the copied
/// pixels (tightly packed I420) before the frame is made.
RTCVideoFramePtr frameFromSample(
    GstSample* sample,
    const std::function<void(uint8_t* i420, int width, int height)>& edit = nullptr);

/// A new buffer with the frame's pixels (the appsrc of an encoder takes it).
GstBuffer* bufferFromFrame(const RTCVideoFrame& frame);

/// Monotonic time in nanoseconds.
int64_t monotonicNs();

}  // namespace rtcgst
