// The fields of the QXVCMain instance, shared by the files that implement its
// concerns (QXVCMain*.cpp).
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>

#include "QXVCProcessedMessageIds.h"
#include "VelmorinVideoChat/Platform/Chat/QXDChannel.h"
#include "VelmorinVideoChat/QXVCMain.h"

struct QXVCMain::State {
    static constexpr long kDefaultStartCallTimeout = 30;
    static constexpr long kMinStartCallTimeout = 30;
    static constexpr long kMaxStartCallTimeout = 60;

    /// True while a start is under way or a call is going on: the gate against a
    /// second call. Maintained by the call flows.
    std::atomic<bool> isCalling{false};
    std::atomic<bool> autoAcceptSimultaneousStartCall{false};
    std::atomic<long> startCallTimeout{kDefaultStartCallTimeout};

    /// Application delegates; reads shared, writes exclusive.
    mutable std::shared_mutex videoChatDelegatesMutex;
    QXVCVideoChatDelegateTable videoChatDelegates;

    mutable std::shared_mutex videoViewDelegateMutex;
    std::weak_ptr<QXVCVideoViewDelegate> videoViewDelegate;

    /// nullptr: the main queue.
    mutable std::mutex completionQueueMutex;
    QXVCDispatchQueuePtr completionHandlerAndDelegatesQueue;

    /// The call that owns the media. Maintained by the call flows.
    mutable std::mutex activeCallMutex;
    QXVCCallPtr activeCall;

    std::atomic<long> logLevel{0};
    mutable std::mutex logSinkMutex;
    std::shared_ptr<const QXVCLogSink> logSink;  // nullptr: the default sink

    /// Message ids already taken up by the intake (channel and push paths).
    QXVCProcessedMessageIds processedMessageIds;

    /// Registered with the chat port; the port holds it weakly.
    QXDChannelDelegatePtr channelDelegate;
};
