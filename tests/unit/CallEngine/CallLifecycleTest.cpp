// Accept, end and the timers of one call, on the fake engine and the manual
// queue's virtual clock.
#include <atomic>
#include <latch>
#include <thread>

#include "unit/CallEngine/CallEngineFixture.h"

TEST_F(CallEngineTest, AcceptChecksFailInOrderWithTheirErrorsAndChangeNothing) {
    auto call = incomingCall();
    auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
    const std::tuple<bool, QXVCRole, QXVCCallOptionsPtr, const char*> cases[] = {
        // The active-call check comes first, even for a caller.
        {true, QXVCRoleCaller, options,
         "Invalid action. (Another call cannot be accepted while an active call is in progress.)"},
        {false, QXVCRoleCaller, options,
         "Invalid action. (Only callees (call recipients) can accept calls.)"},
        {false, QXVCRoleCallee, nullptr, "Invalid parameter. (The options cannot be nil.)"},
        {false, QXVCRoleCallee, QXVCCallOptions::initWithChannelUrl(std::nullopt),
         "Invalid parameter. (The channelUrl of the options must have the string object.)"},
    };
    for (const auto& [calling, role, opts, description] : cases) {
        SCOPED_TRACE(description);
        QXVCMain::setCalling(calling);
        call->setMyRole(role);
        Strings heard;
        call->acceptWithOptions(opts, recordInto(heard));
        EXPECT_TRUE(heard.empty());  // posted, never inline
        queue->runUntilIdle();
        EXPECT_EQ(heard, Strings{std::string("820200 ") + description});
        call->acceptWithOptions(opts, nullptr);  // a silent failure without a handler
        EXPECT_EQ(queue->pendingCount(), 0u);
    }
    EXPECT_FALSE(QXVCMain::getActiveCall() || call->peerConnection() || call->options());
    EXPECT_TRUE(chat->sent().empty());
}

TEST_F(CallEngineTest, TwoAcceptsAtOnceFromTwoThreadsLetExactlyOneThrough) {
    auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        const QXVCCallPtr calls[] = {incomingCall("one-" + std::to_string(round)),
                                     incomingCall("two-" + std::to_string(round))};
        std::atomic<int> refused{0};
        std::latch together(2);
        auto accept = [&](const QXVCCallPtr& call) {
            together.arrive_and_wait();
            call->acceptWithOptions(options, [&refused](QXDErrorPtr error) {
                refused += error && error->code() == QXVCErrorInvalidAction ? 1 : 0;
            });
        };
        std::thread first(accept, calls[0]);
        std::thread second(accept, calls[1]);
        first.join();
        second.join();
        queue->runUntilIdle();
        ASSERT_EQ(refused.load(), 1);
        const auto winner = QXVCMain::getActiveCall();
        const auto& loser = winner == calls[0] ? calls[1] : calls[0];
        ASSERT_TRUE(winner == calls[0] || winner == calls[1]);
        EXPECT_EQ(std::tuple(winner->options(), loser->options()),
                  std::tuple(options, QXVCCallOptionsPtr()));
        QXVCMain::clearInstanceWithCall(winner);
        ASSERT_FALSE(QXVCMain::isCalling());
    }
}

TEST_F(CallEngineTest, AcceptWithReadyViewsSendsARelayOnlyOfferAndReportsIt) {
    auto call = incomingCall();
    auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
    options->setVideoEnabled(false);
    options->setDefaultCameraPosition(QXVCCameraPositionBack);
    Strings heard;
    call->viewIsReady();
    call->acceptWithOptions(options, recordInto(heard));

    EXPECT_EQ(QXVCMain::getActiveCall(), call);
    EXPECT_EQ(std::tuple(call->state(), call->currentPosition()),
              std::tuple(QXVCStateConnecting, QXVCCameraPositionBack));
    auto connection = fakeConnection(call);
    ASSERT_TRUE(connection);
    auto config = connection->configuration();
    ASSERT_TRUE(config->certificate() && config->iceServers());
    EXPECT_EQ(std::tuple(config->iceTransportPolicy(), config->sdpSemantics(),
                         config->certificate()->expires(), config->iceServers()->at(0)->username()),
              std::tuple(RTCIceTransportPolicyRelay, RTCSdpSemanticsUnifiedPlan, 100000, "user"));
    EXPECT_EQ(connection->creationConstraints()->valueForKey("DtlsSrtpKeyAgreement"), "true");
    EXPECT_TRUE(
        platform->context()->contains(connection->name() + ".addTrack(video:ARDAMSv0,[ARDAMS])"));

    connection->completeAll();
    queue->runUntilIdle();
    // The offer is built from the callee's own flags, taken from the options.
    ASSERT_EQ(connection->offerConstraints().size(), 1u);
    EXPECT_EQ(connection->offerConstraints()[0]->mandatoryConstraints(),
              (RTCConstraintsMap{{"OfferToReceiveAudio", "true"},
                                 {"OfferToReceiveVideo", "false"},
                                 {"echoCancellation", "true"},
                                 {"googEchoCancellation", "true"}}));
    EXPECT_EQ(sentMessages(), Strings{"SGNL offer"});
    EXPECT_EQ(heard, Strings{"ok"});
    EXPECT_EQ(events, Strings{"didSendAcceptCall"});

    // The bitrate cap reaches the video sender only; 0 changes nothing.
    auto videoSender =
        std::dynamic_pointer_cast<FakeRTCRtpSender>(call->localVideoTrackRtpSender());
    auto audioSender = std::dynamic_pointer_cast<FakeRTCRtpSender>(call->audioTrackRtpSender());
    ASSERT_TRUE(videoSender && audioSender);
    EXPECT_TRUE(audioSender->setParametersCalls().empty());
    EXPECT_EQ(videoSender->parameters().encodings.at(0).maxBitrateBps, 20971520);
    const size_t calls = videoSender->setParametersCalls().size();
    call->setMaxBitrate(0, videoSender);
    EXPECT_EQ(videoSender->setParametersCalls().size(), calls);

    // The answer never comes: the offer timer ends the call after 20 s.
    queue->advance(19.9);
    EXPECT_EQ(sentMessages().size(), 1u);
    queue->advance(0.2);
    EXPECT_EQ(lastSent(), "ENCA timeout");
    EXPECT_EQ(call->endType(), QXVCEndTypeTimeout);
    EXPECT_FALSE(QXVCMain::isCalling());
    EXPECT_TRUE(connection->isClosed());
}

