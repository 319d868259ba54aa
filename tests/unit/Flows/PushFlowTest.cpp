// Push payloads and call lookup: the same intake as the channel, and a call
// built at once for an incoming call screen.
#include "FlowFixture.h"

namespace {

/// The payload the service keeps for a member who is not connected.
nlohmann::json pushFor(const QXDUserMessagePtr& message) {
    return {{"aps", {{"category", "velmorin_mesg"}, {"alert", "bob: QX_VIDEOCHAT"}}},
            {"velmorin",
             {{"custom_type", message->customType()},
              {"channel", {{"channel_url", message->channelUrl()}}},
              {"message_id", message->messageId()},
              {"data", message->data()}}}};
}

}  // namespace

TEST_F(FlowTest, PushIsDispatchedOnceWhenCompleteAndIgnoredWhenNotTheLibrarys) {
    chat->holdDeliveries();
    std::string callId = startFrom("bob");
    auto start = service->messages("alice", kPrivate).value.front();
    auto payload = pushFor(start);

    auto changed = [&](const nlohmann::json& patch) { return payload.patch(patch); };
    auto chatPush =
        changed({{{"op", "replace"}, {"path", "/velmorin/custom_type"}, {"value", "CHAT"}}});
    EXPECT_FALSE(QXVCMain::handleNotification(chatPush));
    EXPECT_EQ(QXVCMain::buildCallFromNotification(chatPush), nullptr);
    EXPECT_FALSE(QXVCMain::handleNotification({{"velmorin", nullptr}}));
    // The library's, though nothing happens.
    EXPECT_TRUE(QXVCMain::handleNotification(
        changed({{{"op", "remove"}, {"path", "/velmorin/message_id"}}})));
    EXPECT_TRUE(QXVCMain::handleNotification(
        changed({{{"op", "replace"}, {"path", "/velmorin/data"}, {"value", "STCA{not json"}}})));
    EXPECT_EQ(QXVCMain::buildCallFromNotification(changed({{{"op", "remove"}, {"path", "/aps"}}})),
              nullptr);
    run();
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(QXVCMain::getCallWithCallId(callId), nullptr);

    // The complete payload is dispatched like a channel message, once.
    EXPECT_TRUE(QXVCMain::handleNotification(payload));
    EXPECT_TRUE(QXVCMain::handleNotification(payload));
    run();
    EXPECT_EQ(events, Strings{"didReceiveStartCall"});
}

TEST_F(FlowTest, CallBuiltFromAPushIsRegisteredAndTheChannelCopyIsDropped) {
    chat->holdDeliveries();
    std::string callId = startFrom("bob");
    auto start = service->messages("alice", kPrivate).value.front();

    auto call = QXVCMain::buildCallFromNotification(pushFor(start));
    ASSERT_TRUE(call);
    EXPECT_EQ(QXVCMain::getCallWithCallId(callId), call);
    EXPECT_EQ(std::tuple(call->myRole(), call->state()),
              std::tuple(QXVCRoleCallee, QXVCStateConnecting));
    EXPECT_FALSE(call->delegate()) << "no delegate is set on this path";
    EXPECT_THAT(turnUsername(call), ::testing::EndsWith(":alice")) << "the callee's credentials";

    EXPECT_EQ(QXVCMain::buildCallFromNotification(pushFor(start)), nullptr) << "duplicate";
    chat->releaseHeldDeliveries();
    run();
    EXPECT_TRUE(events.empty()) << "the channel delivery is a duplicate";
    EXPECT_EQ(call->state(), QXVCStateConnecting);

    // The application accepts the call it built.
    acceptIncoming(callId);
    EXPECT_EQ(receivedBy(), Strings{"SGNL offer"});

    // The end of a known call marks it Closed; of an unknown one gives nothing.
    EXPECT_EQ(QXVCMain::buildCallFromNotification(pushFor(sendEnd(callId))), call);
    EXPECT_EQ(call->state(), QXVCStateClosed);
    EXPECT_EQ(QXVCMain::buildCallFromNotification(pushFor(sendEnd("unknown-call"))), nullptr);
}

TEST_F(FlowTest, CallFromAUserMessageIsAReadOnlyView) {
    std::string callId = startFrom("bob");
    auto offer = sendOffer(callId);
    auto end = sendEnd(callId, "cancel");
    auto start = service->messages("alice", kPrivate).value.front();

    auto view = QXVCMain::buildCallFromUserMessage(start);
    ASSERT_TRUE(view);
    EXPECT_EQ(std::tuple(view->callId(), view->myRole()), std::tuple(callId, QXVCRoleNone));
    EXPECT_EQ(QXVCMain::getCallWithCallId(callId), nullptr) << "not registered";
    EXPECT_FALSE(QXVCMain::isProcessedMessage(start->messageId())) << "not recorded";
    EXPECT_EQ(QXVCMain::buildCallFromUserMessage(offer), nullptr);
    auto ended = QXVCMain::buildCallFromUserMessage(end);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->state(), QXVCStateClosed);
    EXPECT_EQ(QXVCMain::buildCallFromUserMessage(nullptr), nullptr);
}
