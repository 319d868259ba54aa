// QXVCAutoAcceptManager: two users who start a call to each other in the same
// channel at the same moment end up in one call.
//
// The chat service accepts one of the two starts (call X) and refuses the other
// with 900600, naming X. On the refused side two events follow: the refusal of
// its own start (from the start-call flow) and the other user's start message
// for X (from message intake). With auto-accept of simultaneous starts switched
// on (QXVCMain::setAutoAcceptSimultaneousStartCall), both are handed here and
// paired by call id:
//  - the second event, within 0.25 s of the first, settles the pair: the
//    application's start handler gets the refusal, and the incoming call X is
//    accepted with the refused start's options when both sides agree on
//    audio-only, ended otherwise;
//  - an event left alone for 0.25 s is settled as if auto-accept were off: a
//    lone refusal goes to the start handler, a lone start is presented to the
//    delegates with didReceiveStartCall.
//
// Behaviours to know about:
//  - Refusal first, then start: the accept runs inside a task posted once per
//    delegate that implements didReceiveStartCall, right after that delegate
//    heard of the call. With no such delegate nothing is accepted and the
//    records stay; with two, the accept is issued twice (the second is refused
//    because a call is going on).
//  - Start first, then refusal: the call is accepted at once, before the
//    delegates hear of it (they hear didReceiveStartCall when the start's own
//    0.25 s wait ends).
//  - An automatic accept is an ordinary accept with the refused start's
//    options; it does not touch the views. Like any accept, it goes on to the
//    offer only if viewIsReady() was called on the call before it. Refusal
//    first, the application can do that in didReceiveStartCall (the call's
//    operation mode is already QXVCOperationModeAutoAcceptSimultaneousStartCall
//    then). Start first, it must do it before the refusal arrives, when the
//    incoming call is registered but not yet presented: for instance when its
//    own start is under way and it sees the other start come in on the chat
//    channel (QXVCMain::getCallWithCallId). Otherwise the accept waits for
//    views forever and the caller's start-call timer ends the call.
//  - Records leave the maps only when a pair is settled refusal-first. A start
//    settled alone stays recorded for its channel, so the next incoming start in
//    that channel with another call id is taken as a conflict: the delegates
//    hear of the new call and then both it and the recorded call are ended.
//
// Threads: both entry operations return at once. Map changes are serialised by
// the manager's lock; calls out (accept, end, posting to the completion-handler
// queue) happen after it is released. The two timers are armed, fire and are
// stopped on the main queue (QXVCMainQueue); a timer stopped before its arming
// task ran is not armed.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "VelmorinVideoChat/Call/QXVCCallOptions.h"
#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"

class QXVCCall;
using QXVCCallPtr = std::shared_ptr<QXVCCall>;

/// What the manager knows about one call id. Fields are safe from any thread.
class QXVCAutoAcceptData : public std::enable_shared_from_this<QXVCAutoAcceptData> {
  public:
    using StartCallHandler = std::function<void(QXDErrorPtr error)>;
    /// Interval of both timers, in seconds.
    static constexpr double kPairingWindow = 0.25;

    /// A record with nothing received, nothing settled.
    static std::shared_ptr<QXVCAutoAcceptData> init();

    std::optional<std::string> callId() const;
    void setCallId(std::optional<std::string> callId);
    /// The incoming call, once its start message has arrived.
    QXVCCallPtr call() const;
    void setCall(QXVCCallPtr call);
    /// The refusal of this user's own start has arrived.
    bool errorReceived() const;
    void setErrorReceived(bool received);
    /// Set by QXVCAutoAcceptManager::updateAccepted; nothing reads it.
    bool accepted() const;
    void setAccepted(bool accepted);
    StartCallHandler startCallCompletionHandler() const;
    void setStartCallCompletionHandler(StartCallHandler handler);
    QXDErrorPtr error() const;
    void setError(QXDErrorPtr error);
    /// Settled by one of the timers.
    bool finished() const;
    void setFinished(bool finished);
    QXVCCallOptionsPtr options() const;
    void setOptions(QXVCCallOptionsPtr options);
    bool isAudioCall() const;
    void setIsAudioCall(bool isAudioCall);
    std::string channelUrl() const;
    void setChannelUrl(std::string channelUrl);
    /// Running while a refusal waits for its incoming start.
    QXVCTimerPtr failTimer() const;
    /// Running while an incoming start waits for a refusal.
    QXVCTimerPtr startCallTimer() const;

