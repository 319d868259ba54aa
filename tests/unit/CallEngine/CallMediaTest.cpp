// Capture format and frame-rate choice, the camera switch and the media controls.
#include <cmath>

#include "unit/CallEngine/CallEngineFixture.h"

namespace {

RTCCaptureDeviceFormatPtr format(int32_t width, int32_t height, FourCharCode pixels,
                                 std::vector<RTCFrameRateRange> ranges = {{1, 30}}) {
    return std::make_shared<RTCCaptureDeviceFormat>(width, height, pixels, std::move(ranges));
}

RTCCaptureDevicePtr device(std::vector<RTCCaptureDeviceFormatPtr> formats) {
    return std::make_shared<RTCCaptureDevice>("cam", "Camera", AVCaptureDevicePositionFront,
                                              std::move(formats));
}

}  // namespace

TEST_F(CallEngineTest, FormatChoiceComparesTheTargetAsGivenAndPrefersThePixelFormatOnTies) {
    constexpr FourCharCode kOther = kCVPixelFormatType_32BGRA;
    FourCharCode preferred = capturer()->preferredOutputPixelFormat();
    ASSERT_NE(preferred, kOther);
    auto call = bareCall("format");
    auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
    call->setOptions(options);
    auto camera = device({format(640, 480, kOther), format(1280, 720, kOther),
                          format(1920, 1080, kOther), format(1920, 1440, kOther)});
    // The portrait default 1080 x 1920 picks the 4:3 landscape format.
    EXPECT_EQ(call->selectFormatForDevice(camera), camera->formats()[3]);
    options->setResolution({1280, 720});
    EXPECT_EQ(call->selectFormatForDevice(camera)->width(), 1280);

    auto second = format(1280, 720, preferred);
    EXPECT_EQ(call->selectFormatForDevice(device({format(1280, 720, kOther), second})), second);
    auto first = format(1280, 720, preferred);
    EXPECT_EQ(call->selectFormatForDevice(device({first, format(1280, 720, kOther)})), first);
    EXPECT_EQ(call->selectFormatForDevice(device({})), nullptr);
}

TEST_F(CallEngineTest, FrameRateIsTheHighestRangeCappedAt30WhateverTheOptionsSay) {
    auto call = bareCall("fps");
    auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
    options->setVideoFps(15);
    call->setOptions(options);
    auto pixels = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    EXPECT_EQ(call->selectFpsForFormat(format(640, 480, pixels, {{1, 24}, {1, 60}})), 30);
    EXPECT_EQ(call->selectFpsForFormat(format(640, 480, pixels, {{1, 24}, {1, std::nan("")}})), 24);
    EXPECT_EQ(call->selectFpsForFormat(format(640, 480, pixels, {})), 0);
}

TEST_F(CallEngineTest, CameraStartsAtTheFrontByDefaultAndSwitchesWithThePositionMapping) {
    auto call = incomingCall();
    ASSERT_TRUE(acceptAndNegotiate(call));
    auto cam = capturer();
    ASSERT_TRUE(cam->current());
    EXPECT_EQ(cam->current()->fps, 30);
    // {the call's position, the capturing device's}, now and after each switch.
    auto positions = [&] {
        return std::pair(call->currentPosition(), cam->current()->device->position());
    };
    EXPECT_EQ(positions(), std::pair(QXVCCameraPositionFront, AVCaptureDevicePositionFront));
    call->switchCamera();
    EXPECT_EQ(positions(), std::pair(QXVCCameraPositionBack, AVCaptureDevicePositionBack));
    call->switchCamera();
    EXPECT_EQ(positions(), std::pair(QXVCCameraPositionFront, AVCaptureDevicePositionFront));

    // Unspecified counts as not front: the switch goes to the front camera.
    call->setCurrentPosition(QXVCCameraPositionUnspecified);
    call->switchCamera();
    EXPECT_EQ(call->currentPosition(), QXVCCameraPositionFront);

    // A missing camera: capture stays as it was, the position changes anyway.
    platform->setCaptureDevices({platform->captureDevices().front()});
    size_t starts = cam->starts().size();
    call->switchCamera();
    EXPECT_EQ(call->currentPosition(), QXVCCameraPositionBack);
    EXPECT_EQ(cam->starts().size(), starts);
}

TEST_F(CallEngineTest, MediaControlsKeepTheirOrderAndAnnounceEveryChange) {
    auto call = incomingCall();
    ASSERT_TRUE(acceptAndNegotiate(call));
    auto context = platform->context();
    auto audio = call->audioTrack();
    auto video = call->localVideoTrack();
    ASSERT_TRUE(audio && video);
    // The default options offer to receive both.
    const auto offered = fakeConnection(call)->offerConstraints().at(0);
    EXPECT_EQ(std::tuple(offered->valueForKey("OfferToReceiveAudio"),
                         offered->valueForKey("OfferToReceiveVideo")),
              std::tuple(std::optional<std::string>("true"), std::optional<std::string>("true")));
    size_t before = chat->sent().size();

    context->clearEntries();
    call->muteMicrophone();
    EXPECT_FALSE(audio->isEnabled());
    long trackOff = context->indexOf("audioTrack(ARDAMSa0).setIsEnabled(0)");
    long audioOff = context->indexOf("audioSession.setActive(0)");
    EXPECT_TRUE(trackOff >= 0 && audioOff > trackOff);

    context->clearEntries();
    call->unmuteMicrophone();
    EXPECT_TRUE(audio->isEnabled());
    long audioOn = context->indexOf("audioSession.setActive(1)");
    long trackOn = context->indexOf("audioTrack(ARDAMSa0).setIsEnabled(1)");
    EXPECT_TRUE(audioOn >= 0 && trackOn > audioOn);

    call->stopVideo();
    EXPECT_FALSE(video->isEnabled());
    call->startVideo();
    call->startVideo();  // sent even when nothing changed
    EXPECT_TRUE(video->isEnabled());

    auto all = sentMessages();
    EXPECT_EQ(Strings(all.begin() + static_cast<long>(before), all.end()),
              (Strings{"SGNL audio off", "SGNL audio on", "SGNL video off", "SGNL video on",
                       "SGNL video on"}));
}
