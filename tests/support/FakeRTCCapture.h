// The fake engine's camera: capture devices, the capturer and its capture
// session (the local preview's feed).
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCCameraVideoCapturer.h"
#include "support/FakeRTCContext.h"

/// Running while its capturer captures; passes captured frames to its preview
/// renderers.
class FakeRTCCaptureSession : public RTCCaptureSession {
  public:
    bool isRunning() const override { return lockedCopy(mutex_, running_); }
    void addPreviewRenderer(const RTCVideoRendererPtr& renderer) override;
    void removePreviewRenderer(const RTCVideoRendererPtr& renderer) override;

    std::vector<RTCVideoRendererPtr> previewRenderers() const {
        return lockedCopy(mutex_, renderers_);
    }
    void setRunning(bool running) { lockedSet(mutex_, running_, running); }
    void deliverFrame(const RTCVideoFramePtr& frame);

  private:
    mutable std::mutex mutex_;
    bool running_ = false;
    std::vector<RTCVideoRendererPtr> renderers_;
};

class FakeRTCCameraVideoCapturer : public RTCCameraVideoCapturer,
                                   public std::enable_shared_from_this<FakeRTCCameraVideoCapturer> {
  public:
    FakeRTCCameraVideoCapturer(std::shared_ptr<FakeRTCContext> context, std::string name,
                               std::weak_ptr<RTCVideoCapturerDelegate> delegate);

    std::weak_ptr<RTCVideoCapturerDelegate> delegate() const override { return delegate_; }
    FourCharCode preferredOutputPixelFormat() const override;
    /// Recorded as "<name>.startCapture(<device id>,<w>x<h>,<fps>)" ("nil" for a
    /// missing device or format). A nil device or format or fps < 1 fails and
    /// leaves capture as it was, as does a scripted failure.
    void startCaptureWithDevice(const RTCCaptureDevicePtr& device,
                                const RTCCaptureDeviceFormatPtr& format, int fps,
                                RTCCaptureCompletionHandler completion = nullptr) override;
    /// Recorded as "<name>.stopCapture()".
    void stopCaptureWithCompletionHandler(
        RTCCaptureCompletionHandler completion = nullptr) override;
    RTCCaptureSessionPtr captureSession() const override { return session_; }

    struct Start {
        RTCCaptureDevicePtr device;
        RTCCaptureDeviceFormatPtr format;
        int fps = 0;
    };
    const std::string& name() const { return name_; }
    /// Every start request, failed ones included, in order.
    std::vector<Start> starts() const { return lockedCopy(mutex_, starts_); }
    size_t stopCount() const { return lockedCopy(mutex_, stops_); }
    bool isCapturing() const { return current().has_value(); }
    /// The device, format and fps now capturing (the last successful start).
    std::optional<Start> current() const { return lockedCopy(mutex_, current_); }
    std::shared_ptr<FakeRTCCaptureSession> fakeSession() const { return session_; }

    void setPreferredOutputPixelFormat(FourCharCode format) {
        lockedSet(mutex_, preferred_, format);
    }
    /// Makes the following starts fail with an error (nullptr: succeed again).
    void setStartError(QXDErrorPtr error) { lockedSet(mutex_, startError_, std::move(error)); }
    /// While capturing, hands `frame` to the frame delegate and the preview.
    /// Without a frame, a black one of the current format's size. Returns false
    /// (and delivers nothing) when not capturing.
    bool captureFrame(RTCVideoFramePtr frame = nullptr);

  private:
    std::shared_ptr<FakeRTCContext> context_;
    std::string name_;
    std::weak_ptr<RTCVideoCapturerDelegate> delegate_;
    std::shared_ptr<FakeRTCCaptureSession> session_;
    mutable std::mutex mutex_;
    FourCharCode preferred_ = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    std::vector<Start> starts_;
    size_t stops_ = 0;
    std::optional<Start> current_;
    QXDErrorPtr startError_;
    int64_t frameTime_ = 0;
};

/// Two cameras like the engine's built-in ones: a front camera ("front") and a
/// back one ("back"), each with 640x480, 1280x720, 1920x1080 and 1920x1440 in
/// the capturer's preferred pixel format, 1-30 fps.
std::vector<RTCCaptureDevicePtr> FakeRTCDefaultCaptureDevices();
