// Sources and tracks of the GStreamer engine.
//
// Local video flows capturer -> video source -> every track on it -> the
// track's renderers and its senders' encoders. Remote video flows decoder ->
// remote track -> renderers. Everything here is thread-safe; frames are handed
// on outside the objects' locks.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCAudioTrack.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoTrack.h"

class RTCGstAudioSource final : public RTCAudioSource {
  public:
    RTCSourceState state() const override { return RTCSourceStateLive; }
    double volume() const override { return volume_.load(); }
    void setVolume(double volume) override;

  private:
    std::atomic<double> volume_{1.0};
};

/// Keeps change listeners of a track (the sending branches that follow its
/// enabled flag).
class RTCGstListeners {
  public:
    int add(std::function<void()> listener);
    void remove(int id);
    void notify();

  private:
    std::mutex mutex_;
    int next_ = 1;
    std::map<int, std::function<void()>> listeners_;
};

class RTCGstAudioTrack final : public RTCAudioTrack {
  public:
    RTCGstAudioTrack(std::string trackId, RTCAudioSourcePtr source)
        : trackId_(std::move(trackId)), source_(std::move(source)) {}
    std::string trackId() const override { return trackId_; }
    bool isEnabled() const override { return enabled_.load(); }
    void setIsEnabled(bool enabled) override;
    RTCMediaStreamTrackState readyState() const override { return RTCMediaStreamTrackStateLive; }
    RTCAudioSourcePtr source() const override { return source_; }
    RTCGstListeners& listeners() { return listeners_; }

  private:
    std::string trackId_;
    RTCAudioSourcePtr source_;
    std::atomic<bool> enabled_{true};
    RTCGstListeners listeners_;
};

class RTCGstVideoTrack;

/// Fans captured frames out to the tracks made on it.
class RTCGstVideoSource final : public RTCVideoSource {
  public:
    RTCSourceState state() const override { return RTCSourceStateLive; }
    void adaptOutputFormatToWidth(int width, int height, int fps) override;
    void capturer(RTCVideoCapturer* capturer, const RTCVideoFramePtr& frame) override;
    void attach(const std::shared_ptr<RTCGstVideoTrack>& track);
    uint64_t framesCaptured() const { return frames_.load(); }

  private:
    std::mutex mutex_;
    std::vector<std::weak_ptr<RTCGstVideoTrack>> tracks_;
    std::atomic<uint64_t> frames_{0};
};

using RTCGstFrameSink = std::function<void(const RTCVideoFramePtr& frame)>;

class RTCGstVideoTrack final : public RTCVideoTrack {
  public:
    /// `source` is nil for a remote track.
    RTCGstVideoTrack(std::string trackId, RTCVideoSourcePtr source)
        : trackId_(std::move(trackId)), source_(std::move(source)) {}
    std::string trackId() const override { return trackId_; }
    bool isEnabled() const override { return enabled_.load(); }
    void setIsEnabled(bool enabled) override { enabled_.store(enabled); }
    RTCMediaStreamTrackState readyState() const override { return RTCMediaStreamTrackStateLive; }
    RTCVideoSourcePtr source() const override { return source_; }
    void addRenderer(const RTCVideoRendererPtr& renderer) override;
    void removeRenderer(const RTCVideoRendererPtr& renderer) override;

    /// A frame for this track: renderers get it while the track is enabled;
    /// sinks (encoders) get it, or a black frame of its size while disabled.
    void deliver(const RTCVideoFramePtr& frame);
    int addSink(RTCGstFrameSink sink);
    void removeSink(int id);
    uint64_t framesDelivered() const { return delivered_.load(); }

  private:
    std::string trackId_;
    RTCVideoSourcePtr source_;
    std::atomic<bool> enabled_{true};
    std::mutex mutex_;
    std::vector<RTCVideoRendererPtr> renderers_;
    std::map<RTCVideoRenderer*, CGSize> sizes_;
    std::map<int, RTCGstFrameSink> sinks_;
    int nextSink_ = 1;
    RTCVideoFramePtr black_;
    std::atomic<uint64_t> delivered_{0};
};
