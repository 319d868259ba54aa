// What QXVCClient puts on the wire, as the chat client receives it.
#include <stdexcept>

#include "Client/QXVCClientTesting.h"
#include "VelmorinVideoChat/Call/QXVCBaseCall.h"
#include "VelmorinVideoChat/Client/QXVCClient.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"
#include "support/FakeChatClient.h"

namespace {

using nlohmann::json;

constexpr const char* kChannel = "channel-1";
constexpr const char* kCallId = "6f1c2b1e-3d2a-4c7e-9a55-0d1e2f3a4b5c";

struct Result {
    int calls = 0;
    QXDUserMessagePtr message;
    QXDErrorPtr error;
    long code() const { return error ? error->code() : 0; }
};

QXDUserMessageHandler recordInto(Result& result) {
    return [&result](QXDUserMessagePtr message, QXDErrorPtr error) {
        ++result.calls;
        result.message = std::move(message);
        result.error = std::move(error);
    };
}

/// Splits data into its command and parsed body, checking the layout: four
/// letters directly followed by "{".
std::pair<std::string, json> splitData(const std::string& data) {
    EXPECT_GE(data.size(), 5u) << data;
    EXPECT_EQ(data[4], '{') << data;
    auto body = json::parse(data.substr(4), nullptr, false);
    EXPECT_TRUE(body.is_object()) << data;
    return {data.substr(0, 4), body};
}

class ClientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        client = FakeChatClient::create("alice");
        client->addChannel(kChannel);
        QXDMain::setChatClient(client);
        call = QXVCBaseCall::init();
        call->setChannelUrl(kChannel);
        call->setCallId(kCallId);
    }
    void TearDown() override {
        qxvc::client::setCompressorForTesting(nullptr);
        QXDMain::setChatClient(nullptr);
    }

    FakeChatClient::Sent onlySent() {
        auto sent = client->sent();
        EXPECT_EQ(sent.size(), 1u);
        return sent.empty() ? FakeChatClient::Sent{} : sent.front();
    }

    std::shared_ptr<FakeChatClient> client;
    std::shared_ptr<QXVCBaseCall> call;
};

TEST_F(ClientTest, StartIsSentWithoutCallIdUnderTheBareCustomType) {
    call->setAudioCall(true);
    Result result;
    QXVCClient::sendStartCall(call, true, false, recordInto(result));

    auto sent = onlySent();
    EXPECT_EQ(std::tuple(sent.channelUrl, sent.message, sent.customType),
              std::tuple(kChannel, "QX_VIDEOCHAT", "QX_VIDEOCHAT"));
    auto [command, body] = splitData(sent.data);
    EXPECT_EQ(command, "STCA");
    EXPECT_EQ(body, (json{{"type", "start"},
                          {"videochat_protocol_ver", 1},
                          {"constraints", {{"audio", true}, {"video", false}}},
                          {"is_audio_call", true}}));
    EXPECT_TRUE(body["videochat_protocol_ver"].is_number_integer());
    EXPECT_FALSE(body.contains("call_id"));

    ASSERT_EQ(result.calls, 1);
    EXPECT_EQ(result.message ? result.message->data() : "", sent.data);
}

