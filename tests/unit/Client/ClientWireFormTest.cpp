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

using Codes = std::vector<long>;

QXDUserMessageHandler recordInto(Codes& codes) {
    return [&codes](QXDUserMessagePtr, QXDErrorPtr e) { codes.push_back(e ? e->code() : 0); };
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
    QXDUserMessagePtr echo;
    QXVCClient::sendStartCall(call, true, false, [&](auto m, auto) { echo = m; });

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
    EXPECT_EQ(echo ? echo->data() : "", sent.data);
}

TEST_F(ClientTest, EveryInCallCommandCarriesTheCallIdInCustomTypeAndBody) {
    const std::string line =
        "candidate:1 1 udp 41885439 10.0.0.1 50000 typ relay raddr 0.0.0.0 rport 0";
    Codes codes;
    QXVCClient::sendCandidateCall(call, std::make_shared<const RTCIceCandidate>(line, 1, "video"),
                                  recordInto(codes));
    QXVCClient::sendCandidateCall(
        call, std::make_shared<const RTCIceCandidate>(std::nullopt, 0, std::nullopt),
        recordInto(codes));
    QXVCClient::sendAudioUpdateCall(call, false, recordInto(codes));
    QXVCClient::sendVideoUpdateCall(call, true, recordInto(codes));
    QXVCClient::sendEndCall(call, QXVCEndTypeDecline, recordInto(codes));
    QXVCClient::sendEndCall(call, static_cast<QXVCEndType>(42), recordInto(codes));
    EXPECT_EQ(codes, Codes(6, 0));

    std::vector<std::pair<std::string, json>> sent;
    for (const auto& message : client->sent()) {
        EXPECT_EQ(std::tuple(message.message, message.customType),
                  std::tuple("QX_VIDEOCHAT", std::string("QX_VIDEOCHAT_") + kCallId));
        sent.push_back(splitData(message.data));
    }
    auto wire = [](const char* command, json body) {
        body.update({{"call_id", kCallId}, {"videochat_protocol_ver", 1}});
        return std::pair(std::string(command), body);
    };
    EXPECT_EQ(
        sent,
        (std::vector{
            wire("SGNL", {{"type", "candidate"},
                          {"sdp_mid", "video"},
                          {"sdp_mline_index", 1},
                          {"sdp", line}}),
            wire("SGNL",
                 {{"type", "candidate"}, {"sdp_mid", ""}, {"sdp_mline_index", 0}, {"sdp", ""}}),
            wire("SGNL", {{"type", "audio"}, {"is_enabled", false}}),
            wire("SGNL", {{"type", "video"}, {"is_enabled", true}}),
            wire("ENCA", {{"type", "decline"}, {"is_audio_call", false}}),
            wire("ENCA", {{"type", "unknown"}, {"is_audio_call", false}}),
        }));
    ASSERT_EQ(sent.size(), 6u);
    EXPECT_TRUE(sent[0].second["sdp_mline_index"].is_number_integer());
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

    Codes codes;
    QXVCClient::sendOfferCall(call, "v=0", recordInto(codes));
    QXVCClient::sendAnswerCall(call, "v=0", recordInto(codes));
    QXVCClient::sendAnswerCall(call, "v=0");
    EXPECT_EQ(codes, Codes(2, QXVCErrorUnknown));
    EXPECT_TRUE(client->sent().empty());
    EXPECT_EQ(client->lookupCount(), 0u);

    QXVCClient::sendOfferCall(call, "v=0");  // nobody to tell: sent with an empty sdp
    EXPECT_EQ(splitData(onlySent().data).second["sdp"], "");
}

TEST_F(ClientTest, AbsentDescriptionFailsCompressionWithTheNilCode) {
    Codes codes;
    QXVCClient::sendAnswerCall(call, std::nullopt, recordInto(codes));
    EXPECT_EQ(codes, Codes{QXVCErrorInvalidParameter});
    QXVCClient::sendOfferCall(call, std::nullopt);
    EXPECT_EQ(splitData(onlySent().data).second["sdp"], "");
}

TEST_F(ClientTest, EverySendLooksTheChannelUpAgainAndReportsLookupFailure) {
    QXVCClient::sendAudioUpdateCall(call, true);
    QXVCClient::sendAudioUpdateCall(call, false);
    EXPECT_EQ(client->lookupCount(), 2u);

    auto lookupError = QXDError::errorWithDomain("QXDErrorDomain", 800220, std::nullopt);
    client->failLookups(lookupError);
    std::vector<QXDErrorPtr> heard;
    QXVCClient::sendEndCall(call, QXVCEndTypeEnd, [&](auto, auto e) { heard.push_back(e); });
    EXPECT_EQ(heard, std::vector{lookupError});
    EXPECT_EQ(client->sent().size(), 2u);
}

TEST_F(ClientTest, SendFailureReachesTheHandlerUnchangedAndAThrowingHandlerIsContained) {
    auto sendError = QXDError::errorWithDomain("QXDErrorDomain", 900600, std::nullopt);
    client->failSends(sendError);
    QXDErrorPtr heard;
    QXVCClient::sendStartCall(call, true, true, [&](auto, auto e) { heard = e; });
    EXPECT_EQ(heard, sendError);
    EXPECT_NO_THROW(QXVCClient::sendStartCall(
        call, true, true, [](QXDUserMessagePtr, QXDErrorPtr) { throw std::runtime_error("app"); }));
}

TEST_F(ClientTest, InCallCommandsWithoutACallIdAreRefusedBeforeAnyLookup) {
    call->setCallId("");
    Codes codes;
    QXVCClient::sendOfferCall(call, "v=0", recordInto(codes));
    QXVCClient::sendAnswerCall(call, "v=0", recordInto(codes));
    QXVCClient::sendCandidateCall(call, std::make_shared<const RTCIceCandidate>("a", 0, "0"),
                                  recordInto(codes));
    QXVCClient::sendAudioUpdateCall(call, true, recordInto(codes));
    QXVCClient::sendVideoUpdateCall(call, true, recordInto(codes));
    QXVCClient::sendEndCall(call, QXVCEndTypeEnd, recordInto(codes));
    QXVCClient::sendStartCall(nullptr, true, true, recordInto(codes));
    QXVCClient::sendEndCall(nullptr, QXVCEndTypeEnd, recordInto(codes));
    call->setCallId(kCallId);
    QXVCClient::sendCandidateCall(call, nullptr, recordInto(codes));
    EXPECT_EQ(codes, Codes(9, QXVCErrorInvalidParameter));
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
