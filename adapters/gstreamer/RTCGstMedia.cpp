#include "RTCGstMedia.h"

#include <algorithm>

#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

void RTCGstAudioSource::setVolume(double volume) {
    volume_.store(std::clamp(volume, 0.0, 10.0));
}

int RTCGstListeners::add(std::function<void()> listener) {
    std::lock_guard lock(mutex_);
    int id = next_++;
    listeners_[id] = std::move(listener);
    return id;
}

void RTCGstListeners::remove(int id) {
    std::lock_guard lock(mutex_);
    listeners_.erase(id);
}

void RTCGstListeners::notify() {
    std::vector<std::function<void()>> copy;
    {
        std::lock_guard lock(mutex_);
        for (auto& [id, fn] : listeners_) {
            copy.push_back(fn);
        }
    }
    for (auto& fn : copy) {
        fn();
    }
}

void RTCGstAudioTrack::setIsEnabled(bool enabled) {
    if (enabled_.exchange(enabled) != enabled) {
        listeners_.notify();
    }
}

void RTCGstVideoSource::adaptOutputFormatToWidth(int /*width*/, int /*height*/, int /*fps*/) {
    // Frames are sent at the capture format the capturer was started with.
}

void RTCGstVideoSource::capturer(RTCVideoCapturer* /*capturer*/, const RTCVideoFramePtr& frame) {
    if (!frame) {
        return;
    }
    frames_.fetch_add(1);
    std::vector<std::shared_ptr<RTCGstVideoTrack>> tracks;
    {
        std::lock_guard lock(mutex_);
        std::erase_if(tracks_, [](const auto& weak) { return weak.expired(); });
        for (auto& weak : tracks_) {
            if (auto track = weak.lock()) {
                tracks.push_back(std::move(track));
            }
        }
    }
    for (auto& track : tracks) {
        track->deliver(frame);
    }
}

void RTCGstVideoSource::attach(const std::shared_ptr<RTCGstVideoTrack>& track) {
    std::lock_guard lock(mutex_);
    tracks_.push_back(track);
}

void RTCGstVideoTrack::addRenderer(const RTCVideoRendererPtr& renderer) {
    if (!renderer) {
        return;
    }
    std::lock_guard lock(mutex_);
    if (std::find(renderers_.begin(), renderers_.end(), renderer) == renderers_.end()) {
        renderers_.push_back(renderer);
    }
}

void RTCGstVideoTrack::removeRenderer(const RTCVideoRendererPtr& renderer) {
    std::lock_guard lock(mutex_);
    std::erase(renderers_, renderer);
    sizes_.erase(renderer.get());
}

int RTCGstVideoTrack::addSink(RTCGstFrameSink sink) {
    std::lock_guard lock(mutex_);
    int id = nextSink_++;
    sinks_[id] = std::move(sink);
    return id;
}

void RTCGstVideoTrack::removeSink(int id) {
    std::lock_guard lock(mutex_);
    sinks_.erase(id);
}

void RTCGstVideoTrack::deliver(const RTCVideoFramePtr& frame) {
    bool enabled = enabled_.load();
    CGSize size{double(frame->width()), double(frame->height())};
    std::vector<std::pair<RTCVideoRendererPtr, bool>> renderers;  // renderer, size changed
    std::vector<RTCGstFrameSink> sinks;
    RTCVideoFramePtr toSend = frame;
    {
        std::lock_guard lock(mutex_);
        if (enabled) {
            for (auto& renderer : renderers_) {
                auto it = sizes_.find(renderer.get());
                bool changed = it == sizes_.end() || !(it->second == size);
                sizes_[renderer.get()] = size;
                renderers.emplace_back(renderer, changed);
            }
        } else if (!sinks_.empty()) {
            if (!black_ || black_->width() != frame->width() ||
                black_->height() != frame->height()) {
                black_ = RTCVideoFrame::blackFrame(frame->width(), frame->height(), 0);
            }
            toSend = black_;
        }
        for (auto& [id, sink] : sinks_) {
            sinks.push_back(sink);
        }
    }
    for (auto& [renderer, changed] : renderers) {
        if (changed) {
            qxvc::safeCall("RTCVideoRenderer setSize", [&] { renderer->setSize(size); });
        }
        qxvc::safeCall("RTCVideoRenderer renderFrame", [&] { renderer->renderFrame(frame); });
    }
    if (enabled) {
        delivered_.fetch_add(1);
    }
    for (auto& sink : sinks) {
        sink(toSend);
    }
}
