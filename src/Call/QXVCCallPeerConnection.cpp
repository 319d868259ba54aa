// QXVCCall: TURN servers, the relay-only peer connection, constraints, the
// candidate filter, the connection-state machine and the tear-down.
#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Client/QXVCClient.h"
#include "VelmorinVideoChat/Platform/RTC/RTCCertificate.h"
#include "VelmorinVideoChat/Platform/RTC/RTCConfiguration.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPeerConnectionFactory.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"

namespace {

template <typename... Args>
void logDebug(std::string_view format, const Args&... args) {
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, format, args...);
}

/// Only candidates whose line holds this text ever leave the device.
constexpr const char* kRelayCandidateMarker = "typ relay";

/// "{key = value; ...}" for the constraints log line.
std::string describeMap(const RTCConstraintsMap& map) {
    std::string text = "{";
    for (const auto& [key, value] : map) {
        text += " " + key + " = " + value + ";";
    }
    return text + " }";
}

/// The offer and answer constraints for the side whose flags are given.
RTCMediaConstraintsPtr mediaConstraints(const QXVCCallUserPtr& user) {
    bool audio = user && user->isAudioEnabled();
    bool video = user && user->isVideoEnabled();
    RTCConstraintsMap mandatory{
        {kRTCMediaConstraintsOfferToReceiveAudio,
         audio ? kRTCMediaConstraintsValueTrue : kRTCMediaConstraintsValueFalse},
        {kRTCMediaConstraintsOfferToReceiveVideo,
         video ? kRTCMediaConstraintsValueTrue : kRTCMediaConstraintsValueFalse},
        {"echoCancellation", kRTCMediaConstraintsValueTrue},
        {"googEchoCancellation", kRTCMediaConstraintsValueTrue},
    };
    logDebug("[QXVC] constraints: %@", describeMap(mandatory));
    return RTCMediaConstraints::initWithMandatoryConstraints(std::move(mandatory), std::nullopt);
}

}  // namespace

// ---- TURN servers and the peer connection ------------------------------------------

void QXVCCall::addIceServerWithTurnServer(const std::string& turnServer,
                                          const std::optional<std::string>& username,
                                          const std::optional<std::string>& password) {
    auto server = RTCIceServer::initWithURLStrings({turnServer}, username, password);
    std::lock_guard lock(callMutex_);
    if (!iceServers_) {
        iceServers_.emplace();
    }
    iceServers_->push_back(std::move(server));
}

void QXVCCall::createPeerConnection() {
    auto constraints = defaultPeerConnectionConstraints();
    auto configuration = RTCConfiguration::create();
    configuration->setIceServers(iceServers());
    configuration->setSdpSemantics(RTCSdpSemanticsUnifiedPlan);
    // A fresh RSA certificate for every peer connection; a failed generation
    // leaves none and the engine makes its own.
    nlohmann::json params = nlohmann::json::object();
    params["expires"] = 100000;
    params["name"] = "RSASSA-PKCS1-v1_5";
    configuration->setCertificate(RTCCertificate::generateCertificateWithParams(params));
    configuration->setIceTransportPolicy(RTCIceTransportPolicyRelay);

    RTCPeerConnectionPtr connection;
    auto factory = QXVCMain::getPeerConnectionFactory();
    auto self = weak_from_this().lock();
    if (factory && self) {
        connection = factory->peerConnectionWithConfiguration(configuration, constraints, self);
    }
    std::lock_guard lock(callMutex_);
    peerConnection_ = std::move(connection);
}

RTCMediaConstraintsPtr QXVCCall::defaultPeerConnectionConstraints() const {
    return RTCMediaConstraints::initWithMandatoryConstraints(
        std::nullopt, RTCConstraintsMap{{"DtlsSrtpKeyAgreement", kRTCMediaConstraintsValueTrue}});
}

RTCMediaConstraintsPtr QXVCCall::offerConstraints() const {
    return mediaConstraints(callee());
}

RTCMediaConstraintsPtr QXVCCall::answerConstraints() const {
    return mediaConstraints(caller());
}

RTCMediaConstraintsPtr QXVCCall::defaultMediaAudioConstraints() const {
    return RTCMediaConstraints::initWithMandatoryConstraints(RTCConstraintsMap{}, std::nullopt);
}

// ---- Descriptions and candidates -----------------------------------------------------

// Without a peer connection (the call was torn down) nothing happens and the
// completion is not called: a late description is not a failure of the call.
void QXVCCall::setRemoteDescription(const RTCSessionDescriptionPtr& sdp,
                                    RTCSetSessionDescriptionCompletionHandler completionHandler) {
    if (auto connection = peerConnection()) {
        connection->setRemoteDescription(sdp, std::move(completionHandler));
    }
}

void QXVCCall::setLocalDescription(const RTCSessionDescriptionPtr& sdp,
                                   RTCSetSessionDescriptionCompletionHandler completionHandler) {
    if (auto connection = peerConnection()) {
        connection->setLocalDescription(sdp, std::move(completionHandler));
    }
}

void QXVCCall::addIceCandidate(const RTCIceCandidatePtr& candidate) {
    auto connection = peerConnection();
    if (connection && candidate) {
        connection->addIceCandidate(candidate);
    }
}

