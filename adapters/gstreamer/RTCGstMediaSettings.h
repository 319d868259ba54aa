// The engine's media choices, shared by the platform, its capturers and its
// peer connections: the options, the sound devices, the decoded audio files,
// and the one place replacements are reported.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "RTCGstAudioClip.h"
#include "RTCGstAudioDevices.h"
#include "RTCGstMediaOptions.h"

class RTCGstMediaSettings {
  public:
    explicit RTCGstMediaSettings(RTCGstMediaOptions options);
    RTCGstMediaSettings(const RTCGstMediaSettings&) = delete;
    RTCGstMediaSettings& operator=(const RTCGstMediaSettings&) = delete;

    RTCGstMediaOptions options() const;
    /// Takes effect for the next call (and, for the playback sinks, for the
    /// next route change of a call under way). A microphone file is decoded
    /// in the background at once.
    void setOptions(RTCGstMediaOptions options);
    /// Counts setOptions calls, so that derived lists know when to refresh.
    uint64_t generation() const;

    /// Reports a replaced medium: the warning handler, or the RTC log.
    void warn(const std::string& text) const;

    RTCGstAudioDevices& audioDevices() { return audioDevices_; }
    RTCGstAudioClips& clips() { return *clips_; }

  private:
    void prepareClip(const std::string& microphone);

    mutable std::mutex mutex_;
    RTCGstMediaOptions options_;
    uint64_t generation_ = 0;
    RTCGstAudioDevices audioDevices_;
    std::shared_ptr<RTCGstAudioClips> clips_ = std::make_shared<RTCGstAudioClips>();
    std::shared_ptr<QXVCSerialQueue> worker_;
};
