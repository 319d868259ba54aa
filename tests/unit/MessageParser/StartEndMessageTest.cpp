#include <gtest/gtest.h>

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

const std::optional<std::string> kNil;
const std::optional<std::string> kEmpty = std::string();

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
    ASSERT_TRUE(m);
    EXPECT_EQ(m->callId(), "c-1");
    EXPECT_TRUE(m->isStart());
    EXPECT_EQ(m->version(), 3);
    EXPECT_EQ(m->messageId(), -42);
    EXPECT_TRUE(m->isAudioCall());
    ASSERT_TRUE(m->caller());
    EXPECT_EQ(m->caller()->userId(), "alice");
    EXPECT_EQ(m->caller()->nickname(), "Al");
    EXPECT_EQ(m->caller()->profileUrl(), "https://p/a.png");
    EXPECT_TRUE(m->caller()->isAudioEnabled());
    EXPECT_FALSE(m->caller()->isVideoEnabled());
    ASSERT_TRUE(m->callee());
    EXPECT_EQ(m->callee()->userId(), "bob");
    // The constraints describe the caller only.
    EXPECT_FALSE(m->callee()->isAudioEnabled());
    EXPECT_FALSE(m->callee()->isVideoEnabled());
    EXPECT_EQ(m->turnServer(), "turn:127.0.0.1:3478");
    EXPECT_EQ(m->callerUsername(), "u1");
    EXPECT_EQ(m->callerPassword(), "p1");
    EXPECT_EQ(m->calleeUsername(), "u2");
    EXPECT_EQ(m->calleePassword(), "p2");
    EXPECT_EQ(m->payload()["credentials"]["callee"]["password"], "p2");
}

TEST(StartCallMessage, EmptyObjectGivesEveryDefault) {
    const auto m = start("{}");
    ASSERT_TRUE(m);
    EXPECT_EQ(m->callId(), kNil);
    EXPECT_EQ(m->type(), kNil);
    EXPECT_EQ(m->version(), 1);
    EXPECT_FALSE(m->isAudioCall());
    EXPECT_FALSE(m->caller());
    EXPECT_FALSE(m->callee());
    EXPECT_EQ(m->turnServer(), "");
    EXPECT_EQ(m->callerUsername(), kEmpty);
    EXPECT_EQ(m->callerPassword(), kEmpty);
    EXPECT_EQ(m->calleeUsername(), kEmpty);
    EXPECT_EQ(m->calleePassword(), kEmpty);
    EXPECT_EQ(m->messageId(), 7);
    EXPECT_TRUE(m->payload().is_object());
    EXPECT_TRUE(m->payload().empty());

    // Explicit JSON nulls behave like absent keys.
    const auto n = start(R"({"call_id":null,"type":null,"videochat_protocol_ver":null,
        "is_audio_call":null,"caller":null,"callee":null,"turn_server":null,"credentials":null})");
    ASSERT_TRUE(n);
    EXPECT_EQ(n->callId(), kNil);
    EXPECT_EQ(n->version(), 1);
    EXPECT_FALSE(n->caller());
    EXPECT_EQ(n->turnServer(), "");
    EXPECT_EQ(n->callerUsername(), kEmpty);
}

TEST(StartCallMessage, ConstraintsApplyToTheCallerAfterItIsRead) {
    // No caller: the constraints are not read at all.
    auto m = start(R"({"caller":null,"constraints":{"audio":false,"video":false}})");
    ASSERT_TRUE(m);
    EXPECT_FALSE(m->caller());

    // A caller without constraints is enabled both ways; missing halves default to true.
    m = start(R"({"caller":{"user_id":"a"}})");
    EXPECT_TRUE(m->caller()->isAudioEnabled());
    EXPECT_TRUE(m->caller()->isVideoEnabled());
    m = start(R"({"caller":{"user_id":"a"},"constraints":{"audio":false}})");
    EXPECT_FALSE(m->caller()->isAudioEnabled());
    EXPECT_TRUE(m->caller()->isVideoEnabled());
    m = start(
        R"({"constraints":{"video":0},"caller":{"user_id":"a"}})");  // key order is irrelevant
    EXPECT_TRUE(m->caller()->isAudioEnabled());
    EXPECT_FALSE(m->caller()->isVideoEnabled());
}

