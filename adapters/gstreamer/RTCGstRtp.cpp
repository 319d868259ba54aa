#include "RTCGstRtp.h"

#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

RTCMediaStreamTrackPtr RTCGstRtpSender::track() const {
    std::lock_guard lock(mutex_);
    return track_;
}

std::vector<std::string> RTCGstRtpSender::streamIds() const {
    std::lock_guard lock(mutex_);
    return streamIds_;
}

void RTCGstRtpSender::setTrack(RTCMediaStreamTrackPtr track, std::vector<std::string> streamIds) {
    std::lock_guard lock(mutex_);
    track_ = std::move(track);
    streamIds_ = std::move(streamIds);
}

void RTCGstRtpSender::clearTrack() {
    std::lock_guard lock(mutex_);
    track_ = nullptr;
}

RTCRtpParameters RTCGstRtpSender::parameters() const {
    std::lock_guard lock(mutex_);
    RTCRtpParameters copy = parameters_;
    copy.transactionId = std::to_string(transaction_);
    return copy;
}

bool RTCGstRtpSender::setParameters(const RTCRtpParameters& parameters) {
    std::function<void()> handler;
    {
        std::lock_guard lock(mutex_);
        if (parameters.encodings.size() != parameters_.encodings.size()) {
            return false;
        }
        for (const auto& encoding : parameters.encodings) {
            if ((encoding.maxBitrateBps && *encoding.maxBitrateBps <= 0) ||
                (encoding.minBitrateBps && *encoding.minBitrateBps < 0)) {
                return false;
            }
        }
        parameters_.encodings = parameters.encodings;
        ++transaction_;
        handler = handler_;
    }
    if (handler) {
        handler();
    }
    return true;
}

std::optional<int> RTCGstRtpSender::maxBitrateBps() const {
    std::lock_guard lock(mutex_);
    std::optional<int> cap;
    for (const auto& encoding : parameters_.encodings) {
        if (encoding.maxBitrateBps && (!cap || *encoding.maxBitrateBps < *cap)) {
            cap = encoding.maxBitrateBps;
        }
    }
    return cap;
}

void RTCGstRtpSender::setParametersHandler(std::function<void()> handler) {
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

std::optional<std::string> RTCGstRtpTransceiver::mid() const {
    std::lock_guard lock(mutex_);
    return mid_;
}

std::optional<RTCRtpTransceiverDirection> RTCGstRtpTransceiver::currentDirection() const {
    std::lock_guard lock(mutex_);
    return current_;
}

void RTCGstRtpTransceiver::setNegotiated(std::string mid, RTCRtpTransceiverDirection current) {
    std::lock_guard lock(mutex_);
    mid_ = std::move(mid);
    current_ = current;
}

RTCRtpTransceiverDirection RTCGstDirectionFromString(const std::string& text) {
    if (text == "sendonly")
        return RTCRtpTransceiverDirectionSendOnly;
    if (text == "recvonly")
        return RTCRtpTransceiverDirectionRecvOnly;
    if (text == "inactive")
        return RTCRtpTransceiverDirectionInactive;
    return RTCRtpTransceiverDirectionSendRecv;
}

RTCRtpTransceiverDirection RTCGstReverseDirection(RTCRtpTransceiverDirection remote) {
    switch (remote) {
        case RTCRtpTransceiverDirectionSendOnly:
            return RTCRtpTransceiverDirectionRecvOnly;
        case RTCRtpTransceiverDirectionRecvOnly:
            return RTCRtpTransceiverDirectionSendOnly;
        default:
            return remote;
    }
}
