// The coordinator's audio session and shared media objects, on the fake engine
// and a manual main queue.
#include <algorithm>

#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCDeviceUtils.h"
#include "support/FakeRTCPlatform.h"
#include "unit/Coordinator/CoordinatorFixture.h"

namespace {

class MediaFactoryTest : public CoordinatorTest {
  protected:
    void SetUp() override {
        CoordinatorTest::SetUp();
        // Start from an empty set whatever earlier tests prepared.
        FakeRTCPlatform::uninstall();
        QXVCMain::prepareVideoDevice();
        rtc = FakeRTCPlatform::install();
        main = QXVCManualQueue::create("main");
        QXVCMainQueue::replaceForTesting(main);
        QXVCMain::setLogLevel(QXVCInternalLogLevelDebug);
    }
    void TearDown() override {
        CoordinatorTest::TearDown();
        FakeRTCPlatform::uninstall();
        QXVCMain::prepareVideoDevice();
        QXVCMainQueue::replaceForTesting(nullptr);
    }

    std::shared_ptr<FakeRTCPlatform> rtc;
    std::shared_ptr<QXVCManualQueue> main;
};

TEST_F(MediaFactoryTest, ConfigSetsUpTheAudioSessionBeforePreparingTheVideoDevice) {
    QXVCMain::config();
    auto entries = rtc->context()->entries();
    auto factory = std::find_if(entries.begin(), entries.end(), [](const std::string& e) {
        return e.rfind("platform.peerConnectionFactory(", 0) == 0;
    });
    ASSERT_NE(factory, entries.end());
    const long configured = rtc->context()->indexOf("audioSession.unlockForConfiguration()");
    EXPECT_TRUE(configured >= 0 && configured < factory - entries.begin());
    EXPECT_NE(QXVCMain::getCameraVideoCapturer(), nullptr);
}

TEST_F(MediaFactoryTest, GettersAreNilUntilPreparedThenReturnTheSameWiredSet) {
    EXPECT_FALSE(QXVCMain::getPeerConnectionFactory() || QXVCMain::getVideoSource() ||
                 QXVCMain::getCameraVideoCapturer());
    EXPECT_TRUE(rtc->factories().empty()) << "getters must never create anything";

    QXVCMain::prepareVideoDevice();
    const auto source = QXVCMain::getVideoSource();
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(QXVCMain::getVideoSource(), source);

    // The set is wired: the source comes from the factory, the capturer feeds it,
    // and the factory got both codec factories with the first codec preferred.
    const auto fakeFactory = rtc->lastFactory();
    ASSERT_EQ(fakeFactory, QXVCMain::getPeerConnectionFactory());
    ASSERT_EQ(fakeFactory->videoSources().size(), 1u);
    EXPECT_EQ(fakeFactory->videoSources()[0], source);
    EXPECT_EQ(QXVCMain::getCameraVideoCapturer()->delegate().lock(), source);
    ASSERT_TRUE(fakeFactory->decoderFactory() && fakeFactory->encoderFactory()->preferredCodec());
    EXPECT_EQ(fakeFactory->encoderFactory()->preferredCodec()->name(), kRTCVideoCodecVp8Name);
}

TEST_F(MediaFactoryTest, PreferredCodecIsTheFirstAvailableOneOrNone) {
    auto h264 = std::make_shared<RTCVideoCodecInfo>(kRTCVideoCodecH264Name);
    auto vp8 = std::make_shared<RTCVideoCodecInfo>(kRTCVideoCodecVp8Name);
    rtc->setEncoderCodecs({h264, vp8});
    EXPECT_EQ(QXVCDeviceUtils::availableVideoCodecs(),
              (std::vector<RTCVideoCodecInfoPtr>{h264, vp8}));
    QXVCMain::prepareVideoDevice();
    EXPECT_EQ(rtc->lastFactory()->encoderFactory()->preferredCodec(), h264);

    rtc->setEncoderCodecs({});
    QXVCMain::prepareVideoDevice();
    EXPECT_EQ(rtc->lastFactory()->encoderFactory()->preferredCodec(), nullptr);
    EXPECT_NE(QXVCMain::getPeerConnectionFactory(), nullptr);
}

TEST_F(MediaFactoryTest, ConfigureAudioSessionAppliesMultiRouteVoiceChatInactiveUnderTheLock) {
    const auto session = rtc->fakeAudioSession();
    ASSERT_TRUE(session->setActive(true));
    rtc->context()->clearEntries();

    QXVCMain::configureAudioSession();
    EXPECT_EQ(
        rtc->context()->entries(),
        (std::vector<std::string>{"audioSession.lockForConfiguration()",
                                  "audioSession.overrideOutputAudioPort(none)",
                                  "audioSession.setConfiguration(AVAudioSessionCategoryMultiRoute,"
                                  "AVAudioSessionModeVoiceChat,active=0)",
                                  "audioSession.unlockForConfiguration()"}));
    EXPECT_FALSE(session->isActive());
    EXPECT_EQ(printed(), std::vector<std::string>{"[QXVC] Audio session configured"});

    // Errors from the session are ignored, and the lock is still released.
    session->setFailsChanges(true);
    QXVCMain::configureAudioSession();
    EXPECT_FALSE(session->isLocked());
}

TEST_F(MediaFactoryTest, AudioActivationGatesTheMicrophoneWithoutTheConfigurationLock) {
    QXVCMain::prepareVideoDevice();
    const auto factory = QXVCMain::getPeerConnectionFactory();
    auto track = std::dynamic_pointer_cast<FakeRTCAudioTrack>(factory->audioTrackWithSource(
        factory->audioSourceWithConstraints(nullptr), kQXVCAudioTrackId));
    ASSERT_NE(track, nullptr);
    rtc->context()->clearEntries();

    EXPECT_TRUE(track->isSendingSilence()) << "the session starts inactive";
    QXVCMain::startAudio();
    EXPECT_FALSE(track->isSendingSilence());
    QXVCMain::stopAudio();
    EXPECT_TRUE(track->isSendingSilence());
    EXPECT_EQ(rtc->context()->entries(),
              (std::vector<std::string>{"audioSession.setActive(1)", "audioSession.setActive(0)"}));
    EXPECT_EQ(printed(),
              (std::vector<std::string>{"[QXVC] Audio started.", "[QXVC] Audio stopped."}));
}

TEST_F(MediaFactoryTest, SpeakerRoutesOnTheMainQueueInOrderAndProximityStaysOn) {
    const auto session = rtc->fakeAudioSession();
    QXVCMain::stopSpeaker();
    QXVCMain::startSpeaker();
    EXPECT_TRUE(session->portOverrides().empty() && printed().empty() &&
                !rtc->isProximityMonitoringEnabled())
        << "nothing happens before the main queue runs";

    main->runUntilIdle();
    using Override = std::pair<AVAudioSessionPortOverride, bool>;
    EXPECT_EQ(session->portOverrides(),
              (std::vector<Override>{{AVAudioSessionPortOverrideNone, true},
                                     {AVAudioSessionPortOverrideSpeaker, true}}));
    EXPECT_EQ(session->outputRoute(), RTCAudioOutputRouteSpeaker);
    EXPECT_TRUE(rtc->isProximityMonitoringEnabled()) << "startSpeaker leaves proximity on";
    EXPECT_EQ(rtc->proximityHistory(), (std::vector<bool>{true}));
    // The play-and-record configuration is built but never applied.
    EXPECT_TRUE(session->appliedConfigurations().empty() && !session->isLocked());
    EXPECT_EQ(printed(),
              (std::vector<std::string>{"[QXVC] Speaker stopped.", "[QXVC] Speaker started."}));

    EXPECT_LT(rtc->context()->indexOf("audioSession.unlockForConfiguration()"),
              rtc->context()->indexOf("device.setProximityMonitoringEnabled(1)"))
        << "proximity is turned on after the route is set";
}

TEST_F(MediaFactoryTest, WithoutAnEngineEverythingIsANoOp) {
    QXVCMain::prepareVideoDevice();
    ASSERT_NE(QXVCMain::getPeerConnectionFactory(), nullptr);
    FakeRTCPlatform::uninstall();

    for (auto step : {&QXVCMain::configureAudioSession, &QXVCMain::startAudio, &QXVCMain::stopAudio,
                      &QXVCMain::startSpeaker, &QXVCMain::stopSpeaker}) {
        step();
    }
    main->runUntilIdle();
    EXPECT_TRUE(QXVCMain::getCameraDeviceList().empty());
    EXPECT_TRUE(QXVCDeviceUtils::availableVideoCodecs().empty());
    EXPECT_FALSE(rtc->isProximityMonitoringEnabled());
    EXPECT_TRUE(rtc->fakeAudioSession()->activeRequests().empty());

    // Preparing again replaces the set with an empty one.
    QXVCMain::prepareVideoDevice();
    EXPECT_FALSE(QXVCMain::getPeerConnectionFactory() || QXVCMain::getCameraVideoCapturer());
}

}  // namespace
