#include "VelmorinVideoChat/View/QXVCLocalVideoView.h"

#include "VelmorinVideoChat/Utils/QXVCFormat.h"

// The object the capture session delivers preview frames to. It is separate
// from the view so the session never holds the view itself alive.
class QXVCLocalVideoView::PreviewOutput final : public RTCVideoRenderer {
  public:
    void setSize(CGSize /*size*/) override {}
    void renderFrame(const RTCVideoFramePtr& frame) override {
        if (!frame) {
            return;
        }
        std::lock_guard lock(mutex_);
        latest_ = frame;
        ++count_;
    }
    uint64_t count() const {
        std::lock_guard lock(mutex_);
        return count_;
    }
    RTCVideoFramePtr latest() const {
        std::lock_guard lock(mutex_);
        return latest_;
    }

  private:
    mutable std::mutex mutex_;
    RTCVideoFramePtr latest_;
    uint64_t count_ = 0;
};

std::shared_ptr<QXVCLocalVideoView> QXVCLocalVideoView::create() {
    return std::shared_ptr<QXVCLocalVideoView>(new QXVCLocalVideoView());
}

QXVCLocalVideoView::QXVCLocalVideoView() : output_(std::make_shared<PreviewOutput>()) {}

QXVCLocalVideoView::~QXVCLocalVideoView() {
    if (session_) {
        session_->removePreviewRenderer(output_);
    }
}

RTCCaptureSessionPtr QXVCLocalVideoView::captureSession() const {
    std::lock_guard lock(mutex_);
    return session_;
}

void QXVCLocalVideoView::setCaptureSession(const RTCCaptureSessionPtr& session) {
    RTCCaptureSessionPtr previous;
    {
        std::lock_guard lock(mutex_);
        if (session == session_) {
            return;
        }
        previous = session_;
        session_ = session;
    }
    // The sessions are called outside the view's lock: they may deliver a frame
    // to the output from inside these calls.
    if (previous) {
        previous->removePreviewRenderer(output_);
    }
    if (session) {
        session->addPreviewRenderer(output_);
    }
}

uint64_t QXVCLocalVideoView::previewFrameCount() const {
    return output_->count();
}

RTCVideoFramePtr QXVCLocalVideoView::latestPreviewFrame() const {
    return output_->latest();
}

std::string QXVCLocalVideoView::description() const {
    return qxvc::format("<QXVCLocalVideoView: %p; captureSession = %p>",
                        static_cast<const void*>(this),
                        static_cast<const void*>(captureSession().get()));
}
