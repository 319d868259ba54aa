// Send parameters of an RTP sender.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct RTCRtpEncodingParameters {
    std::optional<std::string> rid;
    bool isActive = true;
    /// Upper bound of the encoder's bitrate in bits per second; nullopt = no cap.
    std::optional<int> maxBitrateBps;
    std::optional<int> minBitrateBps;
    std::optional<int> maxFramerate;
};

struct RTCRtpParameters {
    std::string transactionId;
    std::vector<RTCRtpEncodingParameters> encodings;
};
