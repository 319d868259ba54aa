#pragma once

#include <memory>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCAudioTrack.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoTrack.h"

/// A remote stream, as reported by the added/removed-stream callbacks.
class RTCMediaStream {
  public:
    virtual ~RTCMediaStream() = default;
    virtual std::string streamId() const = 0;
    virtual std::vector<RTCAudioTrackPtr> audioTracks() const = 0;
    virtual std::vector<RTCVideoTrackPtr> videoTracks() const = 0;
};

using RTCMediaStreamPtr = std::shared_ptr<RTCMediaStream>;

/// A data channel. Calls never open one; the type exists for the delegate.
class RTCDataChannel {
  public:
    virtual ~RTCDataChannel() = default;
    virtual std::string label() const = 0;
};

using RTCDataChannelPtr = std::shared_ptr<RTCDataChannel>;
