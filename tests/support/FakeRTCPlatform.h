// The scriptable fake RTC engine for unit tests.
//
//   auto rtc = FakeRTCPlatform::install();   // RTCPlatform::current() is now rtc
//   ... code under test makes factories, peer connections, tracks, capturers ...
//   auto pc = rtc->lastPeerConnection();
//   pc->completeCreateOffer(); pc->emitIceCandidate(FakeRTCPeerConnection::relayCandidateLine());
//   pc->emitConnected();
//   EXPECT_TRUE(rtc->context()->contains("pc1.close()"));
//   FakeRTCPlatform::uninstall();
//
// Everything made through the platform is recorded: factories (with their
// encoder and decoder factories), peer connections (configuration, constraints,
// delegate), sources and tracks, capturers, certificates, the audio session and
// the proximity flag. Thread-safe.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCPlatform.h"
#include "support/FakeRTCAudio.h"
#include "support/FakeRTCCapture.h"
#include "support/FakeRTCContext.h"
#include "support/FakeRTCPeerConnection.h"
#include "support/FakeRTCVideo.h"

class FakeRTCPeerConnectionFactory : public RTCPeerConnectionFactory {
  public:
    FakeRTCPeerConnectionFactory(std::shared_ptr<FakeRTCContext> context, std::string name,
                                 RTCDefaultVideoEncoderFactoryPtr encoderFactory,
                                 RTCDefaultVideoDecoderFactoryPtr decoderFactory,
                                 std::shared_ptr<FakeRTCAudioSession> audioSession);

    /// Recorded as "<factory>.peerConnection(<pc name>)". nullptr for a nil
    /// configuration, an ICE server URL that is not turn:, turns:, stun: or
    /// stuns:, or while setFailsPeerConnections(true).
    RTCPeerConnectionPtr peerConnectionWithConfiguration(
        const RTCConfigurationPtr& configuration, const RTCMediaConstraintsPtr& constraints,
        const std::shared_ptr<RTCPeerConnectionDelegate>& delegate) override;
    RTCAudioSourcePtr audioSourceWithConstraints(
        const RTCMediaConstraintsPtr& constraints) override;
    RTCAudioTrackPtr audioTrackWithSource(const RTCAudioSourcePtr& source,
                                          const std::string& trackId) override;
    RTCVideoSourcePtr videoSource() override;
    RTCVideoTrackPtr videoTrackWithSource(const RTCVideoSourcePtr& source,
                                          const std::string& trackId) override;

    const std::string& name() const { return name_; }
    RTCDefaultVideoEncoderFactoryPtr encoderFactory() const { return encoderFactory_; }
    RTCDefaultVideoDecoderFactoryPtr decoderFactory() const { return decoderFactory_; }
    void setFailsPeerConnections(bool fails) { lockedSet(mutex_, failsPeerConnections_, fails); }

    template <class T>
    using List = std::vector<std::shared_ptr<T>>;
    List<FakeRTCPeerConnection> peerConnections() const {
        return lockedCopy(mutex_, peerConnections_);
    }
    List<FakeRTCAudioSource> audioSources() const { return lockedCopy(mutex_, audioSources_); }
    List<FakeRTCAudioTrack> audioTracks() const { return lockedCopy(mutex_, audioTracks_); }
    List<FakeRTCVideoSource> videoSources() const { return lockedCopy(mutex_, videoSources_); }
    List<FakeRTCVideoTrack> videoTracks() const { return lockedCopy(mutex_, videoTracks_); }

  private:
    std::shared_ptr<FakeRTCContext> context_;
    std::string name_;
    RTCDefaultVideoEncoderFactoryPtr encoderFactory_;
    RTCDefaultVideoDecoderFactoryPtr decoderFactory_;
    std::shared_ptr<FakeRTCAudioSession> audioSession_;
    mutable std::mutex mutex_;
    bool failsPeerConnections_ = false;
    List<FakeRTCPeerConnection> peerConnections_;
    List<FakeRTCAudioSource> audioSources_;
    List<FakeRTCAudioTrack> audioTracks_;
    List<FakeRTCVideoSource> videoSources_;
    List<FakeRTCVideoTrack> videoTracks_;
};

class FakeRTCPlatform : public RTCPlatform {
  public:
    /// A new fake engine, installed as RTCPlatform::current().
    static std::shared_ptr<FakeRTCPlatform> install();
    /// Uninstalls whatever engine is installed.
    static void uninstall();

