// The value types of the RTC port.
#include "VelmorinVideoChat/Platform/RTC/RTCPlatform.h"

TEST(RTCPortTest, ConstraintsReadMandatoryFirstAndBooleansAsLibwebrtcDoes) {
    auto constraints = RTCMediaConstraints::initWithMandatoryConstraints(
        RTCConstraintsMap{{"OfferToReceiveAudio", "TRUE"}, {"OfferToReceiveVideo", "yes"}},
        RTCConstraintsMap{{"OfferToReceiveAudio", "false"}, {"DtlsSrtpKeyAgreement", "true"}});
    EXPECT_EQ(constraints->valueForKey("OfferToReceiveAudio"), "TRUE");
    EXPECT_EQ(constraints->boolForKey("OfferToReceiveAudio"), true);
    EXPECT_EQ(constraints->boolForKey("OfferToReceiveVideo"), false);
    EXPECT_EQ(constraints->boolForKey("DtlsSrtpKeyAgreement"), true);
    EXPECT_EQ(constraints->boolForKey("echoCancellation"), std::nullopt);
    auto empty = RTCMediaConstraints::initWithMandatoryConstraints(std::nullopt, std::nullopt);
    EXPECT_EQ(empty->valueForKey("OfferToReceiveAudio"), std::nullopt);
    EXPECT_FALSE(empty->mandatoryConstraints().has_value());
}

TEST(RTCPortTest, VideoFramesHoldExactlyOneI420Picture) {
    EXPECT_EQ(RTCVideoFrame::frameWithI420(4, 2, std::vector<uint8_t>(11), RTCVideoRotation_0, 0),
              nullptr);
    EXPECT_EQ(RTCVideoFrame::blackFrame(-1, 2, 0), nullptr);
    auto black = RTCVideoFrame::blackFrame(5, 3, 7);  // chroma rounds up to 3 x 2
    ASSERT_NE(black, nullptr);
    EXPECT_EQ(black->dataV() - black->dataU(), 6);
    auto rgba = black->toRGBA();
    ASSERT_EQ(rgba.size(), 5u * 3u * 4u);
    EXPECT_EQ(rgba[rgba.size() - 4], 0);
    EXPECT_EQ(rgba.back(), 255);
}

TEST(RTCPortTest, AudioSessionChangesRouteOnlyUnderTheConfigurationLock) {
    RTCAudioSession session;
    int changes = 0;
    session.setChangeHandler([&] { ++changes; });
    auto configuration = RTCAudioSessionConfiguration::create();
    configuration->setCategory(AVAudioSessionCategoryMultiRoute);
    QXDErrorPtr error;
    EXPECT_FALSE(session.overrideOutputAudioPort(AVAudioSessionPortOverrideSpeaker, &error));
    EXPECT_NE(error, nullptr);
    EXPECT_FALSE(session.setConfiguration(configuration, false));

    session.lockForConfiguration();
    session.lockForConfiguration();  // recursive
    session.unlockForConfiguration();
    EXPECT_TRUE(session.overrideOutputAudioPort(AVAudioSessionPortOverrideSpeaker, &error));
    EXPECT_TRUE(session.setConfiguration(configuration, false));
    session.unlockForConfiguration();
    EXPECT_FALSE(session.isLocked());
    EXPECT_EQ(std::tuple(session.outputRoute(), session.category()),
              std::tuple(RTCAudioOutputRouteSpeaker, AVAudioSessionCategoryMultiRoute));
    EXPECT_TRUE(session.setActive(true)) << "activation needs no lock";
    EXPECT_TRUE(session.setActive(true));
    EXPECT_EQ(changes, 2) << "route once, active once";
}

TEST(RTCPortTest, IceServerDescriptionNeverShowsCredentials) {
    auto server =
        RTCIceServer::initWithURLStrings({"turn:127.0.0.1:3478"}, "1700000000:alice", "s3cr3t");
    EXPECT_EQ(server->credential(), "s3cr3t");
    using namespace ::testing;
    EXPECT_THAT(server->description(), AllOf(HasSubstr("turn:127.0.0.1:3478"),
                                             Not(HasSubstr("s3cr3t")), Not(HasSubstr("alice"))));
}
