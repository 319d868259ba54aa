// Every command sent through QXVCClient into the in-process Velmorin service,
// checked as the service stored it and as the other member received it.
#if __has_include("VelmorinChat/QXDInProcessChatClient.h")

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VelmorinChat/QXDInProcessChatClient.h"
#include "VelmorinService/ChatService.h"
#include "VelmorinService/TurnCredentials.h"
#include "VelmorinVideoChat/Call/QXVCBaseCall.h"
#include "VelmorinVideoChat/Client/QXVCClient.h"
#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"

namespace {

using nlohmann::json;

class Inbox : public QXDChannelDelegate {
  public:
    void channel(const QXDBaseChannelPtr&, const QXDBaseMessagePtr& message) override {
        if (auto user = std::dynamic_pointer_cast<const QXDUserMessage>(message)) {
            std::lock_guard lock(mutex_);
            messages_.push_back(user);
        }
    }
    std::vector<QXDUserMessagePtr> take() {
        std::lock_guard lock(mutex_);
        return std::exchange(messages_, {});
    }

  private:
    std::mutex mutex_;
    std::vector<QXDUserMessagePtr> messages_;
};

json bodyOf(const QXDUserMessagePtr& message) {
    return json::parse(message->data().substr(4), nullptr, false);
}

TEST(ClientThroughService, EveryCommandArrivesInItsWireFormAndTheStartEchoParses) {
    auto service = velmorin::ChatService::create();
    ASSERT_EQ(service->upsertUser(QXDUser("alice", "Alice")), nullptr);
    ASSERT_EQ(service->upsertUser(QXDUser("bob", "Bob")), nullptr);
    velmorin::GroupChannelSpec channel;
    channel.channelUrl = "c1";
    channel.memberIds = {"alice", "bob"};
    ASSERT_EQ(service->createGroupChannel(channel).error, nullptr);

    QXDInProcessChatClient::Options options;
    auto aliceCallbacks = QXVCManualQueue::create("alice.callbacks");
    options.callbackQueue = aliceCallbacks;
    options.eventQueue = QXVCManualQueue::create("alice.events");
    auto alice = QXDInProcessChatClient::create(service, "alice", options);
    auto bobEvents = QXVCManualQueue::create("bob.events");
    options.callbackQueue = QXVCManualQueue::create("bob.callbacks");
    options.eventQueue = bobEvents;
    auto bob = QXDInProcessChatClient::create(service, "bob", options);
    ASSERT_TRUE(alice && bob);
    auto inbox = std::make_shared<Inbox>();
    bob->addChannelDelegate(inbox, "inbox");
    QXDMain::setChatClient(alice);

    auto call = QXVCBaseCall::init();
    call->setChannelUrl("c1");

    // Start: the echo carries the id, both users and alice's TURN credentials.
    QXDUserMessagePtr echo;
    QXDErrorPtr startError;
    QXVCClient::sendStartCall(call, true, false, [&](QXDUserMessagePtr m, QXDErrorPtr e) {
        echo = std::move(m);
        startError = std::move(e);
    });
    EXPECT_EQ(echo, nullptr);  // the client completes on its callback queue
    aliceCallbacks->runUntilIdle();
    ASSERT_EQ(startError, nullptr);
    ASSERT_NE(echo, nullptr);
    EXPECT_EQ(echo->customType(), "QX_VIDEOCHAT");
    auto start =
        std::dynamic_pointer_cast<QXVCStartCallMessage>(QXVCMessageParser::parseUserMessage(echo));
    ASSERT_NE(start, nullptr);
    ASSERT_TRUE(start->callId().has_value());
    const std::string callId = *start->callId();
    EXPECT_EQ(callId.size(), 36u);
    EXPECT_TRUE(start->isStart());
    EXPECT_FALSE(start->isAudioCall());
    EXPECT_EQ(start->messageId(), echo->messageId());
    ASSERT_NE(start->caller(), nullptr);
    EXPECT_EQ(start->caller()->userId(), "alice");
    EXPECT_TRUE(start->caller()->isAudioEnabled());
    EXPECT_FALSE(start->caller()->isVideoEnabled());
    ASSERT_NE(start->callee(), nullptr);
    EXPECT_EQ(start->callee()->userId(), "bob");
    EXPECT_EQ(start->turnServer(), service->settings().turnServer);
    ASSERT_TRUE(start->callerUsername() && start->callerPassword());
    EXPECT_TRUE(start->callerUsername()->ends_with(":alice"));
    EXPECT_EQ(*start->callerPassword(), velmorin::turnPassword(service->settings().turnSharedSecret,
                                                               *start->callerUsername()));

    // A second start in the channel is refused with the id of the call under way.
    QXDErrorPtr refused;
    QXVCClient::sendStartCall(call, true, true,
                              [&](QXDUserMessagePtr, QXDErrorPtr e) { refused = std::move(e); });
    aliceCallbacks->runUntilIdle();
    ASSERT_NE(refused, nullptr);
    EXPECT_EQ(refused->code(), 900600);
    EXPECT_NE(refused->domain().find("CALL_ID:" + callId), std::string::npos);

    // Every in-call command, then the end.
    call->setCallId(callId);
    const std::string sdp = "v=0\r\ns=-\r\nt=0 0\r\n";
    int completions = 0;
    auto count = [&](QXDUserMessagePtr m, QXDErrorPtr e) {
        EXPECT_EQ(e, nullptr);
        EXPECT_NE(m, nullptr);
        ++completions;
    };
    QXVCClient::sendOfferCall(call, sdp, count);
    QXVCClient::sendAnswerCall(call, sdp, count);
    QXVCClient::sendCandidateCall(
        call,
        std::make_shared<const RTCIceCandidate>("candidate:1 1 udp 1 10.0.0.1 9 typ relay", 0,
                                                std::optional<std::string>("0")),
        count);
    QXVCClient::sendAudioUpdateCall(call, false, count);
    QXVCClient::sendVideoUpdateCall(call, true, count);
    QXVCClient::sendEndCall(call, QXVCEndTypeEnd, count);
    aliceCallbacks->runUntilIdle();
    EXPECT_EQ(completions, 6);

    bobEvents->runUntilIdle();
    auto received = inbox->take();
    ASSERT_EQ(received.size(), 7u);
    for (const auto& message : received) {
        EXPECT_EQ(message->message(), "QX_VIDEOCHAT");
        EXPECT_EQ(message->data()[4], '{');
        EXPECT_EQ(bodyOf(message)["videochat_protocol_ver"], 1);
    }
    EXPECT_EQ(received[0]->data(), echo->data());
    EXPECT_EQ(received[0]->customType(), "QX_VIDEOCHAT");
    const char* expected[][2] = {{"SGNL", "offer"}, {"SGNL", "answer"}, {"SGNL", "candidate"},
                                 {"SGNL", "audio"}, {"SGNL", "video"},  {"ENCA", "end"}};
    for (size_t i = 1; i < received.size(); ++i) {
        SCOPED_TRACE(expected[i - 1][1]);
        EXPECT_EQ(received[i]->customType(), "QX_VIDEOCHAT_" + callId);
        EXPECT_EQ(received[i]->data().substr(0, 4), expected[i - 1][0]);
        auto body = bodyOf(received[i]);
        EXPECT_EQ(body["type"], expected[i - 1][1]);
        EXPECT_EQ(body["call_id"], callId);
    }
    // Relayed unchanged: the answer's sdp still decompresses; the candidate keeps its fields.
    EXPECT_EQ(QXVCUtils::decompressString(bodyOf(received[2])["sdp"].get<std::string>()), sdp);
    EXPECT_EQ(bodyOf(received[3])["sdp_mid"], "0");
    EXPECT_EQ(bodyOf(received[4])["is_enabled"], false);

    // The end as received: enriched by the service.
    auto end = std::dynamic_pointer_cast<QXVCEndCallMessage>(
        QXVCMessageParser::parseUserMessage(received[6]));
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(end->endType(), QXVCEndTypeEnd);
    EXPECT_EQ(end->enderId(), "alice");
    ASSERT_NE(end->callee(), nullptr);
    EXPECT_EQ(end->callee()->userId(), "bob");
    EXPECT_TRUE(bodyOf(received[6])["period"].is_number_integer());
    EXPECT_GE(end->period(), 0);
    EXPECT_FALSE(service->startUnderWay("c1").has_value());

    QXDMain::setChatClient(nullptr);
}

}  // namespace

#endif
