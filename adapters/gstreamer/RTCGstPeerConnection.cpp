#include "RTCGstPeerConnection.h"

#include <gst/sdp/sdp.h>
#include <gst/webrtc/webrtc.h>

#include "RTCGstMedia.h"
#include "RTCGstPeerConnectionImpl.h"
#include "RTCGstPlatform.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace {

QXDErrorPtr rtcError(const std::string& text) {
    return QXDError::errorWithDomain(kRTCErrorDomain, -1,
                                     QXDUserInfo{{NSLocalizedDescriptionKey, text}});
}

GstWebRTCSDPType gstSdpType(RTCSdpType type) {
    switch (type) {
        case RTCSdpTypeOffer:
            return GST_WEBRTC_SDP_TYPE_OFFER;
        case RTCSdpTypePrAnswer:
            return GST_WEBRTC_SDP_TYPE_PRANSWER;
        case RTCSdpTypeAnswer:
            return GST_WEBRTC_SDP_TYPE_ANSWER;
        case RTCSdpTypeRollback:
            return GST_WEBRTC_SDP_TYPE_ROLLBACK;
    }
    return GST_WEBRTC_SDP_TYPE_OFFER;
}

RTCSignalingState signalingFromGst(int state) {
    switch (state) {
        case GST_WEBRTC_SIGNALING_STATE_STABLE:
            return RTCSignalingStateStable;
        case GST_WEBRTC_SIGNALING_STATE_CLOSED:
            return RTCSignalingStateClosed;
        case GST_WEBRTC_SIGNALING_STATE_HAVE_LOCAL_OFFER:
            return RTCSignalingStateHaveLocalOffer;
        case GST_WEBRTC_SIGNALING_STATE_HAVE_REMOTE_OFFER:
            return RTCSignalingStateHaveRemoteOffer;
        case GST_WEBRTC_SIGNALING_STATE_HAVE_LOCAL_PRANSWER:
            return RTCSignalingStateHaveLocalPrAnswer;
        case GST_WEBRTC_SIGNALING_STATE_HAVE_REMOTE_PRANSWER:
            return RTCSignalingStateHaveRemotePrAnswer;
        default:
            return RTCSignalingStateStable;
    }
}

/// One webrtcbin promise: its reply is handled on the signalling queue; a promise
/// dropped unanswered (pipeline stopped) still finishes the operation.
struct PromiseContext {
    std::shared_ptr<QXVCSerialQueue> queue;
    std::function<void(GstStructure* reply, QXDErrorPtr error)> handle;  // signalling queue
    std::atomic<bool> answered{false};

    ~PromiseContext() {
        if (!answered) {
            queue->async([handle = std::move(handle)] {
                handle(nullptr, rtcError("The connection was closed."));
            });
        }
    }
};

void promiseChanged(GstPromise* promise, gpointer data) {
    auto* context = static_cast<PromiseContext*>(data);
    context->answered = true;
    QXDErrorPtr error;
    std::shared_ptr<GstStructure> reply;
    if (gst_promise_wait(promise) != GST_PROMISE_RESULT_REPLIED) {
        error = rtcError("The operation was interrupted.");
    } else if (const GstStructure* s = gst_promise_get_reply(promise)) {
        reply.reset(gst_structure_copy(s), gst_structure_free);
        GError* gerror = nullptr;
        if (gst_structure_has_field(reply.get(), "error") &&
            gst_structure_get(reply.get(), "error", G_TYPE_ERROR, &gerror, nullptr) && gerror) {
            rtcgst::ErrorRef held(gerror);
            error = rtcError(gerror->message);
        }
    }
    context->queue->async([handle = context->handle, reply, error] { handle(reply.get(), error); });
}

