// QXVCMain: the library's facade and coordinator.
//
// One instance exists per process (`sharedInstance`); every public operation is
// class-level and works on that instance. It is created on first use, exactly
// once even when several threads race for it, and it registers one channel
// delegate with the chat port (QXDMain::addChannelDelegate) so that chat events
// reach the library. Nothing is torn down: the instance lives as long as the
// process.
//
// This header covers configuration, the log switch, the application's
// delegates and the queue on which every completion handler and delegate
// callback runs. No operation throws.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/Delegates/QXVCVideoChatDelegate.h"
#include "VelmorinVideoChat/Delegates/QXVCVideoViewDelegate.h"
#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/Platform/Chat/QXDTypes.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/QXVCTypes.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCFormat.h"

class RTCPeerConnectionFactory;
class RTCVideoSource;
class RTCCameraVideoCapturer;
class RTCCaptureDevice;
class RTCAudioDevice;
class QXVCCallDelegate;
class QXVCCallMessage;
class QXVCSignalMessage;
class QXVCEndCallMessage;
class QXVCMediaStreamUpdateMessage;
class QXVCCallOptions;
using QXVCCallOptionsPtr = std::shared_ptr<QXVCCallOptions>;

/// Receives each printed log line (without a trailing line break).
using QXVCLogSink = std::function<void(const std::string& line)>;

/// The application's delegates by identifier. Values are weak: a delegate that
/// was destroyed yields nothing from lock() and is skipped.
using QXVCVideoChatDelegateTable = std::map<std::string, std::weak_ptr<QXVCVideoChatDelegate>>;

class QXVCMain {
  public:
    ~QXVCMain();
    QXVCMain(const QXVCMain&) = delete;
    QXVCMain& operator=(const QXVCMain&) = delete;

    /// The process-wide instance, created on first use.
    static std::shared_ptr<QXVCMain> sharedInstance();

    // ---- Configuration -------------------------------------------------------

    /// The application's set-up call: configures the audio session, then
    /// prepares the camera capturer, the video source and the peer-connection
    /// factory.
    static void config();
    /// "0.9.1".
    static std::string getSDKVersion();

    /// Start-call timeout in seconds, initially 30. A value outside 30..60
    /// (inclusive) is ignored without a message.
    static void setStartCallTimeout(long seconds);
    /// The stored start-call timeout (logs it at the debug level).
    static long getStartCallTimeout();
    /// Whether two simultaneous starts in one channel are merged into one call.
    /// Off by default.
    static void setAutoAcceptSimultaneousStartCall(bool enabled);
    static bool getAutoAcceptSimultaneousStartCall();

    // ---- Logging -------------------------------------------------------------

    /// Stores the log level. Any integer is accepted unchanged. The library's own
    /// diagnostics are written at QXVCInternalLogLevelDebug (1112017), above every
    /// public level, so they print only when the level is 1112017 or more. The
    /// default, 0, prints nothing.
    static void setLogLevel(long level);
    static long getLogLevel();

    /// Prints `format` filled with `args` (printf-style, "%@" for objects: see
    /// qxvc::format) if and only if the stored level is >= `level`, compared as
    /// signed integers. Nothing is formatted when the line is not printed.
    template <typename... Args>
    static void logWithLevel(long level, std::string_view format, const Args&... args) {
        if (getLogLevel() >= level) {
            writeLogLine(qxvc::format(format, args...));
        }
    }

    /// Replaces where printed lines go. The default sink writes each line to
    /// stderr with a time stamp and the process name and id; nullptr restores
    /// it. An application may route the library's lines into its own log; tests
    /// capture them. The sink may be called from any thread; an exception it
    /// throws is swallowed.
    static void setLogSink(QXVCLogSink sink);

    // ---- Application delegates ----------------------------------------------
    //
    // Writes are visible to every read that starts after they return. The
    // library keeps weak references only.

