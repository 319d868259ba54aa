// The call messages: one typed object per signalling message read from a chat
// message or a push payload. Only QXVCMessageParser makes them; they are not
// changed after parsing (the setters exist for the parser and for tests).
//
// Every key is read leniently: an absent key or JSON null gives the field's
// default, and a value of another JSON type is converted the way the platform
// converts numbers and text (see QXVCJSON.h). A nullptr dictionary (the body was
// not valid JSON) gives a message whose fields all have their defaults.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/Call/QXVCCallUser.h"
#include "VelmorinVideoChat/QXVCTypes.h"

/// The keys every command shares: "call_id", "type", "videochat_protocol_ver".
class QXVCCallMessage {
  public:
    QXVCCallMessage() = default;
    virtual ~QXVCCallMessage() = default;

    static std::shared_ptr<QXVCCallMessage> initWithDictionary(const nlohmann::json* dictionary);

    /// "call_id"; nil when absent or null.
    const std::optional<std::string>& callId() const { return callId_; }
    void setCallId(std::optional<std::string> callId) { callId_ = std::move(callId); }
    /// "type"; nil when absent or null.
    const std::optional<std::string>& type() const { return type_; }
    void setType(std::optional<std::string> type) { type_ = std::move(type); }
    /// The whole JSON object as received; JSON null when there was none.
    const nlohmann::json& payload() const { return payload_; }
    void setPayload(nlohmann::json payload) { payload_ = std::move(payload); }
    /// "videochat_protocol_ver"; 1 when absent or null.
    long version() const { return version_; }
    void setVersion(long version) { version_ = version; }

    // Queries on `type`: exact, case-sensitive, and false when `type` is nil.
    bool isStart() const;
    bool isOffer() const;
    bool isAnswer() const;
    bool isCandidate() const;
    bool isAudio() const;
    bool isVideo() const;
    /// "end", "decline", "timeout", "cancel" or "unknown".
    bool isEnd() const;
    /// The end type `type` names; QXVCEndTypeUnknown for "unknown", any other
    /// text and nil. Never QXVCEndTypeNone.
    QXVCEndType endType() const;

    /// "<ClassName: 0x..., callId: ..., type: ..., version: ...[, more fields]>".
    std::string description() const;

  protected:
    /// Reads the shared keys; the subclasses' factories call it first.
    void readCallMessage(const nlohmann::json* dictionary);
    virtual const char* className() const { return "QXVCCallMessage"; }
    /// The subclass's own fields for description(), each as ", name: value".
    virtual std::string describeFields() const { return ""; }

  private:
    std::optional<std::string> callId_;
    std::optional<std::string> type_;
    nlohmann::json payload_;
    long version_ = 1;
};

using QXVCCallMessagePtr = std::shared_ptr<QXVCCallMessage>;

/// "STCA": the start of a call, as echoed by the chat service.
class QXVCStartCallMessage : public QXVCCallMessage {
  public:
    /// Reads, in this order: "is_audio_call"; "caller" and, only when there is a
    /// caller, "constraints"."audio" and "constraints"."video" onto the caller's
    /// flags (true when absent); "callee"; "turn_server"; "credentials" (caller
    /// password, caller username, callee password, callee username). A missing
    /// "credentials" or side object gives "" for its strings; a side object
    /// without "username" or "password" gives nil for that string.
    static std::shared_ptr<QXVCStartCallMessage> initWithDictionary(
        const nlohmann::json* dictionary, int64_t messageId);

    int64_t messageId() const { return messageId_; }
    void setMessageId(int64_t messageId) { messageId_ = messageId; }
    bool isAudioCall() const { return isAudioCall_; }
    void setIsAudioCall(bool isAudioCall) { isAudioCall_ = isAudioCall; }
    const QXVCCallUserPtr& caller() const { return caller_; }
    void setCaller(QXVCCallUserPtr caller) { caller_ = std::move(caller); }
    const QXVCCallUserPtr& callee() const { return callee_; }
    void setCallee(QXVCCallUserPtr callee) { callee_ = std::move(callee); }
    const std::string& turnServer() const { return turnServer_; }
    void setTurnServer(std::string turnServer) { turnServer_ = std::move(turnServer); }
    const std::optional<std::string>& callerUsername() const { return callerUsername_; }
    void setCallerUsername(std::optional<std::string> v) { callerUsername_ = std::move(v); }
    const std::optional<std::string>& callerPassword() const { return callerPassword_; }
    void setCallerPassword(std::optional<std::string> v) { callerPassword_ = std::move(v); }
    const std::optional<std::string>& calleeUsername() const { return calleeUsername_; }
    void setCalleeUsername(std::optional<std::string> v) { calleeUsername_ = std::move(v); }
    const std::optional<std::string>& calleePassword() const { return calleePassword_; }
    void setCalleePassword(std::optional<std::string> v) { calleePassword_ = std::move(v); }

  protected:
    const char* className() const override { return "QXVCStartCallMessage"; }
    std::string describeFields() const override;

