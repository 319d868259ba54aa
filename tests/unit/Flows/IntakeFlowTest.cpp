// Incoming call messages: de-duplication, the incoming start, the offer at the
// caller, answers, candidates, updates and ends for active and other calls.
#include "FlowFixture.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"

TEST_F(FlowTest, IncomingStartBecomesARegisteredCalleeCallAndReachesTheDelegatesOnce) {
    chat->duplicateDeliveries(2);
    std::string callId = startFrom("bob");
    ASSERT_FALSE(callId.empty());
    EXPECT_TRUE(events.empty()) << "nothing runs before the queue does";
    run();

    ASSERT_EQ(events, Strings{"didReceiveStartCall"});
    auto call = eventCalls[0];
    EXPECT_EQ(call, QXVCMain::getCallWithCallId(callId));
    EXPECT_EQ(std::tuple(call->myRole(), call->state()),
              std::tuple(QXVCRoleCallee, QXVCStateConnecting));
    EXPECT_EQ(call->caller()->userId() + " in " + call->channelUrl(), "bob in alice-bob");
    EXPECT_THAT(turnUsername(call), ::testing::EndsWith(":alice")) << "the callee's own";
    EXPECT_EQ(QXVCMain::getActiveCall(), nullptr) << "an incoming call owns nothing yet";
    EXPECT_TRUE(logged("[QXVC] The call message is duplicated."));
}

TEST_F(FlowTest, TheLatestThousandDistinctIdsAreKept) {
    for (int64_t id = 1; id <= 1000; ++id) {
        ASSERT_FALSE(QXVCMain::isProcessedMessage(id));
    }
    // 1001 evicts 1, which is new again and evicts 2.
    std::vector<bool> seen;
    for (int64_t id : {1, 1000, 1001, 1, 2, 4}) {
        seen.push_back(QXVCMain::isProcessedMessage(id));
    }
    EXPECT_EQ(seen, (std::vector<bool>{true, true, false, false, false, true}));
}

TEST_F(FlowTest, OwnStartComingBackAndRepeatedStartOfAKnownCall) {
    auto deliver = [](const std::string& data, int64_t id) {
        return QXVCMain::sharedInstance()->handleCallMessage(
            QXVCMessageParser::parseMessageData(data, id), id, kPrivate);
    };
    // Alice's own start, as another device of hers would deliver it.
    EXPECT_TRUE(deliver(R"(STCA{"call_id":"own-1","type":"start","caller":{"user_id":"alice"},)"
                        R"("callee":{"user_id":"bob"}})",
                        900));
    run();
    EXPECT_EQ(QXVCMain::getCallWithCallId("own-1"), nullptr);
    EXPECT_TRUE(events.empty());

    // The same call id under a new message id: a new call replaces the first.
    const std::string theirs = R"(STCA{"call_id":"c-2","type":"start","caller":{"user_id":"bob"}})";
    deliver(theirs, 901);
    auto first = QXVCMain::getCallWithCallId("c-2");
    deliver(theirs, 902);
    run();
    EXPECT_EQ(count("didReceiveStartCall"), 2);
    EXPECT_NE(QXVCMain::getCallWithCallId("c-2"), first);
}

TEST_F(FlowTest, OfferBeforeTheViewsAreReadyWaitsAQuarterSecondThenAnswers) {
    aliceStarts();
    run();
    auto call = QXVCMain::getActiveCall();
    ASSERT_TRUE(call && call->startCallTimer());

    sendOffer(call->callId());
    run();
    EXPECT_EQ(call->startCallTimer(), nullptr) << "the callee accepted: no start timeout";
    EXPECT_EQ(count("didReceiveAcceptCall"), 0);
    EXPECT_TRUE(logged("[QXVC] Waits for the preparation of the view"));

    queue->advance(QXVCCall::kViewPreparationDelay);
    lastConnection()->completeAll();
    run();
    EXPECT_EQ(count("didReceiveAcceptCall"), 1);
    EXPECT_EQ(receivedBy().back(), "SGNL answer");
}

TEST_F(FlowTest, OfferWithReadyViewsIsAnsweredAtOnceButOnlyByTheActiveCall) {
    aliceStarts();
    run();
    auto call = QXVCMain::getActiveCall();
    ASSERT_TRUE(call);
    call->viewIsReady();
    sendOffer(call->callId());
    run();
    lastConnection()->completeAll();
    run();
    EXPECT_EQ(count("didReceiveAcceptCall"), 1);
    EXPECT_EQ(receivedBy().back(), "SGNL answer");
    auto remote = lastConnection()->remoteDescriptionsSet();
    ASSERT_EQ(remote.size(), 1u);
    EXPECT_EQ(remote[0]->sdp(), "v=0\r\nm=video\r\n") << "the offer's SDP, decompressed";

    // Carol's call is known but owns nothing: accepted is reported, no answer.
    std::string carolsCall = startFrom("carol", kWithCarol);
    run();
    QXVCMain::getCallWithCallId(carolsCall)->viewIsReady();
    size_t connections = platform->peerConnections().size();
    sendSignal(carolsCall, "offer", {{"sdp", ""}}, "carol", kWithCarol);
    run();
    EXPECT_EQ(count("didReceiveAcceptCall"), 2);
    EXPECT_EQ(platform->peerConnections().size(), connections);
    EXPECT_TRUE(receivedBy("carol").empty());
}