    /// Registers `delegate` under `identifier`, replacing a delegate already
    /// registered under it. A null delegate removes the entry.
    static void addVideoChatDelegate(const QXVCVideoChatDelegatePtr& delegate,
                                     const std::string& identifier);
    /// Removes the entry; an unknown identifier does nothing.
    static void removeVideoChatDelegateWithIdentifier(const std::string& identifier);
    static void removeAllVideoChatDelegates();
    /// A snapshot of the table, in identifier order. Delegates added or removed
    /// afterwards do not change it; a delegate destroyed afterwards is skipped
    /// by whoever walks it (lock() yields nothing).
    static QXVCVideoChatDelegateTable getVideoChatDelegates();

    /// The single video-view delegate, held weakly.
    static void setVideoViewDelegate(const QXVCVideoViewDelegatePtr& delegate);
    static void removeVideoViewDelegate();
    /// The delegate, or nullptr when none is set or it was destroyed.
    static QXVCVideoViewDelegatePtr getVideoViewDelegate();

    // ---- Completion-handler queue -------------------------------------------

    /// The queue on which every completion handler and delegate callback runs.
    /// nullptr (the default) means the main queue, QXVCMainQueue::get(), as it is
    /// at the time a block is posted.
    static void setCompletionHandlerDelegateQueue(QXVCDispatchQueuePtr queue);
    /// The queue set, or the main queue when none is.
    static QXVCDispatchQueuePtr getCompletionHandlerDelegateQueue();
    /// Posts `block` to the completion-handler queue; it never runs inline, even
    /// when called from that queue. A null block does nothing. An exception
    /// thrown by the block is caught and reported on stderr.
    static void performCompletionHandlerDelegateQueueBlock(std::function<void()> block);

    // ---- Audio session and media factory ------------------------------------

    static void configureAudioSession();
    static void startAudio();
    static void stopAudio();
    static void startSpeaker();
    static void stopSpeaker();
    static void prepareVideoDevice();
    static std::shared_ptr<RTCPeerConnectionFactory> getPeerConnectionFactory();
    static std::shared_ptr<RTCVideoSource> getVideoSource();
    static std::shared_ptr<RTCCameraVideoCapturer> getCameraVideoCapturer();
    static std::vector<std::shared_ptr<RTCCaptureDevice>> getCameraDeviceList();
    /// The microphones and the loudspeakers of the installed engine (empty
    /// without one). Which of them a call uses is the engine's setting.
    static std::vector<std::shared_ptr<RTCAudioDevice>> getAudioInputDeviceList();
    static std::vector<std::shared_ptr<RTCAudioDevice>> getAudioOutputDeviceList();

    // ---- Calls ---------------------------------------------------------------
    //
    // `activeCall` is the one call that owns the peer connection, the camera and
    // the views; `isCalling` is the gate against a second call. Both are set
    // together when a start is sent or a call is accepted, and cleared together
    // only by clearInstanceWithCall.

    /// Sets the call that owns the media (nullptr: none).
    static void setActiveCall(const QXVCCallPtr& call);
    /// The call that owns the media, or nullptr.
    static QXVCCallPtr getActiveCall();
    static void setCalling(bool calling);
    static bool isCalling();
    /// Sets `isCalling` unless it is set already, in one atomic step: true when
    /// this caller set it. The gate of a start and of an accept, so that two
    /// racing calls cannot both pass.
    static bool trySetCalling();
    /// Takes a finished call out of the system. When it is the active call: its
    /// remote view is detached, the remote and local tracks dropped, capture
    /// stopped and the peer connection closed, in that order, and then
    /// `isCalling` and the active call are cleared. In every case the call
    /// leaves the registry. The call's timers are not stopped. A null call does
    /// nothing.
    static void clearInstanceWithCall(const QXVCCallPtr& call);
    /// The coordinator as the delegate of every call (QXVCCallDelegate): it
    /// turns call events into the application's callbacks and, when a call
    /// opens, stops the answer timer and routes audio (loudspeaker for a video
    /// call, receiver for an audio call; microphone on or off as this side
    /// announced it).
    std::shared_ptr<QXVCCallDelegate> getDelegate() const;

    // ---- Placing a call ------------------------------------------------------

