// Sources of local media tracks.
#pragma once

#include <memory>

#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoFrame.h"

class RTCMediaSource {
  public:
    virtual ~RTCMediaSource() = default;
    virtual RTCSourceState state() const = 0;
};

/// The microphone. An inactive RTCAudioSession keeps it silent.
class RTCAudioSource : public RTCMediaSource {
  public:
    /// Linear gain 0..10, 1 by default.
    virtual double volume() const = 0;
    virtual void setVolume(double volume) = 0;
};
using RTCAudioSourcePtr = std::shared_ptr<RTCAudioSource>;

class RTCVideoCapturer;

/// Receives the frames of a capturer (`RTCVideoCapturerDelegate`).
class RTCVideoCapturerDelegate {
  public:
    virtual ~RTCVideoCapturerDelegate() = default;
    /// `capturer:didCaptureVideoFrame:`; called on the capturer's thread.
    virtual void capturer(RTCVideoCapturer* capturer, const RTCVideoFramePtr& frame) = 0;
};

/// A video source: the capturer's frame delegate and the feed of every video
/// track made on it.
class RTCVideoSource : public RTCMediaSource, public RTCVideoCapturerDelegate {
  public:
    /// `adaptOutputFormatToWidth:height:fps:`: frames larger than this are scaled
    /// down by the engine; 0 means no limit.
    virtual void adaptOutputFormatToWidth(int width, int height, int fps) = 0;
};
using RTCVideoSourcePtr = std::shared_ptr<RTCVideoSource>;
