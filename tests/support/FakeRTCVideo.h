// The fake engine's video: the video source (the capturer's frame delegate) and
// video tracks with their renderers.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCVideoTrack.h"
#include "support/FakeRTCContext.h"

class FakeRTCVideoTrack;

/// Counts the frames it receives and passes them to the tracks made on it.
class FakeRTCVideoSource : public RTCVideoSource {
  public:
    explicit FakeRTCVideoSource(std::shared_ptr<FakeRTCContext> context, std::string name);

    RTCSourceState state() const override { return RTCSourceStateLive; }
    void adaptOutputFormatToWidth(int width, int height, int fps) override;
    void capturer(RTCVideoCapturer* capturer, const RTCVideoFramePtr& frame) override;

    const std::string& name() const { return name_; }
    size_t framesReceived() const { return lockedCopy(mutex_, frames_); }
    RTCVideoFramePtr lastFrame() const { return lockedCopy(mutex_, last_); }
    /// Called by the factory when it makes a track on this source.
    void attachTrack(const std::shared_ptr<FakeRTCVideoTrack>& track) {
        lockedAppend(mutex_, tracks_, track);
    }

  private:
    std::shared_ptr<FakeRTCContext> context_;
    std::string name_;
    mutable std::mutex mutex_;
    size_t frames_ = 0;
    RTCVideoFramePtr last_;
    std::vector<std::weak_ptr<FakeRTCVideoTrack>> tracks_;
};

/// A local track (with a source) or a remote one (without). Renderers are held
/// strongly until removed; deliverFrame gives them a frame while the track is
/// enabled, after setSize when the frame size differs from the previous one.
class FakeRTCVideoTrack : public RTCVideoTrack {
  public:
    FakeRTCVideoTrack(std::shared_ptr<FakeRTCContext> context, std::string trackId,
                      RTCVideoSourcePtr source);

    std::string trackId() const override { return trackId_; }
    bool isEnabled() const override { return lockedCopy(mutex_, enabled_); }
    /// Recorded as "videoTrack(<id>).setIsEnabled(<0|1>)".
    void setIsEnabled(bool enabled) override;
    RTCMediaStreamTrackState readyState() const override { return RTCMediaStreamTrackStateLive; }
    RTCVideoSourcePtr source() const override { return source_; }
    /// Recorded as "videoTrack(<id>).addRenderer" / ".removeRenderer".
    void addRenderer(const RTCVideoRendererPtr& renderer) override;
    void removeRenderer(const RTCVideoRendererPtr& renderer) override;

    std::vector<RTCVideoRendererPtr> renderers() const { return lockedCopy(mutex_, renderers_); }
    std::vector<bool> enabledHistory() const { return lockedCopy(mutex_, history_); }
    /// Hands `frame` to every renderer (the engine decoding or capturing one).
    /// Returns how many renderers got it (0 while disabled).
    size_t deliverFrame(const RTCVideoFramePtr& frame);

  private:
    std::shared_ptr<FakeRTCContext> context_;
    std::string trackId_;
    RTCVideoSourcePtr source_;
    mutable std::mutex mutex_;
    bool enabled_ = true;
    std::vector<bool> history_;
    std::vector<RTCVideoRendererPtr> renderers_;
    CGSize lastSize_;
};
