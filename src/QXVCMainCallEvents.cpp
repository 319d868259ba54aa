// QXVCMain: which call owns the media, whether a call is going on, clearing a
// finished call, and the call events turned into the application's callbacks.
#include <utility>

#include "QXVCMainDelegateFanOut.h"
#include "QXVCMainState.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Call/QXVCCallDelegate.h"
#include "VelmorinVideoChat/Call/QXVCCallManager.h"
#include "VelmorinVideoChat/QXVCMain.h"

namespace {

/// The coordinator's face as the delegate of every call. The events run on the
/// thread where the call raised them; the application hears of them later, on
/// the completion-handler queue, one task per delegate.
class QXVCMainCallDelegate final : public QXVCCallDelegate {
  public:
    void didSendAcceptCall(const QXVCCallPtr& call) override {
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didSendAcceptCall, call);
    }

    void didSendEndCall(const QXVCCallPtr& call, const QXDUserMessagePtr& message) override {
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didSendEndCall, call, message);
    }

    void didOpenCall(const QXVCCallPtr& call) override {
        if (call) {
            // The caller's wait for the media path is over.
            call->invalidateAnswerCallTimer();
            // A video call plays through the loudspeaker, an audio call through
            // the receiver.
            if (call->isAudioCall()) {
                QXVCMain::stopSpeaker();
            } else {
                QXVCMain::startSpeaker();
            }
            // The microphone follows what this side announced.
            QXVCRole role = call->myRole();
            if (role == QXVCRoleCaller || role == QXVCRoleCallee) {
                auto me = role == QXVCRoleCaller ? call->caller() : call->callee();
                if (me && me->isAudioEnabled()) {
                    QXVCMain::startAudio();
                } else {
                    QXVCMain::stopAudio();
                }
            }
        }
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didOpenCall, call);
    }

    void didDropCall(const QXVCCallPtr& call) override {
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didDropCall, call);
    }

    void didReopenCall(const QXVCCallPtr& call) override {
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didReopenCall, call);
    }

    void remoteVideoView(const std::shared_ptr<QXVCRemoteVideoView>& view, CGSize size) override {
        qxvc::notifyVideoViewDelegate(&QXVCVideoViewDelegate::remoteVideoView, view, size);
    }
};

}  // namespace

std::shared_ptr<QXVCCallDelegate> QXVCMain::getDelegate() const {
    // One for the process, like the coordinator itself, and never destroyed.
    static const auto* delegate =
        new std::shared_ptr<QXVCCallDelegate>(std::make_shared<QXVCMainCallDelegate>());
    return *delegate;
}

void QXVCMain::setActiveCall(const QXVCCallPtr& call) {
    QXVCCallPtr previous;
    State& s = state();
    {
        std::lock_guard lock(s.activeCallMutex);
        previous = std::exchange(s.activeCall, call);
    }
}

QXVCCallPtr QXVCMain::getActiveCall() {
    State& s = state();
    std::lock_guard lock(s.activeCallMutex);
    return s.activeCall;
}

void QXVCMain::setCalling(bool calling) {
    state().isCalling.store(calling);
}

bool QXVCMain::isCalling() {
    return state().isCalling.load();
}

bool QXVCMain::trySetCalling() {
    return !state().isCalling.exchange(true);
}

void QXVCMain::clearInstanceWithCall(const QXVCCallPtr& call) {
    if (!call) {
        return;
    }
    if (getActiveCall() == call) {
        // Views first, then the camera, then the connection.
        call->clearRemoteVideoView();
        call->setRemoteVideoTrack(nullptr);
        call->stopCapture();
        call->setLocalVideoTrack(nullptr);
        call->closePeerConnection();
        setCalling(false);
        setActiveCall(nullptr);
    }
    // Any call leaves the registry; a call that is not the active one keeps its
    // connection, media and timers.
    QXVCCallManager::remove(call->callId());
}
