#pragma once

#include <memory>

#include "VelmorinVideoChat/Platform/RTC/RTCMediaSource.h"
#include "VelmorinVideoChat/Platform/RTC/RTCMediaStreamTrack.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoRenderer.h"

/// A video track. Renderers receive every frame of the track (local: captured,
/// remote: decoded) while the track is enabled. The track holds its renderers
/// strongly until they are removed; adding one twice has no effect.
class RTCVideoTrack : public RTCMediaStreamTrack {
  public:
    std::string kind() const override { return kRTCMediaStreamTrackKindVideo; }
    /// The source of a local track; nil for a remote one.
    virtual RTCVideoSourcePtr source() const = 0;
    /// `addRenderer:` / `removeRenderer:`.
    virtual void addRenderer(const RTCVideoRendererPtr& renderer) = 0;
    virtual void removeRenderer(const RTCVideoRendererPtr& renderer) = 0;
};

using RTCVideoTrackPtr = std::shared_ptr<RTCVideoTrack>;