TEST_F(ClientTest, EveryInCallCommandCarriesTheCallIdInCustomTypeAndBody) {
    struct Case {
        std::string name;
        std::function<void(const QXDUserMessageHandler&)> send;
        std::string command;
        json expected;  // without "call_id" and "videochat_protocol_ver"
    };
    auto withMid = std::make_shared<const RTCIceCandidate>(
        "candidate:1 1 udp 41885439 10.0.0.1 50000 typ relay raddr 0.0.0.0 rport 0", 1,
        std::optional<std::string>("video"));
    auto bare = std::make_shared<const RTCIceCandidate>(std::nullopt, 0, std::nullopt);
    std::vector<Case> cases = {
        {"candidate",
         [&](auto h) { QXVCClient::sendCandidateCall(call, withMid, h); },
         "SGNL",
         {{"type", "candidate"},
          {"sdp_mid", "video"},
          {"sdp_mline_index", 1},
          {"sdp", "candidate:1 1 udp 41885439 10.0.0.1 50000 typ relay raddr 0.0.0.0 rport 0"}}},
        {"candidate without mid or line",
         [&](auto h) { QXVCClient::sendCandidateCall(call, bare, h); },
         "SGNL",
         {{"type", "candidate"}, {"sdp_mid", ""}, {"sdp_mline_index", 0}, {"sdp", ""}}},
        {"audio off",
         [&](auto h) { QXVCClient::sendAudioUpdateCall(call, false, h); },
         "SGNL",
         {{"type", "audio"}, {"is_enabled", false}}},
        {"video on",
         [&](auto h) { QXVCClient::sendVideoUpdateCall(call, true, h); },
         "SGNL",
         {{"type", "video"}, {"is_enabled", true}}},
        {"end decline",
         [&](auto h) { QXVCClient::sendEndCall(call, QXVCEndTypeDecline, h); },
         "ENCA",
         {{"type", "decline"}, {"is_audio_call", false}}},
        {"end out of range",
         [&](auto h) { QXVCClient::sendEndCall(call, static_cast<QXVCEndType>(42), h); },
         "ENCA",
         {{"type", "unknown"}, {"is_audio_call", false}}},
    };
    size_t index = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Result result;
        c.send(recordInto(result));
        auto sent = client->sent();
        ASSERT_EQ(sent.size(), index + 1);
        EXPECT_EQ(std::tuple(sent[index].message, sent[index].customType),
                  std::tuple(std::string("QX_VIDEOCHAT"), std::string("QX_VIDEOCHAT_") + kCallId));
        auto [command, body] = splitData(sent[index].data);
        EXPECT_EQ(command, c.command);
        json expected = c.expected;
        expected["call_id"] = kCallId;
        expected["videochat_protocol_ver"] = 1;
        EXPECT_EQ(body, expected);
        if (body.contains("sdp_mline_index")) {
            EXPECT_TRUE(body["sdp_mline_index"].is_number_integer());
        }
        EXPECT_EQ(std::tuple(result.calls, result.error), std::tuple(1, QXDErrorPtr()));
        ++index;
    }
}

TEST_F(ClientTest, OfferAndAnswerCarryTheCompressedDescription) {
    const std::string sdp = "v=0\r\no=- 1 2 IN IP4 127.0.0.1\r\ns=-\r\nt=0 0\r\n";
    call->setAudioCall(true);
    QXVCClient::sendOfferCall(call, sdp);
    QXVCClient::sendAnswerCall(call, sdp);
    auto sent = client->sent();
    ASSERT_EQ(sent.size(), 2u);
    const char* types[] = {"offer", "answer"};
    for (size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(types[i]);
        EXPECT_EQ(sent[i].customType, std::string("QX_VIDEOCHAT_") + kCallId);
        auto [command, body] = splitData(sent[i].data);
        EXPECT_EQ(command, "SGNL");
        ASSERT_TRUE(body["sdp"].is_string());
        EXPECT_EQ(QXVCUtils::decompressString(body["sdp"].get<std::string>()), sdp);
        body.erase("sdp");
        EXPECT_EQ(body,
                  (json{{"type", types[i]}, {"call_id", kCallId}, {"videochat_protocol_ver", 1}}));
    }
}

TEST_F(ClientTest, CompressionFailureStopsTheAnswerButNotAnUnwatchedOffer) {
    auto failure = QXVCMakeError(QXVCErrorUnknown, QXVCErrorUnknown);
    qxvc::client::setCompressorForTesting(
        [failure](const std::optional<std::string>&, QXDErrorPtr* error) {
            if (error) {
                *error = failure;
            }
            return std::string();
        });

    Result offer, answer;
    QXVCClient::sendOfferCall(call, "v=0", recordInto(offer));
    QXVCClient::sendAnswerCall(call, "v=0", recordInto(answer));
    QXVCClient::sendAnswerCall(call, "v=0");
    EXPECT_EQ(std::tuple(offer.calls, offer.code()), std::tuple(1, long{QXVCErrorUnknown}));
    EXPECT_EQ(std::tuple(answer.calls, answer.code()), std::tuple(1, long{QXVCErrorUnknown}));
    EXPECT_TRUE(client->sent().empty());
    EXPECT_EQ(client->lookupCount(), 0u);

    QXVCClient::sendOfferCall(call, "v=0");  // nobody to tell: sent with an empty sdp
    EXPECT_EQ(splitData(onlySent().data).second["sdp"], "");
}

