// The camera capturer of the GStreamer engine.
//
// One capture pipeline at a time, for the device and format asked for: a V4L2
// camera in the format it offers (decoded and converted to I420), a video file
// played in a loop at its own pace, or a built-in test camera that draws its
// label and a clock and tags every frame (RTCGstFrameTag.h). Frames go as I420
// to the delegate and to the capture session's preview renderers, on the
// capture pipeline's streaming thread. A camera that fails while capturing is
// reported through the media settings' warnings.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "RTCGstCameraDevices.h"
#include "RTCGstHandles.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/Platform/RTC/RTCCameraVideoCapturer.h"

class RTCGstMediaSettings;
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
    RTCGstCameraVideoCapturer(std::weak_ptr<RTCVideoCapturerDelegate> delegate,
                              std::shared_ptr<RTCGstMediaSettings> settings);
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
    /// Restarts a file camera from its beginning (capture queue).
    void rewind(GstElement* pipeline);
    /// A camera that failed while capturing (capture queue).
    void report(GstElement* pipeline, const std::string& text);

    std::weak_ptr<RTCVideoCapturerDelegate> delegate_;
    std::shared_ptr<RTCGstMediaSettings> settings_;
    std::shared_ptr<QXVCSerialQueue> queue_;
    std::shared_ptr<RTCGstCaptureSession> session_;
    mutable std::mutex mutex_;
    rtcgst::Owned<GstElement> pipeline_;
    RTCCaptureDevicePtr device_;
    std::atomic<uint64_t> frames_{0};
};
