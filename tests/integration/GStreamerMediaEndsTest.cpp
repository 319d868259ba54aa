// The media ends of the engine, each side on an engine of its own: an audio
// file as the microphone reaches the far side's recording of what it
// received; a video file as the camera reaches the far side; the test camera's
// pictures say whose they are; a microphone and a camera that do not exist are
// reported, and the call goes on without them.
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <tuple>

#include "AudioAnalysis.h"
#include "GStreamerTurnTest.h"
#include "RTCGstCameraDevices.h"
#include "RTCGstFrameTag.h"

namespace {

class GStreamerMediaEndsTest : public GStreamerTurnTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(GStreamerTurnTest::SetUp());
        char folder[] = "/tmp/velmorin-media.XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        dir_ = folder;
    }
    void TearDown() override {
        GStreamerTurnTest::TearDown();
        if (!HasFailure()) {
            std::filesystem::remove_all(dir_);
        }
    }
    static bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

    std::string dir_;
    std::atomic<bool> microphoneNamed_{false};
};

TEST_F(GStreamerMediaEndsTest, FilesStandInForDevicesAndMissingDevicesAreReported) {
    const std::string speech = dir_ + "/speech.wav";
    const std::string movie = dir_ + "/red.webm";
    const std::string received = dir_ + "/received.wav";
    ASSERT_TRUE(run("espeak-ng -w " + speech + " 'One two three, the file is the microphone.'"));
    ASSERT_TRUE(
        run("gst-launch-1.0 -q videotestsrc pattern=red num-buffers=45 "
            "! video/x-raw,width=320,height=240,framerate=15/1 ! vp8enc ! webmmux "
            "! filesink location=" +
            movie));

    auto alice = options();
    alice.media.microphone = speech;
    alice.media.voiceProcessing = false;  // the file as it is, for the comparison
    alice.media.cameraLabel = "alice";
    auto bob = options();
    bob.media.microphone = "no-such-microphone";
    bob.media.frontCamera = movie;
    bob.media.recordAudioPath = received;
    bob.media.warningHandler = [this](const std::string& warning) {
        microphoneNamed_ =
            microphoneNamed_ || warning.find("no-such-microphone") != std::string::npos;
    };
    auto a = RTCGstPlatform::create(alice);
    auto b = RTCGstPlatform::create(bob);
    ASSERT_TRUE(a && b);
    RTCPlatform::install(a);
    a->audioSession()->setActive(true);  // the microphone is not muted
    call_ = GStreamerCall::start(a, callOptions("erin"), b);
    ASSERT_TRUE(call_.error.empty()) << call_.error;

    // Bob sees alice's test camera, which says so in every picture.
    auto& bobSide = *call_.b;
    ASSERT_TRUE(bobSide.waitFor(30, [&] { return bobSide.remoteRenderer->frames() > 10; }));
    auto frame = bobSide.remoteRenderer->lastFrame();
    auto tag =
        RTCGstReadFrameTag(frame->dataY(), frame->width(), frame->height(), frame->strideY());
    ASSERT_TRUE(tag.has_value());
    EXPECT_EQ(tag->label, "alice - front");
    // Alice sees bob's movie: red, which is V well above neutral.
    auto& aliceSide = *call_.a;
    ASSERT_TRUE(aliceSide.waitFor(30, [&] { return aliceSide.remoteRenderer->frames() > 10; }));
    auto movieFrame = aliceSide.remoteRenderer->lastFrame();
    const auto* v = movieFrame->dataV();
    EXPECT_GT(
        v[movieFrame->strideV() * movieFrame->chromaHeight() / 2 + movieFrame->chromaWidth() / 2],
        200);

    // Bob's recording holds what alice's file said. The file plays in a loop
    // from wherever it was when the call began: two loops' worth of recording
    // hold one whole loop, found at some lag below one loop's length.
    std::string error;
    ASSERT_TRUE(run("sox " + speech + " -r 48000 " + dir_ + "/speech48.wav"));
    auto said = readAudioFile(dir_ + "/speech48.wav", error);
    ASSERT_TRUE(said) << error;
    const auto wanted = uintmax_t(2.2 * said->seconds() * 48000 * 2);
    ASSERT_TRUE(bobSide.waitFor(30, [&] {
        std::error_code ignored;
        return std::filesystem::file_size(received, ignored) > wanted && !ignored;
    }));
    call_.close();
    auto heard = readAudioFile(received, error);
    ASSERT_TRUE(heard) << error;
    auto match = matchAudio(*said, *heard, 0.2, said->seconds() - 0.2, said->seconds() + 0.5);
    EXPECT_GT(match.correlation, 0.6);
    EXPECT_TRUE(microphoneNamed_) << "the missing microphone is named";
}

TEST(GStreamerCameraFormats, V4L2CapsBecomeFormatsWithTheirFrameRates) {
    ASSERT_TRUE(gst_init_check(nullptr, nullptr, nullptr));
    // What a webcam reports: raw YUY2 sizes with a list of rates or a range,
    // the same size again at other rates, MJPEG, and a size given as a range.
    GstCaps* caps = gst_caps_from_string(
        "video/x-raw,format=YUY2,width=640,height=480,framerate={ 30/1, 15/1 };"
        "video/x-raw,format=YUY2,width=1280,height=720,framerate=[ 5/1, 10/1 ];"
        "video/x-raw,format=YUY2,width=640,height=480,framerate=60/1;"
        "image/jpeg,width=1920,height=1080,framerate=30000/1001;"
        "video/x-raw,format=NV12,width=[ 1, 4096 ],height=[ 1, 4096 ]");
    ASSERT_NE(caps, nullptr);
    const auto formats = RTCGstCaptureFormats(caps);
    gst_caps_unref(caps);
    // Size, pixel format, and the slowest and fastest rate in hundredths.
    std::vector<std::tuple<int, int, FourCharCode, long, long>> seen;
    for (const auto& format : formats) {
        const auto& rates = format->videoSupportedFrameRateRanges().at(0);
        seen.emplace_back(format->width(), format->height(), format->mediaSubType(),
                          std::lround(rates.minFrameRate * 100),
                          std::lround(rates.maxFrameRate * 100));
    }
    EXPECT_EQ(seen, (decltype(seen){{640, 480, kRTCGstPixelFormatYUY2, 1500, 6000},
                                    {1280, 720, kRTCGstPixelFormatYUY2, 500, 1000},
                                    {1920, 1080, kRTCGstPixelFormatMJPEG, 2997, 2997}}));
    EXPECT_EQ(RTCGstCaptureCapsName(formats[2]->mediaSubType()), "image/jpeg");
}

}  // namespace
