// The delegate of a video view: told when the size of the video it shows changes.
#pragma once

#include <memory>

#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoRenderer.h"

class RTCVideoViewDelegate {
  public:
    virtual ~RTCVideoViewDelegate() = default;
    /// `videoView:didChangeVideoSize:`.
    virtual void videoView(const std::shared_ptr<RTCVideoRenderer>& videoView, CGSize size) = 0;
};
