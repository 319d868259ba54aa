#include "RTCGstPlatform.h"

#include <gst/gst.h>

#include <chrono>
#include <map>

#include "RTCGstCapturer.h"
#include "RTCGstCertificates.h"
#include "RTCGstMedia.h"
#include "RTCGstMediaSettings.h"
#include "RTCGstMemory.h"
#include "RTCGstPeerConnection.h"
#include "RTCGstWarmUp.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace {

/// The peer-connection factory: sources, tracks and peer connections.
class RTCGstPeerConnectionFactory final : public RTCPeerConnectionFactory {
  public:
    explicit RTCGstPeerConnectionFactory(std::weak_ptr<RTCGstPlatform> platform)
        : platform_(std::move(platform)) {}

    RTCPeerConnectionPtr peerConnectionWithConfiguration(
        const RTCConfigurationPtr& configuration, const RTCMediaConstraintsPtr& /*constraints*/,
        const std::shared_ptr<RTCPeerConnectionDelegate>& delegate) override {
        // DTLS-SRTP is always on; the legacy DtlsSrtpKeyAgreement constraint has
        // nothing left to choose.
        auto platform = platform_.lock();
        return platform ? RTCGstPeerConnection::create(platform, configuration, delegate) : nullptr;
    }
    RTCAudioSourcePtr audioSourceWithConstraints(const RTCMediaConstraintsPtr&) override {
        return std::make_shared<RTCGstAudioSource>();
    }
    RTCAudioTrackPtr audioTrackWithSource(const RTCAudioSourcePtr& source,
                                          const std::string& trackId) override {
        return std::make_shared<RTCGstAudioTrack>(trackId, source);
    }
    RTCVideoSourcePtr videoSource() override { return std::make_shared<RTCGstVideoSource>(); }
    RTCVideoTrackPtr videoTrackWithSource(const RTCVideoSourcePtr& source,
                                          const std::string& trackId) override {
        auto gstSource = std::dynamic_pointer_cast<RTCGstVideoSource>(source);
        if (!gstSource) {
            return nullptr;
        }
        auto track = std::make_shared<RTCGstVideoTrack>(trackId, source);
        gstSource->attach(track);
        return track;
    }

  private:
    std::weak_ptr<RTCGstPlatform> platform_;
};

bool hasElements() {
    for (const char* name : {"webrtcbin", "vp8enc", "vp8dec", "opusenc", "opusdec", "rtpvp8pay",
                             "rtpvp8depay", "rtpopuspay", "rtpopusdepay", "appsrc", "appsink",
                             "videotestsrc", "audiotestsrc", "nicesrc", "dtlssrtpdec"}) {
        if (!rtcgst::GstRef<GstElementFactory>(gst_element_factory_find(name))) {
            return false;
        }
    }
    return true;
}

}  // namespace

struct RTCGstPlatform::Listeners {
    std::mutex mutex;
    int next = 1;
    std::map<int, std::function<void()>> map;
};

std::shared_ptr<RTCGstPlatform> RTCGstPlatform::create(Options options) {
    if (!gst_init_check(nullptr, nullptr, nullptr) || !hasElements()) {
        return nullptr;
    }
    RTCGstWarmUp::begin();
    RTCGstMemory::configure();
    return std::make_shared<RTCGstPlatform>(options);
}

RTCGstPlatform::RTCGstPlatform(Options options)
    : options_(options),
      queue_(QXVCSerialQueue::create("rtc.signaling")),
      // The first key and GStreamer's DTLS set-up (one more RSA key) are what
      // a call placed at once waits for: the refill waits for the set-up.
      certificates_(std::make_unique<RTCGstCertificates>(options.readyCertificateKeys,
                                                         [] { RTCGstWarmUp::waitUntilDone(30); })),
      audioSession_(std::make_shared<RTCAudioSession>()),
      media_(std::make_shared<RTCGstMediaSettings>(options.media)),
      listeners_(std::make_shared<Listeners>()) {
    audioSession_->setChangeHandler([weak = std::weak_ptr<Listeners>(listeners_)] {
        auto listeners = weak.lock();
        if (!listeners) {
            return;
        }
        std::vector<std::function<void()>> copy;
        {
            std::lock_guard lock(listeners->mutex);
            for (auto& [id, fn] : listeners->map) {
                copy.push_back(fn);
            }
        }
        for (auto& fn : copy) {
            fn();
        }
    });
}

