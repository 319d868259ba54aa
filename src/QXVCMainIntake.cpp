// QXVCMain: intake of call messages (chat channel and push), de-duplication,
// and dispatch to the call each message concerns.
//
// Dispatch looks at a message's "type" only. Every message id is recorded
// before dispatch, whatever the type, so a message that arrives twice (a push
// and the channel event) is acted on once.
#include <utility>

#include "QXVCMainDelegateFanOut.h"
#include "QXVCMainState.h"
#include "VelmorinVideoChat/Call/QXVCAutoAcceptManager.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Call/QXVCCallManager.h"
#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/Platform/RTC/RTCIceCandidate.h"
#include "VelmorinVideoChat/Platform/RTC/RTCSessionDescription.h"
#include "VelmorinVideoChat/QXVCMain.h"

namespace {

template <typename... Args>
void logDebug(std::string_view format, const Args&... args) {
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, format, args...);
}

std::string currentUserId() {
    auto user = QXDMain::getCurrentUser();
    return user ? user->userId() : std::string();
}

bool isCurrentUser(const QXVCCallUserPtr& user) {
    auto current = QXDMain::getCurrentUser();
    return user && current && user->userId() == current->userId();
}

QXVCCallPtr lookUp(const QXVCCallMessage& message) {
    return QXVCCallManager::get<QXVCCall>(message.callId().value_or(""));
}

}  // namespace

bool QXVCMain::isProcessedMessage(int64_t messageId) {
    logDebug("[QXVC] Received a signaling message");
    return state().processedMessageIds.checkAndRecord(messageId);
}

bool QXVCMain::handleCallMessage(const std::shared_ptr<QXVCCallMessage>& message, int64_t messageId,
                                 const std::string& channelUrl) {
    if (!message) {
        return false;
    }
    logDebug("[QXVC] The call message is handled internally.(msg id - %lld)",
             static_cast<long long>(messageId));
    logDebug("[QXVC] The call message is offer? - %d", message->isOffer() ? 1 : 0);
    if (isProcessedMessage(messageId)) {
        logDebug("[QXVC] The call message is duplicated.");
        return false;
    }

    if (message->isStart()) {
        auto start = std::dynamic_pointer_cast<QXVCStartCallMessage>(message);
        auto call = QXVCCall::initWithStartCallMessage(start, channelUrl);
        logDebug("[QXVC] Received start call before starting call.");
        if (!call || isCurrentUser(call->caller())) {
            // This user's own start, coming back.
            return true;
        }
        call->setMyRole(QXVCRoleCallee);
        call->changeState(QXVCCall::StateTrigger::IncomingStart);
        call->addIceServerWithTurnServer(start->turnServer(), start->calleeUsername(),
                                         start->calleePassword());
        QXVCCallManager::add(call);
        call->setDelegate(getDelegate());
        if (getAutoAcceptSimultaneousStartCall()) {
            QXVCAutoAcceptManager::upsertCall(call);
        } else {
            qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didReceiveStartCall, call);
        }
        return true;
    }

    if (message->isOffer()) {
        // At the caller: the callee has accepted.
        logDebug("[QXVC] The offer is accepted.");
        auto call = lookUp(*message);
        if (!call) {
            return false;
        }
        call->invalidateStartCallTimer();
        auto offer = std::dynamic_pointer_cast<QXVCSignalMessage>(message);
        if (!call->getReadyToProceed()) {
            logDebug("[QXVC] Waits for the preparation of the view before answering the call:(%@)",
                     call->callId());
            call->startViewPreparationTimerWithCallMessage(offer);
            return true;
        }
        logDebug("[QXVC] Invokes didReceivedAcceptCall:(%@)", call->callId());
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didReceiveAcceptCall, call);
        // A call id compared with a user id: it holds in practice, and is kept so.
        if (getActiveCall() == call && call->callId() != currentUserId()) {
            didReceiveOfferCallMessage(offer);
        }
        return true;
    }

    if (message->isAnswer()) {
        auto call = lookUp(*message);
        if (!call) {
            return false;
        }
        call->invalidateOfferCallTimer();
        if (getActiveCall() == call) {
            didReceiveAnswerCallMessage(std::dynamic_pointer_cast<QXVCSignalMessage>(message));
        }
        return true;
    }

    if (message->isCandidate()) {
        auto call = lookUp(*message);
        if (!call) {
            return false;
        }
        // A candidate for a call that does not own the media is dropped.
        auto candidate = std::dynamic_pointer_cast<QXVCCandidateMessage>(message);
        if (getActiveCall() == call && candidate) {
            call->addIceCandidate(std::make_shared<RTCIceCandidate>(
                candidate->sdp(), candidate->sdpMLineIndex(), candidate->sdpMid()));
        }
        return true;
    }

    if (message->isEnd()) {
        auto end = std::dynamic_pointer_cast<QXVCEndCallMessage>(message);
        if (auto call = lookUp(*message)) {
            if (end) {
                call->setEnderId(end->enderId());
            }
            call->setEndType(message->endType());
        } else {
            // A call this device never saw start: its record still tells the
            // application how it ended.
            QXVCCallManager::add(QXVCCall::initWithEndCallMessage(end, channelUrl));
        }
        didReceiveEndMessage(message, message->endType());
        return true;
    }

    if (message->isAudio() || message->isVideo()) {
        auto call = lookUp(*message);
        if (!call) {
            return false;
        }
        if (getActiveCall() == call) {
            didReceiveUpdateMessage(
                std::dynamic_pointer_cast<QXVCMediaStreamUpdateMessage>(message));
        }
        return true;
    }

    // Any other type needs nothing.
    return true;
}

