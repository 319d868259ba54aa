#include "RTCGstVideoWindow.h"

#include <gst/app/gstappsrc.h>

#include <algorithm>
#include <vector>

#include "RTCGstFrames.h"
#include "RTCGstHandles.h"

struct RTCGstVideoWindow::Pipeline {
    rtcgst::Owned<GstElement> pipeline;
    rtcgst::Owned<GstElement> appsrc;
};

namespace {

constexpr int kInsetDivisor = 4;
constexpr int kInsetMargin = 8;

/// Copies `inset` scaled down (nearest pixel) into the bottom-right corner of
/// the I420 picture `out` (width x height).
void drawInset(std::vector<uint8_t>& out, int width, int height, const RTCVideoFrame& inset) {
    const int insetWidth = (width / kInsetDivisor) & ~1;
    const int insetHeight = insetWidth * inset.height() / std::max(1, inset.width()) & ~1;
    const int left = (width - insetWidth - kInsetMargin) & ~1;
    const int top = (height - insetHeight - kInsetMargin) & ~1;
    if (insetWidth < 2 || insetHeight < 2 || left < 0 || top < 0) {
        return;
    }
    const int chromaWidth = (width + 1) / 2;
    uint8_t* planes[3] = {out.data(), out.data() + size_t(width) * size_t(height),
                          out.data() + size_t(width) * size_t(height) +
                              size_t(chromaWidth) * size_t((height + 1) / 2)};
    const uint8_t* sources[3] = {inset.dataY(), inset.dataU(), inset.dataV()};
    const int sourceStrides[3] = {inset.strideY(), inset.strideU(), inset.strideV()};
    for (int plane = 0; plane < 3; ++plane) {
        const int shift = plane == 0 ? 0 : 1;
        const int stride = plane == 0 ? width : chromaWidth;
        const int sourceWidth = (inset.width() + shift) >> shift;
        const int sourceHeight = (inset.height() + shift) >> shift;
        for (int y = 0; y < insetHeight >> shift; ++y) {
            const int sy = y * sourceHeight / std::max(1, insetHeight >> shift);
            uint8_t* row =
                planes[plane] + size_t((top >> shift) + y) * size_t(stride) + size_t(left >> shift);
            const uint8_t* sourceRow = sources[plane] + size_t(sy) * size_t(sourceStrides[plane]);
            for (int x = 0; x < insetWidth >> shift; ++x) {
                row[x] = sourceRow[x * sourceWidth / std::max(1, insetWidth >> shift)];
            }
        }
    }
}

class InsetRenderer final : public RTCVideoRenderer {
  public:
    explicit InsetRenderer(std::weak_ptr<RTCGstVideoWindow> window) : window_(std::move(window)) {}
    void setSize(CGSize) override {}
    void renderFrame(const RTCVideoFramePtr& frame) override {
        if (auto window = window_.lock(); window && frame) {
            forward(*window, frame);
        }
    }
    std::function<void(RTCGstVideoWindow&, const RTCVideoFramePtr&)> forward;

  private:
    std::weak_ptr<RTCGstVideoWindow> window_;
};

}  // namespace

std::shared_ptr<RTCGstVideoWindow> RTCGstVideoWindow::open(std::string& error) {
    if (!gst_init_check(nullptr, nullptr, nullptr)) {
        error = "GStreamer cannot start";
        return nullptr;
    }
    GError* parseError = nullptr;
    auto pipeline = rtcgst::sink(gst_parse_launch(
        "appsrc name=src is-live=true do-timestamp=true format=time ! videoconvert "
        "! ximagesink sync=false force-aspect-ratio=true",
        &parseError));
    if (!pipeline) {
        error = parseError ? parseError->message : "ximagesink is missing";
        g_clear_error(&parseError);
        return nullptr;
    }
    g_clear_error(&parseError);
    // Opening the display happens on the way to READY.
    if (gst_element_set_state(pipeline.get(), GST_STATE_READY) == GST_STATE_CHANGE_FAILURE) {
        gst_element_set_state(pipeline.get(), GST_STATE_NULL);
        error = "no X display can be opened (is DISPLAY set?)";
        return nullptr;
    }
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    auto parts = std::make_unique<Pipeline>();
    parts->appsrc.reset(gst_bin_get_by_name(GST_BIN(pipeline.get()), "src"));
    parts->pipeline = std::move(pipeline);
    return std::shared_ptr<RTCGstVideoWindow>(new RTCGstVideoWindow(std::move(parts)));
}

RTCGstVideoWindow::RTCGstVideoWindow(std::unique_ptr<Pipeline> pipeline)
    : pipeline_(std::move(pipeline)) {}

RTCGstVideoWindow::~RTCGstVideoWindow() {
    close();
}

void RTCGstVideoWindow::close() {
    std::unique_ptr<Pipeline> pipeline;
    {
        std::lock_guard lock(mutex_);
        pipeline = std::move(pipeline_);
    }
    if (pipeline) {
        gst_element_set_state(pipeline->pipeline.get(), GST_STATE_NULL);
    }
}

void RTCGstVideoWindow::setSize(CGSize /*size*/) {
    // The window follows the frames themselves.
}

void RTCGstVideoWindow::renderFrame(const RTCVideoFramePtr& frame) {
    if (!frame) {
        return;
    }
    std::vector<uint8_t> pixels = frame->i420();
    RTCVideoFramePtr inset;
    {
        std::lock_guard lock(mutex_);
        haveMain_ = true;
        inset = inset_;
    }
    if (inset) {
        drawInset(pixels, frame->width(), frame->height(), *inset);
    }
    if (auto composed =
            RTCVideoFrame::frameWithI420(frame->width(), frame->height(), std::move(pixels),
                                         frame->rotation(), frame->timeStampNs())) {
        show(*composed);
    }
}

RTCVideoRendererPtr RTCGstVideoWindow::insetRenderer() {
    auto renderer = std::make_shared<InsetRenderer>(weak_from_this());
    renderer->forward = [](RTCGstVideoWindow& window, const RTCVideoFramePtr& frame) {
        window.setInset(frame);
    };
    return renderer;
}

void RTCGstVideoWindow::setInset(const RTCVideoFramePtr& frame) {
    bool alone;
    {
        std::lock_guard lock(mutex_);
        inset_ = frame;
        alone = !haveMain_;
    }
    if (alone) {
        show(*frame);
    }
}

void RTCGstVideoWindow::show(const RTCVideoFrame& frame) {
    std::lock_guard lock(mutex_);
    if (!pipeline_) {
        return;
    }
    GstElement* appsrc = pipeline_->appsrc.get();
    if (frame.width() != width_ || frame.height() != height_) {
        width_ = frame.width();
        height_ = frame.height();
        rtcgst::OwnedCaps caps(gst_caps_new_simple(
            "video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT, width_, "height",
            G_TYPE_INT, height_, "framerate", GST_TYPE_FRACTION, 0, 1, nullptr));
        gst_app_src_set_caps(GST_APP_SRC(appsrc), caps.get());
    }
    if (gst_app_src_push_buffer(GST_APP_SRC(appsrc), rtcgst::bufferFromFrame(frame)) ==
        GST_FLOW_OK) {
        shown_.fetch_add(1);
    }
}
