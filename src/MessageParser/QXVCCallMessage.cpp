#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"

#include <array>
#include <string_view>

#include "VelmorinVideoChat/Utils/QXVCFormat.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"

namespace json = qxvc::json;

namespace {

const nlohmann::json kNoDictionary;  // JSON null: every lenient read gives its default

const nlohmann::json& dictionaryOrNull(const nlohmann::json* dictionary) {
    return dictionary != nullptr ? *dictionary : kNoDictionary;
}

/// A user object under `key`, or nullptr when there is none.
QXVCCallUserPtr readUser(const nlohmann::json& dictionary, std::string_view key) {
    const nlohmann::json* object = json::objectMember(dictionary, key);
    return object != nullptr ? QXVCCallUser::initWithDictionary(object) : nullptr;
}

std::string describeUser(const QXVCCallUserPtr& user) {
    return user ? user->userId() : std::string("(null)");
}

}  // namespace

// ---- QXVCCallMessage

std::shared_ptr<QXVCCallMessage> QXVCCallMessage::initWithDictionary(
    const nlohmann::json* dictionary) {
    auto message = std::make_shared<QXVCCallMessage>();
    message->readCallMessage(dictionary);
    return message;
}

void QXVCCallMessage::readCallMessage(const nlohmann::json* dictionary) {
    const nlohmann::json& d = dictionaryOrNull(dictionary);
    callId_ = json::getString(d, "call_id");
    type_ = json::getString(d, "type");
    version_ = static_cast<long>(json::getInt64(d, "videochat_protocol_ver", 1));
    payload_ = d;
}

bool QXVCCallMessage::isStart() const {
    return type_ == "start";
}
bool QXVCCallMessage::isOffer() const {
    return type_ == "offer";
}
bool QXVCCallMessage::isAnswer() const {
    return type_ == "answer";
}
bool QXVCCallMessage::isCandidate() const {
    return type_ == "candidate";
}
bool QXVCCallMessage::isAudio() const {
    return type_ == "audio";
}
bool QXVCCallMessage::isVideo() const {
    return type_ == "video";
}

bool QXVCCallMessage::isEnd() const {
    static constexpr std::array<std::string_view, 5> kEndWords = {"end", "decline", "timeout",
                                                                  "cancel", "unknown"};
    if (!type_) {
        return false;
    }
    for (const auto word : kEndWords) {
        if (*type_ == word) {
            return true;
        }
    }
    return false;
}

QXVCEndType QXVCCallMessage::endType() const {
    if (type_ == "end") {
        return QXVCEndTypeEnd;
    }
    if (type_ == "decline") {
        return QXVCEndTypeDecline;
    }
    if (type_ == "timeout") {
        return QXVCEndTypeTimeout;
    }
    if (type_ == "cancel") {
        return QXVCEndTypeCancel;
    }
    return QXVCEndTypeUnknown;
}

std::string QXVCCallMessage::description() const {
    return qxvc::format("<%@: %p, callId: %@, type: %@, version: %ld", className(),
                        static_cast<const void*>(this), callId_, type_, version_) +
           describeFields() + ">";
}

std::ostream& operator<<(std::ostream& os, const QXVCCallMessage& message) {
    return os << message.description();
}

// ---- QXVCStartCallMessage

std::shared_ptr<QXVCStartCallMessage> QXVCStartCallMessage::initWithDictionary(
    const nlohmann::json* dictionary, int64_t messageId) {
    auto message = std::make_shared<QXVCStartCallMessage>();
    message->readCallMessage(dictionary);
    const nlohmann::json& d = dictionaryOrNull(dictionary);
    message->messageId_ = messageId;
    message->isAudioCall_ = json::getBool(d, "is_audio_call", false);
    message->caller_ = readUser(d, "caller");
    if (message->caller_) {
        // The constraints describe the caller only, and are set after the user
        // object is read (which starts both flags false).
        const nlohmann::json& constraints = dictionaryOrNull(json::objectMember(d, "constraints"));
        message->caller_->setIsAudioEnabled(json::getBool(constraints, "audio", true));
        message->caller_->setIsVideoEnabled(json::getBool(constraints, "video", true));
    }
    message->callee_ = readUser(d, "callee");
    message->turnServer_ = json::getString(d, "turn_server", "");
    message->callerPassword_ = "";
    message->callerUsername_ = "";
    message->calleePassword_ = "";
    message->calleeUsername_ = "";
    if (const nlohmann::json* credentials = json::objectMember(d, "credentials")) {
        if (const nlohmann::json* caller = json::objectMember(*credentials, "caller")) {
            message->callerPassword_ = json::getString(*caller, "password");
            message->callerUsername_ = json::getString(*caller, "username");
        }
        if (const nlohmann::json* callee = json::objectMember(*credentials, "callee")) {
            message->calleePassword_ = json::getString(*callee, "password");
            message->calleeUsername_ = json::getString(*callee, "username");
        }
    }
    return message;
}

