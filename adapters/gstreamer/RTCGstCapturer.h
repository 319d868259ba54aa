// The camera capturer of the GStreamer engine.
//
// Cameras: every V4L2 camera GStreamer's device monitor finds (position
// unspecified), then two built-in test-pattern cameras that always exist: a
// front one (colour bars) and a back one (a moving ball), each with the formats
// 640x480, 1280x720, 1920x1080 and 1920x1440 in '420v' and '420f' at 1-30 fps.
// Frames are delivered as I420 to the delegate and to the capture session's
// preview renderers, on the capture pipeline's streaming thread.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCCameraVideoCapturer.h"

typedef struct _GstElement GstElement;

/// The built-in devices' ids.
inline constexpr const char* kRTCGstFrontCameraId = "velmorin-test-camera-front";
inline constexpr const char* kRTCGstBackCameraId = "velmorin-test-camera-back";

/// The cameras: V4L2 ones first, then the two test-pattern cameras.
std::vector<RTCCaptureDevicePtr> RTCGstCaptureDevices(bool includeV4L2);

class RTCGstCaptureSession final : public RTCCaptureSession {
  public:
    bool isRunning() const override { return running_.load(); }
    void addPreviewRenderer(const RTCVideoRendererPtr& renderer) override;
    void removePreviewRenderer(const RTCVideoRendererPtr& renderer) override;
    void setRunning(bool running) { running_.store(running); }
    void deliver(const RTCVideoFramePtr& frame);

  private:
    std::atomic<bool> running_{false};
    std::mutex mutex_;
    std::vector<RTCVideoRendererPtr> renderers_;
    CGSize lastSize_;
};

class RTCGstCameraVideoCapturer final
    : public RTCCameraVideoCapturer,
      public std::enable_shared_from_this<RTCGstCameraVideoCapturer> {
  public:
    explicit RTCGstCameraVideoCapturer(std::weak_ptr<RTCVideoCapturerDelegate> delegate);
    ~RTCGstCameraVideoCapturer() override;

    std::weak_ptr<RTCVideoCapturerDelegate> delegate() const override { return delegate_; }
    FourCharCode preferredOutputPixelFormat() const override {
        return kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    }
    void startCaptureWithDevice(const RTCCaptureDevicePtr& device,
                                const RTCCaptureDeviceFormatPtr& format, int fps,
                                RTCCaptureCompletionHandler completion) override;
    void stopCaptureWithCompletionHandler(RTCCaptureCompletionHandler completion) override;
    RTCCaptureSessionPtr captureSession() const override { return session_; }

    /// The device capture runs on, or nullptr.
    RTCCaptureDevicePtr currentDevice() const;
    uint64_t framesCaptured() const { return frames_.load(); }

    struct Sink;

  private:
    void onFrame(const RTCVideoFramePtr& frame);
    void stopPipeline();

    std::weak_ptr<RTCVideoCapturerDelegate> delegate_;
    std::shared_ptr<RTCGstCaptureSession> session_;
    mutable std::mutex mutex_;
    GstElement* pipeline_ = nullptr;
    Sink* sink_ = nullptr;
    RTCCaptureDevicePtr device_;
    std::atomic<uint64_t> frames_{0};
};
