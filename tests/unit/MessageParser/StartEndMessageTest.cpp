#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/Utils/QXVCFormat.h"

namespace {

std::shared_ptr<QXVCStartCallMessage> start(const std::string& body, int64_t id = 7) {
    return std::dynamic_pointer_cast<QXVCStartCallMessage>(
        QXVCMessageParser::parseMessageData("STCA" + body, id));
}

std::shared_ptr<QXVCEndCallMessage> end(const std::string& body, int64_t id = 7) {
    return std::dynamic_pointer_cast<QXVCEndCallMessage>(
        QXVCMessageParser::parseMessageData("ENCA" + body, id));
}

using Strings = std::vector<std::optional<std::string>>;
const std::optional<std::string> kNil;
const std::string kEmpty;

Strings credentials(const QXVCStartCallMessage& m) {
    return {m.callerUsername(), m.callerPassword(), m.calleeUsername(), m.calleePassword()};
}

}  // namespace

TEST(StartCallMessage, ReadsEveryFieldOfTheServiceEcho) {
    const auto m = start(R"({"call_id":"c-1","type":"start","videochat_protocol_ver":3,
        "is_audio_call":true,
        "caller":{"user_id":"alice","nickname":"Al","profile_url":"https://p/a.png"},
        "callee":{"user_id":"bob","nickname":"Bo","profile_url":""},
        "constraints":{"audio":true,"video":false},
        "turn_server":"turn:127.0.0.1:3478",
        "credentials":{"caller":{"username":"u1","password":"p1"},
                       "callee":{"username":"u2","password":"p2"}}})",
                         -42);
    ASSERT_TRUE(m && m->caller() && m->callee());
    EXPECT_TRUE(m->isStart() && m->isAudioCall());
    EXPECT_EQ(std::tuple(m->callId(), m->version(), m->messageId(), m->turnServer()),
              std::tuple("c-1", 3, -42, "turn:127.0.0.1:3478"));
    // The constraints describe the caller only.
    EXPECT_EQ(m->caller()->description().substr(m->caller()->description().find(", user id")),
              ", user id: alice, nickname: Al, profile url: https://p/a.png, audio: 1, video: 0>");
    EXPECT_EQ(m->callee()->description().substr(m->callee()->description().find(", user id")),
              ", user id: bob, nickname: Bo, profile url: , audio: 0, video: 0>");
    EXPECT_EQ(credentials(*m), (Strings{"u1", "p1", "u2", "p2"}));
}

TEST(StartCallMessage, AbsentAndNullKeysGiveTheirDefaults) {
    for (const char* body :
         {"{}", R"({"call_id":null,"type":null,"videochat_protocol_ver":null,"is_audio_call":null,
                    "caller":null,"callee":null,"turn_server":null,"credentials":null})"}) {
        SCOPED_TRACE(body);
        const auto m = start(body);
        ASSERT_TRUE(m);
        EXPECT_EQ(std::tuple(m->callId(), m->type(), m->version(), m->turnServer(), m->messageId()),
                  std::tuple(kNil, kNil, 1, "", 7));
        EXPECT_FALSE(m->isAudioCall() || m->caller() || m->callee());
        EXPECT_EQ(credentials(*m), (Strings{kEmpty, kEmpty, kEmpty, kEmpty}));
    }
    // A side object that lacks a string gives nil for that string only.
    EXPECT_EQ(credentials(*start(R"({"credentials":{"caller":{"password":"pw"},
                                                    "callee":{"username":null}}})")),
              (Strings{kNil, "pw", kNil, kNil}));
}

TEST(StartCallMessage, ConstraintsApplyToTheCallerWhateverTheKeyOrder) {
    EXPECT_FALSE(start(R"({"caller":null,"constraints":{"audio":false}})")->caller());
    const std::pair<const char*, std::pair<bool, bool>> rows[] = {
        {R"({"caller":{"user_id":"a"}})", {true, true}},
        {R"({"caller":{"user_id":"a"},"constraints":{"audio":false}})", {false, true}},
        {R"({"constraints":{"video":0},"caller":{"user_id":"a"}})", {true, false}},
    };
    for (const auto& [body, flags] : rows) {
        const auto caller = start(body)->caller();
        EXPECT_EQ(std::make_pair(caller->isAudioEnabled(), caller->isVideoEnabled()), flags)
            << body;
    }
}

TEST(EndCallMessage, ReadsServiceFieldsWithPlatformConversions) {
    const auto m = end(R"({"call_id":"c","type":"decline","is_audio_call":1,
        "caller":{"user_id":"a"},"callee":{"user_id":"b"},"ender":{"user_id":"b"},
        "period":"12345"})",
                       99);
    ASSERT_TRUE(m && m->caller() && m->callee());
    EXPECT_FALSE(m->caller()->isAudioEnabled());  // only a start's constraints set the flags
    EXPECT_TRUE(m->isAudioCall());
    EXPECT_EQ(std::tuple(m->messageId(), m->callee()->userId(), m->enderId(), m->period()),
              std::tuple(99, "b", "b", 12345));

    const auto d = end("{}");
    EXPECT_FALSE(d->caller() || d->callee() || d->isAudioCall());
    EXPECT_EQ(std::tuple(d->enderId(), d->period()), std::tuple(kNil, int64_t{0}));
    EXPECT_EQ(end(R"({"ender":{}})")->enderId(), kNil);
    EXPECT_EQ(end(R"({"period":4.9e1})")->period(), 49);
}

TEST(CallMessageQueries, EndWordsAndTypeQueriesAreExact) {
    const std::tuple<const char*, bool, QXVCEndType> rows[] = {
        {"end", true, QXVCEndTypeEnd},         {"decline", true, QXVCEndTypeDecline},
        {"timeout", true, QXVCEndTypeTimeout}, {"cancel", true, QXVCEndTypeCancel},
        {"unknown", true, QXVCEndTypeUnknown}, {"End", false, QXVCEndTypeUnknown},
        {"", false, QXVCEndTypeUnknown},
    };
    for (const auto& [type, isEnd, endType] : rows) {
        const auto m = end(std::string(R"({"type":")") + type + "\"}");
        EXPECT_EQ(std::tuple(m->isEnd(), m->endType()), std::tuple(isEnd, endType)) << type;
    }
    const auto untyped = end("{}");
    EXPECT_FALSE(untyped->isEnd() || untyped->isStart() || untyped->isOffer() ||
                 untyped->isAnswer() || untyped->isCandidate() || untyped->isAudio() ||
                 untyped->isVideo());
    EXPECT_EQ(untyped->endType(), QXVCEndTypeUnknown);
    QXVCCallMessage m;
    m.setType("Offer");
    EXPECT_FALSE(m.isOffer());
}

TEST(CallUser, DescriptionAndCopy) {
    const nlohmann::json d = {{"user_id", "alice"}, {"nickname", "Al"}, {"profile_url", "u"}};
    const auto user = QXVCCallUser::initWithDictionary(&d);
    user->setIsVideoEnabled(true);
    const std::string address = qxvc::format("%p", static_cast<const void*>(user.get()));
    EXPECT_EQ(user->description(),
              "<QXVCCallUser, " + address + ", super class: <QXVCCallUser: " + address +
                  ">, user id: alice, nickname: Al, profile url: u, " + "audio: 0, video: 1>");

    const auto copy = user->copy();
    ASSERT_NE(copy, user);
    copy->setUserId("other");
    EXPECT_EQ(user->userId(), "alice");
    EXPECT_TRUE(copy->isVideoEnabled());
    EXPECT_EQ(QXVCCallUser::initWithDictionary(nullptr)->userId(), "");
}
