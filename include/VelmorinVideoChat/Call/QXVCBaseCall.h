// QXVCBaseCall: the record of one call — identity, participants, role, state
// and ending. QXVCCall extends it with the call's behaviour.
//
// Defaults of a new record: not an audio-only call, empty call id and channel
// URL, message id 0, no users, end type QXVCEndTypeUnknown (1, not None: a
// flow that resets a call sets None itself), period 0, role None, no ender,
// operation mode None, state None, no timers.
//
// Every accessor is safe from any thread (one lock per record). The two users
// are shared objects: `caller()` hands out the same object the record holds.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "VelmorinVideoChat/Call/QXVCCallUser.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/QXVCTypes.h"

class QXVCBaseCall {
  public:
    QXVCBaseCall() = default;
    virtual ~QXVCBaseCall() = default;
    QXVCBaseCall(const QXVCBaseCall&) = delete;
    QXVCBaseCall& operator=(const QXVCBaseCall&) = delete;

    /// `init`: a record with the defaults above.
    static std::shared_ptr<QXVCBaseCall> init();

    bool isAudioCall() const;
    void setAudioCall(bool audioCall);

    /// Shared by both sides; the registry's key. Empty until the service has
    /// assigned it (see QXVCCallManager for what an empty id means there).
    std::string callId() const;
    void setCallId(std::string callId);

    /// The chat channel through which the call's signalling travels.
    std::string channelUrl() const;
    void setChannelUrl(std::string channelUrl);

    /// Id of the chat message that started the call.
    int64_t messageId() const;
    void setMessageId(int64_t messageId);

    QXVCCallUserPtr caller() const;
    void setCaller(QXVCCallUserPtr caller);
    QXVCCallUserPtr callee() const;
    void setCallee(QXVCCallUserPtr callee);

    QXVCEndType endType() const;
    void setEndType(QXVCEndType endType);

    /// The call's duration as the end message reported it.
    long period() const;
    void setPeriod(long period);

    QXVCRole myRole() const;
    void setMyRole(QXVCRole myRole);

    /// User id of whoever ended the call; nullopt until known.
    std::optional<std::string> enderId() const;
    void setEnderId(std::optional<std::string> enderId);

    QXVCOperationMode operationMode() const;
    void setOperationMode(QXVCOperationMode operationMode);

    QXVCState state() const;
    QXVCState getState() const { return state(); }
    void setState(QXVCState state);

    QXVCTimerPtr startCallTimer() const;
    void setStartCallTimer(QXVCTimerPtr timer);
    QXVCTimerPtr offerTimer() const;
    void setOfferTimer(QXVCTimerPtr timer);
    QXVCTimerPtr answerTimer() const;
    void setAnswerTimer(QXVCTimerPtr timer);

    /// The participant who ended the call: the caller when an ender id is set
    /// and equals the caller's user id, else the callee on the same test, else
    /// nullptr. The caller is tested first.
    QXVCCallUserPtr getEnder() const;

    /// Sets the caller's audio and video flags; nothing when there is no caller.
    void setCallerAudioEnabled(bool audioEnabled, bool videoEnabled);
    /// Sets the callee's audio and video flags; nothing when there is no callee.
    void setCalleeAudioEnabled(bool audioEnabled, bool videoEnabled);

  private:
    mutable std::mutex mutex_;
    bool audioCall_ = false;
    std::string callId_;
    std::string channelUrl_;
    int64_t messageId_ = 0;
    QXVCCallUserPtr caller_;
    QXVCCallUserPtr callee_;
    QXVCEndType endType_ = QXVCEndTypeUnknown;
    long period_ = 0;
    QXVCRole myRole_ = QXVCRoleNone;
    std::optional<std::string> enderId_;
    QXVCOperationMode operationMode_ = QXVCOperationModeNone;
    QXVCState state_ = QXVCStateNone;
    QXVCTimerPtr startCallTimer_;
    QXVCTimerPtr offerTimer_;
    QXVCTimerPtr answerTimer_;
};

using QXVCBaseCallPtr = std::shared_ptr<QXVCBaseCall>;