std::string QXVCStartCallMessage::describeFields() const {
    return qxvc::format(
        ", messageId: %lld, isAudioCall: %d, caller: %@, callee: %@, turnServer: %@", messageId_,
        isAudioCall_, describeUser(caller_), describeUser(callee_), turnServer_);
}

// ---- QXVCEndCallMessage

std::shared_ptr<QXVCEndCallMessage> QXVCEndCallMessage::initWithDictionary(
    const nlohmann::json* dictionary, int64_t messageId) {
    auto message = std::make_shared<QXVCEndCallMessage>();
    message->readCallMessage(dictionary);
    const nlohmann::json& d = dictionaryOrNull(dictionary);
    message->messageId_ = messageId;
    message->caller_ = readUser(d, "caller");
    message->callee_ = readUser(d, "callee");
    if (const nlohmann::json* ender = json::objectMember(d, "ender")) {
        message->enderId_ = json::getString(*ender, "user_id");
    }
    message->period_ = json::getInt64(d, "period", 0);
    message->isAudioCall_ = json::getBool(d, "is_audio_call", false);
    return message;
}

std::string QXVCEndCallMessage::describeFields() const {
    return qxvc::format(
        ", messageId: %lld, caller: %@, callee: %@, enderId: %@, period: %lld, isAudioCall: %d",
        messageId_, describeUser(caller_), describeUser(callee_), enderId_, period_, isAudioCall_);
}

// ---- QXVCSignalMessage

std::shared_ptr<QXVCSignalMessage> QXVCSignalMessage::initWithDictionary(
    const nlohmann::json* dictionary) {
    auto message = std::make_shared<QXVCSignalMessage>();
    message->readCallMessage(dictionary);
    const nlohmann::json& d = dictionaryOrNull(dictionary);
    message->compressedSdp_ = json::getString(d, "sdp", "");
    message->sdp_ = QXVCUtils::decompressString(message->compressedSdp_);
    return message;
}

std::string QXVCSignalMessage::describeFields() const {
    return qxvc::format(", sdp: %zu bytes, compressedSdp: %zu bytes", sdp_ ? sdp_->size() : 0,
                        compressedSdp_.size());
}

// ---- QXVCCandidateMessage

std::shared_ptr<QXVCCandidateMessage> QXVCCandidateMessage::initWithDictionary(
    const nlohmann::json* dictionary) {
    auto message = std::make_shared<QXVCCandidateMessage>();
    message->readCallMessage(dictionary);
    const nlohmann::json& d = dictionaryOrNull(dictionary);
    message->sdp_ = json::getString(d, "sdp", "");
    message->sdpMid_ = json::getString(d, "sdp_mid", "");
    message->sdpMLineIndex_ = json::getInt32(d, "sdp_mline_index", 0);
    return message;
}

std::string QXVCCandidateMessage::describeFields() const {
    return qxvc::format(", sdp: %@, sdpMid: %@, sdpMLineIndex: %d", sdp_, sdpMid_, sdpMLineIndex_);
}

// ---- QXVCMediaStreamUpdateMessage

std::shared_ptr<QXVCMediaStreamUpdateMessage> QXVCMediaStreamUpdateMessage::initWithDictionary(
    const nlohmann::json* dictionary) {
    auto message = std::make_shared<QXVCMediaStreamUpdateMessage>();
    message->readCallMessage(dictionary);
    message->isEnabled_ = json::getBool(dictionaryOrNull(dictionary), "is_enabled", true);
    return message;
}

std::string QXVCMediaStreamUpdateMessage::describeFields() const {
    return qxvc::format(", isEnabled: %d", isEnabled_);
}
