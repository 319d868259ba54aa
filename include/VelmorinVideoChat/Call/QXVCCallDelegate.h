// QXVCCallDelegate: how a call reports its events to the coordinator.
//
// Every call holds one such delegate weakly; in practice it is the coordinator
// (QXVCMain::sharedInstance()->getDelegate()), which fans the events out to the
// application's delegates. The events are raised synchronously on the thread
// where they arise: the chat client's callback thread for the two send events,
// the engine's signalling thread for open, drop and reopen, the engine's media
// thread for a size change. An implementation must not block there.
//
// "Does the delegate implement this event?" is asked before every event: every
// method has an empty default, and `respondsTo(event)` says whether the
// implementer handles it. The default answers true for every event; an
// implementer that handles only some events overrides respondsTo. When it
// answers false the call skips the event, and whatever the call does only
// together with the event (recording the end type of an internal end) is
// skipped with it.
#pragma once

#include <memory>

#include "VelmorinVideoChat/Platform/Chat/QXDTypes.h"
#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

class QXVCCall;
class QXVCRemoteVideoView;

class QXVCCallDelegate {
  public:
    /// One value per event, in the protocol's order.
    enum class Event {
        DidSendAcceptCall,
        DidSendEndCall,
        DidOpenCall,
        DidDropCall,
        DidReopenCall,
        RemoteVideoViewDidChangeVideoSize,
    };

    virtual ~QXVCCallDelegate() = default;

    /// Whether the implementer handles `event`; true for all by default.
    virtual bool respondsTo(Event /*event*/) const { return true; }

    /// `didSendAcceptCall:`: the callee's offer has been sent.
    virtual void didSendAcceptCall(const std::shared_ptr<QXVCCall>& /*call*/) {}
    /// `didSendEndCall:message:`: an end-call message was sent; `message` is the
    /// sent message, or nullptr when an internal end could not be sent.
    virtual void didSendEndCall(const std::shared_ptr<QXVCCall>& /*call*/,
                                const QXDUserMessagePtr& /*message*/) {}
    /// `didOpenCall:`: the media path opened for the first time.
    virtual void didOpenCall(const std::shared_ptr<QXVCCall>& /*call*/) {}
    /// `didDropCall:`: the media path was lost; a 20 s reconnect timer runs.
    virtual void didDropCall(const std::shared_ptr<QXVCCall>& /*call*/) {}
    /// `didReopenCall:`: both connection states report Connected again after
    /// the first opening.
    virtual void didReopenCall(const std::shared_ptr<QXVCCall>& /*call*/) {}
    /// `remoteVideoView:didChangeVideoSize:`: the remote video's size changed.
    virtual void remoteVideoView(const std::shared_ptr<QXVCRemoteVideoView>& /*view*/,
                                 CGSize /*size*/) {}
};

using QXVCCallDelegatePtr = std::shared_ptr<QXVCCallDelegate>;
