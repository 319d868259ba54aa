// How the call flows tell the application's delegates about an event.
//
// One task per delegate is posted to the completion-handler queue, in the
// table's order. Each task holds its delegate weakly and the event's arguments
// strongly; a delegate that is gone or does not implement the event (empty
// callback) is skipped, both when the task is posted and when it runs.
#pragma once

#include <functional>
#include <tuple>
#include <utility>

#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace qxvc {

/// Example: notifyVideoChatDelegates(&QXVCVideoChatDelegate::didOpenCall, call).
template <typename... Params, typename... Args>
void notifyVideoChatDelegates(std::function<void(Params...)> QXVCVideoChatDelegate::*event,
                              Args... args) {
    for (const auto& [identifier, weak] : QXVCMain::getVideoChatDelegates()) {
        auto delegate = weak.lock();
        if (!delegate || !((*delegate).*event)) {
            continue;
        }
        QXVCMain::performCompletionHandlerDelegateQueueBlock(
            [weak = weak, event, arguments = std::make_tuple(args...)] {
                auto live = weak.lock();
                if (!live || !((*live).*event)) {
                    return;
                }
                std::apply([&](const auto&... a) { ((*live).*event)(a...); }, arguments);
            });
    }
}

/// The same for the single video-view delegate.
template <typename... Params, typename... Args>
void notifyVideoViewDelegate(std::function<void(Params...)> QXVCVideoViewDelegate::*event,
                             Args... args) {
    auto delegate = QXVCMain::getVideoViewDelegate();
    if (!delegate || !((*delegate).*event)) {
        return;
    }
    std::weak_ptr<QXVCVideoViewDelegate> weak = delegate;
    delegate.reset();
    QXVCMain::performCompletionHandlerDelegateQueueBlock(
        [weak, event, arguments = std::make_tuple(args...)] {
            auto live = weak.lock();
            if (!live || !((*live).*event)) {
                return;
            }
            std::apply([&](const auto&... a) { ((*live).*event)(a...); }, arguments);
        });
}

}  // namespace qxvc