/// Emits `signal` on webrtcbin with `argument` and a promise whose reply goes to
/// `handle` on `queue`.
void emitWithPromise(GstElement* webrtc, const char* signal, gpointer argument,
                     const std::shared_ptr<QXVCSerialQueue>& queue,
                     std::function<void(GstStructure* reply, QXDErrorPtr error)> handle) {
    auto context = std::make_unique<PromiseContext>();
    context->queue = queue;
    context->handle = std::move(handle);
    rtcgst::PromiseRef promise(gst_promise_new_with_change_func(
        promiseChanged, rtcgst::giveToC(std::move(context)), rtcgst::destroyFromC<PromiseContext>));
    g_signal_emit_by_name(webrtc, signal, argument, promise.get());
}

using SessionDescriptionRef =
    std::unique_ptr<GstWebRTCSessionDescription,
                    rtcgst::Releaser<gst_webrtc_session_description_free>>;

}  // namespace

std::shared_ptr<RTCGstPeerConnection> RTCGstPeerConnection::create(
    const std::shared_ptr<RTCGstPlatform>& platform, const RTCConfigurationPtr& configuration,
    const std::shared_ptr<RTCPeerConnectionDelegate>& delegate) {
    if (!platform || !configuration) {
        return nullptr;
    }
    auto pc = std::make_shared<RTCGstPeerConnection>(platform, configuration, delegate);
    pc->impl_->ref = std::make_shared<RTCGstRef>(pc);
    if (!pc->impl_->setUp(*configuration)) {
        pc->closed_ = true;
        return nullptr;
    }
    return pc;
}

RTCGstPeerConnection::RTCGstPeerConnection(std::shared_ptr<RTCGstPlatform> platform,
                                           RTCConfigurationPtr configuration,
                                           std::weak_ptr<RTCPeerConnectionDelegate> delegate)
    : platform_(std::move(platform)),
      queue_(platform_->signalingQueue()),
      configuration_(std::move(configuration)),
      delegate_(std::move(delegate)),
      impl_(std::make_unique<Impl>(*this)) {}

RTCGstPeerConnection::~RTCGstPeerConnection() {
    closed_ = true;
    impl_->tearDown();
}

void RTCGstPeerConnection::enqueue(Operation operation) {
    {
        std::lock_guard lock(opMutex_);
        operations_.push_back(std::move(operation));
        if (running_) {
            return;
        }
        running_ = true;
    }
    queue_->async([self = shared_from_this()] { self->runNext(); });
}

void RTCGstPeerConnection::runNext() {
    Operation operation;
    {
        std::lock_guard lock(opMutex_);
        if (operations_.empty()) {
            running_ = false;
            return;
        }
        operation = std::move(operations_.front());
        operations_.pop_front();
    }
    auto self = shared_from_this();
    auto finished = std::make_shared<std::atomic<bool>>(false);
    operation([self, finished] {
        if (!finished->exchange(true)) {
            self->queue_->async([self] { self->runNext(); });
        }
    });
}

namespace {

// Asks webrtcbin for an offer or an answer. The text handed on carries this
// connection's certificate fingerprint and, when relay-only, no other candidate.
// `self` keeps the connection alive until webrtcbin replies.
void createDescription(RTCGstPeerConnection::Impl& impl,
                       const std::shared_ptr<QXVCSerialQueue>& queue, RTCSdpType type,
                       std::shared_ptr<RTCGstPeerConnection> self,
                       std::function<void(RTCSessionDescriptionPtr, QXDErrorPtr)> finish) {
    const bool offer = type == RTCSdpTypeOffer;
    auto handle = [&impl, self = std::move(self), finish = std::move(finish), type, offer](
                      GstStructure* reply, QXDErrorPtr error) {
        GstWebRTCSessionDescription* made = nullptr;
        if (!error &&
            (!reply || !gst_structure_get(reply, offer ? "offer" : "answer",
                                          GST_TYPE_WEBRTC_SESSION_DESCRIPTION, &made, nullptr))) {
            error = rtcError(offer ? "No offer was created." : "No answer was created.");
        }
        SessionDescriptionRef desc(made);
        RTCSessionDescriptionPtr sdp;
        if (desc) {
            rtcgst::replaceFingerprints(desc->sdp, impl.localFingerprint);
            if (impl.relayOnly) {
                rtcgst::filterCandidates(desc->sdp);
            }
            sdp = std::make_shared<RTCSessionDescription>(type, rtcgst::sdpText(desc->sdp));
        }
        finish(sdp, error);
    };
    emitWithPromise(impl.webrtc.get(), offer ? "create-offer" : "create-answer", nullptr, queue,
                    std::move(handle));
}

}  // namespace

