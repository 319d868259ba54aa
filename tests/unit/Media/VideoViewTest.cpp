// The remote and local video views.
#include <png.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <thread>

#include "VelmorinVideoChat/View/QXVCLocalVideoView.h"
#include "VelmorinVideoChat/View/QXVCRemoteVideoView.h"
#include "support/FakeRTCCapture.h"

namespace {

struct SizeRecorder : RTCVideoViewDelegate {
    void videoView(const std::shared_ptr<RTCVideoRenderer>& view, CGSize size) override {
        std::lock_guard lock(mutex);
        views.push_back(view);
        sizes.push_back(size);
    }
    std::mutex mutex;
    std::vector<std::shared_ptr<RTCVideoRenderer>> views;
    std::vector<CGSize> sizes;
};

// A frame whose left half is pure luma `left` and right half `right` (grey).
RTCVideoFramePtr greyFrame(int32_t w, int32_t h, uint8_t left, uint8_t right,
                           RTCVideoRotation rotation = RTCVideoRotation_0) {
    std::vector<uint8_t> data(RTCVideoFrame::i420Size(w, h), 128);
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            data[static_cast<size_t>(y * w + x)] = x < w / 2 ? left : right;
        }
    }
    return RTCVideoFrame::frameWithI420(w, h, std::move(data), rotation, 0);
}

TEST(RemoteVideoViewTest, CountsFramesAndReportsOnlyChangesOfSize) {
    auto view = QXVCRemoteVideoView::create();
    auto delegate = std::make_shared<SizeRecorder>();
    view->setDelegate(delegate);
    view->setSize({640, 480});  // the engine announces the size first
    for (int i = 0; i < 3; ++i) {
        view->renderFrame(greyFrame(640, 480, 16, 235));
    }
    view->renderFrame(nullptr);
    view->renderFrame(greyFrame(1280, 720, 16, 235));
    view->setSize({1280, 720});
    view->renderFrame(greyFrame(1280, 720, 16, 235, RTCVideoRotation_90));

    EXPECT_EQ(view->frameCount(), 5u);
    EXPECT_EQ(delegate->sizes, (std::vector<CGSize>{{640, 480}, {1280, 720}, {720, 1280}}));
    EXPECT_EQ(delegate->views[0], view);

    // The delegate is weak: once the application drops it, nothing is called.
    delegate.reset();
    EXPECT_EQ(view->delegate(), nullptr);
    view->renderFrame(greyFrame(320, 240, 16, 235));
    EXPECT_EQ(view->frameCount(), 6u);
}

TEST(RemoteVideoViewTest, WritesTheLatestFrameAsPngAndContentModeChangesNothing) {
    auto view = QXVCRemoteVideoView::create();
    const std::string path = ::testing::TempDir() + "qxvc_remote_view.png";
    EXPECT_TRUE(view->latestFramePNG().empty());
    EXPECT_FALSE(view->writeLatestFrameToPNG(path));

    view->renderFrame(greyFrame(6, 4, 200, 200));
    view->renderFrame(greyFrame(7, 5, 16, 235));  // odd sizes: chroma rounds up
    const auto before = view->latestFramePNG();
    view->setVideoContentMode(2);
    EXPECT_EQ(view->latestFramePNG(), before);

    ASSERT_TRUE(view->writeLatestFrameToPNG(path));
    png_image image{};  // read back with libpng, as RGB8
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, path.c_str())) << image.message;
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr)) << image.message;
    std::remove(path.c_str());
    EXPECT_EQ(std::tuple(image.width, image.height), std::tuple(7u, 5u));
    // Three columns black, four white, all rows alike.
    std::vector<uint8_t> row(9, 0);
    row.resize(21, 255);
    for (uint32_t y = 0; y < 5; ++y) {
        EXPECT_EQ(std::vector<uint8_t>(rgb.begin() + y * 21, rgb.begin() + y * 21 + 21), row)
            << "row " << y;
    }

    EXPECT_FALSE(view->writeLatestFrameToPNG("/nonexistent-dir/x.png"));
}

TEST(RemoteVideoViewTest, FramesFromTheEngineThreadRaceNothing) {
    auto view = QXVCRemoteVideoView::create();
    auto delegate = std::make_shared<SizeRecorder>();
    view->setDelegate(delegate);
    std::atomic<bool> done{false};
    std::thread engine([&] {
        for (int i = 0; i < 200; ++i) {
            view->renderFrame(i % 2 == 0 ? greyFrame(8, 6, 16, 235) : greyFrame(4, 2, 16, 235));
        }
        done = true;
    });
    size_t pngs = 0;
    while (!done) {
        pngs += view->latestFramePNG().empty() ? 0 : 1;
        view->setVideoContentMode(1);
        (void)view->videoSize();
    }
    engine.join();
    EXPECT_EQ(view->frameCount(), 200u);
    std::lock_guard lock(delegate->mutex);
    EXPECT_EQ(delegate->sizes.size(), 200u);  // every frame changes the size here
}

TEST(LocalVideoViewTest, PreviewsTheCaptureSessionItIsGiven) {
    auto context = std::make_shared<FakeRTCContext>();
    FakeRTCCameraVideoCapturer capturer(context, "capturer1", {});
    const auto device = FakeRTCDefaultCaptureDevices()[0];
    capturer.startCaptureWithDevice(device, device->formats()[0], 30);

    auto view = QXVCLocalVideoView::create();
    EXPECT_EQ(view->captureSession(), nullptr);
    view->setCaptureSession(capturer.captureSession());
    view->setCaptureSession(capturer.captureSession());  // twice: still one preview
    EXPECT_EQ(capturer.fakeSession()->previewRenderers().size(), 1u);

    ASSERT_TRUE(capturer.captureFrame() && capturer.captureFrame());
    EXPECT_EQ(view->previewFrameCount(), 2u);
    EXPECT_EQ(view->latestPreviewFrame() ? view->latestPreviewFrame()->width() : 0, 640);

    view->setCaptureSession(nullptr);
    EXPECT_TRUE(capturer.fakeSession()->previewRenderers().empty());
    capturer.captureFrame();
    EXPECT_EQ(view->previewFrameCount(), 2u);

    // A view that goes away leaves the session.
    view->setCaptureSession(capturer.captureSession());
    view.reset();
    EXPECT_TRUE(capturer.fakeSession()->previewRenderers().empty());
}

}  // namespace