RTCGstPlatform::~RTCGstPlatform() {
    audioSession_->setChangeHandler(nullptr);
}

bool RTCGstPlatform::waitUntilPrepared(double seconds) const {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    if (!RTCGstWarmUp::waitUntilDone(seconds)) {
        return false;
    }
    double left =
        std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count();
    return certificates_->waitUntilFull(left);
}

RTCPeerConnectionFactoryPtr RTCGstPlatform::peerConnectionFactory(
    const RTCDefaultVideoEncoderFactoryPtr& /*encoderFactory*/,
    const RTCDefaultVideoDecoderFactoryPtr& /*decoderFactory*/) {
    // VP8 is the one video codec; the factories only list it.
    return std::make_shared<RTCGstPeerConnectionFactory>(weak_from_this());
}

std::vector<RTCVideoCodecInfoPtr> RTCGstPlatform::supportedVideoEncoderCodecs() {
    return {std::make_shared<RTCVideoCodecInfo>(kRTCVideoCodecVp8Name)};
}

std::vector<RTCVideoCodecInfoPtr> RTCGstPlatform::supportedVideoDecoderCodecs() {
    return {std::make_shared<RTCVideoCodecInfo>(kRTCVideoCodecVp8Name)};
}

RTCCameraVideoCapturerPtr RTCGstPlatform::cameraVideoCapturer(
    const std::shared_ptr<RTCVideoCapturerDelegate>& delegate) {
    return std::make_shared<RTCGstCameraVideoCapturer>(delegate, media_);
}

std::vector<RTCCaptureDevicePtr> RTCGstPlatform::captureDevices() {
    std::lock_guard lock(mutex_);
    const uint64_t generation = media_->generation();
    if (devices_.empty() || devicesGeneration_ != generation) {
        devices_ = RTCGstCaptureDevices(
            options_.includeV4L2Cameras, media_->options(),
            [media = media_](const std::string& warning) { media->warn(warning); });
        devicesGeneration_ = generation;
    }
    return devices_;
}

namespace {

std::vector<RTCAudioDevicePtr> audioDevices(const std::vector<RTCGstAudioEndpoint>& endpoints) {
    std::vector<RTCAudioDevicePtr> devices;
    for (const auto& endpoint : endpoints) {
        devices.push_back(std::make_shared<RTCAudioDevice>(endpoint.name, endpoint.description,
                                                           endpoint.isDefault));
    }
    return devices;
}

}  // namespace

std::vector<RTCAudioDevicePtr> RTCGstPlatform::audioInputDevices() {
    return audioDevices(media_->audioDevices().rescan().sources);
}

std::vector<RTCAudioDevicePtr> RTCGstPlatform::audioOutputDevices() {
    return audioDevices(media_->audioDevices().rescan().sinks);
}

RTCGstMediaOptions RTCGstPlatform::mediaOptions() const {
    return media_->options();
}

void RTCGstPlatform::setMediaOptions(RTCGstMediaOptions media) {
    media_->setOptions(std::move(media));
}

RTCCertificatePtr RTCGstPlatform::generateCertificate(RTCKeyType keyType, int64_t expiresMs) {
    return certificates_->generate(keyType, expiresMs);
}

bool RTCGstPlatform::isProximityMonitoringEnabled() const {
    std::lock_guard lock(mutex_);
    return proximity_;
}

void RTCGstPlatform::setProximityMonitoringEnabled(bool enabled) {
    std::lock_guard lock(mutex_);
    proximity_ = enabled;
}

int RTCGstPlatform::addAudioSessionListener(std::function<void()> listener) {
    std::lock_guard lock(listeners_->mutex);
    int id = listeners_->next++;
    listeners_->map[id] = std::move(listener);
    return id;
}

void RTCGstPlatform::removeAudioSessionListener(int id) {
    std::lock_guard lock(listeners_->mutex);
    listeners_->map.erase(id);
}
