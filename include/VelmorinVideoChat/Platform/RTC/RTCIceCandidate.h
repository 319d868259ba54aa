// An ICE candidate as the WebRTC platform hands it over: the candidate line, the
// index of the media line it belongs to, and that media line's id.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

class RTCIceCandidate final {
  public:
    /// `initWithSdp:sdpMLineIndex:sdpMid:`. Either string may be absent: the
    /// engine that receives the candidate decides what an absent line means.
    /// `serverUrl` is the URL of the STUN/TURN server that produced a local
    /// candidate; remote candidates have none.
    RTCIceCandidate(std::optional<std::string> sdp, int32_t sdpMLineIndex,
                    std::optional<std::string> sdpMid,
                    std::optional<std::string> serverUrl = std::nullopt);

    const std::optional<std::string>& sdp() const { return sdp_; }
    int32_t sdpMLineIndex() const { return sdpMLineIndex_; }
    const std::optional<std::string>& sdpMid() const { return sdpMid_; }
    const std::optional<std::string>& serverUrl() const { return serverUrl_; }

    /// "RTCIceCandidate:\n<mid>\n<index>\n<line>\n<server url>", with "(null)"
    /// for an absent string.
    std::string description() const;

  private:
    std::optional<std::string> sdp_;
    int32_t sdpMLineIndex_;
    std::optional<std::string> sdpMid_;
    std::optional<std::string> serverUrl_;
};

using RTCIceCandidatePtr = std::shared_ptr<const RTCIceCandidate>;

std::ostream& operator<<(std::ostream& os, const RTCIceCandidate& candidate);
