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

    auto chatPush = payload;
    chatPush["velmorin"]["custom_type"] = "CHAT";
    EXPECT_FALSE(QXVCMain::handleNotification(chatPush));
    EXPECT_EQ(QXVCMain::buildCallFromNotification(chatPush), nullptr);
    EXPECT_FALSE(QXVCMain::handleNotification({{"velmorin", nullptr}}));

    auto noId = payload;
    noId["velmorin"].erase("message_id");
    EXPECT_TRUE(QXVCMain::handleNotification(noId)) << "the library's, though nothing happens";
    auto badData = payload;
    badData["velmorin"]["data"] = "STCA{not json";
    EXPECT_TRUE(QXVCMain::handleNotification(badData));

    auto noCategory = payload;
    noCategory.erase("aps");
    EXPECT_EQ(QXVCMain::buildCallFromNotification(noCategory), nullptr);
    run();
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(QXVCMain::getCallWithCallId(callId), nullptr);

    // The complete payload is dispatched like a channel message, once.
    EXPECT_TRUE(QXVCMain::handleNotification(payload));
    EXPECT_TRUE(QXVCMain::handleNotification(payload));
    run();
    EXPECT_EQ(events, std::vector<std::string>{"didReceiveStartCall"});
}

TEST_F(FlowTest, CallBuiltFromAPushIsRegisteredAndTheChannelCopyIsDropped) {
    chat->holdDeliveries();
    std::string callId = startFrom("bob");
    auto start = service->messages("alice", kPrivate).value.front();

    auto call = QXVCMain::buildCallFromNotification(pushFor(start));
    ASSERT_TRUE(call);
    EXPECT_EQ(QXVCMain::getCallWithCallId(callId), call);
    EXPECT_EQ(call->myRole(), QXVCRoleCallee);
    EXPECT_EQ(call->state(), QXVCStateConnecting);
    EXPECT_FALSE(call->delegate()) << "no delegate is set on this path";
    auto servers = call->iceServers();
    ASSERT_TRUE(servers && servers->size() == 1);
    EXPECT_NE((*servers)[0]->username().value_or("").find(":alice"), std::string::npos)
        << "alice is the callee: her credentials";

    EXPECT_EQ(QXVCMain::buildCallFromNotification(pushFor(start)), nullptr) << "duplicate";
    chat->releaseHeldDeliveries();
    run();
    EXPECT_TRUE(events.empty()) << "the channel delivery is a duplicate";
    EXPECT_EQ(call->state(), QXVCStateConnecting);

    // The application accepts the call it built.
    call->viewIsReady();
    call->acceptWithOptions(QXVCCallOptions::initWithChannelUrl(kPrivate));
    lastConnection()->completeAll();
    run();
    EXPECT_EQ(receivedBy(), std::vector<std::string>{"SGNL offer"});

    // The end of a known call marks it Closed; of an unknown one gives nothing.
    auto end = sendEnd(callId, "end");
    auto unknownEnd = sendEnd("unknown-call", "end");
    EXPECT_EQ(QXVCMain::buildCallFromNotification(pushFor(end)), call);
    EXPECT_EQ(call->state(), QXVCStateClosed);
    EXPECT_EQ(QXVCMain::buildCallFromNotification(pushFor(unknownEnd)), nullptr);
}

TEST_F(FlowTest, CallFromAUserMessageIsAReadOnlyView) {
    std::string callId = startFrom("bob");
    auto offer = sendOffer(callId);
    auto end = sendEnd(callId, "cancel");
    auto start = service->messages("alice", kPrivate).value.front();

    auto view = QXVCMain::buildCallFromUserMessage(start);
    ASSERT_TRUE(view);
    EXPECT_EQ(view->callId(), callId);
    EXPECT_EQ(QXVCMain::getCallWithCallId(callId), nullptr) << "not registered";
    EXPECT_EQ(view->myRole(), QXVCRoleNone);
    EXPECT_FALSE(QXVCMain::isProcessedMessage(start->messageId())) << "not recorded";
    EXPECT_EQ(QXVCMain::buildCallFromUserMessage(offer), nullptr);
    auto ended = QXVCMain::buildCallFromUserMessage(end);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->state(), QXVCStateClosed);

    run();  // the intake registers the call
    auto registered = QXVCMain::getCallWithCallId(callId);
    ASSERT_TRUE(registered || events.back() == "didReceiveEndCall");
    EXPECT_EQ(QXVCMain::getCallWithCallId("never"), nullptr);
    EXPECT_EQ(QXVCMain::buildCallFromUserMessage(nullptr), nullptr);
}
