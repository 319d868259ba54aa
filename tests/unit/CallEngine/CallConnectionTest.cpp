// The connection-state machine and the relay-only candidate rule.
#include "unit/CallEngine/CallEngineFixture.h"

namespace {

/// A call as the system makes one, with a recording delegate.
std::pair<QXVCCallPtr, std::shared_ptr<RecordingCallDelegate>> bareCall(const char* id) {
    auto call = QXVCCall::initWithChannelUrl("channel-1", false, QXVCRoleCaller);
    call->setCallId(id);
    call->setState(QXVCStateConnecting);
    auto delegate = std::make_shared<RecordingCallDelegate>();
    call->setDelegate(delegate);
    return {call, delegate};
}

}  // namespace

TEST_F(CallEngineTest, CallOpensWhenBothStatesAreConnectedAndALossDropsItOnce) {
    auto [call, delegate] = bareCall("open");
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
    EXPECT_EQ(delegate->opens, 1);
    EXPECT_EQ(call->state(), QXVCStateOpened);
    EXPECT_TRUE(call->hasConnected());

    // A loss drops once; the return reopens without a second open.
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateDisconnected);
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateDisconnected);
    EXPECT_EQ(call->state(), QXVCStateDropped);
    EXPECT_EQ(delegate->drops, 1);
    EXPECT_TRUE(call->disconnected());
    // Failed changes nothing by itself.
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateFailed);
    EXPECT_EQ(call->state(), QXVCStateDropped);
    EXPECT_EQ(delegate->drops, 1);
    queue->advance(10);

    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateConnected);
    EXPECT_EQ(call->state(), QXVCStateOpened);
    EXPECT_EQ(delegate->reopens, 1);
    EXPECT_EQ(delegate->opens, 1);
    EXPECT_FALSE(call->disconnected());
    // The one reconnect timer was stopped: no end after its 20 s.
    queue->advance(30);
    EXPECT_TRUE(chat->sent().empty());

    // A second loss that does not come back ends the call after 20 s.
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateDisconnected);
    EXPECT_EQ(delegate->drops, 2);
    queue->advance(20.1);
    EXPECT_EQ(sentMessages(), std::vector<std::string>{"ENCA timeout"});
}

TEST_F(CallEngineTest, LossBeforeTheFirstOpeningIsReportedAsADrop) {
    auto [call, delegate] = bareCall("early");
    EXPECT_FALSE(call->disconnected());
    call->peerConnectionDidChangeIceConnectionState(nullptr, RTCIceConnectionStateDisconnected);
    EXPECT_EQ(call->state(), QXVCStateDropped);
    EXPECT_EQ(delegate->drops, 1);
    queue->runUntilIdle();
    EXPECT_TRUE(call->reconnectTimer());
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
    EXPECT_EQ(body.value("type", ""), "candidate");
    EXPECT_EQ(body.value("sdp", ""), FakeRTCPeerConnection::relayCandidateLine());

    chat->failSends(QXDError::errorWithDomain("chat", 3, std::nullopt));
    connection->emitIceCandidate(FakeRTCPeerConnection::relayCandidateLine(40000));
    // The end could not be sent either: the event carries no message, type Unknown.
    EXPECT_FALSE(QXVCMain::isCalling());
    EXPECT_TRUE(connection->isClosed());
    EXPECT_EQ(call->endType(), QXVCEndTypeUnknown);
    queue->runUntilIdle();
    EXPECT_EQ(events.back(), "didSendEndCall");
}
