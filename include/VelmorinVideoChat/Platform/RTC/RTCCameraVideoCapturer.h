// The camera capturer and its capture session (the local preview's feed).
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/Platform/RTC/RTCCaptureDevice.h"
#include "VelmorinVideoChat/Platform/RTC/RTCMediaSource.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoRenderer.h"

/// What a local preview shows: while capture runs, every captured frame goes to
/// the session's preview renderers (held strongly until removed).
class RTCCaptureSession {
  public:
    virtual ~RTCCaptureSession() = default;
    virtual bool isRunning() const = 0;
    virtual void addPreviewRenderer(const RTCVideoRendererPtr& renderer) = 0;
    virtual void removePreviewRenderer(const RTCVideoRendererPtr& renderer) = 0;
};

using RTCCaptureSessionPtr = std::shared_ptr<RTCCaptureSession>;

class RTCVideoCapturer {
  public:
    virtual ~RTCVideoCapturer() = default;
    /// The frame delegate (a video source), held weakly.
    virtual std::weak_ptr<RTCVideoCapturerDelegate> delegate() const = 0;
};

/// Completion of start and stop: nullptr on success. Runs on a capturer thread.
using RTCCaptureCompletionHandler = std::function<void(QXDErrorPtr error)>;

class RTCCameraVideoCapturer : public RTCVideoCapturer {
  public:
    /// `+captureDevices`: the installed platform's cameras, in its order; empty
    /// without a platform.
    static std::vector<RTCCaptureDevicePtr> captureDevices();
    /// `+supportedFormatsForDevice:`: the device's formats in its order; empty
    /// for nil.
    static std::vector<RTCCaptureDeviceFormatPtr> supportedFormatsForDevice(
        const RTCCaptureDevicePtr& device);
    /// `initWithDelegate:` of the installed platform; nullptr without one.
    static std::shared_ptr<RTCCameraVideoCapturer> initWithDelegate(
        const std::shared_ptr<RTCVideoCapturerDelegate>& delegate);

    /// The pixel format the capturer delivers best ('420f').
    virtual FourCharCode preferredOutputPixelFormat() const = 0;
    /// `startCaptureWithDevice:format:fps:completionHandler:`. Starting while
    /// capturing switches device and format in place. A nil device or format, or
    /// fps < 1, fails with an error and leaves capture as it was.
    virtual void startCaptureWithDevice(const RTCCaptureDevicePtr& device,
                                        const RTCCaptureDeviceFormatPtr& format, int fps,
                                        RTCCaptureCompletionHandler completion = nullptr) = 0;
    /// `stopCaptureWithCompletionHandler:`. Stopping when stopped succeeds.
    virtual void stopCaptureWithCompletionHandler(
        RTCCaptureCompletionHandler completion = nullptr) = 0;
    /// `captureSession`: the same object for the capturer's life.
    virtual RTCCaptureSessionPtr captureSession() const = 0;
};

using RTCCameraVideoCapturerPtr = std::shared_ptr<RTCCameraVideoCapturer>;