TEST_F(ClientTest, AbsentDescriptionFailsCompressionWithTheNilCode) {
    Result answer;
    QXVCClient::sendAnswerCall(call, std::nullopt, recordInto(answer));
    EXPECT_EQ(answer.code(), long{QXVCErrorInvalidParameter});
    QXVCClient::sendOfferCall(call, std::nullopt);
    EXPECT_EQ(splitData(onlySent().data).second["sdp"], "");
}

TEST_F(ClientTest, EverySendLooksTheChannelUpAgainAndReportsLookupFailure) {
    QXVCClient::sendAudioUpdateCall(call, true);
    QXVCClient::sendAudioUpdateCall(call, false);
    EXPECT_EQ(client->lookupCount(), 2u);

    auto lookupError = QXDError::errorWithDomain("QXDErrorDomain", 800220, std::nullopt);
    client->failLookups(lookupError);
    Result result;
    QXVCClient::sendEndCall(call, QXVCEndTypeEnd, recordInto(result));
    EXPECT_EQ(std::tuple(result.calls, result.error), std::tuple(1, lookupError));
    EXPECT_EQ(client->sent().size(), 2u);
}

TEST_F(ClientTest, SendFailureReachesTheHandlerUnchangedAndAThrowingHandlerIsContained) {
    auto sendError = QXDError::errorWithDomain("QXDErrorDomain", 900600, std::nullopt);
    client->failSends(sendError);
    Result result;
    QXVCClient::sendStartCall(call, true, true, recordInto(result));
    EXPECT_EQ(result.error, sendError);
    EXPECT_NO_THROW(QXVCClient::sendStartCall(
        call, true, true, [](QXDUserMessagePtr, QXDErrorPtr) { throw std::runtime_error("app"); }));
}

TEST_F(ClientTest, InCallCommandsWithoutACallIdAreRefusedBeforeAnyLookup) {
    call->setCallId("");
    std::vector<std::function<void(const QXDUserMessageHandler&)>> sends = {
        [&](auto h) { QXVCClient::sendOfferCall(call, "v=0", h); },
        [&](auto h) { QXVCClient::sendAnswerCall(call, "v=0", h); },
        [&](auto h) {
            QXVCClient::sendCandidateCall(call,
                                          std::make_shared<const RTCIceCandidate>("a", 0, "0"), h);
        },
        [&](auto h) { QXVCClient::sendAudioUpdateCall(call, true, h); },
        [&](auto h) { QXVCClient::sendVideoUpdateCall(call, true, h); },
        [&](auto h) { QXVCClient::sendEndCall(call, QXVCEndTypeEnd, h); },
        [&](auto h) { QXVCClient::sendStartCall(nullptr, true, true, h); },
        [&](auto h) { QXVCClient::sendEndCall(nullptr, QXVCEndTypeEnd, h); },
    };
    for (size_t i = 0; i < sends.size(); ++i) {
        SCOPED_TRACE(i);
        Result result;
        sends[i](recordInto(result));
        EXPECT_EQ(std::tuple(result.calls, result.code()),
                  std::tuple(1, long{QXVCErrorInvalidParameter}));
    }
    call->setCallId(kCallId);
    Result noCandidate;
    QXVCClient::sendCandidateCall(call, nullptr, recordInto(noCandidate));
    EXPECT_NE(noCandidate.error, nullptr);
    EXPECT_EQ(client->lookupCount(), 0u);
    EXPECT_TRUE(client->sent().empty());
}

TEST(ClientParams, UnserialisableBodyIsWrittenAsAnEmptyObject) {
    auto params = QXVCClient::buildMessageParamsWithSignalingCommand(
        "SGNL", json{{"sdp", std::string("\xff\xfe")}}, std::optional<std::string>("id"));
    EXPECT_EQ(std::tuple(params->data(), params->customType(), params->message()),
              std::tuple("SGNL{}", "QX_VIDEOCHAT_id", "QX_VIDEOCHAT"));
}

}  // namespace