void QXVCCall::candidateCallWithIceCandidate(const RTCIceCandidatePtr& candidate) {
    if (!candidate) {
        return;
    }
    // On top of the relay-only transport policy: no host or server-reflexive
    // address of this device ever goes out in a signalling message.
    const auto& line = candidate->sdp();
    if (!line || line->find(kRelayCandidateMarker) == std::string::npos) {
        logDebug("[QXVC] Discarded non-relay candidate");
        return;
    }
    logDebug("[QXVC] ICE Candidate from local: %@", *line);
    auto self = weak_from_this().lock();
    if (!self) {
        return;
    }
    std::weak_ptr<QXVCCall> weak = self;
    QXVCClient::sendCandidateCall(self, candidate, [weak](QXDUserMessagePtr, QXDErrorPtr error) {
        if (!error) {
            return;
        }
        // A single lost candidate ends the call.
        if (auto call = weak.lock()) {
            call->endCallUnknownType();
        }
    });
}

void QXVCCall::closePeerConnection() {
    RTCPeerConnectionPtr connection;
    RTCRtpSenderPtr audioSender;
    RTCRtpSenderPtr videoSender;
    {
        std::lock_guard lock(callMutex_);
        connection = std::move(peerConnection_);
        audioSender = std::move(audioTrackRtpSender_);
        videoSender = std::move(localVideoTrackRtpSender_);
        audioTrackRtpSender_ = nullptr;
        localVideoTrackRtpSender_ = nullptr;
        peerConnection_ = nullptr;
        audioTrack_ = nullptr;
    }
    if (!connection) {
        return;
    }
    if (audioSender) {
        connection->removeTrack(audioSender);
    }
    if (videoSender) {
        connection->removeTrack(videoSender);
    }
    connection->close();
}

// ---- Connection states -------------------------------------------------------------------

void QXVCCall::peerConnectionDidChangeIceConnectionState(const RTCPeerConnectionPtr&,
                                                         RTCIceConnectionState state) {
    logDebug("[QXVC] New ICE connection state: %d", state);
    iceConnectionState_.store(state);
    if (peerConnectionState_.load() == RTCPeerConnectionStateConnected &&
        state == RTCIceConnectionStateConnected) {
        openStep();
        return;
    }
    if (state != RTCIceConnectionStateDisconnected) {
        // New, Checking, Completed, Failed, Closed: nothing more. A Failed path
        // is ended by the reconnect timer of the Disconnected before it.
        return;
    }
    changeState(StateTrigger::MediaDisconnected);
    if (disconnected_.load()) {
        return;
    }
    createReconnectTimer();
    disconnected_.store(true);
    auto self = weak_from_this().lock();
    notifyDelegate(QXVCCallDelegate::Event::DidDropCall,
                   [&self](QXVCCallDelegate& delegate) { delegate.didDropCall(self); });
}

void QXVCCall::peerConnectionDidChangeConnectionState(const RTCPeerConnectionPtr&,
                                                      RTCPeerConnectionState state) {
    logDebug("[QXVC] New peer connection state: %d", state);
    peerConnectionState_.store(state);
    if (state == RTCPeerConnectionStateConnected &&
        iceConnectionState_.load() == RTCIceConnectionStateConnected) {
        openStep();
        disconnected_.store(false);
    }
}

void QXVCCall::openStep() {
    changeState(StateTrigger::MediaOpened);
    disconnected_.store(false);
    invalidateReconnectTimer();
    auto self = weak_from_this().lock();
    if (hasConnected_.load()) {
        notifyDelegate(QXVCCallDelegate::Event::DidReopenCall,
                       [&self](QXVCCallDelegate& delegate) { delegate.didReopenCall(self); });
        return;
    }
    hasConnected_.store(true);
    notifyDelegate(QXVCCallDelegate::Event::DidOpenCall,
                   [&self](QXVCCallDelegate& delegate) { delegate.didOpenCall(self); });
}

void QXVCCall::peerConnectionDidGenerateIceCandidate(const RTCPeerConnectionPtr&,
                                                     const RTCIceCandidatePtr& candidate) {
    candidateCallWithIceCandidate(candidate);
}

// Events the call does not act on: no renegotiation is ever started.
void QXVCCall::peerConnectionDidChangeSignalingState(const RTCPeerConnectionPtr&,
                                                     RTCSignalingState) {}
void QXVCCall::peerConnectionDidAddStream(const RTCPeerConnectionPtr&, const RTCMediaStreamPtr&) {}
void QXVCCall::peerConnectionDidRemoveStream(const RTCPeerConnectionPtr&,
                                             const RTCMediaStreamPtr&) {}
void QXVCCall::peerConnectionShouldNegotiate(const RTCPeerConnectionPtr&) {}
void QXVCCall::peerConnectionDidChangeIceGatheringState(const RTCPeerConnectionPtr&,
                                                        RTCIceGatheringState) {}
void QXVCCall::peerConnectionDidRemoveIceCandidates(const RTCPeerConnectionPtr&,
                                                    const std::vector<RTCIceCandidatePtr>&) {}
void QXVCCall::peerConnectionDidOpenDataChannel(const RTCPeerConnectionPtr&,
                                                const RTCDataChannelPtr&) {}
