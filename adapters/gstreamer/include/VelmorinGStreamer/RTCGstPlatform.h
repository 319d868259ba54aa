// The GStreamer RTC engine: install it with
//   RTCPlatform::install(RTCGstPlatform::create());
//
// One webrtcbin per peer connection (max-bundle, TURN from the configuration's
// ICE servers, DTLS-SRTP with the connection's own certificate), VP8 and Opus
// both ways. Delegate callbacks and completion handlers run on the engine's
// signalling thread, one serial queue shared by all peer connections.
//
// Behaviour the engine adds on top of webrtcbin:
//  - ICE goes New, Checking, Connected and only then Completed; a watchdog on
//    received packets reports Disconnected after `disconnectedTimeout` seconds
//    of silence, Connected when packets flow again and Failed after
//    `failedTimeout` seconds of silence;
//  - a relay-only connection that has no relay candidate `turnTimeout` seconds
//    after its local description was set (TURN refused the credentials or is
//    unreachable) logs an error and reports Failed;
//  - only relay candidates ever surface (their related address zeroed), and
//    host or server-reflexive candidates are dropped from local descriptions;
//  - the DTLS certificate the peer presents is checked against the remote
//    description's fingerprint; a mismatch fails the connection (ICE reports
//    Disconnected, then Failed, when it had connected);
//  - a closed or failed connection frees its pipeline, ICE agent and sockets
//    (after asking the TURN server to delete its allocation), and no late
//    signal, pad or probe of it runs any more;
//  - work no call depends on (plugin loading, GStreamer's DTLS set-up, RSA
//    keys for the certificates) starts in the background when the engine is
//    made.
//
// Media ends are real devices (RTCGstMediaOptions.h): the microphone from the
// sound server (or a file, or a test tone), with echo cancellation, noise
// suppression and gain control; received audio played to the sink of the audio
// session's route; V4L2 cameras, video files or the labelled test cameras.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "RTCGstMediaOptions.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPlatform.h"

class RTCGstCertificates;
class RTCGstMediaSettings;

class RTCGstPlatform final : public RTCPlatform,
                             public std::enable_shared_from_this<RTCGstPlatform> {
  public:
    struct Options {
        double disconnectedTimeout = 5.0;
        double failedTimeout = 30.0;
        double turnTimeout = 10.0;
        /// Receive jitter-buffer latency.
        unsigned jitterBufferMs = 50;
        /// The video encoder's bitrate when no lower cap is set.
        int defaultVideoBitrateBps = 1'500'000;
        /// Probe V4L2 cameras (the two test-pattern cameras always exist).
        bool includeV4L2Cameras = true;
        /// RSA keys kept ready in the background.
        size_t readyCertificateKeys = 2;
        /// Microphone, playback, recording, voice processing and cameras.
        RTCGstMediaOptions media;
    };

    /// Initializes GStreamer once per process. nullptr when webrtcbin, VP8 or
    /// Opus elements are missing. With glibc, it also fixes the allocator's
    /// mmap threshold at 128 KiB for the process and allows one malloc arena
    /// per core, at least two (mallopt), and every ended call trims the
    /// allocator (malloc_trim): a call's media blocks would otherwise stay
    /// resident after it ends. An application that stays up for many calls
    /// on GLib before 2.76 should also run with G_SLICE=always-malloc in its
    /// environment (GLib reads it when it loads, before any code of ours
    /// runs): GLib's slice allocator otherwise keeps about 8 KiB per call of
    /// the streaming threads' small objects for ever; restartWithSystemAllocator
    /// arranges it.
    static std::shared_ptr<RTCGstPlatform> create(Options options);
    static std::shared_ptr<RTCGstPlatform> create() { return create(Options{}); }
    ~RTCGstPlatform() override;

    /// For the first line of a long-running application's main: when
    /// G_SLICE is not set, sets it to always-malloc and starts the program
    /// again in place (execv of /proc/self/exe with `argv`), so that GLib,
    /// which reads it once when it loads, allocates with malloc and gives
    /// every call's memory back. Returns only when it did not restart: the
    /// variable was already set (any value is kept; "G_SLICE=" measures
    /// GLib's own allocator) or exec failed, which leaves the environment
    /// as it was. Harmless with GLib 2.76 and later, which ignore it.
    static void restartWithSystemAllocator(char** argv) noexcept;

    RTCPeerConnectionFactoryPtr peerConnectionFactory(
        const RTCDefaultVideoEncoderFactoryPtr& encoderFactory,
        const RTCDefaultVideoDecoderFactoryPtr& decoderFactory) override;
    std::vector<RTCVideoCodecInfoPtr> supportedVideoEncoderCodecs() override;
    std::vector<RTCVideoCodecInfoPtr> supportedVideoDecoderCodecs() override;
    RTCCameraVideoCapturerPtr cameraVideoCapturer(
        const std::shared_ptr<RTCVideoCapturerDelegate>& delegate) override;
    std::vector<RTCCaptureDevicePtr> captureDevices() override;
    /// Sound-server (or ALSA) sources and sinks, scanned now; their ids are
    /// what RTCGstMediaOptions' microphone and sinks take.
    std::vector<RTCAudioDevicePtr> audioInputDevices() override;
    std::vector<RTCAudioDevicePtr> audioOutputDevices() override;
    RTCAudioSessionPtr audioSession() override { return audioSession_; }
    RTCCertificatePtr generateCertificate(RTCKeyType keyType, int64_t expiresMs) override;
    bool isProximityMonitoringEnabled() const override;
    void setProximityMonitoringEnabled(bool enabled) override;

    /// Waits at most `seconds` until the work done ahead of calls (plugins,
    /// DTLS set-up, the pool of certificates) is complete; true when it is.
    bool waitUntilPrepared(double seconds) const;
    const Options& options() const { return options_; }
    /// The media choices now in force; setMediaOptions applies to the next call
    /// (and to the camera list at once).
    RTCGstMediaOptions mediaOptions() const;
    void setMediaOptions(RTCGstMediaOptions media);
    const std::shared_ptr<RTCGstMediaSettings>& mediaSettings() const { return media_; }
    const std::shared_ptr<QXVCSerialQueue>& signalingQueue() const { return queue_; }
    /// Listeners of audio-session changes (active flag, route).
    int addAudioSessionListener(std::function<void()> listener);
    void removeAudioSessionListener(int id);

    explicit RTCGstPlatform(Options options);

  private:
    Options options_;
    std::shared_ptr<QXVCSerialQueue> queue_;
    std::unique_ptr<RTCGstCertificates> certificates_;
    RTCAudioSessionPtr audioSession_;
    mutable std::mutex mutex_;
    bool proximity_ = false;
    std::shared_ptr<RTCGstMediaSettings> media_;
    std::vector<RTCCaptureDevicePtr> devices_;
    uint64_t devicesGeneration_ = 0;
    struct Listeners;
    std::shared_ptr<Listeners> listeners_;
};
