// The coordinator's handling of call events: clearing calls, the side effects
// of an opening, and the hand-off to the application's delegates.
#include "VelmorinVideoChat/View/QXVCRemoteVideoView.h"
#include "unit/CallEngine/CallEngineFixture.h"

TEST_F(CallEngineTest, ClearingTheActiveCallTearsItDownAndFreesTheGate) {
    auto call = incomingCall();
    auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
    auto remoteView = QXVCRemoteVideoView::create();
    options->setRemoteVideoView(remoteView);
    auto connection = acceptAndNegotiate(call, options);
    ASSERT_TRUE(connection);
    auto remoteTrack = std::dynamic_pointer_cast<FakeRTCVideoTrack>(call->remoteVideoTrack());
    ASSERT_TRUE(remoteTrack);
    EXPECT_EQ(remoteTrack->renderers().size(), 1u);
    EXPECT_EQ(remoteView->delegate(), call);
    ASSERT_TRUE(capturer()->isCapturing());

    // A call that is not the active one only leaves the registry.
    auto other = incomingCall("call-2");
    QXVCMain::clearInstanceWithCall(other);
    QXVCMain::clearInstanceWithCall(nullptr);
    EXPECT_EQ(QXVCCallManager::get("call-2"), nullptr);
    EXPECT_EQ(QXVCCallManager::get("call-1"), call);
    EXPECT_TRUE(QXVCMain::isCalling());
    EXPECT_FALSE(connection->isClosed());

    QXVCMain::clearInstanceWithCall(call);
    EXPECT_TRUE(remoteTrack->renderers().empty());
    EXPECT_EQ(remoteView->delegate(), nullptr);
    EXPECT_TRUE(!call->remoteVideoTrack() && !call->localVideoTrack() && !call->peerConnection());
    EXPECT_FALSE(capturer()->isCapturing());
    EXPECT_EQ(connection->removedSenders().size(), 2u);
    EXPECT_TRUE(connection->isClosed());
    EXPECT_FALSE(QXVCMain::isCalling() || QXVCMain::getActiveCall());
    EXPECT_EQ(QXVCCallManager::get("call-1"), nullptr);
}

TEST_F(CallEngineTest, OpeningRoutesAudioByCallKindAndAnnouncedFlagThenTellsTheApplication) {
    auto session = platform->fakeAudioSession();
    const std::tuple<bool, bool, AVAudioSessionPortOverride> cases[] = {
        {true, false, AVAudioSessionPortOverrideNone},
        {false, true, AVAudioSessionPortOverrideSpeaker}};
    for (const auto& [audioCall, myAudio, route] : cases) {
        SCOPED_TRACE(audioCall);
        auto call = incomingCall(audioCall ? "audio" : "video", audioCall);
        auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
        options->setAudioEnabled(myAudio);
        auto connection = acceptAndNegotiate(call, options);
        ASSERT_TRUE(connection);
        call->invalidateOfferCallTimer();  // as the answer's arrival does
        call->createAnswerCallTimer();
        queue->runUntilIdle();
        events.clear();

        connection->emitConnected();
        ASSERT_FALSE(session->activeRequests().empty());
        EXPECT_EQ(session->activeRequests().back(), myAudio);
        EXPECT_TRUE(events.empty());  // never inline
        queue->runUntilIdle();
        ASSERT_FALSE(session->portOverrides().empty());
        EXPECT_EQ(session->portOverrides().back().first, route);
        EXPECT_EQ(events, Strings{"didOpenCall"});
        // The answer timer was stopped by the opening.
        size_t sent = chat->sent().size();
        queue->advance(25);
        EXPECT_EQ(chat->sent().size(), sent);

        // A reopening repeats none of the side effects.
        size_t requests = session->activeRequests().size();
        connection->emitIceConnectionState(RTCIceConnectionStateDisconnected);
        connection->emitIceConnectionState(RTCIceConnectionStateConnected);
        queue->runUntilIdle();
        EXPECT_EQ(session->activeRequests().size(), requests);
        EXPECT_EQ(events, (Strings{"didOpenCall", "didDropCall", "didReopenCall"}));
        QXVCMain::clearInstanceWithCall(call);
    }
}

TEST_F(CallEngineTest, VideoSizeReachesTheOneWeakVideoViewDelegateThroughTheCall) {
    auto call = incomingCall();
    // The video size goes to the one video-view delegate, and nowhere without one.
    auto view = QXVCRemoteVideoView::create();
    QXVCMain::sharedInstance()->getDelegate()->remoteVideoView(view, {640, 480});
    EXPECT_EQ(queue->runUntilIdle(), 0u);
    std::vector<CGSize> sizes;
    auto replaced = std::make_shared<QXVCVideoViewDelegate>();
    auto viewDelegate = std::make_shared<QXVCVideoViewDelegate>();
    viewDelegate->remoteVideoView = [&](const std::shared_ptr<QXVCRemoteVideoView>& v, CGSize s) {
        EXPECT_EQ(v, view);
        sizes.push_back(s);
    };
    QXVCMain::setVideoViewDelegate(replaced);
    QXVCMain::setVideoViewDelegate(viewDelegate);
    // Through the call: the remote view reports a new size to the call.
    auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
    options->setRemoteVideoView(view);
    call->setOptions(options);
    call->viewIsReady();
    view->setSize({1280, 720});
    EXPECT_TRUE(sizes.empty());  // never inline
    queue->runUntilIdle();
    EXPECT_EQ(sizes, (std::vector<CGSize>{{1280, 720}}));

    QXVCMain::removeVideoViewDelegate();
    EXPECT_EQ(QXVCMain::getVideoViewDelegate(), nullptr);
    QXVCMain::setVideoViewDelegate(viewDelegate);
    viewDelegate.reset();  // weak: gone with the application's reference
    EXPECT_EQ(QXVCMain::getVideoViewDelegate(), nullptr);
}