    FakeRTCPlatform();

    // ---- RTCPlatform ---------------------------------------------------------

    /// Recorded as "platform.peerConnectionFactory(<factory name>)".
    RTCPeerConnectionFactoryPtr peerConnectionFactory(
        const RTCDefaultVideoEncoderFactoryPtr& encoderFactory,
        const RTCDefaultVideoDecoderFactoryPtr& decoderFactory) override;
    using Codecs = std::vector<RTCVideoCodecInfoPtr>;
    Codecs supportedVideoEncoderCodecs() override { return lockedCopy(mutex_, encoderCodecs_); }
    Codecs supportedVideoDecoderCodecs() override { return lockedCopy(mutex_, decoderCodecs_); }
    /// Recorded as "platform.cameraVideoCapturer(<capturer name>)".
    RTCCameraVideoCapturerPtr cameraVideoCapturer(
        const std::shared_ptr<RTCVideoCapturerDelegate>& delegate) override;
    std::vector<RTCCaptureDevicePtr> captureDevices() override {
        return lockedCopy(mutex_, devices_);
    }
    RTCAudioSessionPtr audioSession() override { return audioSession_; }
    /// A new certificate with distinct fake PEM text, or nullptr while
    /// setFailsCertificates(true). Recorded as "platform.generateCertificate(...)".
    RTCCertificatePtr generateCertificate(RTCKeyType keyType, int64_t expiresMs) override;
    bool isProximityMonitoringEnabled() const override { return lockedCopy(mutex_, proximity_); }
    /// Recorded as "device.setProximityMonitoringEnabled(<0|1>)".
    void setProximityMonitoringEnabled(bool enabled) override;

    // ---- Script and records --------------------------------------------------

    std::shared_ptr<FakeRTCContext> context() const { return context_; }
    std::shared_ptr<FakeRTCAudioSession> fakeAudioSession() const { return audioSession_; }

    /// Defaults: encoders VP8, VP9, H264; decoders the same.
    void setEncoderCodecs(Codecs codecs) { lockedSet(mutex_, encoderCodecs_, std::move(codecs)); }
    void setDecoderCodecs(Codecs codecs) { lockedSet(mutex_, decoderCodecs_, std::move(codecs)); }
    /// Defaults: FakeRTCDefaultCaptureDevices() (front, then back).
    void setCaptureDevices(std::vector<RTCCaptureDevicePtr> devices) {
        lockedSet(mutex_, devices_, std::move(devices));
    }
    void setFailsCertificates(bool fails) { lockedSet(mutex_, failsCertificates_, fails); }

    template <class T>
    using List = std::vector<std::shared_ptr<T>>;
    List<FakeRTCPeerConnectionFactory> factories() const { return lockedCopy(mutex_, factories_); }
    std::shared_ptr<FakeRTCPeerConnectionFactory> lastFactory() const { return last(factories()); }
    List<FakeRTCCameraVideoCapturer> capturers() const { return lockedCopy(mutex_, capturers_); }
    std::shared_ptr<FakeRTCCameraVideoCapturer> lastCapturer() const { return last(capturers()); }
    /// Peer connections of every factory, in creation order.
    List<FakeRTCPeerConnection> peerConnections() const;
    std::shared_ptr<FakeRTCPeerConnection> lastPeerConnection() const;
    struct CertificateRequest {
        RTCKeyType keyType;
        int64_t expiresMs;
        RTCCertificatePtr certificate;
    };
    std::vector<CertificateRequest> certificateRequests() const {
        return lockedCopy(mutex_, certificates_);
    }
    /// Every value passed to setProximityMonitoringEnabled, in order.
    std::vector<bool> proximityHistory() const { return lockedCopy(mutex_, proximityHistory_); }

  private:
    template <class T>
    static std::shared_ptr<T> last(const List<T>& all) {
        return all.empty() ? nullptr : all.back();
    }

    std::shared_ptr<FakeRTCContext> context_;
    std::shared_ptr<FakeRTCAudioSession> audioSession_;
    mutable std::mutex mutex_;
    Codecs encoderCodecs_;
    Codecs decoderCodecs_;
    std::vector<RTCCaptureDevicePtr> devices_;
    bool failsCertificates_ = false;
    bool proximity_ = false;
    std::vector<bool> proximityHistory_;
    List<FakeRTCPeerConnectionFactory> factories_;
    List<FakeRTCCameraVideoCapturer> capturers_;
    std::vector<CertificateRequest> certificates_;
};
