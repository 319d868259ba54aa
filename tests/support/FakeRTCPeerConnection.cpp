#include "support/FakeRTCPeerConnection.h"

#include <algorithm>
#include <sstream>

#include "support/FakeRTCAudio.h"
#include "support/FakeRTCVideo.h"

namespace {

QXDErrorPtr defaultError(const std::string& what) {
    return QXDError::errorWithDomain(kRTCErrorDomain, -1,
                                     QXDUserInfo{{NSLocalizedDescriptionKey, what + " failed."}});
}

/// The SDP attribute of a direction, in the enumeration's order (stopped: inactive).
const char* directionText(RTCRtpTransceiverDirection direction) {
    static const char* const kTexts[] = {"sendrecv", "sendonly", "recvonly", "inactive"};
    return kTexts[std::clamp<long>(direction, 0, 3)];
}

bool receives(RTCRtpTransceiverDirection direction) {
    return direction == RTCRtpTransceiverDirectionSendRecv ||
           direction == RTCRtpTransceiverDirectionRecvOnly;
}

}  // namespace

// ---- Sender ---------------------------------------------------------------------

FakeRTCRtpSender::FakeRTCRtpSender(std::shared_ptr<FakeRTCContext> context, std::string senderId,
                                   RTCMediaStreamTrackPtr track, std::vector<std::string> streamIds)
    : context_(std::move(context)),
      senderId_(std::move(senderId)),
      streamIds_(std::move(streamIds)),
      track_(std::move(track)) {
    parameters_.transactionId = senderId_ + "-tx";
    parameters_.encodings.push_back(RTCRtpEncodingParameters{});
}

bool FakeRTCRtpSender::setParameters(const RTCRtpParameters& parameters) {
    std::string bitrates;
    for (const auto& encoding : parameters.encodings) {
        bitrates += (bitrates.empty() ? "" : ",") +
                    (encoding.maxBitrateBps ? std::to_string(*encoding.maxBitrateBps) : "nil");
    }
    context_->record(senderId_ + ".setParameters(maxBitrate=" + bitrates + ")");
    std::lock_guard lock(mutex_);
    calls_.push_back(parameters);
    if (parameters.encodings.size() != parameters_.encodings.size()) {
        return false;
    }
    for (const auto& encoding : parameters.encodings) {
        if (encoding.maxBitrateBps && *encoding.maxBitrateBps <= 0) {
            return false;
        }
    }
    parameters_ = parameters;
    return true;
}

// ---- Peer connection -------------------------------------------------------------

FakeRTCPeerConnection::FakeRTCPeerConnection(std::shared_ptr<FakeRTCContext> context,
                                             std::string name, RTCConfigurationPtr configuration,
                                             RTCMediaConstraintsPtr constraints,
                                             std::weak_ptr<RTCPeerConnectionDelegate> delegate)
    : context_(std::move(context)),
      name_(std::move(name)),
      configuration_(std::move(configuration)),
      constraints_(std::move(constraints)),
      delegate_(std::move(delegate)) {}

std::string FakeRTCPeerConnection::describe(const RTCSessionDescriptionPtr& sdp) const {
    return sdp ? RTCSessionDescription::stringForType(sdp->type()) : "nil";
}

std::shared_ptr<FakeRTCRtpTransceiver> FakeRTCPeerConnection::makeTransceiver(
    RTCRtpMediaType type, RTCMediaStreamTrackPtr track, std::vector<std::string> streamIds,
    RTCRtpTransceiverDirection direction) {
    const std::string n = std::to_string(++idCounter_);
    auto sender = std::make_shared<FakeRTCRtpSender>(context_, name_ + "-sender" + n,
                                                     std::move(track), std::move(streamIds));
    RTCMediaStreamTrackPtr remote;
    if (type == RTCRtpMediaTypeVideo) {
        remote =
            std::make_shared<FakeRTCVideoTrack>(context_, name_ + "-remote-video" + n, nullptr);
    } else {
        remote =
            std::make_shared<FakeRTCAudioTrack>(context_, name_ + "-remote-audio" + n, nullptr);
    }
    auto receiver = std::make_shared<FakeRTCRtpReceiver>(name_ + "-receiver" + n, remote);
    auto transceiver = std::make_shared<FakeRTCRtpTransceiver>(type, sender, receiver, direction);
    transceivers_.push_back(transceiver);
    return transceiver;
}