void QXVCMain::didReceiveOfferCallMessage(const std::shared_ptr<QXVCSignalMessage>& message) {
    if (!message) {
        return;
    }
    if (auto call = lookUp(*message)) {
        call->answerCallWithMessage(message);
    }
}

void QXVCMain::didReceiveAnswerCallMessage(const std::shared_ptr<QXVCSignalMessage>& message) {
    if (!message) {
        return;
    }
    auto call = lookUp(*message);
    if (!call) {
        return;
    }
    auto description = std::make_shared<RTCSessionDescription>(
        RTCSessionDescription::typeForString(message->type().value_or("")), message->sdp());
    std::weak_ptr<QXVCCall> weak = call;
    call->setRemoteDescription(description, [weak](const QXDErrorPtr& error) {
        if (!error) {
            return;
        }
        if (auto failed = weak.lock()) {
            failed->endCallUnknownType();
        }
    });
}

void QXVCMain::didReceiveEndMessage(const std::shared_ptr<QXVCCallMessage>& message,
                                    QXVCEndType /*type*/) {
    if (!message) {
        return;
    }
    if (auto call = lookUp(*message)) {
        clearInstanceWithCall(call);
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didReceiveEndCall, call);
    }
}

void QXVCMain::didReceiveUpdateMessage(
    const std::shared_ptr<QXVCMediaStreamUpdateMessage>& message) {
    if (!message) {
        return;
    }
    auto call = lookUp(*message);
    if (!call) {
        return;
    }
    bool opponentIsCallee = isCurrentUser(call->caller());
    auto opponent = opponentIsCallee ? call->callee() : call->caller();
    // The users are shared with other threads: change a copy and put it back.
    auto updated = opponent ? opponent->copy() : nullptr;
    if (message->isAudio()) {
        if (updated) {
            updated->setIsAudioEnabled(message->isEnabled());
        }
    } else if (updated) {
        updated->setIsVideoEnabled(message->isEnabled());
    }
    if (updated) {
        opponentIsCallee ? call->setCallee(updated) : call->setCaller(updated);
    }
    if (message->isAudio()) {
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didOpponentAudioStateChange, call);
    } else {
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didOpponentVideoStateChange, call);
    }
}

QXVCRenderingMessageType QXVCMain::getRenderingMessageType(const QXDBaseMessagePtr& message) {
    auto userMessage = std::dynamic_pointer_cast<const QXDUserMessage>(message);
    if (!userMessage || userMessage->customType().rfind(kQXVCCustomTypePrefix, 0) != 0) {
        return QXVCRenderingMessageTypeChat;
    }
    auto callMessage = QXVCMessageParser::parseUserMessage(userMessage);
    if (callMessage && callMessage->isStart()) {
        return QXVCRenderingMessageTypeStart;
    }
    if (callMessage && callMessage->isEnd()) {
        return QXVCRenderingMessageTypeEnd;
    }
    return QXVCRenderingMessageTypeNotRender;
}
