#include "support/FakeRTCCapture.h"

#include <algorithm>

namespace {
QXDErrorPtr captureError(const std::string& text) {
    return QXDError::errorWithDomain("RTCCameraVideoCapturer", -1,
                                     QXDUserInfo{{NSLocalizedDescriptionKey, text}});
}
}  // namespace

void FakeRTCCaptureSession::addPreviewRenderer(const RTCVideoRendererPtr& renderer) {
    if (!renderer) {
        return;
    }
    std::lock_guard lock(mutex_);
    if (std::find(renderers_.begin(), renderers_.end(), renderer) == renderers_.end()) {
        renderers_.push_back(renderer);
    }
}

void FakeRTCCaptureSession::removePreviewRenderer(const RTCVideoRendererPtr& renderer) {
    std::lock_guard lock(mutex_);
    renderers_.erase(std::remove(renderers_.begin(), renderers_.end(), renderer), renderers_.end());
}

void FakeRTCCaptureSession::deliverFrame(const RTCVideoFramePtr& frame) {
    for (const auto& renderer : previewRenderers()) {
        renderer->renderFrame(frame);
    }
}

FakeRTCCameraVideoCapturer::FakeRTCCameraVideoCapturer(
    std::shared_ptr<FakeRTCContext> context, std::string name,
    std::weak_ptr<RTCVideoCapturerDelegate> delegate)
    : context_(std::move(context)),
      name_(std::move(name)),
      delegate_(std::move(delegate)),
      session_(std::make_shared<FakeRTCCaptureSession>()) {}

// Out of line: inlined, the compiler would flag callers holding a capturer that may be null.
FourCharCode FakeRTCCameraVideoCapturer::preferredOutputPixelFormat() const {
    return lockedCopy(mutex_, preferred_);
}

void FakeRTCCameraVideoCapturer::startCaptureWithDevice(const RTCCaptureDevicePtr& device,
                                                        const RTCCaptureDeviceFormatPtr& format,
                                                        int fps,
                                                        RTCCaptureCompletionHandler completion) {
    context_->record(name_ + ".startCapture(" + (device ? device->uniqueId() : "nil") + "," +
                     (format
                          ? std::to_string(format->width()) + "x" + std::to_string(format->height())
                          : "nil") +
                     "," + std::to_string(fps) + ")");
    QXDErrorPtr error;
    {
        std::lock_guard lock(mutex_);
        starts_.push_back(Start{device, format, fps});
        if (startError_) {
            error = startError_;
        } else if (!device || !format || fps < 1) {
            error = captureError("A device, a format and a frame rate of at least 1 are needed.");
        } else {
            current_ = Start{device, format, fps};
        }
    }
    if (!error) {
        session_->setRunning(true);
    }
    if (completion) {
        context_->dispatch([completion = std::move(completion), error] { completion(error); });
    }
}

void FakeRTCCameraVideoCapturer::stopCaptureWithCompletionHandler(
    RTCCaptureCompletionHandler completion) {
    context_->record(name_ + ".stopCapture()");
    {
        std::lock_guard lock(mutex_);
        ++stops_;
        current_.reset();
    }
    session_->setRunning(false);
    if (completion) {
        context_->dispatch([completion = std::move(completion)] { completion(nullptr); });
    }
}

bool FakeRTCCameraVideoCapturer::captureFrame(RTCVideoFramePtr frame) {
    std::shared_ptr<RTCVideoCapturerDelegate> delegate;
    {
        std::lock_guard lock(mutex_);
        if (!current_) {
            return false;
        }
        frameTime_ += 33'333'333;
        if (!frame) {
            frame = RTCVideoFrame::blackFrame(current_->format->width(), current_->format->height(),
                                              frameTime_);
        }
        delegate = delegate_.lock();
    }
    if (!frame) {
        return false;
    }
    if (delegate) {
        delegate->capturer(this, frame);
    }
    session_->deliverFrame(frame);
    return true;
}

std::vector<RTCCaptureDevicePtr> FakeRTCDefaultCaptureDevices() {
    auto formats = [] {
        std::vector<RTCCaptureDeviceFormatPtr> out;
        for (auto [w, h] : {std::pair{640, 480}, {1280, 720}, {1920, 1080}, {1920, 1440}}) {
            out.push_back(std::make_shared<RTCCaptureDeviceFormat>(
                w, h, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange,
                std::vector<RTCFrameRateRange>{{1, 30}}));
        }
        return out;
    };
    return {std::make_shared<RTCCaptureDevice>("front", "Front Camera",
                                               AVCaptureDevicePositionFront, formats()),
            std::make_shared<RTCCaptureDevice>("back", "Back Camera", AVCaptureDevicePositionBack,
                                               formats())};
}