void FakeRTCPeerConnection::applyReceiveConstraint(const RTCMediaConstraintsPtr& constraints,
                                                   const char* key, RTCRtpMediaType type) {
    const std::optional<bool> value = constraints ? constraints->boolForKey(key) : std::nullopt;
    if (!value) {
        return;
    }
    if (*value) {
        const bool anyReceiving = std::any_of(
            transceivers_.begin(), transceivers_.end(),
            [&](const auto& t) { return t->mediaType() == type && receives(t->direction()); });
        if (!anyReceiving) {
            makeTransceiver(type, nullptr, {}, RTCRtpTransceiverDirectionRecvOnly);
        }
        return;
    }
    for (const auto& t : transceivers_) {
        if (t->mediaType() != type) {
            continue;
        }
        if (t->direction() == RTCRtpTransceiverDirectionSendRecv) {
            t->setDirection(RTCRtpTransceiverDirectionSendOnly);
        } else if (t->direction() == RTCRtpTransceiverDirectionRecvOnly) {
            t->setDirection(RTCRtpTransceiverDirectionInactive);
        }
    }
}

void FakeRTCPeerConnection::offerForConstraints(
    const RTCMediaConstraintsPtr& constraints,
    RTCCreateSessionDescriptionCompletionHandler completion) {
    context_->record(name_ + ".offerForConstraints()");
    std::lock_guard lock(mutex_);
    offerConstraints_.push_back(constraints);
    applyReceiveConstraint(constraints, kRTCMediaConstraintsOfferToReceiveAudio,
                           RTCRtpMediaTypeAudio);
    applyReceiveConstraint(constraints, kRTCMediaConstraintsOfferToReceiveVideo,
                           RTCRtpMediaTypeVideo);
    pending_.push_back(Pending{Operation::CreateOffer, nullptr, std::move(completion), nullptr});
}

void FakeRTCPeerConnection::answerForConstraints(
    const RTCMediaConstraintsPtr& constraints,
    RTCCreateSessionDescriptionCompletionHandler completion) {
    context_->record(name_ + ".answerForConstraints()");
    std::lock_guard lock(mutex_);
    answerConstraints_.push_back(constraints);
    pending_.push_back(Pending{Operation::CreateAnswer, nullptr, std::move(completion), nullptr});
}

void FakeRTCPeerConnection::setLocalDescription(
    const RTCSessionDescriptionPtr& sdp, RTCSetSessionDescriptionCompletionHandler completion) {
    context_->record(name_ + ".setLocalDescription(" + describe(sdp) + ")");
    std::lock_guard lock(mutex_);
    localSet_.push_back(sdp);
    pending_.push_back(
        Pending{Operation::SetLocalDescription, sdp, nullptr, std::move(completion)});
}

void FakeRTCPeerConnection::setRemoteDescription(
    const RTCSessionDescriptionPtr& sdp, RTCSetSessionDescriptionCompletionHandler completion) {
    context_->record(name_ + ".setRemoteDescription(" + describe(sdp) + ")");
    std::lock_guard lock(mutex_);
    remoteSet_.push_back(sdp);
    pending_.push_back(
        Pending{Operation::SetRemoteDescription, sdp, nullptr, std::move(completion)});
}

void FakeRTCPeerConnection::addIceCandidate(const RTCIceCandidatePtr& candidate) {
    context_->record(name_ + ".addIceCandidate(" +
                     (candidate && candidate->sdp() ? *candidate->sdp() : "nil") + ")");
    lockedAppend(mutex_, candidates_, candidate);
}

void FakeRTCPeerConnection::addIceCandidate(const RTCIceCandidatePtr& candidate,
                                            std::function<void(QXDErrorPtr error)> completion) {
    addIceCandidate(candidate);
    if (completion) {
        context_->dispatch([completion = std::move(completion)] { completion(nullptr); });
    }
}

