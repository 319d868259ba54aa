// The application's delegate for call events.
//
// A table of optional callbacks: an empty std::function means "not
// implemented" and the event is skipped for this delegate. The application owns
// the table (std::shared_ptr) and registers it with
// QXVCMain::addVideoChatDelegate under an identifier; the library keeps only a
// weak reference, so a delegate that is destroyed simply stops hearing events.
//
// Every callback runs on the completion-handler queue (QXVCMain::
// setCompletionHandlerDelegateQueue, the main queue by default), never on the
// thread that raised the event. An exception thrown by a callback is caught and
// reported on stderr; it never reaches the library.
#pragma once

#include <functional>
#include <memory>

#include "VelmorinVideoChat/Platform/Chat/QXDTypes.h"

class QXVCCall;
using QXVCCallPtr = std::shared_ptr<QXVCCall>;

struct QXVCVideoChatDelegate {
    using CallEvent = std::function<void(const QXVCCallPtr& call)>;
    using CallMessageEvent =
        std::function<void(const QXVCCallPtr& call, const QXDUserMessagePtr& message)>;

    /// `didReceiveStartCall:`: another user is calling.
    CallEvent didReceiveStartCall;
    /// `didSendStartCall:withMessage:`: the start of an outgoing call was sent;
    /// `message` is the chat message that carried it, as the service stored it.
    CallMessageEvent didSendStartCall;
    /// `didReceiveAcceptCall:`: the other side accepted an outgoing call.
    CallEvent didReceiveAcceptCall;
    /// `didReceiveEndCall:`: the other side ended the call.
    CallEvent didReceiveEndCall;
    /// `didOpponentAudioStateChange:`: the other side turned its microphone on or off.
    CallEvent didOpponentAudioStateChange;
    /// `didOpponentVideoStateChange:`: the other side turned its video on or off.
    CallEvent didOpponentVideoStateChange;
    /// `didSendAcceptCall:`: this side accepted an incoming call.
    CallEvent didSendAcceptCall;
    /// `didSendEndCall:message:`: this side ended the call; `message` carried the end.
    CallMessageEvent didSendEndCall;
    /// `didOpenCall:`: media flow.
    CallEvent didOpenCall;
    /// `didDropCall:`: the connection was lost; the call tries to reconnect.
    CallEvent didDropCall;
    /// `didReopenCall:`: the connection came back after a drop.
    CallEvent didReopenCall;
};
using QXVCVideoChatDelegatePtr = std::shared_ptr<QXVCVideoChatDelegate>;
