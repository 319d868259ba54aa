#include "VelmorinVideoChat/Client/QXVCClient.h"

#include <mutex>
#include <utility>

#include "Client/QXVCClientTesting.h"
#include "VelmorinVideoChat/Category/NSDictionary+VelmorinVideoChat.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"

namespace {

using nlohmann::json;

struct CompressorSlot {
    std::mutex mutex;
    std::shared_ptr<const qxvc::client::Compressor> replacement;
};

CompressorSlot& compressorSlot() {
    static CompressorSlot* slot = new CompressorSlot();
    return *slot;
}

std::string compress(const std::optional<std::string>& text, QXDErrorPtr* error) {
    std::shared_ptr<const qxvc::client::Compressor> replacement;
    {
        auto& slot = compressorSlot();
        std::lock_guard lock(slot.mutex);
        replacement = slot.replacement;
    }
    return replacement ? (*replacement)(text, error) : QXVCUtils::compressString(text, error);
}

void finish(const QXDUserMessageHandler& handler, const QXDUserMessagePtr& message,
            const QXDErrorPtr& error) {
    if (handler) {
        qxvc::safeCall("QXVCClient completion handler", handler, message, error);
    }
}

json baseBody(const std::string& type) {
    return json{{"type", type}, {"videochat_protocol_ver", kQXVCProtocolVersion}};
}

/// The call's id when the call can carry an in-call command; otherwise the
/// handler has been told why not and nullopt is returned.
std::optional<std::string> signallableCallId(const std::shared_ptr<QXVCBaseCall>& call,
                                             const QXDUserMessageHandler& handler) {
    if (!call) {
        finish(handler, nullptr,
               QXVCMakeError(QXVCErrorInvalidParameter, QXVCErrorInvalidParameter, "call"));
        return std::nullopt;
    }
    std::string callId = call->callId();
    if (callId.empty()) {
        finish(handler, nullptr,
               QXVCMakeError(QXVCErrorInvalidParameter, QXVCErrorInvalidParameter, "call id"));
        return std::nullopt;
    }
    return callId;
}

void sendInCall(const std::shared_ptr<QXVCBaseCall>& call, const std::string& callId,
                const char* command, json body, QXDUserMessageHandler handler) {
    body["call_id"] = callId;
    QXVCClient::sendSignalMessageToChannel(call->channelUrl(), command, body, callId,
                                           std::move(handler));
}

/// Offer and answer: compress, then send. `sendOnFailureWithoutHandler` is the
/// offer's rule: without a handler to tell, the offer still goes out with an
/// empty "sdp". The answer is never sent after a failed compression.
void sendDescription(const std::shared_ptr<QXVCBaseCall>& call, const char* type,
                     const std::optional<std::string>& sdp, QXDUserMessageHandler handler,
                     bool sendOnFailureWithoutHandler) {
    auto callId = signallableCallId(call, handler);
    if (!callId) {
        return;
    }
    QXDErrorPtr error;
    std::string compressed = compress(sdp, &error);
    if (error) {
        if (handler || !sendOnFailureWithoutHandler) {
            finish(handler, nullptr, QXDError::errorWithNSError(error));
            return;
        }
        compressed.clear();
    }
    json body = baseBody(type);
    body["sdp"] = compressed;
    sendInCall(call, *callId, kQXVCSignalCmd, std::move(body), std::move(handler));
}

/// Audio or video turned on or off.
void sendMediaUpdate(const std::shared_ptr<QXVCBaseCall>& call, const char* type, bool enable,
                     QXDUserMessageHandler handler) {
    auto callId = signallableCallId(call, handler);
    if (!callId) {
        return;
    }
    json body = baseBody(type);
    body["is_enabled"] = enable;
    sendInCall(call, *callId, kQXVCSignalCmd, std::move(body), std::move(handler));
}

}  // namespace

void qxvc::client::setCompressorForTesting(Compressor compressor) {
    auto& slot = compressorSlot();
    std::lock_guard lock(slot.mutex);
    slot.replacement =
        compressor ? std::make_shared<const Compressor>(std::move(compressor)) : nullptr;
}

