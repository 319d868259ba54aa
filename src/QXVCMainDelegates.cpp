// QXVCMain: the application's delegates and the completion-handler queue.
#include "QXVCMainState.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

void QXVCMain::addVideoChatDelegate(const QXVCVideoChatDelegatePtr& delegate,
                                    const std::string& identifier) {
    if (!delegate) {
        removeVideoChatDelegateWithIdentifier(identifier);
        return;
    }
    State& s = state();
    std::unique_lock lock(s.videoChatDelegatesMutex);
    s.videoChatDelegates[identifier] = delegate;
}

void QXVCMain::removeVideoChatDelegateWithIdentifier(const std::string& identifier) {
    State& s = state();
    std::unique_lock lock(s.videoChatDelegatesMutex);
    s.videoChatDelegates.erase(identifier);
}

void QXVCMain::removeAllVideoChatDelegates() {
    State& s = state();
    std::unique_lock lock(s.videoChatDelegatesMutex);
    s.videoChatDelegates.clear();
}

QXVCVideoChatDelegateTable QXVCMain::getVideoChatDelegates() {
    State& s = state();
    std::shared_lock lock(s.videoChatDelegatesMutex);
    return s.videoChatDelegates;
}

void QXVCMain::setVideoViewDelegate(const QXVCVideoViewDelegatePtr& delegate) {
    State& s = state();
    std::unique_lock lock(s.videoViewDelegateMutex);
    s.videoViewDelegate = delegate;
}

void QXVCMain::removeVideoViewDelegate() {
    State& s = state();
    std::unique_lock lock(s.videoViewDelegateMutex);
    s.videoViewDelegate.reset();
}

QXVCVideoViewDelegatePtr QXVCMain::getVideoViewDelegate() {
    State& s = state();
    std::shared_lock lock(s.videoViewDelegateMutex);
    return s.videoViewDelegate.lock();
}

void QXVCMain::setCompletionHandlerDelegateQueue(QXVCDispatchQueuePtr queue) {
    State& s = state();
    std::lock_guard lock(s.completionQueueMutex);
    s.completionHandlerAndDelegatesQueue = std::move(queue);
}

QXVCDispatchQueuePtr QXVCMain::getCompletionHandlerDelegateQueue() {
    State& s = state();
    {
        std::lock_guard lock(s.completionQueueMutex);
        if (s.completionHandlerAndDelegatesQueue) {
            return s.completionHandlerAndDelegatesQueue;
        }
    }
    return QXVCMainQueue::get();
}

void QXVCMain::performCompletionHandlerDelegateQueueBlock(std::function<void()> block) {
    if (!block) {
        return;
    }
    getCompletionHandlerDelegateQueue()->async(
        [block = std::move(block)] { qxvc::safeCall("completion handler", block); });
}
