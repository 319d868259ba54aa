// The chat server's protocol, frame by frame, over real loopback sockets.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "ChatServerHarness.h"
#include "VelmorinService/ChatWireProtocol.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"

using namespace chatserver_test;
using nlohmann::json;

namespace {

long errorCode(const json& reply) {
    return reply.value("/error/code"_json_pointer, -1L);
}

json sendRequest(const std::string& channelUrl, const std::string& data) {
    return {{"op", "send"},
            {"channel_url", channelUrl},
            {"message", "hello"},
            {"custom_type", "TEST"},
            {"data", data}};
}

}  // namespace

TEST(ChatServerProtocolTest, LoginIsRequiredAndChecksTheToken) {
    InProcessServer server;
    RawClient client(server.port());
    EXPECT_EQ(errorCode(client.request({{"op", "get_channel"}, {"channel_url", kChannel}})),
              velmorin::wire::kWireNotLoggedIn);
    EXPECT_EQ(errorCode(client.login("alice", "bob-token")), velmorin::wire::kWireUnauthorized);
    EXPECT_EQ(errorCode(client.login("mallory", "mallory-token")),
              velmorin::wire::kWireUnauthorized);
    // Still nothing allowed after a refused login.
    EXPECT_EQ(errorCode(client.request({{"op", "take_push_payloads"}})),
              velmorin::wire::kWireNotLoggedIn);

    auto ok = client.login("alice");
    ASSERT_TRUE(ok.value("ok", false)) << ok.dump();
    EXPECT_EQ(ok["result"]["user"]["nickname"], "Alice");
    ASSERT_EQ(ok["result"]["channels"].size(), 1u);
    EXPECT_EQ(ok["result"]["channels"][0]["channel_url"], kChannel);
    EXPECT_EQ(errorCode(client.login("alice")), velmorin::wire::kWireAlreadyLoggedIn);
}

TEST(ChatServerProtocolTest, WrongLoginsAreHeldBackOneAfterAnotherAndRightOnesAreNot) {
    velmorin::LoginBackoff::Settings backoff;
    backoff.freeFailures = 1;
    backoff.firstDelay = std::chrono::milliseconds(2000);
    backoff.maxDelay = backoff.firstDelay;
    InProcessServer server(0, backoff);

    // mallory sends her guesses all at once; her own thread notes when each
    // answer comes.
    constexpr int kGuesses = 3;
    std::promise<void> firstAnswer;
    std::vector<std::pair<json, std::chrono::steady_clock::time_point>> answers;
    std::thread mallory([&] {
        RawClient client(server.port());
        for (int i = 1; i <= kGuesses; ++i) {
            client.send(
                json{{"op", "login"}, {"id", i}, {"user_id", "alice"}, {"token", "guess"}}.dump());
        }
        for (int i = 1; i <= kGuesses; ++i) {
            auto reply = client.readReply();
            answers.emplace_back(reply.value_or(json()), std::chrono::steady_clock::now());
            if (i == 1) {
                firstAnswer.set_value();
            }
        }
    });
    firstAnswer.get_future().wait();
    // alice, whose id mallory is guessing, gets in at once meanwhile.
    RawClient alice(server.port());
    EXPECT_TRUE(alice.login("alice").value("ok", false));
    const auto aliceIn = std::chrono::steady_clock::now();
    mallory.join();

    ASSERT_EQ(answers.size(), static_cast<size_t>(kGuesses));
    for (int i = 0; i < kGuesses; ++i) {
        EXPECT_EQ(answers[i].first["id"], i + 1);  // each answered, in order
        EXPECT_EQ(errorCode(answers[i].first), velmorin::wire::kWireUnauthorized);
        // Only the first (free) guess was answered before alice's right login.
        EXPECT_EQ(answers[i].second < aliceIn, i == 0) << "guess " << i + 1;
    }
}

