#pragma once

#include <memory>
#include <optional>
#include <string>

#include "VelmorinVideoChat/Platform/RTC/RTCRtpSender.h"
#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

/// A pair of sender and receiver sharing one media line (Unified Plan).
class RTCRtpTransceiver {
  public:
    virtual ~RTCRtpTransceiver() = default;
    virtual RTCRtpMediaType mediaType() const = 0;
    /// The media line's id once negotiated; nullopt before.
    virtual std::optional<std::string> mid() const = 0;
    virtual RTCRtpSenderPtr sender() const = 0;
    virtual RTCRtpReceiverPtr receiver() const = 0;
    /// The preferred direction, applied at the next negotiation.
    virtual RTCRtpTransceiverDirection direction() const = 0;
    virtual void setDirection(RTCRtpTransceiverDirection direction) = 0;
    /// The direction agreed by the last negotiation; nullopt before.
    virtual std::optional<RTCRtpTransceiverDirection> currentDirection() const = 0;
};

using RTCRtpTransceiverPtr = std::shared_ptr<RTCRtpTransceiver>;
