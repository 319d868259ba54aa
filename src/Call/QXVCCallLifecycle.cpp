// QXVCCall: accept, answer, activation and the ends.
#include <utility>

#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Client/QXVCClient.h"
#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/View/QXVCRemoteVideoView.h"

namespace {

template <typename... Args>
void logDebug(std::string_view format, const Args&... args) {
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, format, args...);
}

/// Posts `handler(error)` to the completion-handler queue; nothing without a handler.
void postHandler(const QXVCErrorHandler& handler, QXDErrorPtr error) {
    if (!handler) {
        return;
    }
    QXVCMain::performCompletionHandlerDelegateQueueBlock(
        [handler, error = std::move(error)] { handler(error); });
}

QXDErrorPtr anotherCallError() {
    return QXVCMakeError(QXVCErrorInvalidAction, QXVCErrorInvalidAction,
                         "Another call cannot be accepted while an active call is in progress.");
}

/// The first of the accept's checks after the gate that fails, in their order,
/// or nullptr when all pass.
QXDErrorPtr acceptRefusal(QXVCRole role, const QXVCCallOptionsPtr& options) {
    if (role == QXVCRoleCaller) {
        return QXVCMakeError(QXVCErrorInvalidAction, QXVCErrorInvalidAction,
                             "Only callees (call recipients) can accept calls.");
    }
    if (!options) {
        return QXVCMakeError(QXVCErrorInvalidAction, QXVCErrorInvalidParameter,
                             "The options cannot be nil.");
    }
    if (!options->channelUrl()) {
        return QXVCMakeError(QXVCErrorInvalidAction, QXVCErrorInvalidParameter,
                             "The channelUrl of the options must have the string object.");
    }
    return nullptr;
}

QXDErrorPtr acceptingFailError() {
    return QXVCMakeError(QXVCErrorAcceptingFail, QXVCErrorAcceptingFail);
}

}  // namespace

// ---- Accept (callee) ---------------------------------------------------------

void QXVCCall::acceptWithOptions(const QXVCCallOptionsPtr& options,
                                 QXVCErrorHandler completionHandler) {
    // The gate is taken in one atomic step, and only once every other check has
    // passed: a refused accept never holds it, even for a moment. A refusal
    // still names another call going on first, as the checks' order says.
    if (auto refusal = acceptRefusal(myRole(), options)) {
        postHandler(completionHandler, QXVCMain::isCalling() ? anotherCallError() : refusal);
        return;
    }
    auto self = weak_from_this().lock();
    if (!self) {
        return;
    }
    if (!QXVCMain::trySetCalling()) {
        postHandler(completionHandler, anotherCallError());
        return;
    }

    QXVCMain::setActiveCall(self);
    changeState(StateTrigger::Accepted);
    {
        std::lock_guard lock(callMutex_);
        defaultCameraPosition_ = options->defaultCameraPosition();
        currentPosition_ = defaultCameraPosition_;
    }
    setCalleeAudioEnabled(options->audioEnabled(), options->videoEnabled());
    if (auto view = options->remoteVideoView()) {
        view->setDelegate(self);
    }
    setOptions(options);

    if (getReadyToProceed()) {
        _acceptWithOptions(options, std::move(completionHandler));
    } else {
        startViewPreparationTimerWithCompletionHandler(std::move(completionHandler));
    }
}

void QXVCCall::_acceptWithOptions(const QXVCCallOptionsPtr& /*options*/,
                                  QXVCErrorHandler completionHandler) {
    activate();
    if (auto main = QXVCMain::sharedInstance()) {
        setDelegate(main->getDelegate());
    }
    auto connection = peerConnection();
    if (!connection) {
        // No engine or no factory: the offer cannot be made.
        endCallUnknownType();
        postHandler(completionHandler, acceptingFailError());
        return;
    }
    std::weak_ptr<QXVCCall> weak = weak_from_this();
    connection->offerForConstraints(offerConstraints(), [weak, completionHandler](
                                                            RTCSessionDescriptionPtr offer,
                                                            QXDErrorPtr error) {
        auto self = weak.lock();
        if (error || !offer) {
            if (self) {
                self->endCallUnknownType();
            }
            postHandler(completionHandler, acceptingFailError());
            return;
        }
        if (!self) {
            return;
        }
        self->setLocalDescription(offer, [weak, completionHandler, offer](QXDErrorPtr setError) {
            auto call = weak.lock();
            if (setError) {
                if (call) {
                    call->endCallUnknownType();
                }
                postHandler(completionHandler, acceptingFailError());
                return;
            }
            if (!call) {
                return;
            }
            call->createOfferCallTimer();
            QXVCClient::sendOfferCall(
                call, offer->sdp(),
                [weak, completionHandler](QXDUserMessagePtr, QXDErrorPtr sendError) {
                    auto sender = weak.lock();
                    if (sendError) {
                        if (sender) {
                            sender->invalidateOfferCallTimer();
                            sender->endCallUnknownType();
                        }
                        postHandler(completionHandler, sendError);
                        return;
                    }
                    postHandler(completionHandler, nullptr);
                    if (sender) {
                        sender->notifyDelegate(QXVCCallDelegate::Event::DidSendAcceptCall,
                                               [&sender](QXVCCallDelegate& delegate) {
                                                   logDebug(
                                                       "[QXVC] Internal didSendAcceptCall "
                                                       "delegate is invoked.");
                                                   delegate.didSendAcceptCall(sender);
                                               });
                    }
                });
            call->setMaxBitrateForPeerConnectionVideoSender();
        });
    });
}