void RTCGstPeerConnection::offerForConstraints(
    const RTCMediaConstraintsPtr& constraints,
    RTCCreateSessionDescriptionCompletionHandler completion) {
    enqueue([this, self = shared_from_this(), constraints, completion](Done done) {
        auto finish = [completion, done](RTCSessionDescriptionPtr sdp, QXDErrorPtr error) {
            if (completion) {
                qxvc::safeCall("offer completion", completion, sdp, error);
            }
            done();
        };
        if (closed_ || impl_->failed) {
            finish(nullptr, rtcError("The peer connection is closed."));
            return;
        }
        // Legacy OfferToReceive constraints, as libwebrtc applies them to transceivers.
        for (auto [key, type] :
             {std::pair{kRTCMediaConstraintsOfferToReceiveAudio, RTCRtpMediaTypeAudio},
              std::pair{kRTCMediaConstraintsOfferToReceiveVideo, RTCRtpMediaTypeVideo}}) {
            auto value = constraints ? constraints->boolForKey(key) : std::nullopt;
            if (!value) {
                continue;
            }
            bool any = false;
            for (const auto& transceiver : transceivers()) {
                if (transceiver->mediaType() != type) {
                    continue;
                }
                any = true;
                auto direction = transceiver->direction();
                if (!*value && direction == RTCRtpTransceiverDirectionSendRecv) {
                    transceiver->setDirection(RTCRtpTransceiverDirectionSendOnly);
                } else if (!*value && direction == RTCRtpTransceiverDirectionRecvOnly) {
                    transceiver->setDirection(RTCRtpTransceiverDirectionInactive);
                }
            }
            if (*value && !any) {
                addTransceiverOfType(type)->setDirection(RTCRtpTransceiverDirectionRecvOnly);
            }
        }
        impl_->decideVoiceProcessing(constraints);
        impl_->buildOfferBranches();
        impl_->syncDirections();
        createDescription(*impl_, queue_, RTCSdpTypeOffer, self, finish);
    });
}

void RTCGstPeerConnection::answerForConstraints(
    const RTCMediaConstraintsPtr& constraints,
    RTCCreateSessionDescriptionCompletionHandler completion) {
    // Under Unified Plan the receive constraints do not shape an answer: what is
    // received follows the offer and the transceivers' directions. The
    // echo-cancellation constraint decides on the microphone's processing.
    enqueue([this, self = shared_from_this(), constraints, completion](Done done) {
        auto finish = [completion, done](RTCSessionDescriptionPtr sdp, QXDErrorPtr error) {
            if (completion) {
                qxvc::safeCall("answer completion", completion, sdp, error);
            }
            done();
        };
        if (closed_ || impl_->failed) {
            finish(nullptr, rtcError("The peer connection is closed."));
            return;
        }
        if (signaling_.load() != RTCSignalingStateHaveRemoteOffer) {
            finish(nullptr, rtcError("An answer needs a remote offer."));
            return;
        }
        impl_->decideVoiceProcessing(constraints);
        impl_->syncDirections();
        createDescription(*impl_, queue_, RTCSdpTypeAnswer, self, finish);
    });
}

namespace {

/// The description's message; nullptr when it cannot be read or has no media.
rtcgst::SdpRef readSdp(const RTCSessionDescriptionPtr& sdp) {
    auto message = sdp ? rtcgst::parseSdp(sdp->sdp()) : nullptr;
    if (!message || gst_sdp_message_medias_len(message.get()) == 0) {
        return nullptr;
    }
    return message;
}

/// webrtcbin's form of the description; takes `message`.
SessionDescriptionRef toGst(RTCSdpType type, rtcgst::SdpRef message) {
    return SessionDescriptionRef(
        gst_webrtc_session_description_new(gstSdpType(type), message.release()));
}

}  // namespace

