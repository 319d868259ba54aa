#pragma once

#include <memory>

#include "VelmorinVideoChat/Platform/RTC/RTCMediaSource.h"
#include "VelmorinVideoChat/Platform/RTC/RTCMediaStreamTrack.h"

/// An audio track. A local track's source is the microphone; a remote track's
/// source is nil.
class RTCAudioTrack : public RTCMediaStreamTrack {
  public:
    std::string kind() const override { return kRTCMediaStreamTrackKindAudio; }
    virtual RTCAudioSourcePtr source() const = 0;
};

using RTCAudioTrackPtr = std::shared_ptr<RTCAudioTrack>;