    /// Places a call in the channel named by `options` (channelUrl). In order:
    /// no current chat user: 820100; a start or call already under way: 820200;
    /// the channel lookup's error as the chat client gave it; a public or super
    /// channel, or one without exactly two members: 820401. Otherwise a
    /// caller-side call becomes the active call, its start-call timer starts and
    /// the start is sent. When the service has echoed it the call has its id,
    /// both users and TURN credentials, the handler gets nullptr and then every
    /// delegate hears didSendStartCall, both on the completion-handler queue.
    /// A failed send reports the chat client's error, except with auto-accept of
    /// simultaneous starts on and the service's refusal 900600: then the
    /// auto-accept manager owns the handler (it gets the refusal once the
    /// collision is settled), and when the refusal does not name the other call
    /// ("CALL_ID:" not found exactly once) the handler is not called at all. The
    /// other call's id is the 36 characters after the marker, or all that
    /// follows it when fewer do.
    static void startCallWithAudioOnly(bool audioOnly, const QXVCCallOptionsPtr& options,
                                       std::function<void(QXDErrorPtr error)> completionHandler);

    // ---- Push notifications and lookup ---------------------------------------

    /// Feeds a push payload into the same intake as chat messages. True when the
    /// payload belongs to the library ("velmorin"."custom_type" begins with
    /// "QX_VIDEOCHAT"), whether or not anything came of it.
    static bool handleNotification(const nlohmann::json& payload);
    /// A call from a push payload, to show an incoming call at once: a start
    /// gives a registered callee-side call (the registered one when the id is
    /// known), an end of a known call gives that call marked Closed; anything
    /// else, a payload without "aps"."category" "velmorin_mesg", or a message id
    /// already seen gives nullptr. Records the message id, so the same message
    /// arriving later through the chat channel is dropped as a duplicate. No
    /// delegate is told, no call delegate is set and auto-accept is not
    /// consulted.
    static QXVCCallPtr buildCallFromNotification(const nlohmann::json& payload);
    /// A read-only view of a start or end chat message (from history, say): the
    /// registered call of its id, or an unregistered call made from it. Nothing
    /// is recorded; other messages give nullptr.
    static QXVCCallPtr buildCallFromUserMessage(const QXDUserMessagePtr& message);
    /// The registered call with this id, or nullptr.
    static QXVCCallPtr getCallWithCallId(const std::string& callId);

    /// How an application renders a chat message: Chat for anything that is not
    /// a call message, Start and End for those signals, NotRender for the rest.
    static QXVCRenderingMessageType getRenderingMessageType(const QXDBaseMessagePtr& message);

    // ---- Message intake (library-internal) -----------------------------------

    /// Dispatches one call message (see QXVCMainIntake.cpp); false for a
    /// duplicate id and for a message about an unknown call.
    bool handleCallMessage(const std::shared_ptr<QXVCCallMessage>& message, int64_t messageId,
                           const std::string& channelUrl);
    /// Records `messageId` among the latest 1000 distinct ids; true when it was
    /// already there.
    static bool isProcessedMessage(int64_t messageId);
    void didReceiveOfferCallMessage(const std::shared_ptr<QXVCSignalMessage>& message);
    void didReceiveAnswerCallMessage(const std::shared_ptr<QXVCSignalMessage>& message);
    /// Clears the call the end names and tells the delegates; `type` is unused.
    void didReceiveEndMessage(const std::shared_ptr<QXVCCallMessage>& message, QXVCEndType type);
    void didReceiveUpdateMessage(const std::shared_ptr<QXVCMediaStreamUpdateMessage>& message);

    // ---- Tests ---------------------------------------------------------------

    /// For tests only: puts the instance's settings back to their initial values
    /// (log level 0 and the default sink, no delegates, the main queue, timeout
    /// 30, auto-accept off, no call going on, no message id seen, no
    /// auto-accept record). The instance and its channel delegate registration
    /// stay.
    static void resetForTesting();

    /// "<QXVCMain: 0x...>"; also the identifier of its channel delegate.
    std::string description() const;

    struct State;

  private:
    QXVCMain();
    static void writeLogLine(const std::string& line);
    static State& state();

    std::unique_ptr<State> state_;
};