void RTCGstPeerConnection::setLocalDescription(
    const RTCSessionDescriptionPtr& sdp, RTCSetSessionDescriptionCompletionHandler completion) {
    enqueue([this, self = shared_from_this(), sdp, completion](Done done) {
        auto finish = [completion, done](QXDErrorPtr error) {
            if (completion) {
                qxvc::safeCall("setLocalDescription completion", completion, error);
            }
            done();
        };
        if (closed_ || impl_->failed) {
            finish(rtcError("The peer connection is closed."));
            return;
        }
        auto message = readSdp(sdp);
        if (!message) {
            finish(rtcError("The local description could not be parsed."));
            return;
        }
        std::vector<std::string> mids;
        for (const auto& line : rtcgst::mediaLines(message.get())) {
            mids.push_back(line.mid);
        }
        auto desc = toGst(sdp->type(), std::move(message));
        auto handle = [this, self, sdp, mids, finish](GstStructure*, QXDErrorPtr error) {
            if (!error && !closed_ && impl_->webrtc) {
                {
                    std::lock_guard lock(impl_->mutex);
                    impl_->local = sdp;
                }
                impl_->localMids = mids;
                int state = 0;
                g_object_get(impl_->webrtc.get(), "signaling-state", &state, nullptr);
                impl_->reportSignaling(signalingFromGst(state));
                impl_->updateNegotiated();
                impl_->startTurnTimer();
            }
            finish(error);
        };
        emitWithPromise(impl_->webrtc.get(), "set-local-description", desc.get(), queue_,
                        std::move(handle));
    });
}

void RTCGstPeerConnection::setRemoteDescription(
    const RTCSessionDescriptionPtr& sdp, RTCSetSessionDescriptionCompletionHandler completion) {
    enqueue([this, self = shared_from_this(), sdp, completion](Done done) {
        auto finish = [completion, done](QXDErrorPtr error) {
            if (completion) {
                qxvc::safeCall("setRemoteDescription completion", completion, error);
            }
            done();
        };
        if (closed_ || impl_->failed) {
            finish(rtcError("The peer connection is closed."));
            return;
        }
        auto message = readSdp(sdp);
        if (!message) {
            finish(rtcError("The remote description could not be parsed."));
            return;
        }
        auto prints = rtcgst::fingerprints(message.get());
        if (prints.empty()) {
            finish(rtcError("The remote description has no DTLS fingerprint."));
            return;
        }
        auto lines = rtcgst::mediaLines(message.get());
        if (sdp->type() == RTCSdpTypeOffer) {
            impl_->buildAnswerBranches(lines);
        }
        auto desc = toGst(sdp->type(), std::move(message));
        auto handle = [this, self, sdp, prints, lines, finish](GstStructure*, QXDErrorPtr error) {
            if (!error && !closed_ && impl_->webrtc) {
                {
                    std::lock_guard lock(impl_->mutex);
                    impl_->remote = sdp;
                }
                impl_->remoteFingerprints = prints;
                impl_->remoteMids.clear();
                for (const auto& line : lines) {
                    impl_->remoteMids.push_back(line.mid);
                }
                int state = 0;
                g_object_get(impl_->webrtc.get(), "signaling-state", &state, nullptr);
                impl_->reportSignaling(signalingFromGst(state));
                impl_->updateNegotiated();
            }
            finish(error);
        };
        emitWithPromise(impl_->webrtc.get(), "set-remote-description", desc.get(), queue_,
                        std::move(handle));
    });
}

void RTCGstPeerConnection::addIceCandidate(const RTCIceCandidatePtr& candidate) {
    addIceCandidate(candidate, [](QXDErrorPtr error) {
        if (error) {
            RTCLogEx(RTCLoggingSeverityWarning,
                     "Remote candidate dropped: " + error->localizedDescription());
        }
    });
}

