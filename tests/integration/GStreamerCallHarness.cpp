#include "GStreamerCallHarness.h"

#include <algorithm>
#include <filesystem>
#include <future>

namespace {

template <class State>
bool endsWith(const std::vector<State>& states, State state) {
    return !states.empty() && states.back() == state;
}

size_t entries(const char* dir) {
    std::error_code error;
    auto it = std::filesystem::directory_iterator(dir, error);
    return error ? 0
                 : static_cast<size_t>(std::distance(it, std::filesystem::directory_iterator{}));
}

/// A configuration as calls make it: relay only, Unified Plan, a fresh certificate.
RTCConfigurationPtr relayConfiguration(const GStreamerCallOptions& options) {
    auto configuration = RTCConfiguration::create();
    configuration->setIceServers(std::vector<RTCIceServerPtr>{
        RTCIceServer::initWithURLStrings({options.turnUrl}, options.username, options.password)});
    configuration->setSdpSemantics(RTCSdpSemanticsUnifiedPlan);
    configuration->setCertificate(RTCCertificate::generateCertificateWithParams(
        {{"expires", 100000}, {"name", "RSASSA-PKCS1-v1_5"}}));
    configuration->setIceTransportPolicy(RTCIceTransportPolicyRelay);
    return configuration;
}

}  // namespace

void GStreamerCountingRenderer::renderFrame(const RTCVideoFramePtr& frame) {
    {
        std::lock_guard lock(mutex_);
        last_ = frame;
        if (first_ == std::chrono::steady_clock::time_point{}) {
            first_ = std::chrono::steady_clock::now();
        }
    }
    frames_.fetch_add(1);
}

void GStreamerPeer::peerConnectionDidChangeIceConnectionState(PC, RTCIceConnectionState state) {
    lockedAppend(mutex_, ice_, state);
    cv_.notify_all();
}

void GStreamerPeer::peerConnectionDidChangeConnectionState(PC, RTCPeerConnectionState state) {
    std::lock_guard lock(mutex_);
    connection_.push_back(state);
    if (state == RTCPeerConnectionStateConnected &&
        connectedAt_ == std::chrono::steady_clock::time_point{}) {
        connectedAt_ = std::chrono::steady_clock::now();
    }
    cv_.notify_all();
}

void GStreamerPeer::peerConnectionDidGenerateIceCandidate(PC, const RTCIceCandidatePtr& candidate) {
    std::function<void(const RTCIceCandidatePtr&)> sink;
    {
        std::lock_guard lock(mutex_);
        candidates_.push_back(candidate->sdp().value_or(""));
        if (sink_) {
            sink = sink_;
        } else {
            pending_.push_back(candidate);
        }
        cv_.notify_all();
    }
    if (sink) {
        sink(candidate);
    }
}

void GStreamerPeer::setCandidateSink(std::function<void(const RTCIceCandidatePtr&)> sink) {
    std::vector<RTCIceCandidatePtr> pending;
    {
        std::lock_guard lock(mutex_);
        sink_ = sink;
        pending.swap(pending_);
    }
    for (const auto& candidate : pending) {
        sink(candidate);
    }
}

bool GStreamerPeer::waitFor(double seconds, const std::function<bool()>& predicate) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::unique_lock lock(mutex_);
        cv_.wait_for(lock, std::chrono::milliseconds(50));
    }
    return true;
}

bool GStreamerPeer::waitForIce(RTCIceConnectionState state, double seconds) {
    return waitFor(seconds, [&] { return endsWith(iceStates(), state); });
}

bool GStreamerPeer::waitForConnection(RTCPeerConnectionState state, double seconds) {
    return waitFor(seconds, [&] { return endsWith(connectionStates(), state); });
}

bool GStreamerPeer::sawIce(RTCIceConnectionState state) const {
    const auto states = iceStates();
    return std::find(states.begin(), states.end(), state) != states.end();
}

std::string GStreamerTamperedFingerprints(std::string sdp) {
    const std::string key = "a=fingerprint:sha-256 ";
    for (auto at = sdp.find(key); at != std::string::npos; at = sdp.find(key, at + 1)) {
        char& c = sdp[at + key.size()];
        c = c == 'A' ? 'B' : 'A';
    }
    return sdp;
}

size_t GStreamerOpenDescriptors() {
    return entries("/proc/self/fd");
}

size_t GStreamerThreads() {
    return entries("/proc/self/task");
}

std::pair<RTCCaptureDevicePtr, RTCCaptureDeviceFormatPtr> GStreamerCamera(
    RTCGstPlatform& platform, AVCaptureDevicePosition position, int width, int height) {
    for (const auto& device : platform.captureDevices()) {
        if (device->position() == position) {
            for (const auto& format : device->formats()) {
                if (format->width() == width && format->height() == height) {
                    return {device, format};
                }
            }
            return {device, nullptr};
        }
    }
    return {};
}