  private:
    int64_t messageId_ = 0;
    bool isAudioCall_ = false;
    QXVCCallUserPtr caller_;
    QXVCCallUserPtr callee_;
    std::string turnServer_;
    std::optional<std::string> callerUsername_;
    std::optional<std::string> callerPassword_;
    std::optional<std::string> calleeUsername_;
    std::optional<std::string> calleePassword_;
};

/// "ENCA": the end of a call, with what the chat service adds on the way.
class QXVCEndCallMessage : public QXVCCallMessage {
  public:
    /// Reads, in this order: "caller", "callee", "ender"."user_id", "period",
    /// "is_audio_call".
    static std::shared_ptr<QXVCEndCallMessage> initWithDictionary(const nlohmann::json* dictionary,
                                                                  int64_t messageId);

    int64_t messageId() const { return messageId_; }
    void setMessageId(int64_t messageId) { messageId_ = messageId; }
    const QXVCCallUserPtr& caller() const { return caller_; }
    void setCaller(QXVCCallUserPtr caller) { caller_ = std::move(caller); }
    const QXVCCallUserPtr& callee() const { return callee_; }
    void setCallee(QXVCCallUserPtr callee) { callee_ = std::move(callee); }
    /// "ender"."user_id"; nil when either is missing.
    const std::optional<std::string>& enderId() const { return enderId_; }
    void setEnderId(std::optional<std::string> enderId) { enderId_ = std::move(enderId); }
    /// The call's duration as the service reports it; 0 when absent.
    int64_t period() const { return period_; }
    void setPeriod(int64_t period) { period_ = period; }
    bool isAudioCall() const { return isAudioCall_; }
    void setIsAudioCall(bool isAudioCall) { isAudioCall_ = isAudioCall; }

  protected:
    const char* className() const override { return "QXVCEndCallMessage"; }
    std::string describeFields() const override;

  private:
    int64_t messageId_ = 0;
    QXVCCallUserPtr caller_;
    QXVCCallUserPtr callee_;
    std::optional<std::string> enderId_;
    int64_t period_ = 0;
    bool isAudioCall_ = false;
};

/// "SGNL" carrying a session description (normally an offer or an answer).
class QXVCSignalMessage : public QXVCCallMessage {
  public:
    /// Reads "sdp" and decompresses it. A decompression failure is not reported:
    /// `sdp` is then "".
    static std::shared_ptr<QXVCSignalMessage> initWithDictionary(const nlohmann::json* dictionary);

    /// The plain session description; "" when "sdp" was absent or could not be
    /// decompressed, and also when the decompressed bytes were not UTF-8 (then
    /// hasSdp() is false).
    std::string sdp() const { return sdp_.value_or(""); }
    /// False only when decompression produced bytes that are not UTF-8 text.
    bool hasSdp() const { return sdp_.has_value(); }
    void setSdp(std::optional<std::string> sdp) { sdp_ = std::move(sdp); }
    /// "sdp" as received; "" when absent.
    const std::string& compressedSdp() const { return compressedSdp_; }
    void setCompressedSdp(std::string compressedSdp) { compressedSdp_ = std::move(compressedSdp); }

  protected:
    const char* className() const override { return "QXVCSignalMessage"; }
    std::string describeFields() const override;

  private:
    std::optional<std::string> sdp_ = std::string();
    std::string compressedSdp_;
};

/// "SGNL" type "candidate": one ICE candidate, never compressed.
class QXVCCandidateMessage : public QXVCCallMessage {
  public:
    static std::shared_ptr<QXVCCandidateMessage> initWithDictionary(
        const nlohmann::json* dictionary);

    /// "sdp": the candidate line; "" when absent.
    const std::string& sdp() const { return sdp_; }
    void setSdp(std::string sdp) { sdp_ = std::move(sdp); }
    /// "sdp_mid"; "" when absent.
    const std::string& sdpMid() const { return sdpMid_; }
    void setSdpMid(std::string sdpMid) { sdpMid_ = std::move(sdpMid); }
    /// "sdp_mline_index"; 0 when absent.
    int32_t sdpMLineIndex() const { return sdpMLineIndex_; }
    void setSdpMLineIndex(int32_t index) { sdpMLineIndex_ = index; }

  protected:
    const char* className() const override { return "QXVCCandidateMessage"; }
    std::string describeFields() const override;

  private:
    std::string sdp_;
    std::string sdpMid_;
    int32_t sdpMLineIndex_ = 0;
};

/// "SGNL" type "audio" or "video": the sender turned that track on or off.
class QXVCMediaStreamUpdateMessage : public QXVCCallMessage {
  public:
    static std::shared_ptr<QXVCMediaStreamUpdateMessage> initWithDictionary(
        const nlohmann::json* dictionary);

    /// "is_enabled"; true when absent.
    bool isEnabled() const { return isEnabled_; }
    void setIsEnabled(bool isEnabled) { isEnabled_ = isEnabled; }

  protected:
    const char* className() const override { return "QXVCMediaStreamUpdateMessage"; }
    std::string describeFields() const override;

  private:
    bool isEnabled_ = true;
};

std::ostream& operator<<(std::ostream& os, const QXVCCallMessage& message);