void RTCGstPeerConnection::addIceCandidate(const RTCIceCandidatePtr& candidate,
                                           std::function<void(QXDErrorPtr error)> completion) {
    enqueue([this, self = shared_from_this(), candidate, completion](Done done) {
        QXDErrorPtr error;
        if (closed_ || impl_->failed) {
            error = rtcError("The peer connection is closed.");
        } else if (!candidate || !candidate->sdp() || candidate->sdp()->empty()) {
            error = rtcError("The candidate has no candidate line.");
        } else if (!remoteDescription()) {
            error = rtcError("A candidate needs a remote description.");
        } else {
            int index = candidate->sdpMLineIndex();
            if (index < 0 && candidate->sdpMid()) {
                const auto& mids = impl_->remoteMids;
                for (size_t i = 0; i < mids.size(); ++i) {
                    if (mids[i] == *candidate->sdpMid()) {
                        index = static_cast<int>(i);
                    }
                }
            }
            std::string line = *candidate->sdp();
            if (line.rfind("a=", 0) == 0) {
                line.erase(0, 2);
            }
            if (index < 0 || line.rfind("candidate:", 0) != 0) {
                error = rtcError("The candidate is malformed.");
            } else {
                g_signal_emit_by_name(impl_->webrtc.get(), "add-ice-candidate",
                                      static_cast<guint>(index), line.c_str());
            }
        }
        if (completion) {
            qxvc::safeCall("addIceCandidate completion", completion, error);
        }
        done();
    });
}

RTCRtpSenderPtr RTCGstPeerConnection::addTrack(const RTCMediaStreamTrackPtr& track,
                                               const std::vector<std::string>& streamIds) {
    if (!track || closed_) {
        return nullptr;
    }
    RTCRtpMediaType type;
    if (std::dynamic_pointer_cast<RTCGstAudioTrack>(track)) {
        type = RTCRtpMediaTypeAudio;
    } else if (std::dynamic_pointer_cast<RTCGstVideoTrack>(track)) {
        type = RTCRtpMediaTypeVideo;
    } else {
        return nullptr;  // a track of another engine
    }
    std::shared_ptr<RTCGstRtpTransceiver> transceiver;
    {
        std::lock_guard lock(impl_->mutex);
        for (const auto& branch : impl_->branches) {
            if (branch.transceiver->gstSender()->track() == track) {
                return nullptr;
            }
        }
        // A track-less transceiver of the same kind that was never negotiated
        // takes the track, as libwebrtc reuses one.
        for (const auto& branch : impl_->branches) {
            if (!branch.built && branch.transceiver->mediaType() == type &&
                !branch.transceiver->gstSender()->track()) {
                transceiver = branch.transceiver;
            }
        }
    }
    if (!transceiver) {
        transceiver = std::dynamic_pointer_cast<RTCGstRtpTransceiver>(addTransceiverOfType(type));
    }
    transceiver->gstSender()->setTrack(track, streamIds);
    transceiver->setDirection(RTCRtpTransceiverDirectionSendRecv);
    impl_->notify([](RTCPeerConnectionDelegate& d, const RTCPeerConnectionPtr& pc) {
        d.peerConnectionShouldNegotiate(pc);
    });
    return transceiver->sender();
}

bool RTCGstPeerConnection::removeTrack(const RTCRtpSenderPtr& sender) {
    if (!sender) {
        return false;
    }
    int sinkId = 0;
    int listenerId = 0;
    RTCMediaStreamTrackPtr track;
    {
        std::lock_guard lock(impl_->mutex);
        auto it =
            std::find_if(impl_->branches.begin(), impl_->branches.end(),
                         [&](const RTCGstBranch& b) { return b.transceiver->sender() == sender; });
        if (it == impl_->branches.end() || !it->transceiver->gstSender()->track()) {
            return false;
        }
        track = it->transceiver->gstSender()->track();
        it->transceiver->gstSender()->clearTrack();
        auto direction = it->transceiver->direction();
        it->transceiver->setDirection(direction == RTCRtpTransceiverDirectionSendRecv
                                          ? RTCRtpTransceiverDirectionRecvOnly
                                          : RTCRtpTransceiverDirectionInactive);
        std::swap(sinkId, it->sinkId);
        std::swap(listenerId, it->listenerId);
    }
    if (auto video = std::dynamic_pointer_cast<RTCGstVideoTrack>(track); video && sinkId) {
        video->removeSink(sinkId);
    }
    if (auto audio = std::dynamic_pointer_cast<RTCGstAudioTrack>(track); audio && listenerId) {
        audio->listeners().remove(listenerId);
    }
    impl_->updateAudioMute();
    return true;
}