TEST_F(CallEngineTest, AcceptFailuresEndTheCallWithTheUnknownType) {
    using Op = FakeRTCPeerConnection::Operation;
    for (Op failing : {Op::CreateOffer, Op::SetLocalDescription}) {
        auto call = incomingCall("call-" + std::to_string(static_cast<int>(failing)));
        Strings heard;
        call->viewIsReady();
        call->acceptWithOptions(QXVCCallOptions::initWithChannelUrl(kChannel), recordInto(heard));
        auto connection = fakeConnection(call);
        ASSERT_TRUE(connection);
        if (failing == Op::SetLocalDescription) {
            connection->completeCreateOffer();
        }
        connection->failOperation(failing);
        queue->runUntilIdle();
        EXPECT_EQ(lastSent(), "ENCA unknown");
        EXPECT_EQ(heard, Strings{"820300 Cannot accept call."});
        EXPECT_FALSE(QXVCMain::isCalling());
    }

    // The offer cannot be sent: the chat client's own error reaches the handler.
    auto call = incomingCall("call-send");
    Strings heard;
    call->viewIsReady();
    call->acceptWithOptions(QXVCCallOptions::initWithChannelUrl(kChannel), recordInto(heard));
    chat->failSends(QXDError::errorWithDomain("chat", 42, std::nullopt));
    fakeConnection(call)->completeAll();
    queue->runUntilIdle();
    EXPECT_EQ(heard, Strings{"42"});
    queue->advance(30);  // the offer timer was stopped
    EXPECT_EQ(count("didSendAcceptCall"), 0);
}

TEST_F(CallEngineTest, AcceptBeforeTheViewsAreReadyOnlyTellsTheApplication) {
    auto call = incomingCall();
    Strings heard;
    call->acceptWithOptions(QXVCCallOptions::initWithChannelUrl(kChannel), recordInto(heard));
    EXPECT_EQ(QXVCMain::getActiveCall(), call);
    EXPECT_EQ(call->state(), QXVCStateConnecting);
    queue->advance(0.2);
    EXPECT_TRUE(events.empty());
    queue->advance(0.1);
    EXPECT_EQ(events, Strings{"didReceiveAcceptCall"});
    queue->advance(60);
    // The parked accept goes no further: no offer, and the handler is never called.
    EXPECT_EQ(call->peerConnection(), nullptr);
    EXPECT_TRUE(chat->sent().empty());
    EXPECT_TRUE(heard.empty());
}

