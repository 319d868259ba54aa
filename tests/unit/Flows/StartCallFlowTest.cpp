// Placing a call: the checks, the service's echo, both failure modes and the
// start-call timeout.
#include "FlowFixture.h"

namespace {

struct HandlerRecord {
    int calls = 0;
    QXDErrorPtr error;
};

std::function<void(QXDErrorPtr)> recordInto(const std::shared_ptr<HandlerRecord>& record,
                                            std::vector<std::string>* order = nullptr) {
    return [record, order](QXDErrorPtr error) {
        ++record->calls;
        record->error = std::move(error);
        if (order) {
            order->push_back("handler");
        }
    };
}

QXDErrorPtr refusal(const std::string& domain) {
    return QXDError::errorWithDomain(domain, 900600, {});
}

}  // namespace

TEST_F(FlowTest, StartIsSentAndTheEchoCompletesTheCallBeforeTheDelegatesHear) {
    auto handler = std::make_shared<HandlerRecord>();
    QXVCMain::startCallWithAudioOnly(true, QXVCCallOptions::initWithChannelUrl(kPrivate),
                                     recordInto(handler, &events));
    EXPECT_TRUE(QXVCMain::isCalling()) << "the gate closes before the lookup";
    run();

    ASSERT_EQ(handler->calls, 1);
    EXPECT_EQ(handler->error, nullptr);
    EXPECT_EQ(events, (std::vector<std::string>{"handler", "didSendStartCall"}));
    auto call = QXVCMain::getActiveCall();
    ASSERT_TRUE(call);
    EXPECT_EQ(eventCalls.back(), call);
    EXPECT_EQ(call->callId().size(), 36u);
    EXPECT_EQ(QXVCMain::getCallWithCallId(call->callId()), call);
    EXPECT_EQ(call->myRole(), QXVCRoleCaller);
    EXPECT_TRUE(call->isAudioCall());
    EXPECT_EQ(call->caller()->userId(), "alice");
    EXPECT_EQ(call->callee()->userId(), "bob");
    auto servers = call->iceServers();
    ASSERT_TRUE(servers && servers->size() == 1);
    EXPECT_NE((*servers)[0]->username().value_or("").find(":alice"), std::string::npos);
    EXPECT_EQ(receivedBy(), std::vector<std::string>{"STCA start"});
}

TEST_F(FlowTest, StartChecksRefuseWithoutSideEffects) {
    auto options = QXVCCallOptions::initWithChannelUrl(kPrivate);

    QXDMain::setChatClient(nullptr);
    auto noUser = std::make_shared<HandlerRecord>();
    QXVCMain::startCallWithAudioOnly(false, options, recordInto(noUser));
    QXDMain::setChatClient(chat);

    auto first = std::make_shared<HandlerRecord>();
    auto second = std::make_shared<HandlerRecord>();
    QXVCMain::startCallWithAudioOnly(false, QXVCCallOptions::initWithChannelUrl(kThree),
                                     recordInto(first));
    // Still looking the channel up: the gate is already closed.
    QXVCMain::startCallWithAudioOnly(false, options, recordInto(second));
    run();
    EXPECT_EQ(noUser->error->code(), QXVCErrorVelmorinConnectionRequired);
    EXPECT_EQ(second->error->code(), QXVCErrorInvalidAction);
    EXPECT_NE(second->error->localizedDescription().find("Another call cannot be started"),
              std::string::npos);
    EXPECT_EQ(first->error->code(), QXVCErrorUnsuitableChannel);
    EXPECT_EQ(first->error->localizedDescription(), "The channel is not suitable.");
    EXPECT_FALSE(QXVCMain::isCalling());

    auto publicRoom = std::make_shared<HandlerRecord>();
    QXVCMain::startCallWithAudioOnly(false, QXVCCallOptions::initWithChannelUrl(kPublic),
                                     recordInto(publicRoom));
    auto unknown = std::make_shared<HandlerRecord>();
    run();
    QXVCMain::startCallWithAudioOnly(false, QXVCCallOptions::initWithChannelUrl("nowhere"),
                                     recordInto(unknown));
    run();
    auto noOptions = std::make_shared<HandlerRecord>();
    QXVCMain::startCallWithAudioOnly(false, nullptr, recordInto(noOptions));
    run();
    EXPECT_EQ(publicRoom->error->code(), QXVCErrorUnsuitableChannel);
    EXPECT_EQ(unknown->error->code(), QXDErrorChannelNotFound) << "the chat client's error";
    ASSERT_TRUE(noOptions->error);
    EXPECT_FALSE(QXVCMain::isCalling());
    EXPECT_EQ(QXVCMain::getActiveCall(), nullptr);
    EXPECT_TRUE(receivedBy().empty());
    EXPECT_TRUE(events.empty());
}

