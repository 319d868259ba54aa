// The fake engine's peer connection, with its senders, receivers and
// transceivers.
//
// Every call is recorded (typed, and as "<pc>.<operation>(...)" in the shared
// log). Asynchronous operations (create offer/answer, set local/remote
// description) stay pending until the test completes them, oldest first per
// kind, with success or an error; completeAll() drives a whole negotiation.
// The test also produces the engine's events: candidates, ICE, gathering,
// signalling and peer-connection states, the first packet on a transceiver.
// Completions and delegate callbacks run inline or on the context's callback
// queue (see FakeRTCContext). All methods are thread-safe.
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
    /// Recorded (accepted or not) as "<sender>.setParameters(<max bitrates>)".
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
    std::optional<std::string> mid() const override { return lockedCopy(mutex_, mid_); }
    RTCRtpSenderPtr sender() const override { return sender_; }
    RTCRtpReceiverPtr receiver() const override { return receiver_; }
    RTCRtpTransceiverDirection direction() const override { return lockedCopy(mutex_, direction_); }
    void setDirection(RTCRtpTransceiverDirection d) override { lockedSet(mutex_, direction_, d); }
    std::optional<RTCRtpTransceiverDirection> currentDirection() const override {
        return lockedCopy(mutex_, current_);
    }

    std::shared_ptr<FakeRTCRtpSender> fakeSender() const { return sender_; }
    void setMid(std::string mid) { lockedSet(mutex_, mid_, std::move(mid)); }
    void setCurrentDirection(RTCRtpTransceiverDirection d) { lockedSet(mutex_, current_, d); }

  private:
    RTCRtpMediaType mediaType_;
    std::shared_ptr<FakeRTCRtpSender> sender_;
    std::shared_ptr<FakeRTCRtpReceiver> receiver_;
    mutable std::mutex mutex_;
    std::optional<std::string> mid_;
    RTCRtpTransceiverDirection direction_;
    std::optional<RTCRtpTransceiverDirection> current_;
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
    /// Applies OfferToReceiveAudio/Video to the transceivers at once (as
    /// libwebrtc does: "true" adds a receive-only transceiver when none of that
    /// kind receives; "false" removes the receive direction), then waits.
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
    /// delegate callback follows, not even one already posted to the callback
    /// queue (the event methods below do nothing once closed); pending
    /// operations stay pending for the test to complete.
    void close() override;
    RTCSignalingState signalingState() const override { return lockedCopy(mutex_, signaling_); }
    RTCIceConnectionState iceConnectionState() const override { return lockedCopy(mutex_, ice_); }
    RTCIceGatheringState iceGatheringState() const override {
        return lockedCopy(mutex_, gathering_);
    }
    RTCPeerConnectionState connectionState() const override {
        return lockedCopy(mutex_, connection_);
    }
    RTCSessionDescriptionPtr localDescription() const override {
        return lockedCopy(mutex_, localDescription_);
    }
    RTCSessionDescriptionPtr remoteDescription() const override {
        return lockedCopy(mutex_, remoteDescription_);
    }
    /// Reports the counters set with setStatistics (zeros by default) on the
    /// callback queue.
    void statisticsWithCompletionHandler(RTCStatisticsCompletionHandler completion) override;
    void setStatistics(RTCStatisticsReport report) { lockedSet(mutex_, statistics_, report); }

    // ---- What was called -----------------------------------------------------

    const std::string& name() const { return name_; }
    RTCMediaConstraintsPtr creationConstraints() const { return constraints_; }
    using Constraints = std::vector<RTCMediaConstraintsPtr>;
    using Descriptions = std::vector<RTCSessionDescriptionPtr>;
    Constraints offerConstraints() const { return lockedCopy(mutex_, offerConstraints_); }
    Constraints answerConstraints() const { return lockedCopy(mutex_, answerConstraints_); }
    /// Descriptions handed to setLocal/setRemoteDescription, when called.
    Descriptions localDescriptionsSet() const { return lockedCopy(mutex_, localSet_); }
    Descriptions remoteDescriptionsSet() const { return lockedCopy(mutex_, remoteSet_); }
    std::vector<RTCIceCandidatePtr> addedCandidates() const {
        return lockedCopy(mutex_, candidates_);
    }
    struct AddedTrack {
        RTCMediaStreamTrackPtr track;
        std::vector<std::string> streamIds;
    };
    std::vector<AddedTrack> addedTracks() const { return lockedCopy(mutex_, addedTracks_); }
    std::vector<RTCRtpSenderPtr> removedSenders() const {
        return lockedCopy(mutex_, removedSenders_);
    }
    size_t closeCount() const { return lockedCopy(mutex_, closeCount_); }
    bool isClosed() const { return closeCount() > 0; }

    // ---- Completing pending operations --------------------------------------

    enum class Operation { CreateOffer, CreateAnswer, SetLocalDescription, SetRemoteDescription };
    /// Pending operations, oldest first.
    std::vector<Operation> pendingOperations() const;
    /// Completes the oldest pending create-offer / create-answer with `sdp`
    /// (by default a small SDP with one media line per transceiver). False when
    /// none is pending.
    bool completeCreateOffer(std::optional<std::string> sdp = std::nullopt);
    bool completeCreateAnswer(std::optional<std::string> sdp = std::nullopt);
    /// Completes the oldest pending set-description with success: the
    /// description becomes the local/remote one, mids are assigned and the
    /// signalling state follows (reported to the delegate).
    bool completeSetLocalDescription();
    bool completeSetRemoteDescription();
    /// Fails the oldest pending operation of that kind with `error` (a default
    /// error in kRTCErrorDomain when nullptr).
    bool failOperation(Operation operation, QXDErrorPtr error = nullptr);
    /// Completes every pending operation with success, oldest first, including
    /// those the completions start, until none is left (at most 100). Returns
    /// how many completed.
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
    void emitIceGatheringState(RTCIceGatheringState state);
    void emitSignalingState(RTCSignalingState state);
    /// The first packet arrived on the first transceiver of `mediaType`.
    void emitStartReceiving(RTCRtpMediaType mediaType);
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
    void applyReceiveConstraint(const RTCMediaConstraintsPtr& constraints, const char* key,
                                RTCRtpMediaType type);
    std::string makeSdp(RTCSdpType type) const;
    void applyDescription(const RTCSessionDescriptionPtr& description, bool local);
    void notify(std::function<void(RTCPeerConnectionDelegate&, const RTCPeerConnectionPtr&)> call);
    std::string describe(const RTCSessionDescriptionPtr& sdp) const;

    std::shared_ptr<FakeRTCContext> context_;
    const std::string name_;
    const RTCConfigurationPtr configuration_;
    const RTCMediaConstraintsPtr constraints_;
    const std::weak_ptr<RTCPeerConnectionDelegate> delegate_;

    mutable std::mutex mutex_;
    RTCStatisticsReport statistics_;
    std::deque<Pending> pending_;
    std::vector<std::shared_ptr<FakeRTCRtpTransceiver>> transceivers_;
    std::vector<RTCMediaConstraintsPtr> offerConstraints_;
    std::vector<RTCMediaConstraintsPtr> answerConstraints_;
    std::vector<RTCSessionDescriptionPtr> localSet_;
    std::vector<RTCSessionDescriptionPtr> remoteSet_;
    std::vector<RTCIceCandidatePtr> candidates_;
    std::vector<AddedTrack> addedTracks_;
    std::vector<RTCRtpSenderPtr> removedSenders_;
    size_t closeCount_ = 0;
    size_t idCounter_ = 0;
    RTCSignalingState signaling_ = RTCSignalingStateStable;
    RTCIceConnectionState ice_ = RTCIceConnectionStateNew;
    RTCIceGatheringState gathering_ = RTCIceGatheringStateNew;
    RTCPeerConnectionState connection_ = RTCPeerConnectionStateNew;
    RTCSessionDescriptionPtr localDescription_;
    RTCSessionDescriptionPtr remoteDescription_;
};
