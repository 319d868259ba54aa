// The delegate of a peer connection.
//
// Every callback arrives on the engine's signalling thread, one at a time, in the
// order the events happened. Each selector `peerConnection:didX:` becomes
// `peerConnectionDidX(peerConnection, value)` (the selectors share their first
// keyword and several take the same argument type, so overloads would be
// ambiguous). The first nine are required; the rest have empty defaults.
#pragma once

#include <memory>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCIceCandidate.h"
#include "VelmorinVideoChat/Platform/RTC/RTCMediaStream.h"
#include "VelmorinVideoChat/Platform/RTC/RTCRtpTransceiver.h"
#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

class RTCPeerConnection;
using RTCPeerConnectionPtr = std::shared_ptr<RTCPeerConnection>;

class RTCPeerConnectionDelegate {
  public:
    virtual ~RTCPeerConnectionDelegate() = default;

    /// `peerConnection:didChangeSignalingState:`.
    virtual void peerConnectionDidChangeSignalingState(const RTCPeerConnectionPtr& peerConnection,
                                                       RTCSignalingState state) = 0;
    /// `peerConnection:didAddStream:`.
    virtual void peerConnectionDidAddStream(const RTCPeerConnectionPtr& peerConnection,
                                            const RTCMediaStreamPtr& stream) = 0;
    /// `peerConnection:didRemoveStream:`.
    virtual void peerConnectionDidRemoveStream(const RTCPeerConnectionPtr& peerConnection,
                                               const RTCMediaStreamPtr& stream) = 0;
    /// `peerConnectionShouldNegotiate:`.
    virtual void peerConnectionShouldNegotiate(const RTCPeerConnectionPtr& peerConnection) = 0;
    /// `peerConnection:didChangeIceConnectionState:`.
    virtual void peerConnectionDidChangeIceConnectionState(
        const RTCPeerConnectionPtr& peerConnection, RTCIceConnectionState state) = 0;
    /// `peerConnection:didChangeIceGatheringState:`.
    virtual void peerConnectionDidChangeIceGatheringState(
        const RTCPeerConnectionPtr& peerConnection, RTCIceGatheringState state) = 0;
    /// `peerConnection:didGenerateIceCandidate:`.
    virtual void peerConnectionDidGenerateIceCandidate(const RTCPeerConnectionPtr& peerConnection,
                                                       const RTCIceCandidatePtr& candidate) = 0;
    /// `peerConnection:didRemoveIceCandidates:`.
    virtual void peerConnectionDidRemoveIceCandidates(
        const RTCPeerConnectionPtr& peerConnection,
        const std::vector<RTCIceCandidatePtr>& candidates) = 0;
    /// `peerConnection:didOpenDataChannel:`.
    virtual void peerConnectionDidOpenDataChannel(const RTCPeerConnectionPtr& peerConnection,
                                                  const RTCDataChannelPtr& dataChannel) = 0;

    // Optional.
    /// `peerConnection:didChangeConnectionState:`.
    virtual void peerConnectionDidChangeConnectionState(const RTCPeerConnectionPtr& /*pc*/,
                                                        RTCPeerConnectionState /*state*/) {}
    /// `peerConnection:didStartReceivingOnTransceiver:`: the first media packet of
    /// that transceiver arrived.
    virtual void peerConnectionDidStartReceivingOnTransceiver(
        const RTCPeerConnectionPtr& /*pc*/, const RTCRtpTransceiverPtr& /*transceiver*/) {}
    /// `peerConnection:didAddReceiver:streams:`.
    virtual void peerConnectionDidAddReceiver(const RTCPeerConnectionPtr& /*pc*/,
                                              const RTCRtpReceiverPtr& /*receiver*/,
                                              const std::vector<RTCMediaStreamPtr>& /*streams*/) {}
    /// `peerConnection:didRemoveReceiver:`.
    virtual void peerConnectionDidRemoveReceiver(const RTCPeerConnectionPtr& /*pc*/,
                                                 const RTCRtpReceiverPtr& /*receiver*/) {}
};