RTCRtpSenderPtr FakeRTCPeerConnection::addTrack(const RTCMediaStreamTrackPtr& track,
                                                const std::vector<std::string>& streamIds) {
    std::string ids;
    for (const auto& id : streamIds) {
        ids += (ids.empty() ? "" : ",") + id;
    }
    context_->record(name_ + ".addTrack(" +
                     (track ? track->kind() + ":" + track->trackId() : "nil") + ",[" + ids + "])");
    std::lock_guard lock(mutex_);
    addedTracks_.push_back(AddedTrack{track, streamIds});
    if (!track || closeCount_ > 0) {
        return nullptr;
    }
    for (const auto& t : transceivers_) {
        if (t->sender()->track() == track) {
            return nullptr;
        }
    }
    const RTCRtpMediaType type = track->kind() == kRTCMediaStreamTrackKindVideo
                                     ? RTCRtpMediaTypeVideo
                                     : RTCRtpMediaTypeAudio;
    return makeTransceiver(type, track, streamIds, RTCRtpTransceiverDirectionSendRecv)->sender();
}

bool FakeRTCPeerConnection::removeTrack(const RTCRtpSenderPtr& sender) {
    context_->record(name_ + ".removeTrack(" + (sender ? sender->senderId() : "nil") + ")");
    std::lock_guard lock(mutex_);
    removedSenders_.push_back(sender);
    for (const auto& t : transceivers_) {
        if (sender && t->sender() == sender) {
            if (!sender->track()) {
                return false;
            }
            t->fakeSender()->clearTrack();
            if (t->direction() == RTCRtpTransceiverDirectionSendRecv) {
                t->setDirection(RTCRtpTransceiverDirectionRecvOnly);
            } else if (t->direction() == RTCRtpTransceiverDirectionSendOnly) {
                t->setDirection(RTCRtpTransceiverDirectionInactive);
            }
            return true;
        }
    }
    return false;
}

RTCRtpTransceiverPtr FakeRTCPeerConnection::addTransceiverOfType(RTCRtpMediaType mediaType) {
    context_->record(name_ + ".addTransceiverOfType(" + std::to_string(mediaType) + ")");
    std::lock_guard lock(mutex_);
    if (closeCount_ > 0) {
        return nullptr;
    }
    return makeTransceiver(mediaType, nullptr, {}, RTCRtpTransceiverDirectionSendRecv);
}

std::vector<RTCRtpSenderPtr> FakeRTCPeerConnection::senders() const {
    std::lock_guard lock(mutex_);
    std::vector<RTCRtpSenderPtr> out;
    for (const auto& t : transceivers_) {
        out.push_back(t->sender());
    }
    return out;
}

std::vector<RTCRtpReceiverPtr> FakeRTCPeerConnection::receivers() const {
    std::lock_guard lock(mutex_);
    std::vector<RTCRtpReceiverPtr> out;
    for (const auto& t : transceivers_) {
        out.push_back(t->receiver());
    }
    return out;
}

std::vector<RTCRtpTransceiverPtr> FakeRTCPeerConnection::transceivers() const {
    std::lock_guard lock(mutex_);
    return {transceivers_.begin(), transceivers_.end()};
}

void FakeRTCPeerConnection::statisticsWithCompletionHandler(
    RTCStatisticsCompletionHandler completion) {
    if (completion) {
        context_->dispatch(
            [completion = std::move(completion), report = lockedCopy(mutex_, statistics_)] {
                completion(std::make_shared<const RTCStatisticsReport>(report));
            });
    }
}

void FakeRTCPeerConnection::close() {
    context_->record(name_ + ".close()");
    std::lock_guard lock(mutex_);
    ++closeCount_;
    signaling_ = RTCSignalingStateClosed;
    ice_ = RTCIceConnectionStateClosed;
    connection_ = RTCPeerConnectionStateClosed;
}

std::shared_ptr<FakeRTCVideoTrack> FakeRTCPeerConnection::remoteVideoTrack() const {
    std::lock_guard lock(mutex_);
    for (const auto& t : transceivers_) {
        if (t->mediaType() == RTCRtpMediaTypeVideo) {
            return std::dynamic_pointer_cast<FakeRTCVideoTrack>(t->receiver()->track());
        }
    }
    return nullptr;
}

// ---- Completing operations ------------------------------------------------------------

