// The Velmorin chat service: what it does with call signalling, membership,
// message ids, delivery and push payloads.
#include <mutex>
#include <regex>

#include "VelmorinService/ChatService.h"
#include "VelmorinService/TurnCredentials.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/QXVCTypes.h"

using nlohmann::json;
using velmorin::ChatService;

namespace {

constexpr int64_t kEpochMs = 1'800'000'000'000;

// 8-4-4-4-12 lowercase hex digits, version 4, RFC 4122 variant.
bool isUuidV4(const std::string& id) {
    static const std::regex uuid(
        "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    return std::regex_match(id, uuid);
}

class ChatServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        clock = std::make_shared<velmorin::ManualServiceClock>(kEpochMs);
        velmorin::ServiceSettings settings;
        settings.turnServer = "turn:10.1.2.3:3478";
        settings.turnSharedSecret = "s3cret";
        settings.turnCredentialTtlSeconds = 3600;
        settings.startCallWindowSeconds = 60;
        service = ChatService::create(settings, clock);
        for (const auto& user :
             {QXDUser("alice", "Alice", "https://img/a.png"),
              QXDUser("bob", "Bob", "https://img/b.png"), QXDUser("carol", "Carol")}) {
            ASSERT_EQ(service->upsertUser(user), nullptr);
        }
        ASSERT_FALSE(
            service->createGroupChannel({"ab", "Alice & Bob", false, false, {"alice", "bob"}})
                .error ||
            service->createGroupChannel({"ac", "", false, false, {"alice", "carol"}}).error);
        bobConnection = service->connect(
            "bob", [this](const QXDUserMessagePtr& m, const velmorin::ChannelInfo&) {
                std::lock_guard lock(mutex);
                bobReceived.push_back(m);
            });
    }

    velmorin::ServiceResult<QXDUserMessagePtr> send(const std::string& sender,
                                                    const std::string& url,
                                                    const std::string& data) {
        auto params = QXDUserMessageParams::initWithMessage("QX_VIDEOCHAT");
        params->setCustomType("QX_VIDEOCHAT");
        params->setData(data);
        return service->send(sender, url, *params);
    }

    static json body(const QXDUserMessagePtr& message) {
        return message ? json::parse(message->data().substr(4)) : json();
    }

    json endBody(const std::string& sender, const std::string& fields) {
        return body(send(sender, "ab", R"(ENCA{"type":"end",)" + fields + "}").value);
    }

    std::string startCall(const std::string& sender = "alice", const std::string& url = "ab") {
        auto sent = send(sender, url, R"(STCA{"type":"start","videochat_protocol_ver":1})");
        EXPECT_EQ(sent.error, nullptr);
        return sent.value ? body(sent.value).value("call_id", "") : "";
    }

    std::shared_ptr<velmorin::ManualServiceClock> clock;
    std::shared_ptr<ChatService> service;
    uint64_t bobConnection = 0;
    std::mutex mutex;
    std::vector<QXDUserMessagePtr> bobReceived;
};

// RFC 2202, HMAC-SHA1 test case 2, in base64.
TEST(TurnCredentialsTest, PasswordIsBase64OfHmacSha1) {
    EXPECT_EQ(velmorin::turnPassword("Jefe", "what do ya want for nothing?"),
              "7/zfauXrL6LSdBbV8YTfnCWafHk=");
}

TEST_F(ChatServiceTest, StartIsEchoedAndDeliveredWithCallIdUsersAndTurnCredentials) {
    auto sent = send("alice", "ab",
                     R"(STCA{"type":"start","videochat_protocol_ver":1,)"
                     R"("constraints":{"audio":true,"video":false},"is_audio_call":false})");
    ASSERT_EQ(sent.error, nullptr);
    const auto& echo = sent.value;
    ASSERT_NE(echo, nullptr);
    json b = body(echo);
    const std::string callId = b.value("call_id", "");
    EXPECT_TRUE(isUuidV4(callId)) << callId;
    EXPECT_EQ(b["constraints"], json({{"audio", true}, {"video", false}}));  // kept as written
    EXPECT_EQ(
        b["caller"],
        json({{"user_id", "alice"}, {"nickname", "Alice"}, {"profile_url", "https://img/a.png"}}));
    EXPECT_EQ(
        b["callee"],
        json({{"user_id", "bob"}, {"nickname", "Bob"}, {"profile_url", "https://img/b.png"}}));
    EXPECT_EQ(b["turn_server"], "turn:10.1.2.3:3478");

    const std::string expiry = std::to_string(kEpochMs / 1000 + 3600);
    for (const auto& [role, user] : {std::pair{"caller", "alice"}, std::pair{"callee", "bob"}}) {
        const auto& credentials = b["credentials"][role];
        const std::string username = credentials.value("username", "");
        EXPECT_EQ(username, expiry + ":" + user);
        EXPECT_EQ(credentials.value("password", ""), velmorin::turnPassword("s3cret", username));
    }

    // Delivered exactly as echoed.
    ASSERT_EQ(bobReceived.size(), 1u);
    EXPECT_EQ(bobReceived[0]->data(), echo->data());
    EXPECT_NE(startCall("alice", "ac"), callId);
}