TEST_F(FlowTest, FailedSendReportsTheClientsErrorAndOpensTheGate) {
    // Manual mode: even the service's refusal goes to the handler as it stands.
    std::string bobsCall = startFrom("bob");
    auto refused = std::make_shared<HandlerRecord>();
    QXVCMain::startCallWithAudioOnly(false, QXVCCallOptions::initWithChannelUrl(kPrivate),
                                     recordInto(refused));
    run();
    ASSERT_TRUE(refused->error);
    EXPECT_EQ(refused->error->code(), 900600);
    EXPECT_EQ(refused->error->domain(), "QXDErrorDomain CALL_ID:" + bobsCall);
    EXPECT_TRUE(logged("[QXVC] Start call error in manual accept mode:"));
    EXPECT_FALSE(QXVCMain::isCalling());
    EXPECT_EQ(QXVCMain::getActiveCall(), nullptr);

    // Auto mode, another error: reported as it stands too.
    QXVCMain::setAutoAcceptSimultaneousStartCall(true);
    chat->failSends(nullptr);
    auto failed = std::make_shared<HandlerRecord>();
    QXVCMain::startCallWithAudioOnly(false, QXVCCallOptions::initWithChannelUrl(kWithCarol),
                                     recordInto(failed));
    run();
    ASSERT_TRUE(failed->error);
    EXPECT_EQ(failed->error->code(), QXDErrorRequestFailed);
    EXPECT_TRUE(logged("[QXVC] Start call error in auto accept mode:"));
    EXPECT_FALSE(QXVCMain::isCalling());
    queue->advance(60);
    EXPECT_TRUE(receivedBy("carol").empty()) << "the dropped call's timer was stopped";
}

TEST_F(FlowTest, RefusalNamingTheOtherCallBadlyIsNeverReported) {
    QXVCMain::setAutoAcceptSimultaneousStartCall(true);
    const std::string id(36, 'a');
    auto twice = std::make_shared<HandlerRecord>();
    chat->failSends(refusal("CALL_ID:" + id + " CALL_ID:" + id));
    QXVCMain::startCallWithAudioOnly(false, QXVCCallOptions::initWithChannelUrl(kPrivate),
                                     recordInto(twice));
    run();
    auto none = std::make_shared<HandlerRecord>();
    chat->failSends(refusal("QXDErrorDomain"));
    QXVCMain::startCallWithAudioOnly(false, QXVCCallOptions::initWithChannelUrl(kPrivate),
                                     recordInto(none));
    run();
    queue->advance(1);
    EXPECT_EQ(twice->calls, 0);
    EXPECT_EQ(none->calls, 0);
    EXPECT_FALSE(QXVCMain::isCalling());

    // Once, followed by more text: only the 36 characters name the call.
    auto once = std::make_shared<HandlerRecord>();
    chat->failSends(refusal("QXDErrorDomain CALL_ID:" + id + " and more"));
    QXVCMain::startCallWithAudioOnly(false, QXVCCallOptions::initWithChannelUrl(kPrivate),
                                     recordInto(once));
    run();
    EXPECT_TRUE(QXVCAutoAcceptManager::recordForCallId(id));
    queue->advance(QXVCAutoAcceptData::kPairingWindow);
    EXPECT_EQ(once->calls, 1);
}
