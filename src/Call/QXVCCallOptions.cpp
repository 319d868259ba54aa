#include "VelmorinVideoChat/Call/QXVCCallOptions.h"

#include <utility>

std::shared_ptr<QXVCCallOptions> QXVCCallOptions::initWithChannelUrl(
    std::optional<std::string> channelUrl) {
    std::shared_ptr<QXVCCallOptions> options(new QXVCCallOptions());
    options->channelUrl_ = std::move(channelUrl);
    return options;
}

bool QXVCCallOptions::audioEnabled() const {
    std::lock_guard lock(mutex_);
    return audioEnabled_;
}
void QXVCCallOptions::setAudioEnabled(bool enabled) {
    std::lock_guard lock(mutex_);
    audioEnabled_ = enabled;
}

bool QXVCCallOptions::videoEnabled() const {
    std::lock_guard lock(mutex_);
    return videoEnabled_;
}
void QXVCCallOptions::setVideoEnabled(bool enabled) {
    std::lock_guard lock(mutex_);
    videoEnabled_ = enabled;
}

std::optional<std::string> QXVCCallOptions::channelUrl() const {
    std::lock_guard lock(mutex_);
    return channelUrl_;
}
void QXVCCallOptions::setChannelUrl(std::optional<std::string> channelUrl) {
    std::lock_guard lock(mutex_);
    channelUrl_ = std::move(channelUrl);
}

std::shared_ptr<QXVCLocalVideoView> QXVCCallOptions::localVideoView() const {
    std::lock_guard lock(mutex_);
    return localVideoView_.lock();
}
void QXVCCallOptions::setLocalVideoView(const std::shared_ptr<QXVCLocalVideoView>& view) {
    std::lock_guard lock(mutex_);
    localVideoView_ = view;
}

std::shared_ptr<QXVCRemoteVideoView> QXVCCallOptions::remoteVideoView() const {
    std::lock_guard lock(mutex_);
    return remoteVideoView_.lock();
}
void QXVCCallOptions::setRemoteVideoView(const std::shared_ptr<QXVCRemoteVideoView>& view) {
    std::lock_guard lock(mutex_);
    remoteVideoView_ = view;
}

long QXVCCallOptions::videoFps() const {
    std::lock_guard lock(mutex_);
    return videoFps_;
}
void QXVCCallOptions::setVideoFps(long fps) {
    std::lock_guard lock(mutex_);
    videoFps_ = fps;
}

QXVCCameraPosition QXVCCallOptions::defaultCameraPosition() const {
    std::lock_guard lock(mutex_);
    return defaultCameraPosition_;
}
void QXVCCallOptions::setDefaultCameraPosition(QXVCCameraPosition position) {
    std::lock_guard lock(mutex_);
    defaultCameraPosition_ = position;
}

CGSize QXVCCallOptions::resolution() const {
    std::lock_guard lock(mutex_);
    return resolution_;
}
void QXVCCallOptions::setResolution(CGSize resolution) {
    std::lock_guard lock(mutex_);
    resolution_ = resolution;
}
