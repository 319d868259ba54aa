#include <cmath>

#include "VelmorinVideoChat/Category/NSDictionary+VelmorinVideoChat.h"
#include "VelmorinVideoChat/Category/RTCIceCandidate+VelmorinVideoChat.h"
#include "VelmorinVideoChat/Category/RTCSessionDescription+VelmorinVideoChat.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"

namespace {

struct CapturedLog {
    std::vector<std::pair<int, std::string>> lines;
    CapturedLog() {
        RTCSetLogSink(
            [this](int severity, const std::string& text) { lines.emplace_back(severity, text); });
    }
    ~CapturedLog() { RTCSetLogSink(nullptr); }
};

nlohmann::json parsed(const std::optional<std::string>& data) {
    return data ? nlohmann::json::parse(*data, nullptr, false) : nlohmann::json();
}

}  // namespace

TEST(DictionaryToString, CompactTextOrBracesWhenItCannotBeWritten) {
    const nlohmann::json d = {{"call_id", "a/b"}, {"n", 1}, {"nested", {{"x", {1, 2}}}}};
    const std::string text = qxvc_toString(d);
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text.find(": "), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(text), d);

    for (const nlohmann::json& bad :
         {nlohmann::json{{"deep", {{"bad", std::string("ok\xc3")}}}}, nlohmann::json::array({1}),
          nlohmann::json(nullptr), nlohmann::json{{"n", {1.5, std::nan("")}}},
          nlohmann::json{{"bin", nlohmann::json::binary({1, 2})}}}) {
        EXPECT_EQ(qxvc_toString(bad), "{}");
    }
    EXPECT_EQ(qxvc_toString({{"u", "Grüße"}}), "{\"u\":\"Grüße\"}");
}

TEST(IceCandidateJSON, WritesEmptyStringsForAbsentMidAndLine) {
    const RTCIceCandidate full("candidate:1 1 udp 2 10.0.0.1 3478 typ relay", 1, "video");
    EXPECT_EQ(qxvc_JSONDictionary(full),
              nlohmann::json({{"label", 1},
                              {"id", "video"},
                              {"candidate", "candidate:1 1 udp 2 10.0.0.1 3478 typ relay"}}));
    const RTCIceCandidate bare(std::nullopt, 0, std::nullopt);
    EXPECT_EQ(qxvc_JSONDictionary(bare),
              nlohmann::json({{"label", 0}, {"id", ""}, {"candidate", ""}}));

    const auto data = qxvc_JSONData(full);
    ASSERT_TRUE(data);
    EXPECT_NE(data->find("\n  \""), std::string::npos);  // pretty-printed
    auto doc = parsed(data);
    EXPECT_EQ(doc["type"], "candidate");
    doc.erase("type");
    EXPECT_EQ(doc, qxvc_JSONDictionary(full));

    const auto list = parsed(
        qxvc_JSONDataForIceCandidates({std::make_shared<const RTCIceCandidate>(full), nullptr,
                                       std::make_shared<const RTCIceCandidate>(bare)},
                                      "remote"));
    EXPECT_EQ(list, nlohmann::json(
                        {{"type", "remote"},
                         {"candidates", {qxvc_JSONDictionary(full), qxvc_JSONDictionary(bare)}}}));
}

TEST(IceCandidateJSON, SerialisationErrorsLogOneErrorLineAndGiveNull) {
    CapturedLog log;
    const RTCIceCandidate bad(std::string("candidate:\xff"), 0, "0");
    EXPECT_EQ(qxvc_JSONData(bad), std::nullopt);
    EXPECT_EQ(qxvc_JSONDataForIceCandidates({}, "type\xc0"), std::nullopt);
    ASSERT_EQ(log.lines.size(), 2u);
    EXPECT_EQ(log.lines[0].first, 3);
    using ::testing::StartsWith;
    EXPECT_THAT(log.lines[0].second,
                StartsWith("(RTCIceCandidate+VelmorinVideoChat.cpp:80 -[RTCIceCandidate("
                           "VelmorinVideoChat) qxvc_JSONData]): Error serializing JSON: "));
    EXPECT_THAT(log.lines[1].second,
                StartsWith("(RTCIceCandidate+VelmorinVideoChat.cpp:49 +[RTCIceCandidate("
                           "VelmorinVideoChat) qxvc_JSONDataForIceCandidates:withType:]): Error "
                           "serializing JSON: "));
}

