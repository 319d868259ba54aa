// A window on the X11 display (DISPLAY) for a call: one picture large (the
// remote video) and, once it has frames, a second one inset in the bottom-right
// corner at a quarter of the width (the local preview). Until the large
// picture has a frame, the inset picture fills the window. Frames are drawn
// through GStreamer's ximagesink at the large picture's size; the window
// closes with close() or when the object is destroyed.
//
// Add the window as a renderer of the remote video track, and insetRenderer()
// as a preview renderer of the camera's capture session. Thread-safe.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "VelmorinVideoChat/Platform/RTC/RTCVideoRenderer.h"

class RTCGstVideoWindow final : public RTCVideoRenderer,
                                public std::enable_shared_from_this<RTCGstVideoWindow> {
  public:
    /// nullptr, with the reason in `error`, when no X display can be opened.
    static std::shared_ptr<RTCGstVideoWindow> open(std::string& error);
    ~RTCGstVideoWindow() override;

    void setSize(CGSize size) override;
    void renderFrame(const RTCVideoFramePtr& frame) override;
    /// Feeds the inset picture; holds the window weakly.
    RTCVideoRendererPtr insetRenderer();

    void close();
    uint64_t framesShown() const { return shown_.load(); }

  private:
    struct Pipeline;
    explicit RTCGstVideoWindow(std::unique_ptr<Pipeline> pipeline);
    void setInset(const RTCVideoFramePtr& frame);
    void show(const RTCVideoFrame& frame);

    std::mutex mutex_;
    std::unique_ptr<Pipeline> pipeline_;
    int width_ = 0;
    int height_ = 0;
    bool haveMain_ = false;
    RTCVideoFramePtr inset_;
    std::atomic<uint64_t> shown_{0};
};
