// The application's delegate for the remote video view.
//
// At most one is registered (QXVCMain::setVideoViewDelegate), held weakly. An
// empty callback is skipped. Callbacks run on the completion-handler queue.
#pragma once

#include <functional>
#include <memory>

#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

class QXVCRemoteVideoView;

struct QXVCVideoViewDelegate {
    /// `remoteVideoView:didChangeVideoSize:`: the remote video's size changed;
    /// `size` (width, height) is in points.
    std::function<void(const std::shared_ptr<QXVCRemoteVideoView>& view, CGSize size)>
        remoteVideoView;
};
using QXVCVideoViewDelegatePtr = std::shared_ptr<QXVCVideoViewDelegate>;
