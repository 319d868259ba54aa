#pragma once

#include <memory>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCMediaStreamTrack.h"
#include "VelmorinVideoChat/Platform/RTC/RTCRtpParameters.h"

/// The sending side of a transceiver. `parameters()` returns a copy with one
/// encoding; `setParameters` applies each encoding's maxBitrateBps to the
/// encoder at once (the lowest one when there are several).
class RTCRtpSender {
  public:
    virtual ~RTCRtpSender() = default;
    virtual std::string senderId() const = 0;
    /// The track being sent; nil for a receive-only transceiver.
    virtual RTCMediaStreamTrackPtr track() const = 0;
    virtual std::vector<std::string> streamIds() const = 0;
    virtual RTCRtpParameters parameters() const = 0;
    /// Returns false (and changes nothing) when the number of encodings differs
    /// from what `parameters()` returned or a bitrate is not positive.
    virtual bool setParameters(const RTCRtpParameters& parameters) = 0;
};

using RTCRtpSenderPtr = std::shared_ptr<RTCRtpSender>;

/// The receiving side of a transceiver. Its track exists from the moment the
/// transceiver does, before any media arrives.
class RTCRtpReceiver {
  public:
    virtual ~RTCRtpReceiver() = default;
    virtual std::string receiverId() const = 0;
    virtual RTCMediaStreamTrackPtr track() const = 0;
};

using RTCRtpReceiverPtr = std::shared_ptr<RTCRtpReceiver>;
