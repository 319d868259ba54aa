// Conversions between GStreamer samples and RTCVideoFrame.
#pragma once

#include <gst/gst.h>

#include "VelmorinVideoChat/Platform/RTC/RTCVideoFrame.h"

namespace rtcgst {

/// The I420 frame of an appsink sample (copied, strides removed); nullptr when
/// the sample is not raw I420 video.
RTCVideoFramePtr frameFromSample(GstSample* sample);

/// A new buffer with the frame's pixels (the appsrc of an encoder takes it).
GstBuffer* bufferFromFrame(const RTCVideoFrame& frame);

/// Monotonic time in nanoseconds.
int64_t monotonicNs();

}  // namespace rtcgst
