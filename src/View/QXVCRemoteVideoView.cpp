#include "VelmorinVideoChat/View/QXVCRemoteVideoView.h"

#include "Utils/QXVCPng.h"
#include "VelmorinVideoChat/Utils/QXVCFormat.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

std::shared_ptr<QXVCRemoteVideoView> QXVCRemoteVideoView::create() {
    // The constructor is protected so views are always owned by a shared_ptr
    // (the delegate is handed shared_from_this()).
    struct Made : QXVCRemoteVideoView {};
    return std::make_shared<Made>();
}

void QXVCRemoteVideoView::setSize(CGSize size) {
    reportSize(size);
}

void QXVCRemoteVideoView::renderFrame(const RTCVideoFramePtr& frame) {
    if (!frame) {
        return;
    }
    const bool quarterTurn =
        frame->rotation() == RTCVideoRotation_90 || frame->rotation() == RTCVideoRotation_270;
    const CGSize shown{static_cast<double>(quarterTurn ? frame->height() : frame->width()),
                       static_cast<double>(quarterTurn ? frame->width() : frame->height())};
    {
        std::lock_guard lock(mutex_);
        latestFrame_ = frame;
        ++frameCount_;
    }
    reportSize(shown);
}

void QXVCRemoteVideoView::reportSize(CGSize size) {
    std::shared_ptr<RTCVideoViewDelegate> delegate;
    {
        std::lock_guard lock(mutex_);
        if (size == size_) {
            return;
        }
        size_ = size;
        delegate = delegate_.lock();
    }
    std::shared_ptr<RTCVideoRenderer> self = weak_from_this().lock();
    if (delegate && self) {
        qxvc::safeCall("QXVCRemoteVideoView videoView:didChangeVideoSize:",
                       [&] { delegate->videoView(self, size); });
    }
}

void QXVCRemoteVideoView::setDelegate(const std::shared_ptr<RTCVideoViewDelegate>& delegate) {
    std::lock_guard lock(mutex_);
    delegate_ = delegate;
}

std::shared_ptr<RTCVideoViewDelegate> QXVCRemoteVideoView::delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_.lock();
}

CGSize QXVCRemoteVideoView::videoSize() const {
    std::lock_guard lock(mutex_);
    return size_;
}

uint64_t QXVCRemoteVideoView::frameCount() const {
    std::lock_guard lock(mutex_);
    return frameCount_;
}

RTCVideoFramePtr QXVCRemoteVideoView::latestFrame() const {
    std::lock_guard lock(mutex_);
    return latestFrame_;
}

std::vector<uint8_t> QXVCRemoteVideoView::latestFramePNG() const {
    const RTCVideoFramePtr frame = latestFrame();
    if (!frame) {
        return {};
    }
    const size_t lumaSize = static_cast<size_t>(frame->strideY()) * frame->height();
    const size_t chromaSize = static_cast<size_t>(frame->strideU()) * frame->chromaHeight();
    if (frame->i420().size() < lumaSize + 2 * chromaSize) {
        return {};
    }
    const auto width = static_cast<uint32_t>(frame->width());
    const auto height = static_cast<uint32_t>(frame->height());
    const std::vector<uint8_t> rgb = qxvc::png::rgbFromI420(
        frame->dataY(), lumaSize, frame->strideY(), frame->dataU(), chromaSize, frame->strideU(),
        frame->dataV(), chromaSize, frame->strideV(), width, height);
    if (rgb.empty()) {
        return {};
    }
    return qxvc::png::encodeRGB8(rgb.data(), rgb.size(), width, height);
}

bool QXVCRemoteVideoView::writeLatestFrameToPNG(const std::string& path) const {
    const std::vector<uint8_t> png = latestFramePNG();
    return !png.empty() && qxvc::png::writeFile(path, png);
}

long QXVCRemoteVideoView::videoContentMode() const {
    std::lock_guard lock(mutex_);
    return videoContentMode_;
}

void QXVCRemoteVideoView::setVideoContentMode(long mode) {
    std::lock_guard lock(mutex_);
    videoContentMode_ = mode;
}

std::string QXVCRemoteVideoView::description() const {
    const CGSize size = videoSize();
    return qxvc::format("<QXVCRemoteVideoView: %p; size = %gx%g; frames = %llu>",
                        static_cast<const void*>(this), size.width, size.height,
                        static_cast<unsigned long long>(frameCount()));
}
