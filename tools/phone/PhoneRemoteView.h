// The phone's remote view: the library's view, plus what the pictures say
// about themselves. Pictures from a tagging camera carry who sent them, from
// which camera, and when they were captured; the view keeps the latest label
// and the delays from capture to arrival here.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "VelmorinVideoChat/View/QXVCRemoteVideoView.h"

struct PhoneFrameTag {
    std::string label;
    int64_t captureTimeMs = 0;
};

/// Reads a frame's tag; nullopt for an untagged frame.
using PhoneTagReader = std::function<std::optional<PhoneFrameTag>(const RTCVideoFrame&)>;

class PhoneRemoteView final : public QXVCRemoteVideoView {
  public:
    PhoneRemoteView(PhoneTagReader reader, std::function<int64_t()> wallClockMs);

    void renderFrame(const RTCVideoFramePtr& frame) override;

    /// The label of the latest tagged frame ("" when none was tagged).
    std::string latestLabel() const;
    /// Median capture-to-arrival delay of the last tagged frames, in ms.
    std::optional<int64_t> medianDelayMs() const;
    /// The tag of the latest frame, read again (for a snapshot of it).
    std::optional<PhoneFrameTag> latestTag() const;

  private:
    PhoneTagReader reader_;
    std::function<int64_t()> wallClockMs_;
    mutable std::mutex mutex_;
    std::string label_;
    std::deque<int64_t> delays_;
};
