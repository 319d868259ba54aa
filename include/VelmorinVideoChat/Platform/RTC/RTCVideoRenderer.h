// Something that draws video frames: the remote view, a preview, a test probe.
#pragma once

#include <memory>

#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoFrame.h"

/// Renderers are called on the engine's media threads, one frame at a time per
/// track; they must not block. `setSize` comes before the first frame and again
/// whenever the frame size changes.
class RTCVideoRenderer {
  public:
    virtual ~RTCVideoRenderer() = default;
    /// `setSize:`.
    virtual void setSize(CGSize size) = 0;
    /// `renderFrame:`. Never called with nullptr.
    virtual void renderFrame(const RTCVideoFramePtr& frame) = 0;
};

using RTCVideoRendererPtr = std::shared_ptr<RTCVideoRenderer>;