std::shared_ptr<GStreamerPeer> GStreamerMakePeer(const std::shared_ptr<RTCGstPlatform>& platform,
                                                 const GStreamerCallOptions& options,
                                                 const char* name,
                                                 AVCaptureDevicePosition position) {
    auto factory = platform->peerConnectionFactory(nullptr, nullptr);
    auto peer = std::make_shared<GStreamerPeer>();
    peer->name = name;
    auto pc = factory->peerConnectionWithConfiguration(
        relayConfiguration(options),
        RTCMediaConstraints::initWithMandatoryConstraints(
            std::nullopt, RTCConstraintsMap{{"DtlsSrtpKeyAgreement", "true"}}),
        peer);
    peer->pc = std::dynamic_pointer_cast<RTCGstPeerConnection>(pc);
    if (!peer->pc) {
        return nullptr;
    }
    peer->videoSource = factory->videoSource();
    peer->capturer = platform->cameraVideoCapturer(peer->videoSource);
    auto [device, format] = GStreamerCamera(*platform, position, 640, 480);
    peer->capturer->startCaptureWithDevice(device, format, 30, nullptr);
    peer->audioTrack =
        factory->audioTrackWithSource(factory->audioSourceWithConstraints(nullptr), "ARDAMSa0");
    peer->videoTrack = factory->videoTrackWithSource(peer->videoSource, "ARDAMSv0");
    peer->pc->addTrack(peer->audioTrack, {"ARDAMS"});
    peer->videoSender = peer->pc->addTrack(peer->videoTrack, {"ARDAMS"});
    for (const auto& transceiver : peer->pc->transceivers()) {
        if (transceiver->mediaType() == RTCRtpMediaTypeVideo) {
            if (auto remote =
                    std::dynamic_pointer_cast<RTCVideoTrack>(transceiver->receiver()->track())) {
                remote->addRenderer(peer->remoteRenderer);
            }
        }
    }
    return peer;
}

RTCSessionDescriptionPtr GStreamerDescribe(RTCGstPeerConnection& pc, bool offer,
                                           std::string& error) {
    auto made = std::make_shared<std::promise<std::pair<RTCSessionDescriptionPtr, QXDErrorPtr>>>();
    auto handler = [made](RTCSessionDescriptionPtr sdp, QXDErrorPtr failure) {
        made->set_value({sdp, failure});
    };
    auto both = RTCMediaConstraints::initWithMandatoryConstraints(
        RTCConstraintsMap{{"OfferToReceiveAudio", "true"}, {"OfferToReceiveVideo", "true"}},
        std::nullopt);
    offer ? pc.offerForConstraints(both, handler) : pc.answerForConstraints(both, handler);
    const char* what = offer ? "offer" : "answer";
    auto future = made->get_future();
    if (future.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        error = std::string(what) + " timed out";
        return nullptr;
    }
    auto [sdp, failure] = future.get();
    if (!sdp) {
        error = std::string(what) + ": " + (failure ? failure->localizedDescription() : "");
    }
    return sdp;
}

GStreamerCall GStreamerCall::start(const std::shared_ptr<RTCGstPlatform>& platformA,
                                   const GStreamerCallOptions& options,
                                   std::shared_ptr<RTCGstPlatform> platformB) {
    GStreamerCall call;
    call.a = GStreamerMakePeer(platformA, options, "a", AVCaptureDevicePositionFront);
    call.b = platformB ? GStreamerMakePeer(platformB, options, "b", AVCaptureDevicePositionFront)
                       : GStreamerMakePeer(platformA, options, "b", AVCaptureDevicePositionBack);
    if (!call.a || !call.b) {
        call.error = "peer connection not created";
        return call;
    }
    call.offerRequestedAt = std::chrono::steady_clock::now();
    auto offer = GStreamerDescribe(*call.a->pc, true, call.error);
    if (!offer) {
        return call;
    }
    call.a->pc->setLocalDescription(offer, nullptr);
    call.b->pc->setRemoteDescription(offer, nullptr);
    call.a->setCandidateSink(
        [pc = call.b->pc](const RTCIceCandidatePtr& c) { pc->addIceCandidate(c); });
    auto answer = GStreamerDescribe(*call.b->pc, false, call.error);
    if (!answer) {
        return call;
    }
    call.b->pc->setLocalDescription(answer, nullptr);
    if (options.tamperAnswerFingerprint) {
        answer = std::make_shared<RTCSessionDescription>(
            RTCSdpTypeAnswer, GStreamerTamperedFingerprints(answer->sdp()));
    }
    auto applied = std::make_shared<std::promise<QXDErrorPtr>>();
    call.a->pc->setRemoteDescription(answer,
                                     [applied](QXDErrorPtr error) { applied->set_value(error); });
    call.b->setCandidateSink(
        [pc = call.a->pc](const RTCIceCandidatePtr& c) { pc->addIceCandidate(c); });
    auto future = applied->get_future();
    if (future.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        call.error = "remote answer timed out";
    } else if (auto error = future.get()) {
        call.error = "remote answer: " + error->localizedDescription();
    }
    return call;
}

void GStreamerPeer::close() {
    if (capturer) {
        capturer->stopCaptureWithCompletionHandler(nullptr);
    }
    if (pc) {
        pc->close();
    }
}

void GStreamerCall::close() {
    for (const auto& peer : {a, b}) {
        if (peer) {
            peer->close();
        }
    }
}
