// QXDWebSocketChatClient against a chat server in this process: login,
// lookups, call signalling through the service, reconnection and push payloads.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>

#include "ChatServerHarness.h"
#include "VelmorinService/ChatWireProtocol.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

using namespace chatserver_test;

namespace {

constexpr const char* kStart =
    R"(STCA{"type":"start","videochat_protocol_ver":1,"is_audio_call":false})";

int64_t sendDirect(InProcessServer& server, const std::string& senderId, const std::string& data) {
    auto params = QXDUserMessageParams::initWithMessage("direct");
    params->setData(data);
    auto sent = server.service->send(senderId, kChannel, *params);
    return sent.value ? sent.value->messageId() : -1;
}

long codeOf(const QXDErrorPtr& error) {
    return error ? error->code() : -1;
}

}  // namespace

TEST(ChatServerClientTest, RefusedDisconnectedOrServerlessClientFailsPromptlyAndStopsTrying) {
    InProcessServer server;
    auto intruder = makeClient(server.port(), "alice", "wrong");
    auto error = intruder->connect();
    ASSERT_EQ(codeOf(error), velmorin::wire::kWireUnauthorized);
    EXPECT_EQ(error->domain(), velmorin::wire::kWireErrorDomain);
    EXPECT_FALSE(intruder->isConnected());
    EXPECT_EQ(intruder->getCurrentUser(), nullptr);

    // Neither a refused nor a disconnected client keeps trying behind the
    // application's back; sends through a channel looked up before fail.
    auto alice = makeClient(server.port(), "alice");
    ASSERT_EQ(alice->connect(), nullptr);
    auto [channel, lookupError] = lookUp(*alice, kChannel);
    ASSERT_TRUE(channel);
    alice->disconnect();
    EXPECT_FALSE(alice->isConnected());
    EXPECT_TRUE(waitUntil([&] { return server.server->connectionCount() == 0; }));
    auto [message, sendError] = sendThrough(channel, "late");
    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(codeOf(sendError), QXDErrorConnectionRequired);
    ASSERT_TRUE(alice->getCurrentUser());  // kept after disconnect
    EXPECT_EQ(alice->getCurrentUser()->userId(), "alice");
    ASSERT_EQ(alice->connect(), nullptr);  // and connect() works again
    EXPECT_TRUE(alice->isConnected());

    const uint16_t closedPort = server.port();
    server.server->stop();
    auto nobody = makeClient(closedPort, "alice");
    EXPECT_EQ(codeOf(nobody->connect()), QXDErrorConnectionRequired);
    auto [none, noneError] = lookUp(*nobody, kChannel);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(codeOf(noneError), QXDErrorConnectionRequired);
    std::promise<QXDErrorPtr> sendResult;
    nobody->sendUserMessage(
        kChannel, QXDUserMessageParams::initWithMessage("x"),
        [&](QXDUserMessagePtr, QXDErrorPtr failure) { sendResult.set_value(failure); });
    EXPECT_EQ(codeOf(sendResult.get_future().get()), QXDErrorConnectionRequired);
}

// What the service decides (call ids, credentials, when a start is under way)
// is its unit tests' business; here: that it comes through the wire unchanged.
TEST(ChatServerClientTest, StartEchoDeliveryAndRefusalComeThroughUnchanged) {
    InProcessServer server;
    auto alice = makeClient(server.port(), "alice");
    auto bobHears = std::make_shared<RecordingDelegate>();
    auto bob = makeClient(server.port(), "bob", {}, bobHears);
    ASSERT_EQ(alice->connect(), nullptr);
    ASSERT_EQ(bob->connect(), nullptr);
    ASSERT_TRUE(alice->getCurrentUser());
    EXPECT_EQ(alice->getCurrentUser()->nickname(), "Alice");

    auto [channel, error] = lookUp(*alice, kChannel);
    ASSERT_TRUE(channel) << (error ? error->description() : "timeout");
    EXPECT_FALSE(channel->isPublic());
    EXPECT_FALSE(channel->isSuper());
    ASSERT_EQ(channel->memberCount(), 2);
    EXPECT_EQ(channel->members()[1].userId(), "bob");

    auto [echo, sendError] = sendThrough(channel, kStart);
    ASSERT_TRUE(echo) << (sendError ? sendError->description() : "timeout");
    auto body = qxvc::json::parse(echo->data().substr(4));
    ASSERT_TRUE(body);
    const std::string callId = (*body)["call_id"].get<std::string>();
    EXPECT_EQ((*body)["turn_server"], kTurnServer);

    ASSERT_TRUE(bobHears->waitForCount(1));
    const auto heard = bobHears->messages()[0];
    EXPECT_EQ(heard->messageId(), echo->messageId());
    EXPECT_EQ(heard->data(), echo->data());
    EXPECT_EQ(heard->customType(), "QX_VIDEOCHAT_TEST");
    EXPECT_EQ(heard->sender()->userId(), "alice");
    EXPECT_EQ(bobHears->channels()[0]->memberCount(), 2);

    // bob's own start is refused while alice's is under way: code and domain
    // come through exactly as the service made them.
    auto [bobChannel, bobLookupError] = lookUp(*bob, kChannel);
    ASSERT_TRUE(bobChannel);
    auto [refused, refusal] = sendThrough(bobChannel, kStart);
    EXPECT_EQ(refused, nullptr);
    ASSERT_EQ(codeOf(refusal), 900600);
    EXPECT_EQ(refusal->domain(), "QXDErrorDomain CALL_ID:" + callId);
}

