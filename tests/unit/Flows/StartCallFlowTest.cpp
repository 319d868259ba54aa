// Placing a call: the checks, the service's echo, both failure modes and the
// start-call timeout.
#include "FlowFixture.h"

TEST_F(FlowTest, StartIsSentAndTheEchoCompletesTheCallBeforeTheDelegatesHear) {
    aliceStarts(kPrivate, /*audioOnly=*/true);
    EXPECT_TRUE(QXVCMain::isCalling()) << "the gate closes before the lookup";
    run();
    EXPECT_EQ(events, (Strings{"ok", "didSendStartCall"}));
    auto call = QXVCMain::getActiveCall();
    ASSERT_TRUE(call);
    EXPECT_EQ(eventCalls.back(), call);
    EXPECT_EQ(call->callId().size(), 36u);
    EXPECT_EQ(QXVCMain::getCallWithCallId(call->callId()), call);
    EXPECT_EQ(call->myRole(), QXVCRoleCaller);
    EXPECT_TRUE(call->isAudioCall());
    EXPECT_EQ(call->caller()->userId() + ">" + call->callee()->userId(), "alice>bob");
    EXPECT_THAT(turnUsername(call), ::testing::EndsWith(":alice"));
    EXPECT_EQ(receivedBy(), Strings{"STCA start"});
}

TEST_F(FlowTest, StartChecksRefuseWithoutSideEffects) {
    QXDMain::setChatClient(nullptr);
    aliceStarts();
    QXDMain::setChatClient(chat);
    aliceStarts(kThree);
    aliceStarts();  // still looking the channel up: the gate is already closed
    run();
    aliceStarts(kPublic);
    run();
    aliceStarts("nowhere");
    run();
    QXVCMain::startCallWithAudioOnly(false, nullptr, recordInto(events));
    run();
    EXPECT_EQ(events,
              (Strings{"820100 Velmorin connection is required.",
                       "820200 Invalid action. (Another call cannot be started while an active "
                       "call is in progress.)",
                       "820401 The channel is not suitable.", "820401 The channel is not suitable.",
                       "400201 Channel not found.", "400201 Channel not found."}));
    EXPECT_FALSE(QXVCMain::isCalling());
    EXPECT_EQ(QXVCMain::getActiveCall(), nullptr);
    EXPECT_TRUE(receivedBy().empty());
}

TEST_F(FlowTest, FailedSendReportsTheClientsErrorAndOpensTheGate) {
    // Manual mode: even the service's refusal goes to the handler as it stands.
    std::string bobsCall = startFrom("bob");
    QXDErrorPtr refused;
    QXVCMain::startCallWithAudioOnly(false, QXVCCallOptions::initWithChannelUrl(kPrivate),
                                     [&](QXDErrorPtr error) { refused = error; });
    run();
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->domain() + " " + std::to_string(refused->code()),
              "QXDErrorDomain CALL_ID:" + bobsCall + " 900600");
    EXPECT_TRUE(logged("[QXVC] Start call error in manual accept mode:"));
    EXPECT_FALSE(QXVCMain::isCalling() || QXVCMain::getActiveCall());

    // Auto mode, another error: reported as it stands too.
    QXVCMain::setAutoAcceptSimultaneousStartCall(true);
    chat->failSends(nullptr);
    events.clear();
    aliceStarts(kWithCarol);
    run();
    EXPECT_EQ(events, Strings{"800220 The request failed."});
    EXPECT_TRUE(logged("[QXVC] Start call error in auto accept mode:"));
    EXPECT_FALSE(QXVCMain::isCalling());
    queue->advance(60);
    EXPECT_TRUE(receivedBy("carol").empty()) << "the dropped call's timer was stopped";
}

TEST_F(FlowTest, RefusalNamingTheOtherCallBadlyIsNeverReported) {
    QXVCMain::setAutoAcceptSimultaneousStartCall(true);
    const std::string id(36, 'a');
    for (const std::string& domain :
         {"CALL_ID:" + id + " CALL_ID:" + id, std::string("QXDErrorDomain")}) {
        chat->failSends(QXDError::errorWithDomain(domain, 900600, {}));
        aliceStarts();
        run();
    }
    queue->advance(1);
    EXPECT_TRUE(events.empty());
    EXPECT_FALSE(QXVCMain::isCalling());

    // Once, followed by more text: only the 36 characters name the call.
    chat->failSends(
        QXDError::errorWithDomain("QXDErrorDomain CALL_ID:" + id + " and more", 900600, {}));
    aliceStarts();
    run();
    EXPECT_TRUE(QXVCAutoAcceptManager::recordForCallId(id));
    queue->advance(QXVCAutoAcceptData::kPairingWindow);
    EXPECT_EQ(events, Strings{"900600"});
}
