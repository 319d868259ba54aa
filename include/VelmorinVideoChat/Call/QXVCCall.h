// QXVCCall: one call as this device sees it.
//
// The call record (QXVCBaseCall) plus everything that makes the call run: the
// options the application gave, a relay-only peer connection and its
// negotiation, the local camera and microphone, five one-shot timers, the wait
// for the application's video views, and the flows that accept, answer and end.
//
// Who does what: the caller sends the start and waits (start-call timer); the
// callee accepts, makes the offer and sends it (offer timer); the caller answers
// (answer timer, stopped when the media path opens); both exchange relay
// candidates. A lost media path starts a 20 s reconnect timer. Every timer's
// expiry ends the call with the timeout type.
//
// Calls are made by the coordinator (start flow, incoming start, end record);
// the application accepts, ends, says its views are ready and drives the media
// controls. Calls are always held by std::shared_ptr.
//
// Behaviours to know about:
//  - The named factories skip init()'s defaults: `disconnected`, `hasConnected`
//    and `readyToProceed` start false and the default camera position starts
//    Unspecified until the call is activated. So a drop is reported even before
//    the first opening.
//  - Call viewIsReady() before acceptWithOptions(). An accept made before it
//    parks its completion handler, which is then never called; after 0.25 s the
//    application only hears didReceiveAcceptCall and no offer is sent (the
//    caller's start-call timer later ends the call).
//  - Ending does not change `state` and does not stop the timers: a timer still
//    running after an end keeps the call alive and, on expiry, sends a further
//    end-call message with the timeout type.
//  - Ending an ended call sends another end-call message.
//  - The end type of an internal end (failure or timer) is recorded only together
//    with the didSendEndCall event; without a delegate that handles it the end
//    type keeps its earlier value.
//
// Threads: the public operations may be called from any thread; timers are
// created, fired and cancelled on the main queue (QXVCMainQueue); completion
// handlers and application callbacks run on the completion-handler queue;
// QXVCCallDelegate events run where they arise. Fields are guarded by the
// call's own lock, never held while calling out. No operation throws.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Call/QXVCBaseCall.h"
#include "VelmorinVideoChat/Call/QXVCCallDelegate.h"
#include "VelmorinVideoChat/Call/QXVCCallOptions.h"
#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/Platform/RTC/RTCAudioTrack.h"
#include "VelmorinVideoChat/Platform/RTC/RTCCaptureDevice.h"
#include "VelmorinVideoChat/Platform/RTC/RTCIceServer.h"
#include "VelmorinVideoChat/Platform/RTC/RTCMediaConstraints.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPeerConnection.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPeerConnectionDelegate.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoTrack.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoViewDelegate.h"

class QXVCStartCallMessage;
class QXVCEndCallMessage;
class QXVCSignalMessage;
class QXVCLocalVideoView;
class QXVCRemoteVideoView;

/// Completion of an operation: nullptr on success.
using QXVCErrorHandler = std::function<void(QXDErrorPtr error)>;

