// A peer connection (Unified Plan).
//
// Threads and order: every method may be called from any thread. Operations take
// effect in the order they are called, whatever their completions do: a remote
// candidate added right after setRemoteDescription is applied after that
// description, never dropped for arriving early. Completion handlers and
// delegate callbacks run on the engine's signalling thread.
//
// Errors: completion handlers receive a QXDErrorPtr (nullptr = success) in the
// domain kRTCErrorDomain with a localized description.
//
// Ownership: the peer connection holds its delegate weakly; the delegate must
// stay alive as long as it wants events.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/Platform/RTC/RTCConfiguration.h"
#include "VelmorinVideoChat/Platform/RTC/RTCIceCandidate.h"
#include "VelmorinVideoChat/Platform/RTC/RTCMediaConstraints.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPeerConnectionDelegate.h"
#include "VelmorinVideoChat/Platform/RTC/RTCRtpTransceiver.h"
#include "VelmorinVideoChat/Platform/RTC/RTCSessionDescription.h"
#include "VelmorinVideoChat/Platform/RTC/RTCStatisticsReport.h"
#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

using RTCCreateSessionDescriptionCompletionHandler =
    std::function<void(RTCSessionDescriptionPtr sdp, QXDErrorPtr error)>;
using RTCSetSessionDescriptionCompletionHandler = std::function<void(QXDErrorPtr error)>;

class RTCPeerConnection {
  public:
    virtual ~RTCPeerConnection() = default;

    virtual std::weak_ptr<RTCPeerConnectionDelegate> delegate() const = 0;
    virtual RTCConfigurationPtr configuration() const = 0;

    /// `offerForConstraints:completionHandler:`. OfferToReceiveAudio/Video act on
    /// transceivers as libwebrtc applies them under Unified Plan: "true" adds a
    /// receive-only transceiver of that kind when there is none; "false" stops
    /// receiving on the existing ones (sendrecv -> sendonly, recvonly -> inactive).
    virtual void offerForConstraints(const RTCMediaConstraintsPtr& constraints,
                                     RTCCreateSessionDescriptionCompletionHandler completion) = 0;
    /// `answerForConstraints:completionHandler:`.
    virtual void answerForConstraints(const RTCMediaConstraintsPtr& constraints,
                                      RTCCreateSessionDescriptionCompletionHandler completion) = 0;
    /// `setLocalDescription:completionHandler:`.
    virtual void setLocalDescription(const RTCSessionDescriptionPtr& sdp,
                                     RTCSetSessionDescriptionCompletionHandler completion) = 0;
    /// `setRemoteDescription:completionHandler:`. A remote description whose DTLS
    /// fingerprint does not match the certificate the peer presents fails the
    /// connection (ICE and peer-connection state Failed).
    virtual void setRemoteDescription(const RTCSessionDescriptionPtr& sdp,
                                      RTCSetSessionDescriptionCompletionHandler completion) = 0;
    /// `addIceCandidate:`. A candidate that cannot be applied is logged and dropped.
    virtual void addIceCandidate(const RTCIceCandidatePtr& candidate) = 0;
    /// `addIceCandidate:completionHandler:`.
    virtual void addIceCandidate(const RTCIceCandidatePtr& candidate,
                                 std::function<void(QXDErrorPtr error)> completion) = 0;

    /// `addTrack:streamIds:`: a new sendrecv transceiver for the track; nullptr
    /// when the track is nil, already added, or the connection is closed.
    virtual RTCRtpSenderPtr addTrack(const RTCMediaStreamTrackPtr& track,
                                     const std::vector<std::string>& streamIds) = 0;
    /// `removeTrack:`: stops sending the sender's track (the sender's track becomes
    /// nil and its transceiver stops sending). False when the sender is not one of
    /// this connection's or was already removed.
    virtual bool removeTrack(const RTCRtpSenderPtr& sender) = 0;
    /// `addTransceiverOfType:`: a sendrecv transceiver without a track.
    virtual RTCRtpTransceiverPtr addTransceiverOfType(RTCRtpMediaType mediaType) = 0;

    virtual std::vector<RTCRtpSenderPtr> senders() const = 0;
    virtual std::vector<RTCRtpReceiverPtr> receivers() const = 0;
    /// In media-line order.
    virtual std::vector<RTCRtpTransceiverPtr> transceivers() const = 0;

    /// Stops media, releases the TURN allocations and moves every state to
    /// Closed. No delegate callback follows. Idempotent.
    virtual void close() = 0;

    /// `statisticsWithCompletionHandler:`: bytes and packets sent and received
    /// so far, per kind of media. The report (never null) arrives on the
    /// signalling thread.
    virtual void statisticsWithCompletionHandler(RTCStatisticsCompletionHandler completion) = 0;

    virtual RTCSignalingState signalingState() const = 0;
    virtual RTCIceConnectionState iceConnectionState() const = 0;
    virtual RTCIceGatheringState iceGatheringState() const = 0;
    virtual RTCPeerConnectionState connectionState() const = 0;
    virtual RTCSessionDescriptionPtr localDescription() const = 0;
    virtual RTCSessionDescriptionPtr remoteDescription() const = 0;
};
