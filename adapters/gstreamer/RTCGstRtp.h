// Senders, receivers and transceivers of the GStreamer engine.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCRtpTransceiver.h"

class RTCGstRtpSender final : public RTCRtpSender {
  public:
    RTCGstRtpSender(std::string senderId, RTCMediaStreamTrackPtr track,
                    std::vector<std::string> streamIds)
        : senderId_(std::move(senderId)),
          track_(std::move(track)),
          streamIds_(std::move(streamIds)) {}

    std::string senderId() const override { return senderId_; }
    RTCMediaStreamTrackPtr track() const override;
    std::vector<std::string> streamIds() const override;
    RTCRtpParameters parameters() const override;
    bool setParameters(const RTCRtpParameters& parameters) override;

    void clearTrack();
    void setTrack(RTCMediaStreamTrackPtr track, std::vector<std::string> streamIds);
    /// The cap of all encodings (the lowest), nullopt when none is set.
    std::optional<int> maxBitrateBps() const;
    /// Called after each successful setParameters (the engine applies the cap).
    void setParametersHandler(std::function<void()> handler);

  private:
    std::string senderId_;
    mutable std::mutex mutex_;
    RTCMediaStreamTrackPtr track_;
    std::vector<std::string> streamIds_;
    RTCRtpParameters parameters_{"", {RTCRtpEncodingParameters{}}};
    int transaction_ = 0;
    std::function<void()> handler_;
};

class RTCGstRtpReceiver final : public RTCRtpReceiver {
  public:
    RTCGstRtpReceiver(std::string receiverId, RTCMediaStreamTrackPtr track)
        : receiverId_(std::move(receiverId)), track_(std::move(track)) {}
    std::string receiverId() const override { return receiverId_; }
    RTCMediaStreamTrackPtr track() const override { return track_; }

  private:
    std::string receiverId_;
    RTCMediaStreamTrackPtr track_;
};

class RTCGstRtpTransceiver final : public RTCRtpTransceiver {
  public:
    RTCGstRtpTransceiver(RTCRtpMediaType mediaType, std::shared_ptr<RTCGstRtpSender> sender,
                         std::shared_ptr<RTCGstRtpReceiver> receiver,
                         RTCRtpTransceiverDirection direction)
        : mediaType_(mediaType),
          sender_(std::move(sender)),
          receiver_(std::move(receiver)),
          direction_(direction) {}

    RTCRtpMediaType mediaType() const override { return mediaType_; }
    std::optional<std::string> mid() const override;
    RTCRtpSenderPtr sender() const override { return sender_; }
    RTCRtpReceiverPtr receiver() const override { return receiver_; }
    RTCRtpTransceiverDirection direction() const override { return direction_.load(); }
    void setDirection(RTCRtpTransceiverDirection direction) override {
        direction_.store(direction);
    }
    std::optional<RTCRtpTransceiverDirection> currentDirection() const override;

    const std::shared_ptr<RTCGstRtpSender>& gstSender() const { return sender_; }
    const std::shared_ptr<RTCGstRtpReceiver>& gstReceiver() const { return receiver_; }
    void setNegotiated(std::string mid, RTCRtpTransceiverDirection current);
    const char* kind() const { return mediaType_ == RTCRtpMediaTypeAudio ? "audio" : "video"; }

  private:
    RTCRtpMediaType mediaType_;
    std::shared_ptr<RTCGstRtpSender> sender_;
    std::shared_ptr<RTCGstRtpReceiver> receiver_;
    std::atomic<RTCRtpTransceiverDirection> direction_;
    mutable std::mutex mutex_;
    std::optional<std::string> mid_;
    std::optional<RTCRtpTransceiverDirection> current_;
};

/// "sendrecv" etc. to the enumeration (SendRecv for unknown text), and back.
RTCRtpTransceiverDirection RTCGstDirectionFromString(const std::string& text);
/// The direction of our side given the remote side's direction text.
RTCRtpTransceiverDirection RTCGstReverseDirection(RTCRtpTransceiverDirection remote);
