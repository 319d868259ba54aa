// The connection-state machine and the relay-only candidate rule.
#include "unit/CallEngine/CallEngineFixture.h"

namespace {

std::vector<int> counts(const RecordingCallDelegate& d) {
    return {d.opens, d.drops, d.reopens};
}

}  // namespace

TEST_F(CallEngineTest, CallOpensWhenBothStatesAreConnectedAndALossDropsItOnce) {
    auto call = bareCall("open");
    call->setState(QXVCStateConnecting);
    auto delegate = std::make_shared<RecordingCallDelegate>();
    call->setDelegate(delegate);
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateConnected);
    call->peerConnectionDidChangeConnectionState(nullptr, RTCPeerConnectionStateConnecting);
    EXPECT_EQ(delegate->opens, 0);
    // Completed does not count as connected.
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateCompleted);
    call->peerConnectionDidChangeConnectionState(nullptr, RTCPeerConnectionStateConnected);
    EXPECT_EQ(delegate->opens, 0);
    EXPECT_EQ(call->state(), QXVCStateConnecting);
    // Whichever reports last opens the call.
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateConnected);
    EXPECT_EQ(counts(*delegate), (std::vector<int>{1, 0, 0}));
    EXPECT_EQ(call->state(), QXVCStateOpened);
    EXPECT_TRUE(call->hasConnected());

    // A loss drops once; the return reopens without a second open.
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateDisconnected);
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateDisconnected);
    EXPECT_TRUE(call->disconnected());
    // Failed changes nothing by itself.
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateFailed);
    EXPECT_EQ(call->state(), QXVCStateDropped);
    EXPECT_EQ(counts(*delegate), (std::vector<int>{1, 1, 0}));
    queue->advance(10);

    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateConnected);
    EXPECT_EQ(call->state(), QXVCStateOpened);
    EXPECT_EQ(counts(*delegate), (std::vector<int>{1, 1, 1}));
    EXPECT_FALSE(call->disconnected());
    // The one reconnect timer was stopped: no end after its 20 s.
    queue->advance(30);
    EXPECT_TRUE(chat->sent().empty());

    // A second loss that does not come back ends the call after 20 s.
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateDisconnected);
    EXPECT_EQ(delegate->drops, 2);
    queue->advance(20.1);
    EXPECT_EQ(sentMessages(), Strings{"ENCA timeout"});

    // A loss before the first opening is reported as a drop too.
    auto early = bareCall("early");
    early->setState(QXVCStateConnecting);
    early->setDelegate(delegate);
    early->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateDisconnected);
    EXPECT_EQ(early->state(), QXVCStateDropped);
    EXPECT_EQ(delegate->drops, 3);
    queue->runUntilIdle();
    EXPECT_TRUE(early->reconnectTimer());
}

TEST_F(CallEngineTest, OnlyRelayCandidatesLeaveTheDeviceAndALostOneEndsTheCall) {
    auto call = incomingCall();
    auto connection = acceptAndNegotiate(call);
    ASSERT_TRUE(connection);
    size_t before = chat->sent().size();
    connection->emitIceCandidate(FakeRTCPeerConnection::hostCandidateLine());
    connection->emitIceCandidate(FakeRTCPeerConnection::srflxCandidateLine());
    call->candidateCallWithIceCandidate(
        std::make_shared<RTCIceCandidate>(std::nullopt, 0, std::string("0")));
    EXPECT_EQ(chat->sent().size(), before);

    connection->emitIceCandidate(FakeRTCPeerConnection::relayCandidateLine());
    ASSERT_EQ(chat->sent().size(), before + 1);
    auto body = nlohmann::json::parse(chat->sent().back().data.substr(4), nullptr, false);
    EXPECT_EQ(body.value("sdp", ""), FakeRTCPeerConnection::relayCandidateLine());
    EXPECT_EQ(lastSent(), "SGNL candidate");

    chat->failSends(QXDError::errorWithDomain("chat", 3, std::nullopt));
    connection->emitIceCandidate(FakeRTCPeerConnection::relayCandidateLine(40000));
    // The end could not be sent either: the event carries no message, type Unknown.
    EXPECT_FALSE(QXVCMain::isCalling());
    EXPECT_TRUE(connection->isClosed());
    EXPECT_EQ(call->endType(), QXVCEndTypeUnknown);
    queue->runUntilIdle();
    EXPECT_EQ(events.back(), "didSendEndCall");
}
