// The fake engine's peer connection, with its senders, receivers and
// transceivers.
//
// Every call is recorded (typed, and as "<pc>.<operation>(...)" in the shared
// log). Asynchronous operations (create offer/answer, set local/remote
// description) stay pending until the test completes them, oldest first per
// kind, with success or an error; completeAll() drives a whole negotiation.
// The test also produces the engine's events: candidates, ICE and
// peer-connection states. Completions and delegate callbacks run inline (see
// FakeRTCContext). All methods are thread-safe.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCPeerConnection.h"
#include "support/FakeRTCContext.h"

class FakeRTCVideoTrack;

class FakeRTCRtpSender : public RTCRtpSender {
  public:
    FakeRTCRtpSender(std::shared_ptr<FakeRTCContext> context, std::string senderId,
                     RTCMediaStreamTrackPtr track, std::vector<std::string> streamIds);

    std::string senderId() const override { return senderId_; }
    RTCMediaStreamTrackPtr track() const override { return lockedCopy(mutex_, track_); }
    std::vector<std::string> streamIds() const override { return streamIds_; }
    RTCRtpParameters parameters() const override { return lockedCopy(mutex_, parameters_); }
    /// Recorded as "<sender>.setParameters(<max bitrates>)" and accepted.
    bool setParameters(const RTCRtpParameters& parameters) override;

    /// Every setParameters call, in order.
    std::vector<RTCRtpParameters> setParametersCalls() const { return lockedCopy(mutex_, calls_); }
    void clearTrack() { lockedSet(mutex_, track_, nullptr); }

  private:
    std::shared_ptr<FakeRTCContext> context_;
    std::string senderId_;
    std::vector<std::string> streamIds_;
    mutable std::mutex mutex_;
    RTCMediaStreamTrackPtr track_;
    RTCRtpParameters parameters_;
    std::vector<RTCRtpParameters> calls_;
};

class FakeRTCRtpReceiver : public RTCRtpReceiver {
  public:
    FakeRTCRtpReceiver(std::string receiverId, RTCMediaStreamTrackPtr track)
        : receiverId_(std::move(receiverId)), track_(std::move(track)) {}
    std::string receiverId() const override { return receiverId_; }
    RTCMediaStreamTrackPtr track() const override { return track_; }

  private:
    std::string receiverId_;
    RTCMediaStreamTrackPtr track_;
};

class FakeRTCRtpTransceiver : public RTCRtpTransceiver {
  public:
    FakeRTCRtpTransceiver(RTCRtpMediaType mediaType, std::shared_ptr<FakeRTCRtpSender> sender,
                          std::shared_ptr<FakeRTCRtpReceiver> receiver,
                          RTCRtpTransceiverDirection direction)
        : mediaType_(mediaType),
          sender_(std::move(sender)),
          receiver_(std::move(receiver)),
          direction_(direction) {}

    RTCRtpMediaType mediaType() const override { return mediaType_; }
    /// No mid or current direction is negotiated.
    std::optional<std::string> mid() const override { return std::nullopt; }
    RTCRtpSenderPtr sender() const override { return sender_; }
    RTCRtpReceiverPtr receiver() const override { return receiver_; }
    RTCRtpTransceiverDirection direction() const override { return lockedCopy(mutex_, direction_); }
    void setDirection(RTCRtpTransceiverDirection d) override { lockedSet(mutex_, direction_, d); }
    std::optional<RTCRtpTransceiverDirection> currentDirection() const override {
        return std::nullopt;
    }

    std::shared_ptr<FakeRTCRtpSender> fakeSender() const { return sender_; }

  private:
    RTCRtpMediaType mediaType_;
    std::shared_ptr<FakeRTCRtpSender> sender_;
    std::shared_ptr<FakeRTCRtpReceiver> receiver_;
    mutable std::mutex mutex_;
    RTCRtpTransceiverDirection direction_;
};

