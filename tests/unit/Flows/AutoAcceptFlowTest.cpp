// Two users starting a call to each other at once, with auto-accept on: the
// refusal of alice's start and bob's start pair up into one call.
#include "FlowFixture.h"

class AutoAcceptTest : public FlowTest {
  protected:
    /// What alice's handler hears when the service refuses her start.
    static constexpr const char* kRefused =
        "900600 A start call is already in progress in this channel.";

    void SetUp() override {
        FlowTest::SetUp();
        QXVCMain::setAutoAcceptSimultaneousStartCall(true);
        // The application shows its views as soon as it hears of a call.
        app->didReceiveStartCall = [this](const QXVCCallPtr& call) {
            events.push_back("didReceiveStartCall");
            eventCalls.push_back(call);
            call->viewIsReady();
        };
    }
};

TEST_F(AutoAcceptTest, RefusalThenStartAcceptsTheIncomingCallWithTheRefusedOptions) {
    chat->holdDeliveries();
    std::string bobsCall = startFrom("bob");
    aliceStarts();
    run();  // refused: the refusal waits for bob's start
    EXPECT_TRUE(events.empty());
    queue->advance(0.1);
    chat->releaseHeldDeliveries();
    run();
    lastConnection()->completeAll();
    run();

    EXPECT_EQ(events, (Strings{kRefused, "didReceiveStartCall", "didSendAcceptCall"}));
    auto call = QXVCMain::getActiveCall();
    ASSERT_TRUE(call);
    EXPECT_EQ(std::tuple(call->callId(), call->operationMode()),
              std::tuple(bobsCall, QXVCOperationModeAutoAcceptSimultaneousStartCall));
    EXPECT_EQ(receivedBy(), Strings{"SGNL offer"}) << "accepted: offer sent";
    EXPECT_FALSE(QXVCAutoAcceptManager::recordForCallId(bobsCall) ||
                 QXVCAutoAcceptManager::recordForChannelUrl(kPrivate))
        << "settled pair";
    EXPECT_TRUE(logged("[QXVC] Auto-accept after receiving start call."));
    queue->advance(1);
    EXPECT_EQ(count(kRefused), 1) << "the handler is called once";
}

TEST_F(AutoAcceptTest, StartThenRefusalAcceptsAtOnceAndLeavesTheViewsToTheApplication) {
    std::string bobsCall = startFrom("bob");
    aliceStarts();
    run();
    EXPECT_EQ(events, Strings{kRefused});
    auto call = QXVCMain::getCallWithCallId(bobsCall);
    ASSERT_TRUE(call);
    EXPECT_EQ(QXVCMain::getActiveCall(), call) << "accepted before anyone heard of it";
    EXPECT_EQ(call->operationMode(), QXVCOperationModeAutoAcceptSimultaneousStartCall);
    EXPECT_TRUE(logged("[QXVC] Auto-accept after receiving error of start call."));
    EXPECT_FALSE(call->getReadyToProceed()) << "the views are the application's to declare";

    queue->advance(QXVCAutoAcceptData::kPairingWindow);
    EXPECT_EQ(count("didReceiveStartCall"), 1);
    EXPECT_TRUE(QXVCAutoAcceptManager::recordForCallId(bobsCall)->finished());
    // The accept came before the views were declared: it goes no further.
    EXPECT_TRUE(receivedBy().empty());
}

TEST_F(AutoAcceptTest, StartThenRefusalSendsTheOfferWhenTheViewsWereDeclaredBefore) {
    std::string bobsCall = startFrom("bob");
    run();
    QXVCMain::getCallWithCallId(bobsCall)->viewIsReady();
    aliceStarts();
    run();
    lastConnection()->completeAll();
    run();
    EXPECT_EQ(receivedBy(), Strings{"SGNL offer"});
}

TEST_F(AutoAcceptTest, DisagreeingCallKindsEndTheIncomingCall) {
    chat->holdDeliveries();
    startFrom("bob", kPrivate, /*audioOnly=*/false);
    aliceStarts(kPrivate, /*audioOnly=*/true);
    run();
    chat->releaseHeldDeliveries();
    run();
    EXPECT_EQ(count("didReceiveStartCall"), 1);
    EXPECT_EQ(receivedBy(), Strings{"ENCA decline"});
    EXPECT_TRUE(
        logged("[QXVC] Call is ended because the caller and callee have differnt call option."));
}

TEST_F(AutoAcceptTest, LoneRefusalAndLoneStartAreSettledAlone) {
    const std::string otherCall(36, 'x');
    chat->failSends(QXDError::errorWithDomain("QXDErrorDomain CALL_ID:" + otherCall, 900600, {}));
    aliceStarts();
    run();
    EXPECT_TRUE(events.empty());
    queue->advance(QXVCAutoAcceptData::kPairingWindow);
    EXPECT_EQ(events, Strings{"900600"});

    std::string bobsCall = startFrom("bob");
    run();
    EXPECT_EQ(count("didReceiveStartCall"), 0) << "waits for a refusal first";
    queue->advance(QXVCAutoAcceptData::kPairingWindow);
    EXPECT_EQ(count("didReceiveStartCall"), 1);
    EXPECT_TRUE(logged("[QXVC] timeoutForStartCallTimer for auto-accept."));
    EXPECT_EQ(QXVCAutoAcceptManager::recordForChannelUrl(kPrivate),
              QXVCAutoAcceptManager::recordForCallId(bobsCall))
        << "a lone start stays recorded";
    EXPECT_EQ(QXVCMain::getActiveCall(), nullptr);
}

TEST_F(AutoAcceptTest, ANewStartInAChannelWithAnotherRecordedCallEndsBoth) {
    std::string first = startFrom("bob");
    run();
    queue->advance(QXVCAutoAcceptData::kPairingWindow);
    ASSERT_EQ(count("didReceiveStartCall"), 1);
    sendEnd(first, "cancel");
    run();
    std::string second = startFrom("bob");
    ASSERT_FALSE(second.empty());
    run();
    EXPECT_EQ(count("didReceiveStartCall"), 2) << "told of the new call, then";
    EXPECT_TRUE(logged("[QXVC] Ending the incoming call in the auto-accept."));
    EXPECT_TRUE(logged("[QXVC] Ending the outgoing call in the auto-accept."));
    EXPECT_EQ(receivedBy().size(), 2u);
    EXPECT_EQ(QXVCAutoAcceptManager::recordForChannelUrl(kPrivate), nullptr);
    EXPECT_TRUE(QXVCAutoAcceptManager::recordForCallId(first)) << "left behind";
}
