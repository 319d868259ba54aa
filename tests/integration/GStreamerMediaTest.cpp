// Local media controls on a running relay-only call: the enabled flags of the
// tracks, the audio session's gate on the microphone, the senders' bitrate cap
// and camera switching in place.
#include <numeric>

#include "GStreamerTurnTest.h"
#include "RTCGstCapturer.h"

namespace {

double meanLuma(const RTCVideoFramePtr& frame) {
    if (!frame) {
        return -1;
    }
    size_t n = size_t(frame->width()) * size_t(frame->height());
    return double(std::accumulate(frame->dataY(), frame->dataY() + n, uint64_t{0})) / double(n);
}

class GStreamerMediaTest : public GStreamerTurnTest {
  protected:
    void SetUp() override {
        GStreamerTurnTest::SetUp();
        ASSERT_NO_FATAL_FAILURE(connect(5, "dave"));
    }
    void TearDown() override {
        platform_->audioSession()->setActive(false);
        GStreamerTurnTest::TearDown();
    }
};

TEST_F(GStreamerMediaTest, MicrophoneFollowsTrackAndAudioSessionAndADisabledCameraSendsBlack) {
    auto& a = *call_.a;
    auto session = platform_->audioSession();
    session->setActive(false);
    EXPECT_TRUE(a.waitFor(5, [&] { return a.pc->stats().audioMuted; }))
        << "inactive session is silent";
    session->setActive(true);
    EXPECT_TRUE(a.waitFor(5, [&] { return !a.pc->stats().audioMuted; }));
    a.audioTrack->setIsEnabled(false);
    EXPECT_TRUE(a.waitFor(5, [&] { return a.pc->stats().audioMuted; }))
        << "disabled track is silent";
    // Silence is still sent: the far side keeps decoding audio.
    uint64_t decoded = call_.b->pc->stats().audioBuffersDecoded;
    EXPECT_TRUE(
        a.waitFor(10, [&] { return call_.b->pc->stats().audioBuffersDecoded > decoded + 20; }));
    a.audioTrack->setIsEnabled(true);
    EXPECT_TRUE(a.waitFor(5, [&] { return !a.pc->stats().audioMuted; }));

    auto& b = *call_.b;
    EXPECT_GT(meanLuma(b.remoteRenderer->lastFrame()), 40) << "colour bars";
    call_.a->videoTrack->setIsEnabled(false);
    EXPECT_TRUE(b.waitFor(10, [&] { return meanLuma(b.remoteRenderer->lastFrame()) < 24; }));
    uint64_t frames = b.remoteRenderer->frames();
    EXPECT_TRUE(b.waitFor(10, [&] { return b.remoteRenderer->frames() > frames + 10; }))
        << "still flowing";
    call_.a->videoTrack->setIsEnabled(true);
    EXPECT_TRUE(b.waitFor(10, [&] { return meanLuma(b.remoteRenderer->lastFrame()) > 40; }));
}

TEST_F(GStreamerMediaTest, SenderBitrateCapReachesTheEncoderAndTheCameraSwitchesInPlace) {
    auto& a = *call_.a;
    auto parameters = a.videoSender->parameters();
    ASSERT_EQ(parameters.encodings.size(), 1u);
    parameters.encodings[0].maxBitrateBps = 300000;
    EXPECT_TRUE(a.videoSender->setParameters(parameters));
    EXPECT_TRUE(a.waitFor(5, [&] { return a.pc->stats().videoEncoderBitrateBps == 300000; }));
    // A cap above the engine's default leaves the default.
    parameters.encodings[0].maxBitrateBps = 20971520;
    EXPECT_TRUE(a.videoSender->setParameters(parameters));
    EXPECT_TRUE(a.waitFor(5, [&] {
        return a.pc->stats().videoEncoderBitrateBps == platform_->options().defaultVideoBitrateBps;
    }));
    parameters.encodings[0].maxBitrateBps = 0;
    EXPECT_FALSE(a.videoSender->setParameters(parameters));

    // The camera switches in place and the far side sees the new size.
    auto& b = *call_.b;
    auto [back, hd] = GStreamerCamera(*platform_, AVCaptureDevicePositionBack, 1280, 720);
    ASSERT_NE(back, nullptr);
    std::atomic<bool> started{false};
    a.capturer->startCaptureWithDevice(back, hd, 15, [&](QXDErrorPtr error) { started = !error; });
    EXPECT_TRUE(started);
    EXPECT_TRUE(b.waitFor(20, [&] { return b.remoteRenderer->size() == (CGSize{1280, 720}); }));
    auto* capturer = dynamic_cast<RTCGstCameraVideoCapturer*>(a.capturer.get());
    ASSERT_NE(capturer, nullptr);
    EXPECT_EQ(capturer->currentDevice(), back);
    // A missing format is refused and capture goes on as it was.
    std::atomic<bool> refused{false};
    a.capturer->startCaptureWithDevice(back, nullptr, 30,
                                       [&](QXDErrorPtr error) { refused = error != nullptr; });
    EXPECT_TRUE(refused);
    EXPECT_EQ(capturer->currentDevice(), back);
}

}  // namespace