TEST(ChatServerClientTest, DroppedConnectionCatchesUpOnEveryMissedMessageOnceButNotItsOwn) {
    InProcessServer server;
    auto bobHears = std::make_shared<RecordingDelegate>();
    auto bob = makeClient(server.port(), "bob", {}, bobHears);
    std::atomic<int> downs{0};
    bob->setConnectionStateHandler([&](bool connected) {
        if (!connected) {
            ++downs;
        }
    });
    ASSERT_EQ(bob->connect(), nullptr);

    std::vector<int64_t> sent;
    sent.push_back(sendDirect(server, "alice", "before"));
    ASSERT_TRUE(bobHears->waitForCount(1));

    // Twice, to see that catching up also works from where the last one ended.
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(server.server->dropConnectionsOf("bob"), 1u);
        for (int i = 0; i < 3; ++i) {
            sent.push_back(sendDirect(server, "alice", "missed " + std::to_string(i)));
        }
        // Bob's own message (another device of his) is not his to hear.
        sendDirect(server, "bob", "own " + std::to_string(round));
        ASSERT_TRUE(waitUntil([&] { return downs.load() == round + 1 && bob->isConnected(); }));
    }
    sent.push_back(sendDirect(server, "alice", "after"));
    ASSERT_TRUE(bobHears->waitForCount(sent.size()));

    // Every id once and in order; the last delivery is the newest message, so
    // a duplicate would have come before it.
    std::vector<int64_t> heard;
    for (const auto& message : bobHears->messages()) {
        heard.push_back(message->messageId());
    }
    EXPECT_EQ(heard, sent);
    EXPECT_EQ(bobHears->messages().back()->data(), "after");
}

TEST(ChatServerClientTest, OfflineMemberCollectsPushPayloadsAtLoginWithoutReplay) {
    InProcessServer server;
    const int64_t whileAway = sendDirect(server, "alice", kStart);
    ASSERT_GT(whileAway, 0);

    auto bobHears = std::make_shared<RecordingDelegate>();
    auto bob = makeClient(server.port(), "bob", {}, bobHears);
    ASSERT_EQ(bob->connect(), nullptr);
    auto payloads = bob->takePushPayloads();
    ASSERT_EQ(payloads.size(), 1u);
    EXPECT_EQ(payloads[0]["velmorin"]["message_id"], whileAway);
    EXPECT_TRUE(bob->takePushPayloads().empty());
    EXPECT_TRUE(server.service->takePushPayloads("bob").empty());

    // The first login replays no history: the next delivery is the new message.
    const int64_t now = sendDirect(server, "alice", "now");
    ASSERT_TRUE(bobHears->waitForCount(1));
    ASSERT_EQ(bobHears->messages().size(), 1u);
    EXPECT_EQ(bobHears->messages()[0]->messageId(), now);

    // With a handler, the next login's payloads go to it, once each.
    std::mutex mutex;
    std::vector<int64_t> handed;
    bob->setPushPayloadHandler([&](const nlohmann::json& payload) {
        std::lock_guard lock(mutex);
        handed.push_back(payload["velmorin"]["message_id"].get<int64_t>());
    });
    bob->disconnect();
    ASSERT_TRUE(waitUntil([&] { return !server.service->isConnected("bob"); }));
    const int64_t secondAway = sendDirect(server, "alice", "second");
    ASSERT_EQ(bob->connect(), nullptr);
    ASSERT_TRUE(waitUntil([&] {
        std::lock_guard lock(mutex);
        return !handed.empty();
    }));
    EXPECT_TRUE(bob->takePushPayloads().empty());
    std::lock_guard lock(mutex);
    EXPECT_EQ(handed, std::vector<int64_t>{secondAway});
}

TEST(ChatServerClientTest, AServerRestartedInMemoryIsFollowedFromItsNewIds) {
    auto first = std::make_unique<InProcessServer>();
    const uint16_t port = first->port();
    auto bobHears = std::make_shared<RecordingDelegate>();
    auto bob = makeClient(port, "bob", {}, bobHears);
    ASSERT_EQ(bob->connect(), nullptr);
    for (int i = 0; i < 3; ++i) {
        sendDirect(*first, "alice", "old " + std::to_string(i));
    }
    ASSERT_TRUE(bobHears->waitForCount(3));

    // A new server on the same port without the old history: ids start at 1.
    first.reset();
    InProcessServer second(port);
    ASSERT_EQ(second.port(), port);
    ASSERT_TRUE(waitUntil([&] { return second.server->connectionCount() == 1; }));
    ASSERT_TRUE(waitUntil([&] { return bob->isConnected(); }));
    const int64_t fresh = sendDirect(second, "alice", "new");
    EXPECT_EQ(fresh, 1);
    ASSERT_TRUE(bobHears->waitForCount(4));
    EXPECT_EQ(bobHears->messages()[3]->data(), "new");
}
