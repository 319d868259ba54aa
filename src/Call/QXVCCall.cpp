// QXVCCall: construction, plain accessors, the delegate and the description.
#include "VelmorinVideoChat/Call/QXVCCall.h"

#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/Utils/QXVCFormat.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace {
QXVCCallUserPtr copyOf(const QXVCCallUserPtr& user) {
    return user ? user->copy() : nullptr;
}
}  // namespace

QXVCCall::~QXVCCall() = default;

std::shared_ptr<QXVCCall> QXVCCall::init() {
    std::shared_ptr<QXVCCall> call(new QXVCCall());
    call->setMyRole(QXVCRoleNone);
    call->defaultCameraPosition_ = QXVCCameraPositionFront;
    call->hasConnected_ = false;
    call->disconnected_ = true;
    call->iceConnectionState_ = RTCIceConnectionStateNew;
    call->peerConnectionState_ = RTCPeerConnectionStateNew;
    call->readyToProceed_ = false;
    return call;
}

std::shared_ptr<QXVCCall> QXVCCall::initWithStartCallMessage(
    const std::shared_ptr<QXVCStartCallMessage>& message, const std::string& channelUrl) {
    if (!message) {
        return nullptr;
    }
    std::shared_ptr<QXVCCall> call(new QXVCCall());
    call->setCallId(message->callId().value_or(""));
    call->setMessageId(message->messageId());
    call->setChannelUrl(channelUrl);
    call->setCaller(copyOf(message->caller()));
    call->setCallee(copyOf(message->callee()));
    call->setEndType(QXVCEndTypeNone);
    call->setPeriod(0);
    call->currentPosition_ = call->defaultCameraPosition_;
    call->setAudioCall(message->isAudioCall());
    if (const auto& caller = message->caller()) {
        call->setCallerAudioEnabled(caller->isAudioEnabled(), caller->isVideoEnabled());
    }
    return call;
}

std::shared_ptr<QXVCCall> QXVCCall::initWithEndCallMessage(
    const std::shared_ptr<QXVCEndCallMessage>& message, const std::string& channelUrl) {
    if (!message) {
        return nullptr;
    }
    std::shared_ptr<QXVCCall> call(new QXVCCall());
    call->setMessageId(message->messageId());
    call->setCaller(copyOf(message->caller()));
    call->setCallee(copyOf(message->callee()));
    call->setEnderId(message->enderId());
    call->setPeriod(static_cast<long>(message->period()));
    call->setEndType(message->endType());
    call->setCallId(message->callId().value_or(""));
    call->setAudioCall(message->isAudioCall());
    call->setChannelUrl(channelUrl);
    call->changeState(StateTrigger::EndRecordCreated);
    return call;
}

std::shared_ptr<QXVCCall> QXVCCall::initWithChannelUrl(const std::string& channelUrl,
                                                       bool audioCall, QXVCRole myRole) {
    std::shared_ptr<QXVCCall> call(new QXVCCall());
    call->setChannelUrl(channelUrl);
    call->setAudioCall(audioCall);
    call->setMyRole(myRole);
    call->changeState(StateTrigger::CallerCallCreated);
    call->setEndType(QXVCEndTypeNone);
    call->setCallId("");
    call->setMessageId(0);
    call->setCaller(nullptr);
    call->setCallee(nullptr);
    call->setEnderId(std::string());
    call->setPeriod(0);
    call->options_ = nullptr;
    return call;
}

// ---- Delegate and options ---------------------------------------------------

void QXVCCall::setDelegate(const std::shared_ptr<QXVCCallDelegate>& delegate) {
    std::lock_guard lock(callMutex_);
    delegate_ = delegate;
}

std::shared_ptr<QXVCCallDelegate> QXVCCall::delegate() const {
    std::lock_guard lock(callMutex_);
    return delegate_.lock();
}

bool QXVCCall::notifyDelegate(QXVCCallDelegate::Event which,
                              const std::function<void(QXVCCallDelegate&)>& event) {
    auto target = delegate();
    if (!target || !target->respondsTo(which)) {
        return false;
    }
    qxvc::safeCall("QXVCCallDelegate", event, *target);
    return true;
}

void QXVCCall::setOptions(const QXVCCallOptionsPtr& options) {
    std::lock_guard lock(callMutex_);
    options_ = options;
}

QXVCCallOptionsPtr QXVCCall::options() const {
    std::lock_guard lock(callMutex_);
    return options_;
}