TEST_F(ChatServiceTest, SecondStartIsRefusedWhileTheFirstIsUnderWay) {
    const std::string first = startCall();
    const size_t storedBefore = service->messages("alice", "ab").value.size();
    bobReceived.clear();

    auto refused = send("bob", "ab", R"(STCA{"type":"start"})");
    ASSERT_EQ(refused.value, nullptr);
    ASSERT_NE(refused.error, nullptr);
    EXPECT_EQ(std::to_string(refused.error->code()) + " " + refused.error->domain(),
              "900600 QXDErrorDomain CALL_ID:" + first);
    // Nothing stored or delivered; the sender of the first start too is refused.
    EXPECT_EQ(service->messages("alice", "ab").value.size(), storedBefore);
    EXPECT_TRUE(bobReceived.empty());
    EXPECT_NE(send("alice", "ab", R"(STCA{})").error, nullptr);
    // Another channel is not affected.
    EXPECT_EQ(startCall("alice", "ac").size(), 36u);
}

TEST_F(ChatServiceTest, StartStopsBeingUnderWayAtItsEndOrWhenTheWindowCloses) {
    const std::string first = startCall();
    clock->advanceMilliseconds(59'999);
    EXPECT_NE(send("bob", "ab", "STCA{}").error, nullptr);
    clock->advanceMilliseconds(1);
    const std::string second = startCall("bob");
    ASSERT_EQ(second.size(), 36u);
    EXPECT_NE(second, first);

    // The end of another call (here: the expired one) does not end this start.
    ASSERT_EQ(send("alice", "ab", R"(ENCA{"type":"end","call_id":")" + first + R"("})").error,
              nullptr);
    EXPECT_EQ(service->startUnderWay("ab"), second);
    // Its own end does, at once.
    ASSERT_EQ(send("alice", "ab", R"(ENCA{"type":"decline","call_id":")" + second + R"("})").error,
              nullptr);
    EXPECT_EQ(service->startUnderWay("ab"), std::nullopt);
    EXPECT_EQ(startCall().size(), 36u);
}

TEST_F(ChatServiceTest, EndIsEnrichedWithUsersEnderAndPeriod) {
    const std::string callId = startCall();
    clock->advanceMilliseconds(12'345);
    json b = endBody("bob", R"("call_id":")" + callId + R"(","is_audio_call":true)");
    EXPECT_EQ(b["ender"], json({{"user_id", "bob"}}));
    EXPECT_TRUE(b["period"].is_number_integer());
    EXPECT_EQ(b["period"], 12345);
    EXPECT_EQ(b["callee"]["user_id"], "bob");
    EXPECT_EQ(b["is_audio_call"], true);  // what the client wrote is kept

    // Unknown call: ender and period 0, no users.
    EXPECT_EQ(endBody("alice", R"("call_id":"nope")"), json({{"type", "end"},
                                                             {"call_id", "nope"},
                                                             {"ender", {{"user_id", "alice"}}},
                                                             {"period", 0}}));
    // A call of another channel is unknown here: its users are not revealed.
    const std::string other = startCall("alice", "ac");
    EXPECT_EQ(
        endBody("bob", R"("call_id":")" + other + R"(")"),
        json(
            {{"type", "end"}, {"call_id", other}, {"ender", {{"user_id", "bob"}}}, {"period", 0}}));
    EXPECT_EQ(service->startUnderWay("ac"), other);
}

TEST_F(ChatServiceTest, EverythingElseIsRelayedUnchanged) {
    const std::vector<std::string> untouched = {
        R"(SGNL{"type":"offer","call_id":"x","sdp":"H4sI"})",
        "",
        "STCA{not json",
        "ENCA[1,2,3]",
        std::string("STCA{\"type\":\"start\",\"x\":\"\xff\xfe\"}"),  // invalid UTF-8
    };
    for (const auto& data : untouched) {
        bobReceived.clear();
        auto sent = send("alice", "ab", data);
        ASSERT_EQ(sent.error, nullptr) << data;
        EXPECT_EQ(sent.value->data(), data);
        ASSERT_EQ(bobReceived.size(), 1u) << data;
        EXPECT_EQ(bobReceived[0]->data(), data);
    }
    // None of the malformed starts counted as a start.
    EXPECT_EQ(service->startUnderWay("ab"), std::nullopt);
}

TEST_F(ChatServiceTest, MembershipIsCheckedOnCreationAndLeavingTakesTheRightsAway) {
    EXPECT_NE(service->createGroupChannel({"ab", "", false, false, {"alice"}}).error, nullptr);
    EXPECT_NE(service->createGroupChannel({"", "", false, false, {"alice", "zed"}}).error, nullptr);
    EXPECT_NE(service->createGroupChannel({"", "", false, false, {"bob", "bob"}}).error, nullptr);
    EXPECT_EQ(service->channelUrlsOfUser("carol"), std::vector<std::string>{"ac"});
    EXPECT_EQ(send("carol", "ab", "hi").error->code(), QXDErrorNotAMember);
    EXPECT_TRUE(bobReceived.empty());  // nor delivered
    ASSERT_EQ(service->removeMember("ab", "bob"), nullptr);
    EXPECT_EQ(service->channel("bob", "ab").error->code(), QXDErrorNotAMember);
    EXPECT_EQ(send("bob", "ab", "STCA{}").error->code(), QXDErrorNotAMember);
}

TEST_F(ChatServiceTest, OfflineMembersGetPushPayloadsToCollect) {
    service->disconnect(bobConnection);
    auto sent = send("alice", "ab", R"(STCA{"type":"start"})");
    ASSERT_EQ(sent.error, nullptr);
    EXPECT_TRUE(bobReceived.empty());

    const json expected = {
        {"aps", {{"category", "velmorin_mesg"}, {"alert", "Alice: QX_VIDEOCHAT"}}},
        {"velmorin",
         {{"custom_type", "QX_VIDEOCHAT"},
          {"channel", {{"channel_url", "ab"}, {"name", "Alice & Bob"}}},
          {"message_id", sent.value->messageId()},
          {"data", sent.value->data()},
          {"sender",
           {{"user_id", "alice"}, {"nickname", "Alice"}, {"profile_url", "https://img/a.png"}}}}}};
    EXPECT_EQ(service->takePushPayloads("bob"), std::vector<json>{expected});
    EXPECT_TRUE(service->takePushPayloads("alice").empty());  // not for the sender
    // A channel without a name has no "name".
    send("alice", "ac", "hi");
    auto carol = service->takePushPayloads("carol");
    ASSERT_EQ(carol.size(), 1u);
    EXPECT_FALSE(carol[0]["velmorin"]["channel"].contains("name"));
}

}  // namespace

// An application's tests run the service on the library's manual queue: the
// start window closes as the queue's virtual clock runs (the period reads the same clock).
TEST(ServiceClockTest, FollowingAManualQueueMovesTheStartWindow) {
    auto queue = QXVCManualQueue::create("service-clock");
    velmorin::ServiceSettings settings;
    settings.startCallWindowSeconds = 30;
    auto service =
        ChatService::create(settings, velmorin::ServiceClock::followingQueue(queue, kEpochMs));
    service->upsertUser(QXDUser("a"));
    service->upsertUser(QXDUser("b"));
    service->createGroupChannel({"ab", "", false, false, {"a", "b"}});
    QXDUserMessageParams params;
    params.setData("STCA{}");
    auto start = service->send("a", "ab", params);
    ASSERT_EQ(start.error, nullptr);
    queue->advance(29.5);
    EXPECT_NE(service->startUnderWay("ab"), std::nullopt);
    queue->advance(0.5);
    EXPECT_EQ(service->startUnderWay("ab"), std::nullopt);
}
