// A media track: audio or video, local or remote.
#pragma once

#include <memory>
#include <string>

#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

inline constexpr const char* kRTCMediaStreamTrackKindAudio = "audio";
inline constexpr const char* kRTCMediaStreamTrackKindVideo = "video";

/// Thread-safe. A disabled local audio track sends silence, a disabled local
/// video track sends black frames; a disabled remote track delivers nothing.
class RTCMediaStreamTrack {
  public:
    virtual ~RTCMediaStreamTrack() = default;
    /// "audio" or "video".
    virtual std::string kind() const = 0;
    virtual std::string trackId() const = 0;
    virtual bool isEnabled() const = 0;
    virtual void setIsEnabled(bool enabled) = 0;
    virtual RTCMediaStreamTrackState readyState() const = 0;
    virtual std::string description() const {
        return "RTCMediaStreamTrack:\n" + kind() + "\n" + trackId();
    }
};

using RTCMediaStreamTrackPtr = std::shared_ptr<RTCMediaStreamTrack>;