std::vector<FakeRTCPeerConnection::Operation> FakeRTCPeerConnection::pendingOperations() const {
    std::lock_guard lock(mutex_);
    std::vector<Operation> out;
    for (const auto& p : pending_) {
        out.push_back(p.operation);
    }
    return out;
}

std::optional<FakeRTCPeerConnection::Pending> FakeRTCPeerConnection::takePending(
    Operation operation) {
    std::lock_guard lock(mutex_);
    for (auto it = pending_.begin(); it != pending_.end(); ++it) {
        if (it->operation == operation) {
            Pending p = std::move(*it);
            pending_.erase(it);
            return p;
        }
    }
    return std::nullopt;
}

std::string FakeRTCPeerConnection::makeSdp(RTCSdpType type) const {
    std::lock_guard lock(mutex_);
    std::ostringstream sdp;
    sdp << "v=0\r\no=- " << std::hash<std::string>{}(name_) % 1000000007
        << " 2 IN IP4 127.0.0.1\r\ns=-\r\nt=0 0\r\na=group:BUNDLE";
    for (size_t i = 0; i < transceivers_.size(); ++i) {
        sdp << ' ' << transceivers_[i]->mid().value_or(std::to_string(i));
    }
    sdp << "\r\na=msid-semantic: WMS ARDAMS\r\n";
    for (size_t i = 0; i < transceivers_.size(); ++i) {
        const auto& t = transceivers_[i];
        const bool video = t->mediaType() == RTCRtpMediaTypeVideo;
        sdp << "m=" << (video ? "video" : "audio") << " 9 UDP/TLS/RTP/SAVPF "
            << (video ? "96" : "111") << "\r\nc=IN IP4 0.0.0.0\r\n"
            << "a=ice-ufrag:fake\r\na=ice-pwd:fakefakefakefakefakefake\r\n"
            << "a=fingerprint:sha-256 "
               "00:11:22:33:44:55:66:77:88:99:AA:BB:CC:DD:EE:FF:"
               "00:11:22:33:44:55:66:77:88:99:AA:BB:CC:DD:EE:FF\r\n"
            << "a=setup:" << (type == RTCSdpTypeOffer ? "actpass" : "active") << "\r\n"
            << "a=mid:" << t->mid().value_or(std::to_string(i)) << "\r\n"
            << "a=" << directionText(t->direction()) << "\r\na=rtcp-mux\r\n"
            << (video ? "a=rtpmap:96 VP8/90000\r\n" : "a=rtpmap:111 opus/48000/2\r\n");
    }
    return sdp.str();
}

bool FakeRTCPeerConnection::completeCreate(Operation operation, RTCSdpType type,
                                           std::optional<std::string> sdp) {
    auto p = takePending(operation);
    if (!p) {
        return false;
    }
    auto description =
        std::make_shared<const RTCSessionDescription>(type, sdp ? *sdp : makeSdp(type));
    if (p->createCompletion) {
        context_->dispatch(
            [c = std::move(p->createCompletion), description] { c(description, nullptr); });
    }
    return true;
}

bool FakeRTCPeerConnection::completeCreateOffer(std::optional<std::string> sdp) {
    return completeCreate(Operation::CreateOffer, RTCSdpTypeOffer, std::move(sdp));
}

bool FakeRTCPeerConnection::completeCreateAnswer(std::optional<std::string> sdp) {
    return completeCreate(Operation::CreateAnswer, RTCSdpTypeAnswer, std::move(sdp));
}

