#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"

namespace {

QXVCCallMessagePtr signal(const std::string& body) {
    return QXVCMessageParser::parseMessageData("SGNL" + body, 1);
}

template <typename T>
std::shared_ptr<T> as(const QXVCCallMessagePtr& m) {
    return std::dynamic_pointer_cast<T>(m);
}

}  // namespace

TEST(SignalMessages, DispatchOnCommandAndType) {
    EXPECT_TRUE(as<QXVCCandidateMessage>(signal(R"({"type":"candidate"})")));
    EXPECT_TRUE(as<QXVCMediaStreamUpdateMessage>(signal(R"({"type":"audio"})")));
    EXPECT_TRUE(as<QXVCMediaStreamUpdateMessage>(signal(R"({"type":"video"})")));
    for (const char* body : {R"({"type":"offer"})", R"({"type":"answer"})", R"({"type":"Video"})",
                             R"({"type":"renegotiate"})", "{}", "not json"}) {
        const auto m = as<QXVCSignalMessage>(signal(body));
        ASSERT_TRUE(m) << body;
        EXPECT_FALSE(as<QXVCCandidateMessage>(signal(body)));
        EXPECT_FALSE(as<QXVCMediaStreamUpdateMessage>(signal(body)));
    }
    EXPECT_TRUE(as<QXVCStartCallMessage>(QXVCMessageParser::parseMessageData("STCA{}", 1)));
    EXPECT_TRUE(as<QXVCEndCallMessage>(QXVCMessageParser::parseMessageData("ENCA{}", 1)));
    for (const char* data :
         {"STCA", "SGNL", "ENC", "", "XXXX{}", "stca{}", "STC {}", "{}STCA{}", " STCA{}"}) {
        EXPECT_FALSE(QXVCMessageParser::parseMessageData(data, 1)) << data;
    }
}

TEST(SignalMessages, OfferCarriesCompressedAndDecompressedSdp) {
    const std::string sdp =
        "v=0\r\no=- 1 2 IN IP4 127.0.0.1\r\nm=audio 9 UDP/TLS/RTP/SAVPF 111\r\n";
    const std::string compressed = QXVCUtils::compressString(sdp);
    const nlohmann::json body = {{"type", "offer"}, {"call_id", "c"}, {"sdp", compressed}};
    using Sdps = std::pair<std::string, std::string>;
    auto sdps = [](const std::string& text) {
        const auto m = as<QXVCSignalMessage>(signal(text));
        return m ? Sdps(m->compressedSdp(), m->sdp()) : Sdps("no", "message");
    };
    EXPECT_TRUE(as<QXVCSignalMessage>(signal(body.dump()))->isOffer());
    EXPECT_EQ(sdps(body.dump()), Sdps(compressed, sdp));
    // A stream that does not decompress still gives the message, with sdp "".
    EXPECT_EQ(sdps(R"({"type":"answer","sdp":"H4sIAAAA"})"), Sdps("H4sIAAAA", ""));
    EXPECT_EQ(sdps("<xml/>"), Sdps());
}

TEST(SignalMessages, CandidateAndMediaUpdateFieldsAndDefaults) {
    auto c = as<QXVCCandidateMessage>(signal(
        R"({"type":"candidate","sdp":"candidate:1 1 udp 1 1.2.3.4 5 typ relay","sdp_mid":"0",
            "sdp_mline_index":"1"})"));
    ASSERT_TRUE(c);
    EXPECT_EQ(std::tuple(c->sdp(), c->sdpMid(), c->sdpMLineIndex()),
              std::tuple("candidate:1 1 udp 1 1.2.3.4 5 typ relay", "0", 1));
    c = as<QXVCCandidateMessage>(signal(R"({"type":"candidate","sdp_mid":null})"));
    EXPECT_EQ(std::tuple(c->sdp(), c->sdpMid(), c->sdpMLineIndex()), std::tuple("", "", 0));
    const auto video = as<QXVCMediaStreamUpdateMessage>(signal(R"({"type":"video"})"));
    EXPECT_TRUE(video && video->isEnabled());
    for (const char* off : {"false", "\"NO\""}) {
        auto v = as<QXVCMediaStreamUpdateMessage>(
            signal(std::string(R"({"type":"audio","is_enabled":)") + off + "}"));
        ASSERT_TRUE(v && v->isAudio());
        EXPECT_FALSE(v->isEnabled()) << off;
    }
}