TEST(ChatServerProtocolTest, BadFramesGetErrorFramesAndDisturbNoOne) {
    InProcessServer server;
    RawClient alice(server.port());
    RawClient bob(server.port());
    ASSERT_TRUE(alice.login("alice").value("ok", false));
    ASSERT_TRUE(bob.login("bob").value("ok", false));

    const std::string deepArray = std::string(60000, '[') + std::string(60000, ']');
    json deepStart = sendRequest(kChannel, "STCA{\"a\":" + deepArray + "}");
    deepStart["id"] = 12;
    struct Case {
        std::string frame;
        long code;
        json id;
        bool binary = false;
    };
    const std::vector<Case> cases = {
        {"this is not json", velmorin::wire::kWireMalformedJson, nullptr},
        {"[1,2,3]", velmorin::wire::kWireMalformedJson, nullptr},
        {std::string(200 * 1024, '['), velmorin::wire::kWireMalformedJson, nullptr},
        {R"({"op":"dance","id":7})", velmorin::wire::kWireUnknownOp, 7},
        {R"({"op":"send","id":"s-8"})", velmorin::wire::kWireBadRequest, "s-8"},
        {R"({"op":"fetch","id":9,"channel_url":"x","after_message_id":"soon"})",
         velmorin::wire::kWireBadRequest, 9},
        {R"({"id":10})", velmorin::wire::kWireBadRequest, 10},
        {R"({"op":"send"})", velmorin::wire::kWireBadRequest, nullptr},
        // Too deep to handle, as a whole frame or as a start sent in a channel.
        {deepArray, velmorin::wire::kWireBadRequest, nullptr},
        {deepStart.dump(), velmorin::wire::kWireBadRequest, 12},
        {"{\"op\":\"send\",\"id\":11,\"data\":\"" + std::string(300 * 1024, 'x') + "\"}",
         velmorin::wire::kWireFrameTooLarge, nullptr},
        {"\x01\x02", velmorin::wire::kWireBinaryFrame, nullptr, true},
    };
    for (const auto& c : cases) {
        alice.send(c.frame, c.binary);
        auto reply = alice.readReply();
        ASSERT_TRUE(reply) << c.frame.substr(0, 60);
        EXPECT_EQ(errorCode(*reply), c.code) << c.frame.substr(0, 60);
        EXPECT_EQ((*reply)["id"], c.id) << c.frame.substr(0, 60);
    }

    // Both connections still work, and bob saw nothing of the above.
    auto sent = alice.request(sendRequest(kChannel, "after the noise"));
    ASSERT_TRUE(sent.value("ok", false)) << sent.dump();
    auto event = bob.readFrame();
    ASSERT_TRUE(event);
    EXPECT_EQ((*event)["type"], "event");
    EXPECT_EQ((*event)["message"]["data"], "after the noise");
    EXPECT_EQ((*event)["message"]["message_id"], sent["result"]["message"]["message_id"]);
    EXPECT_EQ((*event)["channel"]["members"].size(), 2u);
}

TEST(ChatServerProtocolTest, OnlyMembersReadAndSendAndMembersFetchInPages) {
    InProcessServer server;
    RawClient alice(server.port());
    RawClient bob(server.port());
    RawClient carol(server.port());
    ASSERT_TRUE(alice.login("alice").value("ok", false));
    ASSERT_TRUE(bob.login("bob").value("ok", false));
    ASSERT_TRUE(carol.login("carol").value("ok", false));
    std::vector<int64_t> ids;
    for (int i = 0; i < 4; ++i) {
        auto sent = alice.request(sendRequest(kChannel, "m" + std::to_string(i)));
        ids.push_back(sent["result"]["message"]["message_id"].get<int64_t>());
    }

    for (const json& request :
         {json{{"op", "get_channel"}, {"channel_url", kChannel}},
          sendRequest(kChannel, "intrusion"),
          json{{"op", "fetch"}, {"channel_url", kChannel}, {"after_message_id", 0}}}) {
        auto reply = carol.request(request);
        EXPECT_EQ(errorCode(reply), QXDErrorNotAMember) << request.dump();
        EXPECT_EQ(reply["error"]["domain"], "QXDErrorDomain");
        EXPECT_FALSE(reply.contains("result"));
    }
    EXPECT_EQ(errorCode(carol.request({{"op", "get_channel"}, {"channel_url", "nowhere"}})),
              QXDErrorChannelNotFound);

    EXPECT_EQ(server.service->messages("alice", kChannel).value.size(), 4u);
    EXPECT_TRUE(carol.events().empty());

    auto page = bob.request(
        {{"op", "fetch"}, {"channel_url", kChannel}, {"after_message_id", ids[0]}, {"limit", 2}});
    ASSERT_TRUE(page.value("ok", false)) << page.dump();
    ASSERT_EQ(page["result"]["messages"].size(), 2u);
    EXPECT_EQ(page["result"]["messages"][0]["message_id"], ids[1]);
    EXPECT_EQ(page["result"]["messages"][1]["data"], "m2");
    EXPECT_TRUE(page["result"]["has_more"].get<bool>());
    auto rest =
        bob.request({{"op", "fetch"}, {"channel_url", kChannel}, {"after_message_id", ids[2]}});
    ASSERT_EQ(rest["result"]["messages"].size(), 1u);
    EXPECT_FALSE(rest["result"]["has_more"].get<bool>());
}
