// The parts of the fake engine that the call engine's tests lean on: legacy
// receive constraints on transceivers, description matching, and when
// completions and events are delivered.
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "support/FakeRTCPlatform.h"

namespace {

struct EventLog : RTCPeerConnectionDelegate {
    void add(std::string e) {
        std::lock_guard lock(mutex);
        events.push_back(std::move(e));
    }
    std::vector<std::string> get() {
        std::lock_guard lock(mutex);
        return events;
    }
    void peerConnectionDidChangeSignalingState(const RTCPeerConnectionPtr&,
                                               RTCSignalingState s) override {
        add("signaling=" + std::to_string(s));
    }
    void peerConnectionDidAddStream(const RTCPeerConnectionPtr&,
                                    const RTCMediaStreamPtr&) override {}
    void peerConnectionDidRemoveStream(const RTCPeerConnectionPtr&,
                                       const RTCMediaStreamPtr&) override {}
    void peerConnectionShouldNegotiate(const RTCPeerConnectionPtr&) override {}
    void peerConnectionDidChangeIceConnectionState(const RTCPeerConnectionPtr&,
                                                   RTCIceConnectionState s) override {
        add("ice=" + std::to_string(s));
    }
    void peerConnectionDidChangeIceGatheringState(const RTCPeerConnectionPtr&,
                                                  RTCIceGatheringState) override {}
    void peerConnectionDidGenerateIceCandidate(const RTCPeerConnectionPtr&,
                                               const RTCIceCandidatePtr& c) override {
        add("candidate=" + c->sdp().value_or(""));
    }
    void peerConnectionDidRemoveIceCandidates(const RTCPeerConnectionPtr&,
                                              const std::vector<RTCIceCandidatePtr>&) override {}
    void peerConnectionDidOpenDataChannel(const RTCPeerConnectionPtr&,
                                          const RTCDataChannelPtr&) override {}
    void peerConnectionDidChangeConnectionState(const RTCPeerConnectionPtr&,
                                                RTCPeerConnectionState s) override {
        add("pc=" + std::to_string(s));
    }
    std::mutex mutex;
    std::vector<std::string> events;
};

RTCMediaConstraintsPtr receive(const char* audio, const char* video) {
    return RTCMediaConstraints::initWithMandatoryConstraints(
        RTCConstraintsMap{{kRTCMediaConstraintsOfferToReceiveAudio, audio},
                          {kRTCMediaConstraintsOfferToReceiveVideo, video}},
        std::nullopt);
}

class FakeRTCTest : public ::testing::Test {
  protected:
    void SetUp() override {
        auto config = RTCConfiguration::create();
        config->setIceServers(std::vector<RTCIceServerPtr>{
            RTCIceServer::initWithURLStrings({"turn:127.0.0.1:3478"}, "u", "p")});
        factory = rtc.peerConnectionFactory(nullptr, nullptr);
        offerer = std::dynamic_pointer_cast<FakeRTCPeerConnection>(
            factory->peerConnectionWithConfiguration(config, nullptr, offererEvents));
        answerer = std::dynamic_pointer_cast<FakeRTCPeerConnection>(
            factory->peerConnectionWithConfiguration(config, nullptr, answererEvents));
        ASSERT_NE(offerer, nullptr);
        ASSERT_NE(answerer, nullptr);
    }
    void addTracks(RTCPeerConnection& pc) {
        auto audio =
            factory->audioTrackWithSource(factory->audioSourceWithConstraints(nullptr), "a");
        auto video = factory->videoTrackWithSource(factory->videoSource(), "v");
        ASSERT_NE(pc.addTrack(audio, {"ARDAMS"}), nullptr);
        ASSERT_NE(pc.addTrack(video, {"ARDAMS"}), nullptr);
        EXPECT_EQ(pc.addTrack(video, {"ARDAMS"}), nullptr) << "a track is added once";
    }