TEST(MessageParser, ChatKeepsUnparsableBodiesButPushDropsThem) {
    for (const char* command : {"STCA", "ENCA", "SGNL"}) {
        for (const char* body : {"not json", "[1,2]", "\"text\"", "{\"a\":", "\xff\xfe{}"}) {
            const std::string data = std::string(command) + body;
            const auto chat = QXVCMessageParser::parseMessageData(data, 5);
            ASSERT_TRUE(chat) << data;
            EXPECT_EQ(std::tuple(chat->callId(), chat->type(), chat->version()),
                      std::tuple(std::nullopt, std::nullopt, 1));

            const nlohmann::json push = {{"velmorin", {{"message_id", 5}, {"data", data}}}};
            EXPECT_FALSE(QXVCMessageParser::parsePushNotification(push)) << data;
        }
    }
}

TEST(MessageParser, PushPayloadNeedsSectionIdAndData) {
    const std::string data = R"(ENCA{"call_id":"c9","type":"cancel"})";
    const nlohmann::json good = {
        {"velmorin", {{"message_id", "8000000001"}, {"data", data}, {"custom_type", "x"}}}};
    const auto m = std::dynamic_pointer_cast<QXVCEndCallMessage>(
        QXVCMessageParser::parsePushNotification(good));
    ASSERT_TRUE(m);
    EXPECT_EQ(std::tuple(m->messageId(), m->callId(), m->endType()),
              std::tuple(8000000001, "c9", QXVCEndTypeCancel));

    const nlohmann::json bad[] = {
        nlohmann::json::object(),
        {{"velmorin", "string"}},
        {{"velmorin", {{"data", data}}}},
        {{"velmorin", {{"message_id", {1, 2}}, {"data", data}}}},
        {{"velmorin", {{"message_id", 1}, {"data", nullptr}}}},
        {{"velmorin", {{"message_id", 1}, {"data", "ENCA"}}}},
        nlohmann::json::array(),
    };
    for (const auto& payload : bad) {
        EXPECT_FALSE(QXVCMessageParser::parsePushNotification(payload)) << payload.dump();
    }
}

TEST(MessageParser, UserMessageUsesItsDataAndIdAndWrongTypesNeverThrow) {
    const auto message = std::make_shared<QXDUserMessage>(
        314, "channel", "QX_VIDEOCHAT", "QX_VIDEOCHAT", R"(STCA{"call_id":"c"})", nullptr);
    const auto m = std::dynamic_pointer_cast<QXVCStartCallMessage>(
        QXVCMessageParser::parseUserMessage(message));
    ASSERT_TRUE(m);
    EXPECT_EQ(std::tuple(m->messageId(), m->callId()), std::tuple(int64_t{314}, "c"));
    EXPECT_FALSE(QXVCMessageParser::parseUserMessage(nullptr));

    // Every key holding a value of the wrong JSON kind: defaults or platform conversions.
    const std::string wrong =
        R"({"call_id":12,"type":["start"],"videochat_protocol_ver":"2x","is_audio_call":"yes",
            "caller":"alice","callee":[],"constraints":"none","turn_server":{},"credentials":[1],
            "ender":"bob","period":{},"sdp":false,"sdp_mid":1.5,"sdp_mline_index":[],
            "is_enabled":{}})";
    for (const char* command : {"STCA", "ENCA", "SGNL"}) {
        QXVCCallMessagePtr parsed;
        EXPECT_NO_THROW(parsed = QXVCMessageParser::parseMessageData(command + wrong, 1));
        ASSERT_TRUE(parsed);
        EXPECT_EQ(std::tuple(parsed->callId(), parsed->type(), parsed->version()),
                  std::tuple("12", std::nullopt, 2));
    }
    const auto s = std::dynamic_pointer_cast<QXVCStartCallMessage>(
        QXVCMessageParser::parseMessageData("STCA" + wrong, 1));
    EXPECT_TRUE(s->isAudioCall() && !s->caller() && !s->callee());
    EXPECT_EQ(s->turnServer() + s->callerUsername().value_or("nil"), "");
    const auto e = std::dynamic_pointer_cast<QXVCEndCallMessage>(
        QXVCMessageParser::parseMessageData("ENCA" + wrong, 1));
    EXPECT_EQ(std::tuple(e->enderId(), e->period()),
              std::tuple(std::optional<std::string>(), int64_t{0}));
}
