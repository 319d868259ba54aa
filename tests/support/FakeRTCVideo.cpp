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
    lockedSet(mutex_, enabled_, enabled);
}

void FakeRTCVideoTrack::addRenderer(const RTCVideoRendererPtr& renderer) {
    context_->record("videoTrack(" + trackId_ + ").addRenderer");
    lockedAppend(mutex_, renderers_, renderer);
}

void FakeRTCVideoTrack::removeRenderer(const RTCVideoRendererPtr& renderer) {
    context_->record("videoTrack(" + trackId_ + ").removeRenderer");
    std::lock_guard lock(mutex_);
    renderers_.erase(std::remove(renderers_.begin(), renderers_.end(), renderer), renderers_.end());
}

size_t FakeRTCVideoTrack::deliverFrame(const RTCVideoFramePtr& frame) {
    const auto renderers = frame && isEnabled() ? this->renderers() : decltype(renderers_){};
    for (const auto& renderer : renderers) {
        renderer->renderFrame(frame);
    }
    return renderers.size();
}