    FakeRTCPlatform rtc;
    RTCPeerConnectionFactoryPtr factory;
    std::shared_ptr<EventLog> offererEvents = std::make_shared<EventLog>();
    std::shared_ptr<EventLog> answererEvents = std::make_shared<EventLog>();
    std::shared_ptr<FakeRTCPeerConnection> offerer;
    std::shared_ptr<FakeRTCPeerConnection> answerer;
};

TEST_F(FakeRTCTest, ReceiveConstraintsActOnTransceiversLikeUnifiedPlan) {
    addTracks(*offerer);
    offerer->offerForConstraints(receive("false", "true"), nullptr);
    auto ts = offerer->transceivers();
    ASSERT_EQ(ts.size(), 2u) << "video already receives: nothing is added";
    EXPECT_EQ(ts[0]->direction(), RTCRtpTransceiverDirectionSendOnly);
    EXPECT_EQ(ts[1]->direction(), RTCRtpTransceiverDirectionSendRecv);

    // Without tracks, "true" adds receive-only transceivers and "false" adds none.
    answerer->offerForConstraints(receive("true", "false"), nullptr);
    ts = answerer->transceivers();
    ASSERT_EQ(ts.size(), 1u);
    EXPECT_EQ(ts[0]->mediaType(), RTCRtpMediaTypeAudio);
    EXPECT_EQ(ts[0]->direction(), RTCRtpTransceiverDirectionRecvOnly);
}

TEST_F(FakeRTCTest, NegotiationMatchesMediaLinesAndCompletesInCallOrder) {
    addTracks(*offerer);
    RTCSessionDescriptionPtr offer;
    offerer->offerForConstraints(receive("true", "true"), [&](auto sdp, auto error) {
        ASSERT_EQ(error, nullptr);
        offer = sdp;
        offerer->setLocalDescription(sdp, [](QXDErrorPtr e) { EXPECT_EQ(e, nullptr); });
    });
    EXPECT_EQ(offerer->completeAll(), 2u);
    ASSERT_NE(offer, nullptr);
    EXPECT_EQ(offerer->localDescription(), offer);
    EXPECT_EQ(offerer->signalingState(), RTCSignalingStateHaveLocalOffer);
    EXPECT_NE(offer->sdp().find("m=audio"), std::string::npos);
    EXPECT_LT(offer->sdp().find("m=audio"), offer->sdp().find("m=video"));

    // The answerer has no tracks: the offer's lines make receive-only
    // transceivers, whose receiver tracks exist before any media arrives.
    QXDErrorPtr remoteError = QXDError::errorWithDomain("x", 1, {});
    answerer->setRemoteDescription(offer, [&](QXDErrorPtr e) { remoteError = e; });
    const auto candidate = std::make_shared<const RTCIceCandidate>(
        FakeRTCPeerConnection::relayCandidateLine(), 0, "0");
    answerer->addIceCandidate(candidate);
    EXPECT_EQ(answerer->addedCandidates().size(), 1u) << "recorded in call order, not dropped";
    EXPECT_TRUE(answerer->transceivers().empty()) << "applied only when completed";
    ASSERT_TRUE(answerer->completeSetRemoteDescription());
    EXPECT_EQ(remoteError, nullptr);
    const auto ts = answerer->transceivers();
    ASSERT_EQ(ts.size(), 2u);
    EXPECT_EQ(ts[1]->mediaType(), RTCRtpMediaTypeVideo);
    EXPECT_EQ(ts[1]->mid(), "1");
    EXPECT_NE(answerer->remoteVideoTrack(), nullptr);
    EXPECT_EQ(answerer->signalingState(), RTCSignalingStateHaveRemoteOffer);

    // A failure reaches the completion with an error and changes no state.
    QXDErrorPtr answerError;
    answerer->answerForConstraints(nullptr, [&](auto sdp, auto e) {
        EXPECT_EQ(sdp, nullptr);
        answerError = e;
    });
    EXPECT_FALSE(answerer->completeCreateOffer());
    ASSERT_TRUE(answerer->failOperation(FakeRTCPeerConnection::Operation::CreateAnswer));
    ASSERT_NE(answerError, nullptr);
    EXPECT_EQ(answerError->domain(), kRTCErrorDomain);
    EXPECT_EQ(answererEvents->get(), (std::vector<std::string>{"signaling=3"}));
}

TEST_F(FakeRTCTest, CallbacksWaitForTheCallbackQueueAndStopAtClose) {
    auto queue = QXVCManualQueue::create("signaling");
    rtc.context()->setCallbackQueue(queue);
    offerer->emitIceCandidate(FakeRTCPeerConnection::hostCandidateLine());
    offerer->emitIceConnectionState(RTCIceConnectionStateDisconnected);
    offerer->emitIceConnectionState(RTCIceConnectionStateDisconnected);
    offerer->emitConnectionState(RTCPeerConnectionStateConnected);
    EXPECT_TRUE(offererEvents->get().empty());
    queue->runUntilIdle();
    EXPECT_EQ(offererEvents->get(),
              (std::vector<std::string>{"candidate=" + FakeRTCPeerConnection::hostCandidateLine(),
                                        "ice=5", "ice=5", "pc=2"}));

    offerer->emitIceConnectionState(RTCIceConnectionStateConnected);
    offerer->close();  // already-posted events are dropped too
    offerer->close();
    offerer->emitIceConnectionState(RTCIceConnectionStateFailed);
    queue->runUntilIdle();
    EXPECT_EQ(offererEvents->get().size(), 4u);
    EXPECT_EQ(offerer->closeCount(), 2u);
    EXPECT_EQ(offerer->iceConnectionState(), RTCIceConnectionStateClosed);
}

}  // namespace
