// The configuration a peer connection is created with.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCCertificate.h"
#include "VelmorinVideoChat/Platform/RTC/RTCIceServer.h"
#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

/// A mutable set of fields with WebRTC's defaults: no ICE servers (nil), Plan B
/// semantics, no certificate (the engine makes one), transport policy All,
/// bundle policy Balanced, RTCP mux Require. The engine copies what it needs when
/// the peer connection is created; later changes have no effect on it.
class RTCConfiguration final {
  public:
    static std::shared_ptr<RTCConfiguration> create() {
        return std::make_shared<RTCConfiguration>();
    }

    /// nil until set; a nil or empty list means no TURN server (a relay-only
    /// connection then never gathers a candidate).
    const std::optional<std::vector<RTCIceServerPtr>>& iceServers() const { return iceServers_; }
    void setIceServers(std::optional<std::vector<RTCIceServerPtr>> servers) {
        iceServers_ = std::move(servers);
    }

    RTCSdpSemantics sdpSemantics() const { return sdpSemantics_; }
    void setSdpSemantics(RTCSdpSemantics value) { sdpSemantics_ = value; }

    const RTCCertificatePtr& certificate() const { return certificate_; }
    void setCertificate(RTCCertificatePtr value) { certificate_ = std::move(value); }

    RTCIceTransportPolicy iceTransportPolicy() const { return iceTransportPolicy_; }
    void setIceTransportPolicy(RTCIceTransportPolicy value) { iceTransportPolicy_ = value; }

    RTCBundlePolicy bundlePolicy() const { return bundlePolicy_; }
    void setBundlePolicy(RTCBundlePolicy value) { bundlePolicy_ = value; }

    RTCRtcpMuxPolicy rtcpMuxPolicy() const { return rtcpMuxPolicy_; }
    void setRtcpMuxPolicy(RTCRtcpMuxPolicy value) { rtcpMuxPolicy_ = value; }

  private:
    std::optional<std::vector<RTCIceServerPtr>> iceServers_;
    RTCSdpSemantics sdpSemantics_ = RTCSdpSemanticsPlanB;
    RTCCertificatePtr certificate_;
    RTCIceTransportPolicy iceTransportPolicy_ = RTCIceTransportPolicyAll;
    RTCBundlePolicy bundlePolicy_ = RTCBundlePolicyBalanced;
    RTCRtcpMuxPolicy rtcpMuxPolicy_ = RTCRtcpMuxPolicyRequire;
};

using RTCConfigurationPtr = std::shared_ptr<RTCConfiguration>;