TEST(IceCandidateJSON, ReadsLenientlyWithoutValidation) {
    auto c = qxvc_candidateFromJSONDictionary({{"label", "1"}, {"candidate", "a=x"}});
    ASSERT_TRUE(c);
    EXPECT_EQ(std::tuple(c->sdpMLineIndex(), c->sdpMid()),
              std::tuple(1, std::optional<std::string>()));
    c = qxvc_candidateFromJSONDictionary(nlohmann::json::object());
    EXPECT_EQ(c ? c->sdp() : "not read", std::nullopt);
    EXPECT_FALSE(qxvc_candidateFromJSONDictionary("text"));

    EXPECT_TRUE(qxvc_candidatesFromJSONDictionary({{"type", "x"}}).empty());
    EXPECT_TRUE(qxvc_candidatesFromJSONDictionary({{"candidates", "x"}}).empty());
    const auto list = qxvc_candidatesFromJSONDictionary(
        {{"candidates", {{{"id", "a"}, {"label", 2}}, 5, {{"id", "b"}}}}});
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(std::tuple(list[0]->sdpMid(), list[0]->sdpMLineIndex(), list[1]->sdpMid()),
              std::tuple("a", 2, "b"));

    const RTCIceCandidate original("candidate:9", 3, "audio");  // what is written reads back
    EXPECT_EQ(qxvc_JSONDictionary(*qxvc_candidateFromJSONDictionary(qxvc_JSONDictionary(original))),
              qxvc_JSONDictionary(original));
}

TEST(SessionDescriptionJSON, TypeTextsAndRoundTrip) {
    for (const auto& [type, text] :
         {std::pair(RTCSdpTypeOffer, "offer"), std::pair(RTCSdpTypePrAnswer, "pranswer"),
          std::pair(RTCSdpTypeAnswer, "answer"), std::pair(RTCSdpTypeRollback, "rollback")}) {
        EXPECT_EQ(RTCSessionDescription::stringForType(type), text);
        EXPECT_EQ(RTCSessionDescription::typeForString(text), type);
    }
    EXPECT_EQ(RTCSessionDescription::typeForString("Answer"), RTCSdpTypeOffer);
    EXPECT_EQ(RTCSessionDescription::typeForString(""), RTCSdpTypeOffer);

    const RTCSessionDescription answer(RTCSdpTypeAnswer, "v=0\r\ns=-\r\n");
    const auto data = qxvc_JSONData(answer);
    ASSERT_TRUE(data);
    EXPECT_EQ(data->find('\n'), std::string::npos);  // compact; the SDP's breaks are escaped
    const auto doc = parsed(data);
    EXPECT_EQ(doc, nlohmann::json({{"type", "answer"}, {"sdp", "v=0\r\ns=-\r\n"}}));
    const auto back = qxvc_descriptionFromJSONDictionary(doc);
    ASSERT_TRUE(back);
    EXPECT_EQ(std::tuple(back->type(), back->sdp()), std::tuple(RTCSdpTypeAnswer, answer.sdp()));

    EXPECT_EQ(qxvc_JSONData(RTCSessionDescription(RTCSdpTypeOffer, "\xff")), std::nullopt);
    const auto missing = qxvc_descriptionFromJSONDictionary(nlohmann::json::object());
    EXPECT_EQ(missing ? missing->sdp() : "not read", "");
    EXPECT_FALSE(qxvc_descriptionFromJSONDictionary(nlohmann::json::array()));
}