RTCRtpTransceiverPtr RTCGstPeerConnection::addTransceiverOfType(RTCRtpMediaType mediaType) {
    if (mediaType != RTCRtpMediaTypeAudio && mediaType != RTCRtpMediaTypeVideo) {
        return nullptr;
    }
    std::lock_guard lock(impl_->mutex);
    std::string index = std::to_string(impl_->branches.size());
    RTCMediaStreamTrackPtr remote;
    if (mediaType == RTCRtpMediaTypeAudio) {
        remote = std::make_shared<RTCGstAudioTrack>("remote-audio" + index, nullptr);
    } else {
        remote = std::make_shared<RTCGstVideoTrack>("remote-video" + index, nullptr);
    }
    auto transceiver = std::make_shared<RTCGstRtpTransceiver>(
        mediaType,
        std::make_shared<RTCGstRtpSender>("sender" + index, nullptr, std::vector<std::string>{}),
        std::make_shared<RTCGstRtpReceiver>("receiver" + index, remote),
        RTCRtpTransceiverDirectionSendRecv);
    RTCGstBranch branch;
    branch.transceiver = transceiver;
    impl_->branches.push_back(std::move(branch));
    return transceiver;
}

std::vector<RTCRtpSenderPtr> RTCGstPeerConnection::senders() const {
    std::vector<RTCRtpSenderPtr> out;
    for (const auto& transceiver : transceivers()) {
        out.push_back(transceiver->sender());
    }
    return out;
}

std::vector<RTCRtpReceiverPtr> RTCGstPeerConnection::receivers() const {
    std::vector<RTCRtpReceiverPtr> out;
    for (const auto& transceiver : transceivers()) {
        out.push_back(transceiver->receiver());
    }
    return out;
}

std::vector<RTCRtpTransceiverPtr> RTCGstPeerConnection::transceivers() const {
    std::lock_guard lock(impl_->mutex);
    std::vector<RTCRtpTransceiverPtr> out;
    for (const auto& branch : impl_->branches) {
        out.push_back(branch.transceiver);
    }
    return out;
}

void RTCGstPeerConnection::close() {
    if (closed_.exchange(true)) {
        return;
    }
    signaling_ = RTCSignalingStateClosed;
    ice_ = RTCIceConnectionStateClosed;
    connection_ = RTCPeerConnectionStateClosed;
    // Callbacks stop at once; the pipeline goes on the signalling queue, after
    // whatever operation is running there.
    impl_->ref->live = false;
    queue_->async([self = shared_from_this()] { self->impl_->tearDown(); });
}

RTCSessionDescriptionPtr RTCGstPeerConnection::localDescription() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->local;
}

RTCSessionDescriptionPtr RTCGstPeerConnection::remoteDescription() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->remote;
}

RTCGstPeerConnection::Stats RTCGstPeerConnection::stats() const {
    Stats stats;
    const auto& c = *impl_->counters;
    stats.packetsReceived = c.packets.load();
    stats.audioBuffersDecoded = c.audioBuffers.load();
    stats.videoFramesDecoded = c.videoFrames.load();
    stats.videoFramesSent = c.videoSent.load();
    stats.nonRelayCandidatesDropped = c.dropped.load();
    stats.videoEncoderBitrateBps = impl_->bitrate.load();
    stats.audioMuted = impl_->audioMuted.load();
    return stats;
}