void QXVCCall::setReadyToProceed(bool ready) {
    readyToProceed_.store(ready);
}

bool QXVCCall::getReadyToProceed() const {
    return readyToProceed_.load();
}

// ---- Plain accessors ----------------------------------------------------------

std::optional<std::vector<RTCIceServerPtr>> QXVCCall::iceServers() const {
    std::lock_guard lock(callMutex_);
    return iceServers_;
}

RTCPeerConnectionPtr QXVCCall::peerConnection() const {
    std::lock_guard lock(callMutex_);
    return peerConnection_;
}

std::shared_ptr<QXVCSignalMessage> QXVCCall::callMessage() const {
    std::lock_guard lock(callMutex_);
    return callMessage_;
}

QXVCErrorHandler QXVCCall::acceptCallCompletionHandler() const {
    std::lock_guard lock(callMutex_);
    return acceptCallCompletionHandler_;
}

QXVCTimerPtr QXVCCall::reconnectTimer() const {
    std::lock_guard lock(callMutex_);
    return reconnectTimer_;
}

QXVCTimerPtr QXVCCall::viewPreparationTimer() const {
    std::lock_guard lock(callMutex_);
    return viewPreparationTimer_;
}

RTCAudioTrackPtr QXVCCall::audioTrack() const {
    std::lock_guard lock(callMutex_);
    return audioTrack_;
}

RTCRtpSenderPtr QXVCCall::audioTrackRtpSender() const {
    std::lock_guard lock(callMutex_);
    return audioTrackRtpSender_;
}

RTCVideoTrackPtr QXVCCall::localVideoTrack() const {
    std::lock_guard lock(callMutex_);
    return localVideoTrack_;
}

void QXVCCall::setLocalVideoTrack(const RTCVideoTrackPtr& track) {
    std::lock_guard lock(callMutex_);
    localVideoTrack_ = track;
}

RTCRtpSenderPtr QXVCCall::localVideoTrackRtpSender() const {
    std::lock_guard lock(callMutex_);
    return localVideoTrackRtpSender_;
}

RTCVideoTrackPtr QXVCCall::remoteVideoTrack() const {
    std::lock_guard lock(callMutex_);
    return remoteVideoTrack_;
}

void QXVCCall::setRemoteVideoTrack(const RTCVideoTrackPtr& track) {
    std::lock_guard lock(callMutex_);
    remoteVideoTrack_ = track;
}

std::shared_ptr<QXVCLocalVideoView> QXVCCall::localVideoView() const {
    std::lock_guard lock(callMutex_);
    return localVideoView_;
}

std::shared_ptr<QXVCRemoteVideoView> QXVCCall::remoteVideoView() const {
    std::lock_guard lock(callMutex_);
    return remoteVideoView_;
}

QXVCCameraPosition QXVCCall::defaultCameraPosition() const {
    std::lock_guard lock(callMutex_);
    return defaultCameraPosition_;
}

QXVCCameraPosition QXVCCall::currentPosition() const {
    std::lock_guard lock(callMutex_);
    return currentPosition_;
}

void QXVCCall::setCurrentPosition(QXVCCameraPosition position) {
    std::lock_guard lock(callMutex_);
    currentPosition_ = position;
}

// ---- Description ---------------------------------------------------------------

std::string QXVCCall::description() const {
    std::string servers = "(null)";
    if (auto list = iceServers()) {
        servers = "(";
        for (size_t i = 0; i < list->size(); ++i) {
            servers += (i ? ", " : "") + ((*list)[i] ? (*list)[i]->description() : "(null)");
        }
        servers += ")";
    }
    auto connection = peerConnection();
    std::string base = qxvc::format(
        "<QXVCBaseCall: %p>", static_cast<const void*>(static_cast<const QXVCBaseCall*>(this)));
    std::string text = qxvc::format("<%@, %p", "QXVCCall", static_cast<const void*>(this));
    text += qxvc::format(", super class: %@", base);
    text += qxvc::format(", call id: %@", callId());
    text += qxvc::format(", channel url: %@", channelUrl());
    text += qxvc::format(", caller: %@", caller());
    text += qxvc::format(", callee: %@", callee());
    text += qxvc::format(", ender: %@", getEnder());
    text += qxvc::format(", ice servers: %@", servers);
    text += qxvc::format(", peer connection: %@", connection);
    text += qxvc::format(", is audio call: %d", isAudioCall());
    text += ">";
    return text;
}
