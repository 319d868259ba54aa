// QXVCAutoAcceptData: one call id under consideration, and its two timers.
#include "QXVCMainDelegateFanOut.h"
#include "VelmorinVideoChat/Call/QXVCAutoAcceptManager.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"

std::shared_ptr<QXVCAutoAcceptData> QXVCAutoAcceptData::init() {
    return std::shared_ptr<QXVCAutoAcceptData>(new QXVCAutoAcceptData());
}

#define QXVC_RECORD_FIELD(Type, getter, setter, field) \
    Type QXVCAutoAcceptData::getter() const {          \
        std::lock_guard lock(mutex_);                  \
        return field;                                  \
    }                                                  \
    void QXVCAutoAcceptData::setter(Type value) {      \
        std::lock_guard lock(mutex_);                  \
        field = std::move(value);                      \
    }

QXVC_RECORD_FIELD(std::optional<std::string>, callId, setCallId, callId_)
QXVC_RECORD_FIELD(QXVCCallPtr, call, setCall, call_)
QXVC_RECORD_FIELD(bool, errorReceived, setErrorReceived, errorReceived_)
QXVC_RECORD_FIELD(bool, accepted, setAccepted, accepted_)
QXVC_RECORD_FIELD(QXVCAutoAcceptData::StartCallHandler, startCallCompletionHandler,
                  setStartCallCompletionHandler, startCallCompletionHandler_)
QXVC_RECORD_FIELD(QXDErrorPtr, error, setError, error_)
QXVC_RECORD_FIELD(bool, finished, setFinished, finished_)
QXVC_RECORD_FIELD(QXVCCallOptionsPtr, options, setOptions, options_)
QXVC_RECORD_FIELD(bool, isAudioCall, setIsAudioCall, isAudioCall_)
QXVC_RECORD_FIELD(std::string, channelUrl, setChannelUrl, channelUrl_)

#undef QXVC_RECORD_FIELD

QXVCTimerPtr QXVCAutoAcceptData::failTimer() const {
    std::lock_guard lock(mutex_);
    return failTimer_;
}

QXVCTimerPtr QXVCAutoAcceptData::startCallTimer() const {
    std::lock_guard lock(mutex_);
    return startCallTimer_;
}

void QXVCAutoAcceptData::arm(Timer which) {
    auto self = shared_from_this();
    uint64_t generation = 0;
    {
        std::lock_guard lock(mutex_);
        generation = which == Timer::Fail ? ++failTimerGeneration_ : ++startCallTimerGeneration_;
    }
    QXVCMainQueue::get()->async([self, which, generation] {
        auto expiry = which == Timer::Fail ? &QXVCAutoAcceptData::timeoutForFailTimer
                                           : &QXVCAutoAcceptData::timeoutForStartCallTimer;
        std::lock_guard lock(self->mutex_);
        uint64_t current =
            which == Timer::Fail ? self->failTimerGeneration_ : self->startCallTimerGeneration_;
        if (current != generation) {
            return;  // stopped before it was armed
        }
        // The timer holds the record until it fires or is stopped.
        auto timer = QXVCMainQueue::get()->asyncAfter(kPairingWindow,
                                                      [self, expiry] { ((*self).*expiry)(); });
        (which == Timer::Fail ? self->failTimer_ : self->startCallTimer_) = std::move(timer);
    });
}

void QXVCAutoAcceptData::invalidate(Timer which) {
    QXVCTimerPtr timer;
    {
        std::lock_guard lock(mutex_);
        if (which == Timer::Fail) {
            ++failTimerGeneration_;
            timer = std::move(failTimer_);
            failTimer_ = nullptr;
        } else {
            ++startCallTimerGeneration_;
            timer = std::move(startCallTimer_);
            startCallTimer_ = nullptr;
        }
    }
    if (timer) {
        timer->cancel();
    }
}

void QXVCAutoAcceptData::runFailTimer() {
    arm(Timer::Fail);
}

void QXVCAutoAcceptData::invalidateFailTimer() {
    invalidate(Timer::Fail);
}

void QXVCAutoAcceptData::runStartCallTimer() {
    arm(Timer::StartCall);
}

void QXVCAutoAcceptData::invalidateStartCallTimer() {
    invalidate(Timer::StartCall);
}

void QXVCAutoAcceptData::timeoutForFailTimer() {
    StartCallHandler handler;
    QXDErrorPtr refusal;
    {
        std::lock_guard lock(mutex_);
        finished_ = true;
        handler = startCallCompletionHandler_;
        refusal = error_;
        failTimer_ = nullptr;
    }
    // A lone refusal: the start is reported as failed with the service's error.
    if (handler) {
        QXVCMain::performCompletionHandlerDelegateQueueBlock(
            [handler, refusal] { handler(refusal); });
    }
}

void QXVCAutoAcceptData::timeoutForStartCallTimer() {
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug,
                           "[QXVC] timeoutForStartCallTimer for auto-accept.");
    QXVCCallPtr incoming;
    {
        std::lock_guard lock(mutex_);
        finished_ = true;
        incoming = call_;
        startCallTimer_ = nullptr;
    }
    // A lone start: presented as an ordinary incoming call.
    qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didReceiveStartCall, incoming);
}