class FakeRTCPeerConnection : public RTCPeerConnection,
                              public std::enable_shared_from_this<FakeRTCPeerConnection> {
  public:
    FakeRTCPeerConnection(std::shared_ptr<FakeRTCContext> context, std::string name,
                          RTCConfigurationPtr configuration, RTCMediaConstraintsPtr constraints,
                          std::weak_ptr<RTCPeerConnectionDelegate> delegate);

    // ---- RTCPeerConnection ---------------------------------------------------

    std::weak_ptr<RTCPeerConnectionDelegate> delegate() const override { return delegate_; }
    RTCConfigurationPtr configuration() const override { return configuration_; }
    /// Recorded with their constraints; they wait for the test to complete them.
    void offerForConstraints(const RTCMediaConstraintsPtr& constraints,
                             RTCCreateSessionDescriptionCompletionHandler completion) override;
    void answerForConstraints(const RTCMediaConstraintsPtr& constraints,
                              RTCCreateSessionDescriptionCompletionHandler completion) override;
    void setLocalDescription(const RTCSessionDescriptionPtr& sdp,
                             RTCSetSessionDescriptionCompletionHandler completion) override;
    void setRemoteDescription(const RTCSessionDescriptionPtr& sdp,
                              RTCSetSessionDescriptionCompletionHandler completion) override;
    /// Recorded at once; the candidate is accepted (nothing is checked).
    void addIceCandidate(const RTCIceCandidatePtr& candidate) override;
    void addIceCandidate(const RTCIceCandidatePtr& candidate,
                         std::function<void(QXDErrorPtr error)> completion) override;
    RTCRtpSenderPtr addTrack(const RTCMediaStreamTrackPtr& track,
                             const std::vector<std::string>& streamIds) override;
    bool removeTrack(const RTCRtpSenderPtr& sender) override;
    RTCRtpTransceiverPtr addTransceiverOfType(RTCRtpMediaType mediaType) override;
    std::vector<RTCRtpSenderPtr> senders() const override;
    std::vector<RTCRtpReceiverPtr> receivers() const override;
    std::vector<RTCRtpTransceiverPtr> transceivers() const override;
    /// Every call is recorded; the first moves every state to Closed. No
    /// delegate callback follows (the event methods below do nothing once
    /// closed); pending operations stay pending for the test to complete.
    void close() override;
    RTCSignalingState signalingState() const override { return lockedCopy(mutex_, signaling_); }
    RTCIceConnectionState iceConnectionState() const override { return lockedCopy(mutex_, ice_); }
    RTCIceGatheringState iceGatheringState() const override { return RTCIceGatheringStateNew; }
    RTCPeerConnectionState connectionState() const override {
        return lockedCopy(mutex_, connection_);
    }
    RTCSessionDescriptionPtr localDescription() const override {
        return lockedCopy(mutex_, localDescription_);
    }
    RTCSessionDescriptionPtr remoteDescription() const override {
        return lockedCopy(mutex_, remoteDescription_);
    }
    /// Reports zero counters.
    void statisticsWithCompletionHandler(RTCStatisticsCompletionHandler completion) override;

    // ---- What was called -----------------------------------------------------

    const std::string& name() const { return name_; }
    RTCMediaConstraintsPtr creationConstraints() const { return constraints_; }
    using Constraints = std::vector<RTCMediaConstraintsPtr>;
    using Descriptions = std::vector<RTCSessionDescriptionPtr>;
    Constraints offerConstraints() const { return lockedCopy(mutex_, offerConstraints_); }
    /// Descriptions handed to setRemoteDescription, when called.
    Descriptions remoteDescriptionsSet() const { return lockedCopy(mutex_, remoteSet_); }
    std::vector<RTCIceCandidatePtr> addedCandidates() const {
        return lockedCopy(mutex_, candidates_);
    }
    std::vector<RTCRtpSenderPtr> removedSenders() const {
        return lockedCopy(mutex_, removedSenders_);
    }
    bool isClosed() const { return lockedCopy(mutex_, closed_); }

    // ---- Completing pending operations --------------------------------------

    enum class Operation { CreateOffer, CreateAnswer, SetLocalDescription, SetRemoteDescription };
    /// Completes the oldest pending create-offer with `sdp` (by default a small
    /// SDP with one media line per transceiver). False when none is pending.
    bool completeCreateOffer(std::optional<std::string> sdp = std::nullopt);
    /// Fails the oldest pending operation of that kind with `error` (a default
    /// error in kRTCErrorDomain when nullptr).
    bool failOperation(Operation operation, QXDErrorPtr error = nullptr);
    /// Completes every pending operation with success, oldest first, including
    /// those the completions start, until none is left (at most 100); a set
    /// description becomes the local/remote one and the signalling state follows
    /// (reported). Returns how many completed.
    size_t completeAll();

    // ---- Engine events -----------------------------------------------------
    //
    // Each reports to the delegate even when the value does not change (a test
    // may need two Disconnected reports in a row).

    void emitIceCandidate(const RTCIceCandidatePtr& candidate);
    /// A candidate with `line`, media-line index 0 and mid "0".
    void emitIceCandidate(const std::string& line);
    void emitIceConnectionState(RTCIceConnectionState state);
    void emitConnectionState(RTCPeerConnectionState state);
    /// ICE Checking, peer connection Connecting, ICE Connected, peer
    /// connection Connected: what a successful connection reports.
    void emitConnected();

    /// Candidate lines of each type, for relay-only checks.
    static std::string hostCandidateLine(int port = 54321);
    static std::string srflxCandidateLine(int port = 54322);
    static std::string relayCandidateLine(int port = 49152);

    /// The receiving track of the first video transceiver (the remote video),
    /// for delivering decoded frames; nullptr when there is none.
    std::shared_ptr<FakeRTCVideoTrack> remoteVideoTrack() const;

  private:
    struct Pending {
        Operation operation;
        RTCSessionDescriptionPtr description;
        RTCCreateSessionDescriptionCompletionHandler createCompletion;
        RTCSetSessionDescriptionCompletionHandler setCompletion;
    };
    std::optional<Pending> takePending(Operation operation);
    bool completeCreate(Operation operation, RTCSdpType type, std::optional<std::string> sdp);
    bool completeSet(Operation operation, bool local);
    template <class State>
    void emitState(const char* what, State& field, State state,
                   void (RTCPeerConnectionDelegate::*callback)(const RTCPeerConnectionPtr&, State));
    std::shared_ptr<FakeRTCRtpTransceiver> makeTransceiver(RTCRtpMediaType type,
                                                           RTCMediaStreamTrackPtr track,
                                                           std::vector<std::string> streamIds,
                                                           RTCRtpTransceiverDirection direction);
    std::string makeSdp() const;
    void applyDescription(const RTCSessionDescriptionPtr& description, bool local);
    void notify(std::function<void(RTCPeerConnectionDelegate&, const RTCPeerConnectionPtr&)> call);
    std::string describe(const RTCSessionDescriptionPtr& sdp) const;

    std::shared_ptr<FakeRTCContext> context_;
    const std::string name_;
    const RTCConfigurationPtr configuration_;
    const RTCMediaConstraintsPtr constraints_;
    const std::weak_ptr<RTCPeerConnectionDelegate> delegate_;

    mutable std::mutex mutex_;
    std::deque<Pending> pending_;
    std::vector<std::shared_ptr<FakeRTCRtpTransceiver>> transceivers_;
    Constraints offerConstraints_;
    Descriptions remoteSet_;
    std::vector<RTCIceCandidatePtr> candidates_;
    std::vector<RTCRtpSenderPtr> removedSenders_;
    bool closed_ = false;
    size_t idCounter_ = 0;
    RTCSignalingState signaling_ = RTCSignalingStateStable;
    RTCIceConnectionState ice_ = RTCIceConnectionStateNew;
    RTCPeerConnectionState connection_ = RTCPeerConnectionStateNew;
    RTCSessionDescriptionPtr localDescription_;
    RTCSessionDescriptionPtr remoteDescription_;
};