void QXVCClient::sendStartCall(const std::shared_ptr<QXVCBaseCall>& call, bool audio, bool video,
                               QXDUserMessageHandler completionHandler) {
    if (!call) {
        finish(completionHandler, nullptr,
               QXVCMakeError(QXVCErrorInvalidParameter, QXVCErrorInvalidParameter, "call"));
        return;
    }
    json body = baseBody("start");
    body["constraints"] = json{{"audio", audio}, {"video", video}};
    body["is_audio_call"] = call->isAudioCall();
    sendSignalMessageToChannel(call->channelUrl(), kQXVCStartCmd, body, std::nullopt,
                               std::move(completionHandler));
}

void QXVCClient::sendOfferCall(const std::shared_ptr<QXVCBaseCall>& call,
                               const std::optional<std::string>& sdp,
                               QXDUserMessageHandler completionHandler) {
    sendDescription(call, "offer", sdp, std::move(completionHandler), true);
}

void QXVCClient::sendAnswerCall(const std::shared_ptr<QXVCBaseCall>& call,
                                const std::optional<std::string>& sdp,
                                QXDUserMessageHandler completionHandler) {
    sendDescription(call, "answer", sdp, std::move(completionHandler), false);
}

void QXVCClient::sendCandidateCall(const std::shared_ptr<QXVCBaseCall>& call,
                                   const RTCIceCandidatePtr& candidate,
                                   QXDUserMessageHandler completionHandler) {
    auto callId = signallableCallId(call, completionHandler);
    if (!callId) {
        return;
    }
    if (!candidate) {
        finish(completionHandler, nullptr,
               QXVCMakeError(QXVCErrorInvalidParameter, QXVCErrorInvalidParameter, "candidate"));
        return;
    }
    json body = baseBody("candidate");
    body["sdp_mid"] = candidate->sdpMid().value_or("");
    body["sdp_mline_index"] = candidate->sdpMLineIndex();
    body["sdp"] = candidate->sdp().value_or("");
    sendInCall(call, *callId, kQXVCSignalCmd, std::move(body), std::move(completionHandler));
}

void QXVCClient::sendAudioUpdateCall(const std::shared_ptr<QXVCBaseCall>& call, bool enable,
                                     QXDUserMessageHandler completionHandler) {
    sendMediaUpdate(call, "audio", enable, std::move(completionHandler));
}

void QXVCClient::sendVideoUpdateCall(const std::shared_ptr<QXVCBaseCall>& call, bool enable,
                                     QXDUserMessageHandler completionHandler) {
    sendMediaUpdate(call, "video", enable, std::move(completionHandler));
}

void QXVCClient::sendEndCall(const std::shared_ptr<QXVCBaseCall>& call, QXVCEndType endType,
                             QXDUserMessageHandler completionHandler) {
    auto callId = signallableCallId(call, completionHandler);
    if (!callId) {
        return;
    }
    json body = baseBody(NSStringFromEndType(endType));
    body["is_audio_call"] = call->isAudioCall();
    sendInCall(call, *callId, kQXVCEndCmd, std::move(body), std::move(completionHandler));
}

QXDUserMessageParamsPtr QXVCClient::buildMessageParamsWithSignalingCommand(
    const std::string& command, const nlohmann::json& data,
    const std::optional<std::string>& callId) {
    auto params = QXDUserMessageParams::initWithMessage(kQXVCMessageText);
    params->setCustomType(callId ? std::string(kQXVCCustomTypePrefix) + "_" + *callId
                                 : std::string(kQXVCCustomTypePrefix));
    params->setData(command + qxvc_toString(data));
    return params;
}

void QXVCClient::sendSignalMessageToChannel(const std::string& channelUrl,
                                            const std::string& command, const nlohmann::json& data,
                                            const std::optional<std::string>& callId,
                                            QXDUserMessageHandler completionHandler) {
    auto params = buildMessageParamsWithSignalingCommand(command, data, callId);
    QXDGroupChannel::getChannelWithUrl(
        channelUrl, [params, handler = std::move(completionHandler)](QXDGroupChannelPtr channel,
                                                                     QXDErrorPtr error) mutable {
            if (error || !channel) {
                if (!error) {
                    error = QXDError::errorWithDomain(
                        QXDErrorDomain, QXDErrorChannelNotFound,
                        QXDUserInfo{{NSLocalizedDescriptionKey, "Channel not found."}});
                }
                finish(handler, nullptr, error);
                return;
            }
            channel->sendUserMessageWithParams(
                params,
                [handler = std::move(handler)](QXDUserMessagePtr message, QXDErrorPtr sendError) {
                    finish(handler, message, sendError);
                });
        });
}