class QXVCCall : public QXVCBaseCall,
                 public RTCPeerConnectionDelegate,
                 public RTCVideoViewDelegate,
                 public std::enable_shared_from_this<QXVCCall> {
  public:
    /// Interval of the offer, answer and reconnect timers, in seconds.
    static constexpr double kMediaTimeout = 20.0;
    /// The fixed wait for the application's views, in seconds.
    static constexpr double kViewPreparationDelay = 0.25;
    /// Maximum video send bitrate, bits per second (20 x 1024 x 1024).
    static constexpr int kMaxVideoBitrate = 20971520;
    /// Frame-rate cap of the camera.
    static constexpr int kMaxFps = 30;

    ~QXVCCall() override;

    // ---- Construction --------------------------------------------------------

    /// `init`: role None, front camera, not connected, `disconnected` true, both
    /// connection states New, not ready.
    static std::shared_ptr<QXVCCall> init();
    /// The callee's call from an incoming start: id, message id, copies of both
    /// users, end type None, the audio-only flag, and the caller's media flags as
    /// the message announced them. nullptr for a null message.
    static std::shared_ptr<QXVCCall> initWithStartCallMessage(
        const std::shared_ptr<QXVCStartCallMessage>& message, const std::string& channelUrl);
    /// The record of an already ended call: state Closed, the message's users,
    /// ender, period, end type, id and audio-only flag. nullptr for a null message.
    static std::shared_ptr<QXVCCall> initWithEndCallMessage(
        const std::shared_ptr<QXVCEndCallMessage>& message, const std::string& channelUrl);
    /// The caller's call before the service has given it an id: state None, end
    /// type None, empty id and ender, no users, no options.
    static std::shared_ptr<QXVCCall> initWithChannelUrl(const std::string& channelUrl,
                                                        bool audioCall, QXVCRole myRole);

    // ---- Public operations ---------------------------------------------------

    /// The callee accepts. Checks, in order, each failing with code 820200
    /// (QXVCErrorInvalidAction) posted to `completionHandler` and no change: a
    /// call is already going on; this side is the caller; `options` is null;
    /// the options have no channel URL. With a null handler a failed check
    /// returns silently. Then the call becomes the active call (its state stays
    /// Connecting; a call in any other state keeps it),
    /// takes the options' camera and media flags, and, when viewIsReady() was
    /// called, makes and sends the offer; the handler gets nullptr once the
    /// offer is sent, 820300 (QXVCErrorAcceptingFail) when it could not be made,
    /// or the chat client's error when it could not be sent (the call then ends
    /// with the unknown type).
    void acceptWithOptions(const QXVCCallOptionsPtr& options,
                           QXVCErrorHandler completionHandler = nullptr);
    /// Ends the call: "end" when Opened, "cancel" (caller) or "decline" (callee)
    /// when Connecting, "unknown" otherwise (Dropped included). Media and the
    /// peer connection are torn down before the message is sent. The handler
    /// gets the send's error or nullptr; on success the delegate hears
    /// didSendEndCall.
    void endWithCompletionHandler(QXVCErrorHandler completionHandler = nullptr);
    /// The application's two video views are in place: the call becomes the
    /// delegate of the options' remote view, and may proceed without waiting.
    void viewIsReady();

    // Media controls. None checks the call's state; each update is sent even
    // when nothing changed, and its result is ignored.
    /// Back camera when the front one is in use, else the front one.
    void switchCamera();
    /// Disables the microphone track, stops audio, sends audio off.
    void muteMicrophone();
    /// Starts audio, enables the microphone track, sends audio on.
    void unmuteMicrophone();
    /// Enables the camera track, sends video on.
    void startVideo();
    /// Disables the camera track, sends video off.
    void stopVideo();
    void turnOnSpeaker();
    void turnOffSpeaker();

    /// "<QXVCCall, 0x..., super class: ..., call id: ..., channel url: ...,
    /// caller: ..., callee: ..., ender: ..., ice servers: ..., peer connection:
    /// ..., is audio call: 0|1>".
    std::string description() const;

    // ---- Library-internal operations ------------------------------------------
    //
    // Used by the coordinator's flows; an application has no reason to call them.

    /// What moves a call's `state`. Every change of state in the library goes
    /// through changeState(), which holds the one table of the transitions there
    /// are (QXVCCallState.cpp).
    enum class StateTrigger {
        CallerCallCreated,  ///< initWithChannelUrl: the new call is None
        StartFlowStarted,   ///< the start-call flow starts the call: None -> Connecting
        IncomingStart,      ///< a start from the channel or a push: new -> Connecting
        Accepted,           ///< acceptWithOptions passed its checks: Connecting -> Connecting
        MediaOpened,        ///< ICE and the peer connection both Connected: any -> Opened
        MediaDisconnected,  ///< ICE Disconnected: any -> Dropped
        EndRecordCreated,   ///< initWithEndCallMessage: the new record is Closed
        PushedEnd,          ///< a pushed end of a registered call: any -> Closed
    };
    /// Applies `trigger` when the table allows it from the current state and
    /// returns whether it did; any other change is refused (logged at debug
    /// level) and the state stays. Ending a call is not a trigger: an ended call
    /// keeps its state.
    bool changeState(StateTrigger trigger);

    void setDelegate(const std::shared_ptr<QXVCCallDelegate>& delegate);
    std::shared_ptr<QXVCCallDelegate> delegate() const;
    void setOptions(const QXVCCallOptionsPtr& options);
    QXVCCallOptionsPtr options() const;

    /// Takes the options' camera, creates the peer connection and the local media.
    /// Nothing guards against a second activation.
    void activate();
    /// Makes the offer, sets it, sends it (the accept without its checks).
    void _acceptWithOptions(const QXVCCallOptionsPtr& options, QXVCErrorHandler completionHandler);
    /// The caller answers the callee's offer; every failure ends the call.
    void answerCallWithMessage(const std::shared_ptr<QXVCSignalMessage>& message);

    /// Ends the call after a failure: end type Unknown on the wire.
    void endCallUnknownType();
    /// Ends the call after a timer's expiry: end type Timeout on the wire.
    void endCallTimeoutType();

    // Timers. Every create and invalidate is posted to the main queue. A create
    // does not stop a timer already running: both fire.
    void createStartCallTimer();
    void timeoutStartCall();
    void invalidateStartCallTimer();
    void createOfferCallTimer();
    void timeoutOfferCall();
    void invalidateOfferCallTimer();
    void createAnswerCallTimer();
    void timeoutAnswerCall();
    void invalidateAnswerCallTimer();
    void createReconnectTimer();
    void timeoutReconnectCall();
    void invalidateReconnectTimer();
    /// Parks the caller's offer and starts the 0.25 s wait.
    void startViewPreparationTimerWithCallMessage(
        const std::shared_ptr<QXVCSignalMessage>& message);
    /// Parks the callee's accept handler and starts the 0.25 s wait.
    void startViewPreparationTimerWithCompletionHandler(QXVCErrorHandler completionHandler);
    /// End of the 0.25 s wait: tells the application that the call was accepted
    /// and answers a parked offer when this is the active call.
    void viewPreparationTimeout();
    /// Stops the wait in place (on the calling thread). Nothing calls it.
    void invalidateViewPreparationTimer();

    QXVCTimerPtr reconnectTimer() const;
    QXVCTimerPtr viewPreparationTimer() const;

    void setReadyToProceed(bool ready);
    bool getReadyToProceed() const;
    bool readyToProceed() const { return getReadyToProceed(); }

    // Peer connection.
    /// Appends a TURN server (no deduplication).
    void addIceServerWithTurnServer(const std::string& turnServer,
                                    const std::optional<std::string>& username,
                                    const std::optional<std::string>& password);
    /// The call's TURN servers; nullopt until one is added.
    std::optional<std::vector<RTCIceServerPtr>> iceServers() const;
    /// Relay-only, Unified Plan, a certificate generated for this connection.
    void createPeerConnection();
    RTCMediaConstraintsPtr defaultPeerConnectionConstraints() const;
    /// Built from the callee's own media flags.
    RTCMediaConstraintsPtr offerConstraints() const;
    /// Built from the caller's own media flags.
    RTCMediaConstraintsPtr answerConstraints() const;
    RTCMediaConstraintsPtr defaultMediaAudioConstraints() const;
    void setRemoteDescription(const RTCSessionDescriptionPtr& sdp,
                              RTCSetSessionDescriptionCompletionHandler completionHandler);
    void setLocalDescription(const RTCSessionDescriptionPtr& sdp,
                             RTCSetSessionDescriptionCompletionHandler completionHandler);
    void addIceCandidate(const RTCIceCandidatePtr& candidate);
    /// Sends a local candidate when its line holds "typ relay"; drops any other.
    /// A candidate that cannot be sent ends the call.
    void candidateCallWithIceCandidate(const RTCIceCandidatePtr& candidate);
    /// Removes both local tracks from the peer connection and closes it.
    void closePeerConnection();

    RTCPeerConnectionPtr peerConnection() const;
    bool hasConnected() const { return hasConnected_.load(); }
    bool disconnected() const { return disconnected_.load(); }
    RTCIceConnectionState iceConnectionState() const { return iceConnectionState_.load(); }
    RTCPeerConnectionState peerConnectionState() const { return peerConnectionState_.load(); }
    std::shared_ptr<QXVCSignalMessage> callMessage() const;
    QXVCErrorHandler acceptCallCompletionHandler() const;

    // RTCPeerConnectionDelegate.
    void peerConnectionDidChangeSignalingState(const RTCPeerConnectionPtr& peerConnection,
                                               RTCSignalingState state) override;
    void peerConnectionDidAddStream(const RTCPeerConnectionPtr& peerConnection,
                                    const RTCMediaStreamPtr& stream) override;
    void peerConnectionDidRemoveStream(const RTCPeerConnectionPtr& peerConnection,
                                       const RTCMediaStreamPtr& stream) override;
    void peerConnectionShouldNegotiate(const RTCPeerConnectionPtr& peerConnection) override;
    void peerConnectionDidChangeIceConnectionState(const RTCPeerConnectionPtr& peerConnection,
                                                   RTCIceConnectionState state) override;
    void peerConnectionDidChangeIceGatheringState(const RTCPeerConnectionPtr& peerConnection,
                                                  RTCIceGatheringState state) override;
    void peerConnectionDidGenerateIceCandidate(const RTCPeerConnectionPtr& peerConnection,
                                               const RTCIceCandidatePtr& candidate) override;
    void peerConnectionDidRemoveIceCandidates(
        const RTCPeerConnectionPtr& peerConnection,
        const std::vector<RTCIceCandidatePtr>& candidates) override;
    void peerConnectionDidOpenDataChannel(const RTCPeerConnectionPtr& peerConnection,
                                          const RTCDataChannelPtr& dataChannel) override;
    void peerConnectionDidChangeConnectionState(const RTCPeerConnectionPtr& peerConnection,
                                                RTCPeerConnectionState state) override;

    // Local media.
    /// Microphone and camera tracks on the peer connection, and the remote
    /// track wired to the remote view. Both tracks are made whatever the media
    /// flags say.
    void createMediaSenders();
    /// Starts the camera (current position) and returns a new track on the
    /// shared video source; nullptr without a factory.
    RTCVideoTrackPtr createLocalVideoTrack();
    /// The first device at `position`, else the first device; nullptr when there
    /// is none.
    RTCCaptureDevicePtr findDeviceForPosition(AVCaptureDevicePosition position) const;
    /// The format closest to the options' resolution (sum of the absolute width
    /// and height differences, the target taken as given, portrait included); on
    /// a tie a later format with the capturer's preferred pixel format wins.
    /// nullptr when the device has none.
    RTCCaptureDeviceFormatPtr selectFormatForDevice(const RTCCaptureDevicePtr& device) const;
    /// The highest maximum rate of the format's ranges, capped at 30; 0 without
    /// ranges. The options' videoFps is not consulted.
    int selectFpsForFormat(const RTCCaptureDeviceFormatPtr& format) const;
    /// Restarts capture on `device`; logs an error and keeps the previous capture
    /// when the device has no format.
    void setCameraWithDevice(const RTCCaptureDevicePtr& device);
    /// Caps every video sender at 20971520 bit/s.
    void setMaxBitrateForPeerConnectionVideoSender();
    /// Sets every encoding's maximum bitrate of `sender`; a bitrate below 1 does
    /// nothing.
    void setMaxBitrate(double bitrate, const RTCRtpSenderPtr& sender);
    RTCRtpTransceiverPtr videoTransceiver() const;
    RTCRtpTransceiverPtr audioTransceiver() const;
    /// Stops the shared camera and detaches the local view from it.
    void stopCapture();
    /// Detaches the remote view from the remote track and from this call.
    void clearRemoteVideoView();

    /// `videoView:didChangeVideoSize:` of the remote view.
    void videoView(const std::shared_ptr<RTCVideoRenderer>& videoView, CGSize size) override;

    RTCAudioTrackPtr audioTrack() const;
    RTCRtpSenderPtr audioTrackRtpSender() const;
    RTCVideoTrackPtr localVideoTrack() const;
    void setLocalVideoTrack(const RTCVideoTrackPtr& track);
    RTCRtpSenderPtr localVideoTrackRtpSender() const;
    RTCVideoTrackPtr remoteVideoTrack() const;
    void setRemoteVideoTrack(const RTCVideoTrackPtr& track);
    std::shared_ptr<QXVCLocalVideoView> localVideoView() const;
    std::shared_ptr<QXVCRemoteVideoView> remoteVideoView() const;
    QXVCCameraPosition defaultCameraPosition() const;
    QXVCCameraPosition currentPosition() const;
    void setCurrentPosition(QXVCCameraPosition position);

  private:
    QXVCCall() = default;

    /// Calls `event` on the delegate when there is one that handles `which`.
    /// Returns whether it was called.
    bool notifyDelegate(QXVCCallDelegate::Event which,
                        const std::function<void(QXVCCallDelegate&)>& event);
    void openStep();
    void endInternally(QXVCEndType endType);
    QXVCTimerPtr scheduleTimer(double seconds, void (QXVCCall::*expiry)());
    /// Posts the arming of the 0.25 s wait for the views to the main queue.
    void armViewPreparationTimer();

    mutable std::mutex callMutex_;
    /// Makes changeState()'s look at the state and its change one step.
    std::mutex stateMutex_;
    std::atomic<bool> hasConnected_{false};
    std::atomic<bool> disconnected_{false};
    std::atomic<bool> readyToProceed_{false};
    std::atomic<RTCIceConnectionState> iceConnectionState_{RTCIceConnectionStateNew};
    std::atomic<RTCPeerConnectionState> peerConnectionState_{RTCPeerConnectionStateNew};
    QXVCCallOptionsPtr options_;
    std::optional<std::vector<RTCIceServerPtr>> iceServers_;
    RTCPeerConnectionPtr peerConnection_;
    RTCAudioTrackPtr audioTrack_;
    RTCRtpSenderPtr audioTrackRtpSender_;
    RTCVideoTrackPtr localVideoTrack_;
    RTCRtpSenderPtr localVideoTrackRtpSender_;
    RTCVideoTrackPtr remoteVideoTrack_;
    QXVCCameraPosition defaultCameraPosition_ = QXVCCameraPositionUnspecified;
    QXVCCameraPosition currentPosition_ = QXVCCameraPositionUnspecified;
    std::shared_ptr<QXVCLocalVideoView> localVideoView_;
    std::shared_ptr<QXVCRemoteVideoView> remoteVideoView_;
    QXVCTimerPtr reconnectTimer_;
    QXVCTimerPtr viewPreparationTimer_;
    std::weak_ptr<QXVCCallDelegate> delegate_;
    std::shared_ptr<QXVCSignalMessage> callMessage_;
    QXVCErrorHandler acceptCallCompletionHandler_;
};

using QXVCCallPtr = std::shared_ptr<QXVCCall>;
