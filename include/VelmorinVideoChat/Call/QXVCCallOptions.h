// QXVCCallOptions: the application's choices for starting or accepting a call.
//
// Defaults (after initWithChannelUrl): audio and video enabled, no views, 0
// frames per second (not set: the call picks the capture format's rate), the
// front camera, and a portrait resolution of 1080 x 1920.
//
// The options hold the views weakly: the application owns them. Accessors are
// safe from any thread.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"
#include "VelmorinVideoChat/QXVCTypes.h"

class QXVCLocalVideoView;
class QXVCRemoteVideoView;

class QXVCCallOptions {
  public:
    QXVCCallOptions(const QXVCCallOptions&) = delete;
    QXVCCallOptions& operator=(const QXVCCallOptions&) = delete;

    /// The only way to make options. The channel URL is stored as given, with
    /// no check; accepting a call with options whose channel URL is absent
    /// (nullopt) fails.
    static std::shared_ptr<QXVCCallOptions> initWithChannelUrl(
        std::optional<std::string> channelUrl);

    bool audioEnabled() const;
    void setAudioEnabled(bool enabled);
    bool videoEnabled() const;
    void setVideoEnabled(bool enabled);

    std::optional<std::string> channelUrl() const;
    void setChannelUrl(std::optional<std::string> channelUrl);

    /// nullptr when none was given or the view is gone.
    std::shared_ptr<QXVCLocalVideoView> localVideoView() const;
    void setLocalVideoView(const std::shared_ptr<QXVCLocalVideoView>& view);
    std::shared_ptr<QXVCRemoteVideoView> remoteVideoView() const;
    void setRemoteVideoView(const std::shared_ptr<QXVCRemoteVideoView>& view);

    /// Frames per second for the camera; 0 means not set.
    long videoFps() const;
    void setVideoFps(long fps);

    QXVCCameraPosition defaultCameraPosition() const;
    void setDefaultCameraPosition(QXVCCameraPosition position);

    /// Wanted capture size in pixels, width x height.
    CGSize resolution() const;
    void setResolution(CGSize resolution);

  private:
    QXVCCallOptions() = default;

    mutable std::mutex mutex_;
    bool audioEnabled_ = true;
    bool videoEnabled_ = true;
    std::optional<std::string> channelUrl_;
    std::weak_ptr<QXVCLocalVideoView> localVideoView_;
    std::weak_ptr<QXVCRemoteVideoView> remoteVideoView_;
    long videoFps_ = 0;
    QXVCCameraPosition defaultCameraPosition_ = QXVCCameraPositionFront;
    CGSize resolution_{1080, 1920};
};

using QXVCCallOptionsPtr = std::shared_ptr<QXVCCallOptions>;