TEST(StartCallMessage, CredentialsDistinguishMissingSideFromMissingInnerString) {
    auto m = start(R"({"credentials":{"caller":null}})");
    EXPECT_EQ(m->callerUsername(), kEmpty);
    EXPECT_EQ(m->callerPassword(), kEmpty);
    EXPECT_EQ(m->calleeUsername(), kEmpty);
    EXPECT_EQ(m->calleePassword(), kEmpty);

    // A side object that lacks a string gives nil for that string only.
    m = start(R"({"credentials":{"caller":{"password":"pw"},"callee":{"username":null}}})");
    EXPECT_EQ(m->callerUsername(), kNil);
    EXPECT_EQ(m->callerPassword(), "pw");
    EXPECT_EQ(m->calleeUsername(), kNil);
    EXPECT_EQ(m->calleePassword(), kNil);
}

TEST(EndCallMessage, ReadsServiceFieldsWithPlatformConversions) {
    const auto m = end(R"({"call_id":"c","type":"decline","is_audio_call":1,
        "caller":{"user_id":"a"},"callee":{"user_id":"b"},"ender":{"user_id":"b"},
        "period":"12345"})",
                       99);
    ASSERT_TRUE(m);
    EXPECT_EQ(m->messageId(), 99);
    EXPECT_EQ(m->caller()->userId(), "a");
    EXPECT_FALSE(m->caller()->isAudioEnabled());  // only a start's constraints set the flags
    EXPECT_EQ(m->callee()->userId(), "b");
    EXPECT_EQ(m->enderId(), "b");
    EXPECT_EQ(m->period(), 12345);
    EXPECT_TRUE(m->isAudioCall());
    EXPECT_TRUE(m->isEnd());
    EXPECT_EQ(m->endType(), QXVCEndTypeDecline);

    const auto d = end("{}");
    ASSERT_TRUE(d);
    EXPECT_FALSE(d->caller());
    EXPECT_FALSE(d->callee());
    EXPECT_EQ(d->enderId(), kNil);
    EXPECT_EQ(d->period(), 0);
    EXPECT_FALSE(d->isAudioCall());
    EXPECT_EQ(end(R"({"ender":{}})")->enderId(), kNil);
    EXPECT_EQ(end(R"({"period":4.9e1})")->period(), 49);
}

TEST(CallMessageQueries, EndWordsAndTypeQueriesAreExact) {
    const struct {
        const char* type;
        bool isEnd;
        QXVCEndType endType;
    } rows[] = {
        {"end", true, QXVCEndTypeEnd},         {"decline", true, QXVCEndTypeDecline},
        {"timeout", true, QXVCEndTypeTimeout}, {"cancel", true, QXVCEndTypeCancel},
        {"unknown", true, QXVCEndTypeUnknown}, {"End", false, QXVCEndTypeUnknown},
        {"hangup", false, QXVCEndTypeUnknown}, {"", false, QXVCEndTypeUnknown},
    };
    for (const auto& row : rows) {
        const auto m = end(std::string(R"({"type":")") + row.type + "\"}");
        EXPECT_EQ(m->isEnd(), row.isEnd) << row.type;
        EXPECT_EQ(m->endType(), row.endType) << row.type;
    }
    const auto untyped = end("{}");
    EXPECT_FALSE(untyped->isEnd());
    EXPECT_EQ(untyped->endType(), QXVCEndTypeUnknown);
    EXPECT_FALSE(untyped->isStart() || untyped->isOffer() || untyped->isAnswer() ||
                 untyped->isCandidate() || untyped->isAudio() || untyped->isVideo());

    QXVCCallMessage m;
    m.setType("Offer");
    EXPECT_FALSE(m.isOffer());
    m.setType("offer");
    EXPECT_TRUE(m.isOffer());
    EXPECT_FALSE(m.isAnswer());
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
    EXPECT_FALSE(copy->isAudioEnabled());

    const auto empty = QXVCCallUser::initWithDictionary(nullptr);
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->userId(), "");
}