TEST_F(FlowTest, AnswerCandidatesAndUpdatesReachOnlyTheActiveCall) {
    std::string callId = startFrom("bob");
    std::string carolsCall = startFrom("carol", kWithCarol);
    run();
    auto call = acceptIncoming(callId);
    ASSERT_EQ(receivedBy().back(), "SGNL offer");
    auto connection = lastConnection();
    ASSERT_TRUE(call->offerTimer());

    sendSignal(callId, "answer", {{"sdp", QXVCUtils::compressString(std::string("v=0 answer"))}});
    sendSignal(callId, "candidate",
               {{"sdp", "candidate:1 1 udp 2 127.0.0.1 5000 typ relay"},
                {"sdp_mid", "0"},
                {"sdp_mline_index", 0}});
    sendSignal(callId, "audio", {{"is_enabled", false}});
    sendSignal(callId, "video", {{"is_enabled", false}});
    // The same for carol's call, which is not the active one.
    sendSignal(carolsCall, "candidate", {{"sdp", "candidate:2 1 udp 2 127.0.0.1 6000 typ relay"}},
               "carol", kWithCarol);
    sendSignal(carolsCall, "audio", {{"is_enabled", false}}, "carol", kWithCarol);
    // And for a call nobody knows.
    sendSignal("no-such-call", "answer", {{"sdp", ""}});
    run();
    connection->completeAll();
    run();

    EXPECT_EQ(call->offerTimer(), nullptr);
    const auto remote = connection->remoteDescriptionsSet();
    ASSERT_EQ(remote.size(), 1u);
    EXPECT_EQ(std::tuple(remote[0]->type(), remote[0]->sdp()),
              std::tuple(RTCSdpTypeAnswer, std::string("v=0 answer")));
    ASSERT_EQ(connection->addedCandidates().size(), 1u);
    EXPECT_EQ(connection->addedCandidates()[0]->sdp(),
              "candidate:1 1 udp 2 127.0.0.1 5000 typ relay");
    // Bob is the caller here, so the caller's flags change.
    EXPECT_FALSE(call->caller()->isAudioEnabled() || call->caller()->isVideoEnabled());
    EXPECT_EQ(count("didOpponentAudioStateChange") + count("didOpponentVideoStateChange"), 2);
    EXPECT_TRUE(QXVCMain::getCallWithCallId(carolsCall)->caller()->isAudioEnabled());
}

TEST_F(FlowTest, AnswerThatCannotBeAppliedEndsTheCallWithTheUnknownType) {
    std::string callId = startFrom("bob");
    run();
    acceptIncoming(callId);
    sendSignal(callId, "answer", {{"sdp", QXVCUtils::compressString(std::string("bad"))}});
    run();
    ASSERT_TRUE(
        lastConnection()->failOperation(FakeRTCPeerConnection::Operation::SetRemoteDescription));
    run();
    EXPECT_EQ(receivedBy().back(), "ENCA unknown");
}

TEST_F(FlowTest, EndOfTheActiveCallClearsItAndEndOfAnUnknownCallIsStillReported) {
    std::string callId = startFrom("bob");
    run();
    auto call = acceptIncoming(callId);
    ASSERT_TRUE(QXVCMain::isCalling());
    sendEnd(callId, "end");
    run();
    EXPECT_EQ(events.back(), "didReceiveEndCall");
    EXPECT_EQ(eventCalls.back(), call);
    EXPECT_EQ(call->endType(), QXVCEndTypeEnd);
    EXPECT_EQ(call->enderId().value_or(""), "bob");  // the service's enrichment
    EXPECT_FALSE(QXVCMain::isCalling());
    EXPECT_TRUE(lastConnection()->isClosed());

    // A call this device never saw start.
    events.clear();
    sendEnd("never-seen", "timeout");
    run();
    ASSERT_EQ(events, Strings{"didReceiveEndCall"});
    const auto& ended = eventCalls.back();
    EXPECT_EQ(std::tuple(ended->callId(), ended->state(), ended->endType()),
              std::tuple(std::string("never-seen"), QXVCStateClosed, QXVCEndTypeTimeout));
    EXPECT_EQ(QXVCMain::getCallWithCallId("never-seen"), nullptr) << "registered, then cleared";
}

TEST_F(FlowTest, RenderingTypeOfChatAndCallMessages) {
    std::string callId = startFrom("bob");
    auto offer = sendOffer(callId);
    auto end = sendEnd(callId, "cancel");
    auto start = service->messages("alice", kPrivate).value.front();
    auto plain = std::make_shared<QXDUserMessage>(1, kPrivate, "hi", "", "", nullptr);
    auto startAsChat =
        std::make_shared<QXDUserMessage>(2, kPrivate, "hi", "CHAT", start->data(), nullptr);
    EXPECT_EQ(offer->customType(), "QX_VIDEOCHAT_" + callId);
    std::vector<QXVCRenderingMessageType> types;
    for (const auto& message :
         std::vector<QXDBaseMessagePtr>{start, end, offer, plain, startAsChat, nullptr}) {
        types.push_back(QXVCMain::getRenderingMessageType(message));
    }
    EXPECT_EQ(types, (std::vector{QXVCRenderingMessageTypeStart, QXVCRenderingMessageTypeEnd,
                                  QXVCRenderingMessageTypeNotRender, QXVCRenderingMessageTypeChat,
                                  QXVCRenderingMessageTypeChat, QXVCRenderingMessageTypeChat}));
    // Nothing was recorded: the messages still count as new for the intake.
    EXPECT_FALSE(QXVCMain::isProcessedMessage(start->messageId()));
}
