// The process-wide RTC engine. The library makes every RTC object through it,
// so the GStreamer engine and a test's fake engine are interchangeable.
#pragma once

#include <memory>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCAudioDevice.h"
#include "VelmorinVideoChat/Platform/RTC/RTCAudioSession.h"
#include "VelmorinVideoChat/Platform/RTC/RTCCameraVideoCapturer.h"
#include "VelmorinVideoChat/Platform/RTC/RTCCertificate.h"
#include "VelmorinVideoChat/Platform/RTC/RTCDefaultVideoCodecFactory.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPeerConnectionFactory.h"

class RTCPlatform {
  public:
    virtual ~RTCPlatform() = default;

    /// Installs the engine (nullptr uninstalls). Objects made by the previous
    /// engine keep working with it.
    static void install(std::shared_ptr<RTCPlatform> platform);
    /// The installed engine; nullptr when none is.
    static std::shared_ptr<RTCPlatform> current();

    virtual RTCPeerConnectionFactoryPtr peerConnectionFactory(
        const RTCDefaultVideoEncoderFactoryPtr& encoderFactory,
        const RTCDefaultVideoDecoderFactoryPtr& decoderFactory) = 0;
    virtual std::vector<RTCVideoCodecInfoPtr> supportedVideoEncoderCodecs() = 0;
    virtual std::vector<RTCVideoCodecInfoPtr> supportedVideoDecoderCodecs() = 0;
    /// A camera capturer feeding `delegate` (normally a video source).
    virtual RTCCameraVideoCapturerPtr cameraVideoCapturer(
        const std::shared_ptr<RTCVideoCapturerDelegate>& delegate) = 0;
    /// The cameras, in a stable order.
    virtual std::vector<RTCCaptureDevicePtr> captureDevices() = 0;
    /// The microphones and the loudspeakers as the engine finds them now, in
    /// its order; empty when the engine offers no choice.
    virtual std::vector<RTCAudioDevicePtr> audioInputDevices() { return {}; }
    virtual std::vector<RTCAudioDevicePtr> audioOutputDevices() { return {}; }
    /// The one shared audio session.
    virtual RTCAudioSessionPtr audioSession() = 0;
    /// A new certificate, never one handed out before.
    virtual RTCCertificatePtr generateCertificate(RTCKeyType keyType, int64_t expiresMs) = 0;

    /// The device's proximity-monitoring flag (`UIDevice.proximityMonitoringEnabled`).
    virtual bool isProximityMonitoringEnabled() const = 0;
    virtual void setProximityMonitoringEnabled(bool enabled) = 0;
};

using RTCPlatformPtr = std::shared_ptr<RTCPlatform>;
