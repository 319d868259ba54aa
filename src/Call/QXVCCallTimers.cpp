// QXVCCall: the five one-shot timers and the wait for the application's views.
//
// Every timer is created, fired and stopped on the main queue: a create or an
// invalidate posts a task there. A running timer holds the call strongly until
// it fires or is stopped. A create overwrites the stored handle without stopping
// an earlier timer, and an expiry leaves its field as it is.
#include "QXVCMainDelegateFanOut.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"

namespace {

template <typename... Args>
void logDebug(std::string_view format, const Args&... args) {
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, format, args...);
}

/// Posts `task` to the main queue with the call held strongly.
template <typename Task>
void onMainQueue(const std::shared_ptr<QXVCCall>& call, Task task) {
    if (!call) {
        return;
    }
    QXVCMainQueue::get()->async([call, task = std::move(task)] { task(*call); });
}

}  // namespace

QXVCTimerPtr QXVCCall::scheduleTimer(double seconds, void (QXVCCall::*expiry)()) {
    auto self = weak_from_this().lock();
    if (!self) {
        return nullptr;
    }
    return QXVCMainQueue::get()->asyncAfter(seconds, [self, expiry] { ((*self).*expiry)(); });
}

// ---- Start-call timer (caller waits for the callee to accept) ------------------

void QXVCCall::createStartCallTimer() {
    std::weak_ptr<QXVCCall> weak = weak_from_this();
    QXVCMainQueue::get()->async([weak] {
        logDebug("[QXVC] Run start call timer.");
        if (auto self = weak.lock()) {
            auto seconds = static_cast<double>(QXVCMain::getStartCallTimeout());
            self->setStartCallTimer(self->scheduleTimer(seconds, &QXVCCall::timeoutStartCall));
        }
    });
}

void QXVCCall::timeoutStartCall() {
    logDebug("[QXVC] timeoutStartCall.");
    endCallTimeoutType();
}

void QXVCCall::invalidateStartCallTimer() {
    logDebug("[QXVC] Invalidate start call timer.");
    onMainQueue(weak_from_this().lock(), [](QXVCCall& call) {
        if (auto timer = call.startCallTimer()) {
            timer->cancel();
        }
        call.setStartCallTimer(nullptr);
    });
}

// ---- Offer timer (callee waits for the answer) -----------------------------------

void QXVCCall::createOfferCallTimer() {
    onMainQueue(weak_from_this().lock(), [](QXVCCall& call) {
        call.setOfferTimer(call.scheduleTimer(kMediaTimeout, &QXVCCall::timeoutOfferCall));
    });
}

void QXVCCall::timeoutOfferCall() {
    logDebug("[QXVC] timeoutOfferCall.");
    endCallTimeoutType();
}

void QXVCCall::invalidateOfferCallTimer() {
    onMainQueue(weak_from_this().lock(), [](QXVCCall& call) {
        if (auto timer = call.offerTimer()) {
            timer->cancel();
        }
        call.setOfferTimer(nullptr);
    });
}

// ---- Answer timer (caller waits for the media path) ------------------------------

void QXVCCall::createAnswerCallTimer() {
    onMainQueue(weak_from_this().lock(), [](QXVCCall& call) {
        call.setAnswerTimer(call.scheduleTimer(kMediaTimeout, &QXVCCall::timeoutAnswerCall));
    });
}

void QXVCCall::timeoutAnswerCall() {
    logDebug("[QXVC] timeoutAnswerCall.");
    endCallTimeoutType();
}

void QXVCCall::invalidateAnswerCallTimer() {
    onMainQueue(weak_from_this().lock(), [](QXVCCall& call) {
        if (auto timer = call.answerTimer()) {
            timer->cancel();
        }
        call.setAnswerTimer(nullptr);
    });
}

// ---- Reconnect timer (both wait for a lost media path) ---------------------------

void QXVCCall::createReconnectTimer() {
    logDebug("[QXVC] Start reconnect timer.");
    onMainQueue(weak_from_this().lock(), [](QXVCCall& call) {
        auto timer = call.scheduleTimer(kMediaTimeout, &QXVCCall::timeoutReconnectCall);
        std::lock_guard lock(call.callMutex_);
        call.reconnectTimer_ = timer;
    });
}

void QXVCCall::timeoutReconnectCall() {
    logDebug("[QXVC] timeoutReconnectCall.");
    endCallTimeoutType();
}

void QXVCCall::invalidateReconnectTimer() {
    onMainQueue(weak_from_this().lock(), [](QXVCCall& call) {
        QXVCTimerPtr timer;
        {
            std::lock_guard lock(call.callMutex_);
            timer = std::move(call.reconnectTimer_);
            call.reconnectTimer_ = nullptr;
        }
        if (timer) {
            timer->cancel();
        }
    });
}

// ---- View preparation --------------------------------------------------------------

void QXVCCall::startViewPreparationTimerWithCallMessage(
    const std::shared_ptr<QXVCSignalMessage>& message) {
    {
        std::lock_guard lock(callMutex_);
        callMessage_ = message;
    }
    onMainQueue(weak_from_this().lock(), [](QXVCCall& call) {
        auto timer = call.scheduleTimer(kViewPreparationDelay, &QXVCCall::viewPreparationTimeout);
        std::lock_guard lock(call.callMutex_);
        call.viewPreparationTimer_ = timer;
    });
}

void QXVCCall::startViewPreparationTimerWithCompletionHandler(QXVCErrorHandler completionHandler) {
    {
        std::lock_guard lock(callMutex_);
        acceptCallCompletionHandler_ = std::move(completionHandler);
    }
    onMainQueue(weak_from_this().lock(), [](QXVCCall& call) {
        auto timer = call.scheduleTimer(kViewPreparationDelay, &QXVCCall::viewPreparationTimeout);
        std::lock_guard lock(call.callMutex_);
        call.viewPreparationTimer_ = timer;
    });
}

void QXVCCall::viewPreparationTimeout() {
    auto self = weak_from_this().lock();
    if (!self) {
        return;
    }
    std::shared_ptr<QXVCSignalMessage> message;
    {
        std::lock_guard lock(callMutex_);
        viewPreparationTimer_ = nullptr;
        message = callMessage_;
    }
    // The fixed delay is over: the call proceeds whether or not the views are
    // ready, as an offer with ready views would.
    qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didReceiveAcceptCall, self);

    // The comparison of a call id with a user id is deliberate and kept: it holds
    // in practice, so the active call answers its parked offer.
    auto user = QXDMain::getCurrentUser();
    bool sameId = user && user->userId() == callId();
    if (QXVCMain::getActiveCall() == self && !sameId) {
        if (auto main = QXVCMain::sharedInstance()) {
            main->didReceiveOfferCallMessage(message);
        }
    }
}

void QXVCCall::invalidateViewPreparationTimer() {
    QXVCTimerPtr timer;
    {
        std::lock_guard lock(callMutex_);
        timer = std::move(viewPreparationTimer_);
        viewPreparationTimer_ = nullptr;
    }
    if (timer) {
        timer->cancel();
    }
}
