#include "VelmorinVideoChat/Call/QXVCBaseCall.h"

#include <utility>

namespace {

template <typename T>
T locked(std::mutex& mutex, const T& field) {
    std::lock_guard lock(mutex);
    return field;
}

/// Assigns under the lock; the old value is destroyed after the lock is
/// released (a timer or user may be the last reference).
template <typename T>
void store(std::mutex& mutex, T& field, T value) {
    std::unique_lock lock(mutex);
    std::swap(field, value);
    lock.unlock();
}

}  // namespace

std::shared_ptr<QXVCBaseCall> QXVCBaseCall::init() {
    return std::make_shared<QXVCBaseCall>();
}

bool QXVCBaseCall::isAudioCall() const {
    return locked(mutex_, audioCall_);
}
void QXVCBaseCall::setAudioCall(bool audioCall) {
    store(mutex_, audioCall_, audioCall);
}

std::string QXVCBaseCall::callId() const {
    return locked(mutex_, callId_);
}
void QXVCBaseCall::setCallId(std::string callId) {
    store(mutex_, callId_, std::move(callId));
}

std::string QXVCBaseCall::channelUrl() const {
    return locked(mutex_, channelUrl_);
}
void QXVCBaseCall::setChannelUrl(std::string channelUrl) {
    store(mutex_, channelUrl_, std::move(channelUrl));
}

int64_t QXVCBaseCall::messageId() const {
    return locked(mutex_, messageId_);
}
void QXVCBaseCall::setMessageId(int64_t messageId) {
    store(mutex_, messageId_, messageId);
}

QXVCCallUserPtr QXVCBaseCall::caller() const {
    return locked(mutex_, caller_);
}
void QXVCBaseCall::setCaller(QXVCCallUserPtr caller) {
    store(mutex_, caller_, std::move(caller));
}
QXVCCallUserPtr QXVCBaseCall::callee() const {
    return locked(mutex_, callee_);
}
void QXVCBaseCall::setCallee(QXVCCallUserPtr callee) {
    store(mutex_, callee_, std::move(callee));
}

QXVCEndType QXVCBaseCall::endType() const {
    return locked(mutex_, endType_);
}
void QXVCBaseCall::setEndType(QXVCEndType endType) {
    store(mutex_, endType_, endType);
}

long QXVCBaseCall::period() const {
    return locked(mutex_, period_);
}
void QXVCBaseCall::setPeriod(long period) {
    store(mutex_, period_, period);
}

QXVCRole QXVCBaseCall::myRole() const {
    return locked(mutex_, myRole_);
}
void QXVCBaseCall::setMyRole(QXVCRole myRole) {
    store(mutex_, myRole_, myRole);
}

std::optional<std::string> QXVCBaseCall::enderId() const {
    return locked(mutex_, enderId_);
}
void QXVCBaseCall::setEnderId(std::optional<std::string> enderId) {
    store(mutex_, enderId_, std::move(enderId));
}

QXVCOperationMode QXVCBaseCall::operationMode() const {
    return locked(mutex_, operationMode_);
}
void QXVCBaseCall::setOperationMode(QXVCOperationMode operationMode) {
    store(mutex_, operationMode_, operationMode);
}

QXVCState QXVCBaseCall::state() const {
    return locked(mutex_, state_);
}
void QXVCBaseCall::setState(QXVCState state) {
    store(mutex_, state_, state);
}

QXVCTimerPtr QXVCBaseCall::startCallTimer() const {
    return locked(mutex_, startCallTimer_);
}
void QXVCBaseCall::setStartCallTimer(QXVCTimerPtr timer) {
    store(mutex_, startCallTimer_, std::move(timer));
}
QXVCTimerPtr QXVCBaseCall::offerTimer() const {
    return locked(mutex_, offerTimer_);
}
void QXVCBaseCall::setOfferTimer(QXVCTimerPtr timer) {
    store(mutex_, offerTimer_, std::move(timer));
}
QXVCTimerPtr QXVCBaseCall::answerTimer() const {
    return locked(mutex_, answerTimer_);
}
void QXVCBaseCall::setAnswerTimer(QXVCTimerPtr timer) {
    store(mutex_, answerTimer_, std::move(timer));
}

QXVCCallUserPtr QXVCBaseCall::getEnder() const {
    std::lock_guard lock(mutex_);
    if (!enderId_) {
        return nullptr;
    }
    if (caller_ && caller_->userId() == *enderId_) {
        return caller_;
    }
    if (callee_ && callee_->userId() == *enderId_) {
        return callee_;
    }
    return nullptr;
}

void QXVCBaseCall::setCallerAudioEnabled(bool audioEnabled, bool videoEnabled) {
    std::lock_guard lock(mutex_);
    if (caller_) {
        caller_->setIsAudioEnabled(audioEnabled);
        caller_->setIsVideoEnabled(videoEnabled);
    }
}

void QXVCBaseCall::setCalleeAudioEnabled(bool audioEnabled, bool videoEnabled) {
    std::lock_guard lock(mutex_);
    if (callee_) {
        callee_->setIsAudioEnabled(audioEnabled);
        callee_->setIsVideoEnabled(videoEnabled);
    }
}