void FakeRTCPeerConnection::applyDescription(const RTCSessionDescriptionPtr& description,
                                             bool local) {
    RTCSignalingState state;
    {
        std::lock_guard lock(mutex_);
        const RTCSdpType type = description ? description->type() : RTCSdpTypeOffer;
        if (local) {
            localDescription_ = description;
        } else {
            remoteDescription_ = description;
            // Media lines of a remote description are matched to transceivers of
            // the same kind in order; a line without one gets a receive-only
            // transceiver, as under Unified Plan.
            std::vector<bool> used(transceivers_.size(), false);
            std::istringstream lines(description ? description->sdp() : "");
            std::string line;
            std::shared_ptr<FakeRTCRtpTransceiver> section;
            while (std::getline(lines, line)) {
                if (!line.empty() && line.back() == '\r') {
                    line.pop_back();
                }
                if (line.rfind("m=", 0) == 0) {
                    const RTCRtpMediaType kind =
                        line.rfind("m=video", 0) == 0 ? RTCRtpMediaTypeVideo : RTCRtpMediaTypeAudio;
                    section = nullptr;
                    for (size_t i = 0; i < transceivers_.size(); ++i) {
                        if (!used[i] && transceivers_[i]->mediaType() == kind) {
                            used[i] = true;
                            section = transceivers_[i];
                            break;
                        }
                    }
                    if (!section) {
                        section =
                            makeTransceiver(kind, nullptr, {}, RTCRtpTransceiverDirectionRecvOnly);
                        used.push_back(true);
                    }
                } else if (section && line.rfind("a=mid:", 0) == 0) {
                    section->setMid(line.substr(6));
                }
            }
        }
        for (size_t i = 0; i < transceivers_.size(); ++i) {
            if (!transceivers_[i]->mid()) {
                transceivers_[i]->setMid(std::to_string(i));
            }
            if (type == RTCSdpTypeAnswer) {
                transceivers_[i]->setCurrentDirection(transceivers_[i]->direction());
            }
        }
        // An answer or a rollback returns to Stable.
        signaling_ =
            type == RTCSdpTypeOffer
                ? (local ? RTCSignalingStateHaveLocalOffer : RTCSignalingStateHaveRemoteOffer)
            : type == RTCSdpTypePrAnswer
                ? (local ? RTCSignalingStateHaveLocalPrAnswer : RTCSignalingStateHaveRemotePrAnswer)
                : RTCSignalingStateStable;
        state = signaling_;
    }
    notify([state](RTCPeerConnectionDelegate& d, const RTCPeerConnectionPtr& pc) {
        d.peerConnectionDidChangeSignalingState(pc, state);
    });
}

bool FakeRTCPeerConnection::completeSet(Operation operation, bool local) {
    auto p = takePending(operation);
    if (!p) {
        return false;
    }
    applyDescription(p->description, local);
    if (p->setCompletion) {
        context_->dispatch([c = std::move(p->setCompletion)] { c(nullptr); });
    }
    return true;
}

bool FakeRTCPeerConnection::completeSetLocalDescription() {
    return completeSet(Operation::SetLocalDescription, true);
}

bool FakeRTCPeerConnection::completeSetRemoteDescription() {
    return completeSet(Operation::SetRemoteDescription, false);
}

bool FakeRTCPeerConnection::failOperation(Operation operation, QXDErrorPtr error) {
    auto p = takePending(operation);
    if (!p) {
        return false;
    }
    static const char* const kNames[] = {"createOffer", "createAnswer", "setLocalDescription",
                                         "setRemoteDescription"};
    if (!error) {
        error = defaultError(kNames[static_cast<int>(operation)]);
    }
    context_->record(name_ + ".fail(" + kNames[static_cast<int>(operation)] + ")");
    if (p->createCompletion) {
        context_->dispatch([c = std::move(p->createCompletion), error] { c(nullptr, error); });
    } else if (p->setCompletion) {
        context_->dispatch([c = std::move(p->setCompletion), error] { c(error); });
    }
    return true;
}

size_t FakeRTCPeerConnection::completeAll() {
    size_t done = 0;
    for (; done < 100; ++done) {
        std::unique_lock lock(mutex_);
        if (pending_.empty()) {
            break;
        }
        const Operation next = pending_.front().operation;
        lock.unlock();
        if (next == Operation::CreateOffer || next == Operation::CreateAnswer) {
            completeCreate(next,
                           next == Operation::CreateOffer ? RTCSdpTypeOffer : RTCSdpTypeAnswer,
                           std::nullopt);
        } else {
            completeSet(next, next == Operation::SetLocalDescription);
        }
    }
    return done;
}

// ---- Engine events ---------------------------------------------------------------

