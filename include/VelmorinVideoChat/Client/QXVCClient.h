// QXVCClient: the writer of every signalling message.
//
// Stateless class operations, one per outgoing command. Each builds the
// command's JSON body, wraps it in a chat user message and sends it in the
// call's group channel, looking the channel up afresh for every send.
//
// Wire form of one message:
//  - message text "QX_VIDEOCHAT";
//  - custom type "QX_VIDEOCHAT_<call id>", or "QX_VIDEOCHAT" alone for the start
//    (the service assigns the id when it receives the start);
//  - data: the four-letter command ("STCA", "SGNL", "ENCA") directly followed
//    by the compact JSON body. Every body has "type" and
//    "videochat_protocol_ver" (the integer 1).
//
// Handlers are optional and called at most once with (the message as the
// service stored it, nullptr) or (nullptr, error), on the chat client's callback
// thread, or on the calling thread when the message is refused before any
// lookup. An exception thrown by a handler is caught.
//
// The call operations read only the call's id, channel URL and audio-only
// flag. A null call, a null candidate, or (for every command but the start) a
// call without an id is refused with QXVCErrorInvalidParameter and nothing is
// sent.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/Call/QXVCBaseCall.h"
#include "VelmorinVideoChat/Platform/Chat/QXDChannel.h"
#include "VelmorinVideoChat/Platform/RTC/RTCIceCandidate.h"
#include "VelmorinVideoChat/QXVCTypes.h"

class QXVCClient {
  public:
    QXVCClient() = delete;

    /// "STCA" "start": {"constraints": {"audio", "video"}, "is_audio_call"}.
    static void sendStartCall(const std::shared_ptr<QXVCBaseCall>& call, bool audio, bool video,
                              QXDUserMessageHandler completionHandler = nullptr);

    /// "SGNL" "offer" with the compressed SDP. When compression fails: with a
    /// handler, the handler gets the error and nothing is sent; without one, the
    /// offer is still sent, with an empty "sdp".
    static void sendOfferCall(const std::shared_ptr<QXVCBaseCall>& call,
                              const std::optional<std::string>& sdp,
                              QXDUserMessageHandler completionHandler = nullptr);

    /// "SGNL" "answer" with the compressed SDP. When compression fails nothing is
    /// sent, handler or not; the handler gets the error.
    static void sendAnswerCall(const std::shared_ptr<QXVCBaseCall>& call,
                               const std::optional<std::string>& sdp,
                               QXDUserMessageHandler completionHandler = nullptr);

    /// "SGNL" "candidate": "sdp" (the line as it stands, "" when absent),
    /// "sdp_mid" ("" when absent), "sdp_mline_index" (integer).
    static void sendCandidateCall(const std::shared_ptr<QXVCBaseCall>& call,
                                  const RTCIceCandidatePtr& candidate,
                                  QXDUserMessageHandler completionHandler = nullptr);

    /// "SGNL" "audio" with "is_enabled": the new state of the local microphone.
    static void sendAudioUpdateCall(const std::shared_ptr<QXVCBaseCall>& call, bool enable,
                                    QXDUserMessageHandler completionHandler = nullptr);

    /// "SGNL" "video" with "is_enabled": the new state of the local video.
    static void sendVideoUpdateCall(const std::shared_ptr<QXVCBaseCall>& call, bool enable,
                                    QXDUserMessageHandler completionHandler = nullptr);

    /// "ENCA" with the end type's word as "type" (None and Unknown both give
    /// "unknown") and "is_audio_call".
    static void sendEndCall(const std::shared_ptr<QXVCBaseCall>& call, QXVCEndType endType,
                            QXDUserMessageHandler completionHandler = nullptr);

    /// The parameters of one signalling message. A body that cannot be
    /// serialised is written as "{}".
    static QXDUserMessageParamsPtr buildMessageParamsWithSignalingCommand(
        const std::string& command, const nlohmann::json& data,
        const std::optional<std::string>& callId);

    /// Builds the parameters, looks the channel up, and sends. A lookup error
    /// goes to the handler and nothing is sent; the send's result goes to the
    /// handler unchanged.
    static void sendSignalMessageToChannel(const std::string& channelUrl,
                                           const std::string& command, const nlohmann::json& data,
                                           const std::optional<std::string>& callId,
                                           QXDUserMessageHandler completionHandler = nullptr);
};