TEST_F(CallEngineTest, EndTypeFollowsStateAndRole) {
    const std::tuple<QXVCState, QXVCRole, const char*, QXVCEndType> cases[] = {
        {QXVCStateOpened, QXVCRoleCaller, "ENCA end", QXVCEndTypeEnd},
        {QXVCStateConnecting, QXVCRoleCaller, "ENCA cancel", QXVCEndTypeCancel},
        {QXVCStateConnecting, QXVCRoleCallee, "ENCA decline", QXVCEndTypeDecline},
        {QXVCStateConnecting, QXVCRoleNone, "ENCA unknown", QXVCEndTypeUnknown},
        {QXVCStateDropped, QXVCRoleCallee, "ENCA unknown", QXVCEndTypeUnknown},
        {QXVCStateNone, QXVCRoleCaller, "ENCA unknown", QXVCEndTypeUnknown},
        {QXVCStateClosed, QXVCRoleCallee, "ENCA unknown", QXVCEndTypeUnknown},
    };
    int n = 0;
    for (const auto& [state, role, sent, stored] : cases) {
        SCOPED_TRACE(sent + std::string(" #") + std::to_string(n));
        auto call = bareCall("end-" + std::to_string(n++), role);
        call->setState(state);
        auto delegate = std::make_shared<RecordingCallDelegate>();
        call->setDelegate(delegate);
        Strings heard;
        call->endWithCompletionHandler(recordInto(heard));
        queue->runUntilIdle();
        EXPECT_EQ(lastSent(), sent);
        EXPECT_EQ(call->endType(), stored);
        EXPECT_EQ(call->state(), state);  // ending does not move the state
        EXPECT_EQ(heard, Strings{"ok"});
        ASSERT_EQ(delegate->ends.size(), 1u);
        EXPECT_TRUE(delegate->ends[0]);
    }
    // No state check: ending an ended call sends another end.
    size_t before = chat->sent().size();
    auto call = bareCall("twice");
    call->endWithCompletionHandler(nullptr);
    call->endWithCompletionHandler(nullptr);
    EXPECT_EQ(chat->sent().size(), before + 2);

    // A failed send reaches the handler and raises no event.
    auto failing = bareCall("failing");
    auto delegate = std::make_shared<RecordingCallDelegate>();
    failing->setDelegate(delegate);
    chat->failSends(QXDError::errorWithDomain("chat", 7, std::nullopt));
    Strings heard;
    failing->endWithCompletionHandler(recordInto(heard));
    queue->runUntilIdle();
    EXPECT_EQ(heard, Strings{"7"});
    EXPECT_TRUE(delegate->ends.empty());
}

TEST_F(CallEngineTest, InternalEndRecordsTheEndTypeOnlyTogetherWithTheEvent) {
    auto call = bareCall("internal");
    auto delegate = std::make_shared<RecordingCallDelegate>();
    call->setDelegate(delegate);

    // A delegate that does not handle the event: sent, but the end type stays.
    delegate->ignored = QXVCCallDelegate::Event::DidSendEndCall;
    call->endCallTimeoutType();
    EXPECT_EQ(lastSent(), "ENCA timeout");
    EXPECT_EQ(call->endType(), QXVCEndTypeNone);
    EXPECT_TRUE(delegate->ends.empty());

    delegate->ignored.reset();
    call->endCallTimeoutType();
    EXPECT_EQ(call->endType(), QXVCEndTypeTimeout);
    ASSERT_EQ(delegate->ends.size(), 1u);
    EXPECT_TRUE(delegate->ends[0]);

    // The send fails: the event still comes, without a message, as Unknown.
    chat->failSends(QXDError::errorWithDomain("chat", 1, std::nullopt));
    call->endCallTimeoutType();
    ASSERT_EQ(delegate->ends.size(), 2u);
    EXPECT_EQ(delegate->ends[1], nullptr);
    EXPECT_EQ(call->endType(), QXVCEndTypeUnknown);
}

TEST_F(CallEngineTest, EveryTimerEndsTheCallWithTheTimeoutTypeUnlessStopped) {
    QXVCMain::setStartCallTimeout(45);
    using Method = void (QXVCCall::*)();
    const std::tuple<const char*, Method, Method, double> timers[] = {
        {"start", &QXVCCall::createStartCallTimer, &QXVCCall::invalidateStartCallTimer, 45},
        {"offer", &QXVCCall::createOfferCallTimer, &QXVCCall::invalidateOfferCallTimer, 20},
        {"answer", &QXVCCall::createAnswerCallTimer, &QXVCCall::invalidateAnswerCallTimer, 20},
        {"reconnect", &QXVCCall::createReconnectTimer, &QXVCCall::invalidateReconnectTimer, 20},
    };
    for (const auto& [name, create, invalidate, interval] : timers) {
        SCOPED_TRACE(name);
        auto call = bareCall(std::string("timer-") + name);
        ((*call).*create)();
        size_t before = chat->sent().size();
        queue->advance(interval - 0.1);
        EXPECT_EQ(chat->sent().size(), before);
        queue->advance(0.2);
        EXPECT_EQ(lastSent(), "ENCA timeout");

        // Stopped before its expiry: nothing is sent.
        ((*call).*create)();
        ((*call).*invalidate)();
        before = chat->sent().size();
        queue->advance(interval + 1);
        EXPECT_EQ(chat->sent().size(), before);
    }
}

TEST_F(CallEngineTest, TimersOutliveAnEndAndAreNotReplacedByASecondCreate) {
    auto call = bareCall("kept", QXVCRoleCallee);
    call->setState(QXVCStateConnecting);
    auto delegate = std::make_shared<RecordingCallDelegate>();
    call->setDelegate(delegate);
    call->createOfferCallTimer();
    call->createOfferCallTimer();
    queue->runUntilIdle();
    call->endWithCompletionHandler(nullptr);
    std::weak_ptr<QXVCCall> weak = call;
    call.reset();
    queue->advance(21);
    // The end, then one further timeout end from each timer.
    EXPECT_EQ(sentMessages(), (Strings{"ENCA decline", "ENCA timeout", "ENCA timeout"}));
    EXPECT_EQ(delegate->ends.size(), 3u);
    EXPECT_TRUE(weak.expired());  // fired timers let the call go
}