    /// Arms the fail timer on the main queue.
    void runFailTimer();
    /// Settles a lone refusal: the start handler gets the refusal.
    void timeoutForFailTimer();
    void invalidateFailTimer();
    /// Arms the start-call timer on the main queue.
    void runStartCallTimer();
    /// Settles a lone start: the delegates hear didReceiveStartCall.
    void timeoutForStartCallTimer();
    void invalidateStartCallTimer();

  private:
    QXVCAutoAcceptData() = default;
    enum class Timer { Fail, StartCall };
    void arm(Timer which);
    void invalidate(Timer which);

    mutable std::mutex mutex_;
    std::optional<std::string> callId_;
    QXVCCallPtr call_;
    bool errorReceived_ = false;
    bool accepted_ = false;
    StartCallHandler startCallCompletionHandler_;
    QXVCTimerPtr failTimer_;
    QXVCTimerPtr startCallTimer_;
    // Bumped by every arm and stop, so an arming task that runs after a stop
    // arms nothing.
    uint64_t failTimerGeneration_ = 0;
    uint64_t startCallTimerGeneration_ = 0;
    QXDErrorPtr error_;
    bool finished_ = false;
    QXVCCallOptionsPtr options_;
    bool isAudioCall_ = false;
    std::string channelUrl_;
};
using QXVCAutoAcceptDataPtr = std::shared_ptr<QXVCAutoAcceptData>;

class QXVCAutoAcceptManager {
  public:
    /// The process-wide manager, created on first use.
    static std::shared_ptr<QXVCAutoAcceptManager> sharedInstance();

    /// An incoming start (callee-side call built from the start message).
    static void upsertCall(const QXVCCallPtr& call);
    /// The refusal of this user's start, naming the call under way (`callId`).
    /// `completionHandler` is the application's start handler: from here on the
    /// manager calls it (once the pair or the refusal alone is settled).
    static void upsertError(const QXDErrorPtr& error, const QXVCCallOptionsPtr& options,
                            bool audioOnly, const std::string& channelUrl,
                            QXVCAutoAcceptData::StartCallHandler completionHandler,
                            const std::string& callId);
    /// Marks the record of the call's id accepted.
    static void updateAccepted(const QXVCCallPtr& call);

    /// The record kept for a call id / a channel URL, or nullptr.
    static QXVCAutoAcceptDataPtr recordForCallId(const std::string& callId);
    static QXVCAutoAcceptDataPtr recordForChannelUrl(const std::string& channelUrl);

    /// For tests only: forgets every record (their timers are stopped).
    static void removeAllForTesting();

  private:
    QXVCAutoAcceptManager() = default;
    void upsertCallInternal(const QXVCCallPtr& call);
    void upsertErrorInternal(const QXDErrorPtr& error, const QXVCCallOptionsPtr& options,
                             bool audioOnly, const std::string& channelUrl,
                             QXVCAutoAcceptData::StartCallHandler completionHandler,
                             const std::string& callId);
    void removeEntries(const std::string& channelUrl, const std::string& callId);

    mutable std::mutex mapsMutex_;
    std::map<std::string, QXVCAutoAcceptDataPtr> autoAcceptCallDictByCallId_;
    std::map<std::string, QXVCAutoAcceptDataPtr> autoAcceptCallDictByChannelUrl_;
};