void FakeRTCPeerConnection::notify(
    std::function<void(RTCPeerConnectionDelegate&, const RTCPeerConnectionPtr&)> call) {
    if (isClosed()) {
        return;
    }
    std::weak_ptr<FakeRTCPeerConnection> weakSelf = weak_from_this();
    context_->dispatch([weakSelf, delegate = delegate_, call = std::move(call)] {
        auto self = weakSelf.lock();
        auto d = delegate.lock();
        if (self && d && !self->isClosed()) {
            call(*d, self);
        }
    });
}

void FakeRTCPeerConnection::emitIceCandidate(const RTCIceCandidatePtr& candidate) {
    context_->record(name_ + ".event(candidate=" +
                     (candidate && candidate->sdp() ? *candidate->sdp() : "nil") + ")");
    notify([candidate](RTCPeerConnectionDelegate& d, const RTCPeerConnectionPtr& pc) {
        d.peerConnectionDidGenerateIceCandidate(pc, candidate);
    });
}

void FakeRTCPeerConnection::emitIceCandidate(const std::string& line) {
    emitIceCandidate(std::make_shared<const RTCIceCandidate>(line, 0, "0"));
}

template <class State>
void FakeRTCPeerConnection::emitState(
    const char* what, State& field, State state,
    void (RTCPeerConnectionDelegate::*callback)(const RTCPeerConnectionPtr&, State)) {
    if (isClosed()) {
        return;
    }
    context_->record(name_ + ".event(" + what + "=" + std::to_string(state) + ")");
    lockedSet(mutex_, field, state);
    notify([state, callback](RTCPeerConnectionDelegate& d, const RTCPeerConnectionPtr& pc) {
        (d.*callback)(pc, state);
    });
}

void FakeRTCPeerConnection::emitIceConnectionState(RTCIceConnectionState state) {
    emitState("iceConnectionState", ice_, state,
              &RTCPeerConnectionDelegate::peerConnectionDidChangeIceConnectionState);
}

void FakeRTCPeerConnection::emitConnectionState(RTCPeerConnectionState state) {
    emitState("connectionState", connection_, state,
              &RTCPeerConnectionDelegate::peerConnectionDidChangeConnectionState);
}

void FakeRTCPeerConnection::emitIceGatheringState(RTCIceGatheringState state) {
    emitState("iceGatheringState", gathering_, state,
              &RTCPeerConnectionDelegate::peerConnectionDidChangeIceGatheringState);
}

void FakeRTCPeerConnection::emitSignalingState(RTCSignalingState state) {
    emitState("signalingState", signaling_, state,
              &RTCPeerConnectionDelegate::peerConnectionDidChangeSignalingState);
}

void FakeRTCPeerConnection::emitStartReceiving(RTCRtpMediaType mediaType) {
    RTCRtpTransceiverPtr transceiver;
    {
        std::lock_guard lock(mutex_);
        for (const auto& t : transceivers_) {
            if (t->mediaType() == mediaType) {
                transceiver = t;
                break;
            }
        }
    }
    if (!transceiver) {
        return;
    }
    notify([transceiver](RTCPeerConnectionDelegate& d, const RTCPeerConnectionPtr& pc) {
        d.peerConnectionDidStartReceivingOnTransceiver(pc, transceiver);
    });
}

void FakeRTCPeerConnection::emitConnected() {
    emitIceConnectionState(RTCIceConnectionStateChecking);
    emitConnectionState(RTCPeerConnectionStateConnecting);
    emitIceConnectionState(RTCIceConnectionStateConnected);
    emitConnectionState(RTCPeerConnectionStateConnected);
}

std::string FakeRTCPeerConnection::hostCandidateLine(int port) {
    return "candidate:1 1 udp 2122260223 192.168.1.20 " + std::to_string(port) +
           " typ host generation 0 ufrag fake network-id 1";
}

std::string FakeRTCPeerConnection::srflxCandidateLine(int port) {
    return "candidate:2 1 udp 1686052607 203.0.113.7 " + std::to_string(port) +
           " typ srflx raddr 192.168.1.20 rport 54321 generation 0 ufrag fake";
}

std::string FakeRTCPeerConnection::relayCandidateLine(int port) {
    return "candidate:3 1 udp 41885439 127.0.0.1 " + std::to_string(port) +
           " typ relay raddr 0.0.0.0 rport 0 generation 0 ufrag fake";
}
