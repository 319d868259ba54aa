// QXVCLocalVideoView: the preview of this device's camera.
//
// The view is given the shared camera capturer's capture session while a call
// uses the camera (and nullptr when capture stops). While it holds a session it
// is one of the session's preview outputs: it keeps the latest captured frame
// and counts them, so the application can draw the preview with its toolkit.
// It is not a renderer of a video track. Every method is thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "VelmorinVideoChat/Platform/RTC/RTCCameraVideoCapturer.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoFrame.h"

class QXVCLocalVideoView {
  public:
    /// A new view without a capture session.
    static std::shared_ptr<QXVCLocalVideoView> create();
    ~QXVCLocalVideoView();
    QXVCLocalVideoView(const QXVCLocalVideoView&) = delete;
    QXVCLocalVideoView& operator=(const QXVCLocalVideoView&) = delete;

    /// `captureSession`: the session being previewed, or nullptr.
    RTCCaptureSessionPtr captureSession() const;
    /// `setCaptureSession:`. Leaves the previous session (if another) and joins
    /// `session`'s preview outputs; nullptr leaves without joining. Setting the
    /// same session again changes nothing.
    void setCaptureSession(const RTCCaptureSessionPtr& session);

    /// Frames previewed since the view was made.
    uint64_t previewFrameCount() const;
    /// The latest previewed frame, or nullptr before the first one.
    RTCVideoFramePtr latestPreviewFrame() const;

    std::string description() const;

  private:
    QXVCLocalVideoView();
    class PreviewOutput;

    mutable std::mutex mutex_;
    RTCCaptureSessionPtr session_;
    std::shared_ptr<PreviewOutput> output_;
};

using QXVCLocalVideoViewPtr = std::shared_ptr<QXVCLocalVideoView>;
