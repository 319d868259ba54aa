#include "VelmorinVideoChat/Platform/RTC/RTCIceCandidate.h"

#include <utility>

namespace {
std::string orNull(const std::optional<std::string>& text) {
    return text ? *text : std::string("(null)");
}
}  // namespace

RTCIceCandidate::RTCIceCandidate(std::optional<std::string> sdp, int32_t sdpMLineIndex,
                                 std::optional<std::string> sdpMid,
                                 std::optional<std::string> serverUrl)
    : sdp_(std::move(sdp)),
      sdpMLineIndex_(sdpMLineIndex),
      sdpMid_(std::move(sdpMid)),
      serverUrl_(std::move(serverUrl)) {}

std::string RTCIceCandidate::description() const {
    return "RTCIceCandidate:\n" + orNull(sdpMid_) + "\n" + std::to_string(sdpMLineIndex_) + "\n" +
           orNull(sdp_) + "\n" + orNull(serverUrl_);
}

std::ostream& operator<<(std::ostream& os, const RTCIceCandidate& candidate) {
    return os << candidate.description();
}
