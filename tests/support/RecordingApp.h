// An application delegate that reports every call event by name.
#pragma once

#include <functional>
#include <memory>

#include "VelmorinVideoChat/QXVCMain.h"

/// A video-chat delegate whose every event calls `heard` with the event's name and call.
inline QXVCVideoChatDelegatePtr recordingApp(
    std::function<void(const char*, const QXVCCallPtr&)> heard) {
    auto app = std::make_shared<QXVCVideoChatDelegate>();
    auto record = [heard](const char* name) {
        return [heard, name](const QXVCCallPtr& call, const auto&...) { heard(name, call); };
    };
    app->didReceiveStartCall = record("didReceiveStartCall");
    app->didSendStartCall = record("didSendStartCall");
    app->didReceiveAcceptCall = record("didReceiveAcceptCall");
    app->didReceiveEndCall = record("didReceiveEndCall");
    app->didOpponentAudioStateChange = record("didOpponentAudioStateChange");
    app->didOpponentVideoStateChange = record("didOpponentVideoStateChange");
    app->didSendAcceptCall = record("didSendAcceptCall");
    app->didSendEndCall = record("didSendEndCall");
    app->didOpenCall = record("didOpenCall");
    app->didDropCall = record("didDropCall");
    app->didReopenCall = record("didReopenCall");
    return app;
}
