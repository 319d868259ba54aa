#pragma once

#include <memory>
#include <string>

#include "VelmorinVideoChat/Platform/RTC/RTCAudioTrack.h"
#include "VelmorinVideoChat/Platform/RTC/RTCConfiguration.h"
#include "VelmorinVideoChat/Platform/RTC/RTCDefaultVideoCodecFactory.h"
#include "VelmorinVideoChat/Platform/RTC/RTCMediaConstraints.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPeerConnection.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoTrack.h"

/// Makes peer connections, sources and tracks. Made by the installed RTCPlatform.
class RTCPeerConnectionFactory {
  public:
    virtual ~RTCPeerConnectionFactory() = default;

    /// `initWithEncoderFactory:decoderFactory:` of the installed platform;
    /// nullptr when none is installed.
    static std::shared_ptr<RTCPeerConnectionFactory> initWithEncoderFactory(
        const RTCDefaultVideoEncoderFactoryPtr& encoderFactory,
        const RTCDefaultVideoDecoderFactoryPtr& decoderFactory);

    /// `peerConnectionWithConfiguration:constraints:delegate:`. nullptr when the
    /// configuration is nil or unusable (for example a non-RTC URL). The delegate
    /// is held weakly.
    virtual RTCPeerConnectionPtr peerConnectionWithConfiguration(
        const RTCConfigurationPtr& configuration, const RTCMediaConstraintsPtr& constraints,
        const std::shared_ptr<RTCPeerConnectionDelegate>& delegate) = 0;
    /// `audioSourceWithConstraints:`.
    virtual RTCAudioSourcePtr audioSourceWithConstraints(
        const RTCMediaConstraintsPtr& constraints) = 0;
    /// `audioTrackWithSource:trackId:`.
    virtual RTCAudioTrackPtr audioTrackWithSource(const RTCAudioSourcePtr& source,
                                                  const std::string& trackId) = 0;
    /// `videoSource`: a new source, fed by a camera capturer made on it.
    virtual RTCVideoSourcePtr videoSource() = 0;
    /// `videoTrackWithSource:trackId:`.
    virtual RTCVideoTrackPtr videoTrackWithSource(const RTCVideoSourcePtr& source,
                                                  const std::string& trackId) = 0;
};

using RTCPeerConnectionFactoryPtr = std::shared_ptr<RTCPeerConnectionFactory>;
