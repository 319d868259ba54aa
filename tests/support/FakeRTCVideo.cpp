#include "support/FakeRTCVideo.h"

#include <algorithm>

FakeRTCVideoSource::FakeRTCVideoSource(std::shared_ptr<FakeRTCContext> context, std::string name)
    : context_(std::move(context)), name_(std::move(name)) {}

void FakeRTCVideoSource::adaptOutputFormatToWidth(int width, int height, int fps) {
    context_->record(name_ + ".adaptOutputFormat(" + std::to_string(width) + "x" +
                     std::to_string(height) + "@" + std::to_string(fps) + ")");
}

void FakeRTCVideoSource::capturer(RTCVideoCapturer* /*capturer*/, const RTCVideoFramePtr& frame) {
    if (!frame) {
        return;
    }
    std::vector<std::shared_ptr<FakeRTCVideoTrack>> tracks;
    {
        std::lock_guard lock(mutex_);
        ++frames_;
        last_ = frame;
        for (const auto& weak : tracks_) {
            if (auto track = weak.lock()) {
                tracks.push_back(track);
            }
        }
    }
    for (const auto& track : tracks) {
        track->deliverFrame(frame);
    }
}

FakeRTCVideoTrack::FakeRTCVideoTrack(std::shared_ptr<FakeRTCContext> context, std::string trackId,
                                     RTCVideoSourcePtr source)
    : context_(std::move(context)), trackId_(std::move(trackId)), source_(std::move(source)) {}

void FakeRTCVideoTrack::setIsEnabled(bool enabled) {
    context_->record("videoTrack(" + trackId_ + ").setIsEnabled(" +
                     std::to_string(enabled ? 1 : 0) + ")");
    std::lock_guard lock(mutex_);
    enabled_ = enabled;
    history_.push_back(enabled);
}

void FakeRTCVideoTrack::addRenderer(const RTCVideoRendererPtr& renderer) {
    context_->record("videoTrack(" + trackId_ + ").addRenderer");
    if (!renderer) {
        return;
    }
    std::lock_guard lock(mutex_);
    if (std::find(renderers_.begin(), renderers_.end(), renderer) == renderers_.end()) {
        renderers_.push_back(renderer);
    }
}

void FakeRTCVideoTrack::removeRenderer(const RTCVideoRendererPtr& renderer) {
    context_->record("videoTrack(" + trackId_ + ").removeRenderer");
    std::lock_guard lock(mutex_);
    renderers_.erase(std::remove(renderers_.begin(), renderers_.end(), renderer), renderers_.end());
}

size_t FakeRTCVideoTrack::deliverFrame(const RTCVideoFramePtr& frame) {
    if (!frame) {
        return 0;
    }
    std::vector<RTCVideoRendererPtr> renderers;
    bool sizeChanged = false;
    const CGSize size{static_cast<double>(frame->width()), static_cast<double>(frame->height())};
    {
        std::lock_guard lock(mutex_);
        if (!enabled_) {
            return 0;
        }
        renderers = renderers_;
        sizeChanged = !(size == lastSize_);
        lastSize_ = size;
    }
    for (const auto& renderer : renderers) {
        if (sizeChanged) {
            renderer->setSize(size);
        }
        renderer->renderFrame(frame);
    }
    return renderers.size();
}