// ---- Answer (caller) -----------------------------------------------------------

void QXVCCall::answerCallWithMessage(const std::shared_ptr<QXVCSignalMessage>& message) {
    if (!message) {
        return;
    }
    activate();
    auto offer = std::make_shared<const RTCSessionDescription>(
        RTCSessionDescription::typeForString(message->type().value_or("")), message->sdp());
    std::weak_ptr<QXVCCall> weak = weak_from_this();
    setRemoteDescription(offer, [weak](QXDErrorPtr error) {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        auto connection = self->peerConnection();
        if (error || !connection) {
            self->endCallUnknownType();
            return;
        }
        connection->answerForConstraints(
            self->answerConstraints(),
            [weak](RTCSessionDescriptionPtr answer, QXDErrorPtr answerError) {
                auto call = weak.lock();
                if (!call) {
                    return;
                }
                if (answerError || !answer) {
                    call->endCallUnknownType();
                    return;
                }
                call->setLocalDescription(answer, [weak, answer](QXDErrorPtr setError) {
                    auto setter = weak.lock();
                    if (!setter) {
                        return;
                    }
                    if (setError) {
                        setter->endCallUnknownType();
                        return;
                    }
                    setter->createAnswerCallTimer();
                    // The send's completion holds the call strongly.
                    QXVCClient::sendAnswerCall(setter, answer->sdp(),
                                               [setter](QXDUserMessagePtr, QXDErrorPtr sendError) {
                                                   if (sendError) {
                                                       setter->invalidateAnswerCallTimer();
                                                       setter->endCallUnknownType();
                                                   }
                                               });
                });
                call->setMaxBitrateForPeerConnectionVideoSender();
            });
    });
}

void QXVCCall::activate() {
    auto opts = options();
    {
        std::lock_guard lock(callMutex_);
        defaultCameraPosition_ =
            opts ? opts->defaultCameraPosition() : QXVCCameraPositionUnspecified;
        currentPosition_ = defaultCameraPosition_;
    }
    createPeerConnection();
    createMediaSenders();
}

// ---- Ends ------------------------------------------------------------------------

void QXVCCall::endWithCompletionHandler(QXVCErrorHandler completionHandler) {
    auto self = weak_from_this().lock();
    if (!self) {
        return;
    }
    QXVCEndType endType = QXVCEndTypeUnknown;
    switch (state()) {
        case QXVCStateOpened:
            endType = QXVCEndTypeEnd;
            break;
        case QXVCStateConnecting: {
            QXVCRole role = myRole();
            logDebug("[QXVC] My Role: %d", role);
            if (role == QXVCRoleCaller) {
                endType = QXVCEndTypeCancel;
            } else if (role == QXVCRoleCallee) {
                endType = QXVCEndTypeDecline;
            }
            break;
        }
        default:
            // None, Dropped and Closed: a call ended while its media path is
            // down is reported as unknown, not as a regular end.
            break;
    }
    setEndType(endType);
    QXVCMain::clearInstanceWithCall(self);
    QXVCClient::sendEndCall(
        self, endType, [self, completionHandler](QXDUserMessagePtr message, QXDErrorPtr error) {
            if (error) {
                postHandler(completionHandler, error);
                return;
            }
            postHandler(completionHandler, nullptr);
            auto delegate = self->delegate();
            bool responds =
                delegate && delegate->respondsTo(QXVCCallDelegate::Event::DidSendEndCall);
            logDebug("[QXVC] call: %@", self->description());
            logDebug("[QXVC] delegate of call: %@", delegate);
            logDebug("[QXVC] has selector of delegate: %d", responds ? 1 : 0);
            self->notifyDelegate(
                QXVCCallDelegate::Event::DidSendEndCall,
                [&](QXVCCallDelegate& target) { target.didSendEndCall(self, message); });
        });
}

void QXVCCall::endCallUnknownType() {
    endInternally(QXVCEndTypeUnknown);
}

void QXVCCall::endCallTimeoutType() {
    endInternally(QXVCEndTypeTimeout);
}

void QXVCCall::endInternally(QXVCEndType endType) {
    auto self = weak_from_this().lock();
    if (!self) {
        return;
    }
    QXVCMain::clearInstanceWithCall(self);
    std::weak_ptr<QXVCCall> weak = self;
    QXVCClient::sendEndCall(
        self, endType, [weak, endType](QXDUserMessagePtr message, QXDErrorPtr error) {
            auto call = weak.lock();
            if (!call) {
                return;
            }
            QXDUserMessagePtr sent = error ? nullptr : message;
            // The end type is recorded only together with the event.
            QXVCEndType recorded =
                (endType == QXVCEndTypeTimeout && !error) ? QXVCEndTypeTimeout : QXVCEndTypeUnknown;
            call->notifyDelegate(QXVCCallDelegate::Event::DidSendEndCall,
                                 [&](QXVCCallDelegate& delegate) {
                                     call->setEndType(recorded);
                                     delegate.didSendEndCall(call, sent);
                                 });
        });
}
