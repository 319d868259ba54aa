#include "RTCGstCapturer.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <algorithm>
#include <string>
#include <thread>

#include "RTCGstFrameTag.h"
#include "RTCGstFrames.h"
#include "RTCGstMediaSettings.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

void RTCGstCaptureSession::addPreviewRenderer(const RTCVideoRendererPtr& renderer) {
    if (!renderer) {
        return;
    }
    std::lock_guard lock(mutex_);
    if (std::find(renderers_.begin(), renderers_.end(), renderer) == renderers_.end()) {
        renderers_.push_back(renderer);
    }
}

void RTCGstCaptureSession::removePreviewRenderer(const RTCVideoRendererPtr& renderer) {
    std::lock_guard lock(mutex_);
    std::erase(renderers_, renderer);
}

void RTCGstCaptureSession::deliver(const RTCVideoFramePtr& frame) {
    std::vector<RTCVideoRendererPtr> renderers;
    CGSize size{double(frame->width()), double(frame->height())};
    bool changed;
    {
        std::lock_guard lock(mutex_);
        renderers = renderers_;
        changed = !(lastSize_ == size);
        lastSize_ = size;
    }
    for (auto& renderer : renderers) {
        if (changed) {
            qxvc::safeCall("preview setSize", [&] { renderer->setSize(size); });
        }
        qxvc::safeCall("preview renderFrame", [&] { renderer->renderFrame(frame); });
    }
}

namespace {

/// What a capture pipeline is made of.
struct CaptureSource {
    std::string description;  ///< ends in "appsink name=sink"
    std::string fallback;     ///< tried when `description` cannot be made
    std::string tag;          ///< test cameras: the label of their frame tags
    bool file = false;
};

std::string rawCaps(const RTCCaptureDeviceFormat& format) {
    return "video/x-raw,format=I420,width=" + std::to_string(format.width()) +
           ",height=" + std::to_string(format.height());
}

CaptureSource sourceFor(const RTCCaptureDevice& device, const RTCCaptureDeviceFormat& format,
                        int fps, const std::string& user) {
    CaptureSource source;
    const std::string& id = device.uniqueId();
    const std::string rate = std::to_string(fps) + "/1";
    const std::string sink = " ! appsink name=sink max-buffers=2 drop=true";
    if (id == kRTCGstFrontCameraId || id == kRTCGstBackCameraId) {
        const bool front = id == kRTCGstFrontCameraId;
        source.tag = (user.empty() ? "" : user + " - ") + (front ? "front" : "back");
        const std::string pattern =
            front ? "pattern=smpte" : "pattern=ball background-color=0xff203060";
        const std::string test = "videotestsrc is-live=true " + pattern +
                                 " ! video/x-raw,width=" + std::to_string(format.width()) +
                                 ",height=" + std::to_string(format.height()) +
                                 ",framerate=" + rate;
        // Text below the tag's rows (at most width/20 pixels high).
        const int pad = format.width() / 20 + 8;
        const int points = std::max(8, format.height() / 24);
        const std::string overlays =
            " ! textoverlay name=label valignment=top halignment=left shaded-background=true "
            "ypad=" +
            std::to_string(pad) + " font-desc=\"Sans Bold " + std::to_string(points) +
            "\" ! clockoverlay valignment=bottom halignment=right shaded-background=true "
            "time-format=\"%H:%M:%S\" font-desc=\"Sans " +
            std::to_string(points) + "\"";
        const std::string tail = " ! videoconvert ! " + rawCaps(format) + sink + " sync=false";
        source.description = test + overlays + tail;
        source.fallback = test + tail;
    } else if (id.rfind(kRTCGstV4L2CameraPrefix, 0) == 0) {
        const bool jpeg = format.mediaSubType() == kRTCGstPixelFormatMJPEG;
        source.description =
            "v4l2src name=src ! capsfilter name=camcaps ! " +
            std::string(jpeg ? "jpegdec ! " : "") +
            "videoconvert ! videoscale ! videorate drop-only=true max-rate=" + std::to_string(fps) +
            " ! " + rawCaps(format) + sink + " sync=false";
    } else if (id.rfind(kRTCGstFileCameraPrefix, 0) == 0) {
        source.file = true;
        source.description =
            "filesrc name=src ! decodebin ! videoconvert ! videoscale add-borders=true ! "
            "videorate ! " +
            rawCaps(format) + ",pixel-aspect-ratio=1/1,framerate=" + rate + sink + " sync=true";
    }
    return source;
}

rtcgst::Owned<> makePipeline(const CaptureSource& source, std::string& error) {
    for (const auto* description : {&source.description, &source.fallback}) {
        if (description->empty()) {
            continue;
        }
        GError* parsed = nullptr;
        auto pipeline = rtcgst::sink(gst_parse_launch(description->c_str(), &parsed));
        rtcgst::ErrorRef gerror(parsed);
        if (pipeline && !gerror) {
            return pipeline;
        }
        error = gerror ? gerror->message : "the pipeline cannot be made";
    }
    return nullptr;
}

}  // namespace

/// What the appsink callback reaches: the capturer, weakly, and the label of
/// the frame tags to draw.
struct RTCGstCameraVideoCapturer::Sink {
    std::weak_ptr<RTCGstCameraVideoCapturer> capturer;
    std::string tag;
};

namespace {

/// What the capture bus reaches.
struct BusContext {
    std::weak_ptr<RTCGstCameraVideoCapturer> capturer;
    std::shared_ptr<QXVCSerialQueue> queue;
    GstElement* pipeline;  ///< identity only; compared under the capturer's lock
    std::function<void(GstElement*)> rewind;
    std::function<void(GstElement*, std::string)> report;
};

GstBusSyncReply onBusMessage(GstBus*, GstMessage* message, gpointer data) {
    auto& context = *static_cast<BusContext*>(data);
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        context.queue->async(
            [rewind = context.rewind, pipeline = context.pipeline] { rewind(pipeline); });
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        GError* parsed = nullptr;
        gst_message_parse_error(message, &parsed, nullptr);
        rtcgst::ErrorRef error(parsed);
        std::string text = error ? error->message : "unknown error";
        context.queue->async([report = context.report, pipeline = context.pipeline, text] {
            report(pipeline, text);
        });
    }
    return GST_BUS_PASS;
}

}  // namespace

RTCGstCameraVideoCapturer::RTCGstCameraVideoCapturer(
    std::weak_ptr<RTCVideoCapturerDelegate> delegate, std::shared_ptr<RTCGstMediaSettings> settings)
    : delegate_(std::move(delegate)),
      settings_(std::move(settings)),
      queue_(QXVCSerialQueue::create("rtc.capture")),
      session_(std::make_shared<RTCGstCaptureSession>()) {}

RTCGstCameraVideoCapturer::~RTCGstCameraVideoCapturer() {
    stopPipeline();
}

RTCCaptureDevicePtr RTCGstCameraVideoCapturer::currentDevice() const {
    std::lock_guard lock(mutex_);
    return device_;
}

void RTCGstCameraVideoCapturer::startCaptureWithDevice(const RTCCaptureDevicePtr& device,
                                                       const RTCCaptureDeviceFormatPtr& format,
                                                       int fps,
                                                       RTCCaptureCompletionHandler completion) {
    auto fail = [&](const std::string& text) {
        RTCLogEx(RTCLoggingSeverityError, "Capture could not start: " + text);
        if (completion) {
            qxvc::safeCall(
                "capture completion", completion,
                QXDError::errorWithDomain(kRTCErrorDomain, -1,
                                          QXDUserInfo{{NSLocalizedDescriptionKey, text}}));
        }
    };
    if (!device || !format || fps < 1) {
        fail(!device ? "no device" : !format ? "no format" : "frame rate below 1");
        return;
    }
    const auto options = settings_ ? settings_->options() : RTCGstMediaOptions{};
    const CaptureSource source = sourceFor(*device, *format, fps, options.cameraLabel);
    if (source.description.empty()) {
        fail("unknown device " + device->uniqueId());
        return;
    }
    std::string error;
    auto pipeline = makePipeline(source, error);
    if (!pipeline) {
        fail(error);
        return;
    }
    const std::string& id = device->uniqueId();
    if (rtcgst::Owned<GstElement> src{gst_bin_get_by_name(GST_BIN(pipeline.get()), "src")}) {
        const bool v4l2 = id.rfind(kRTCGstV4L2CameraPrefix, 0) == 0;
        const size_t prefix =
            std::string(v4l2 ? kRTCGstV4L2CameraPrefix : kRTCGstFileCameraPrefix).size();
        g_object_set(src.get(), v4l2 ? "device" : "location", id.substr(prefix).c_str(), nullptr);
    }
    if (rtcgst::Owned<GstElement> caps{gst_bin_get_by_name(GST_BIN(pipeline.get()), "camcaps")}) {
        rtcgst::OwnedCaps wanted(gst_caps_from_string(
            (RTCGstCaptureCapsName(format->mediaSubType()) + ",width=" +
             std::to_string(format->width()) + ",height=" + std::to_string(format->height()))
                .c_str()));
        g_object_set(caps.get(), "caps", wanted.get(), nullptr);
    }
    if (rtcgst::Owned<GstElement> label{gst_bin_get_by_name(GST_BIN(pipeline.get()), "label")}) {
        g_object_set(label.get(), "text", source.tag.c_str(), nullptr);
    }
    stopPipeline();  // switching devices or formats in place

    auto sink = std::make_unique<Sink>();
    sink->capturer = weak_from_this();
    sink->tag = source.tag;
    rtcgst::Owned<GstElement> appsink(gst_bin_get_by_name(GST_BIN(pipeline.get()), "sink"));
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink* s, gpointer data) -> GstFlowReturn {
        rtcgst::SampleRef sample(gst_app_sink_pull_sample(s));
        if (!sample) {
            return GST_FLOW_OK;
        }
        const auto& context = *static_cast<Sink*>(data);
        auto frame = rtcgst::frameFromSample(
            sample.get(),
            context.tag.empty()
                ? nullptr
                : std::function<void(uint8_t*, int, int)>([&](uint8_t* i420, int width,
                                                              int height) {
                      RTCGstDrawFrameTag(i420, width, height, {RTCGstWallClockMs(), context.tag});
                  }));
        sample.reset();
        if (auto capturer = context.capturer.lock(); capturer && frame) {
            capturer->onFrame(frame);
            if (capturer.use_count() == 1) {
                // The last owner let go meanwhile: stopping the pipeline from its
                // own streaming thread would deadlock, so end it elsewhere.
                std::thread([last = std::move(capturer)] {}).detach();
            }
        }
        return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(appsink.get()), &callbacks,
                               rtcgst::giveToC(std::move(sink)), rtcgst::destroyFromC<Sink>);

    auto bus = std::make_unique<BusContext>();
    bus->queue = queue_;
    bus->pipeline = pipeline.get();
    std::weak_ptr<RTCGstCameraVideoCapturer> weak = weak_from_this();
    bus->rewind = [weak](GstElement* which) {
        if (auto self = weak.lock()) {
            self->rewind(which);
        }
    };
    bus->report = [weak, name = device->localizedName()](GstElement* which, std::string text) {
        if (auto self = weak.lock()) {
            self->report(which, "The camera " + name + " stopped: " + text);
        }
    };
    rtcgst::Owned<GstBus> pipelineBus(gst_element_get_bus(pipeline.get()));
    gst_bus_set_sync_handler(pipelineBus.get(), onBusMessage, rtcgst::giveToC(std::move(bus)),
                             rtcgst::destroyFromC<BusContext>);

    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        gst_element_set_state(pipeline.get(), GST_STATE_NULL);
        fail("the camera pipeline did not start");
        if (settings_) {
            settings_->warn("The camera " + device->localizedName() + " cannot be opened.");
        }
        return;
    }
    {
        std::lock_guard lock(mutex_);
        pipeline_ = std::move(pipeline);
        device_ = device;
    }
    session_->setRunning(true);
    if (completion) {
        qxvc::safeCall("capture completion", completion, nullptr);
    }
}

void RTCGstCameraVideoCapturer::stopCaptureWithCompletionHandler(
    RTCCaptureCompletionHandler completion) {
    stopPipeline();
    if (completion) {
        qxvc::safeCall("capture completion", completion, nullptr);
    }
}

void RTCGstCameraVideoCapturer::stopPipeline() {
    rtcgst::Owned<GstElement> pipeline;
    {
        std::lock_guard lock(mutex_);
        pipeline = std::move(pipeline_);
        device_ = nullptr;
    }
    session_->setRunning(false);
    if (pipeline) {
        gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    }
}

void RTCGstCameraVideoCapturer::rewind(GstElement* which) {
    rtcgst::Owned<GstElement> pipeline;
    {
        std::lock_guard lock(mutex_);
        if (!pipeline_ || pipeline_.get() != which) {
            return;
        }
        pipeline.reset(GST_ELEMENT(gst_object_ref(pipeline_.get())));
    }
    gst_element_seek_simple(pipeline.get(), GST_FORMAT_TIME,
                            GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT), 0);
}

void RTCGstCameraVideoCapturer::report(GstElement* which, const std::string& text) {
    {
        std::lock_guard lock(mutex_);
        if (!pipeline_ || pipeline_.get() != which) {
            return;
        }
    }
    if (settings_) {
        settings_->warn(text);
    } else {
        RTCLogEx(RTCLoggingSeverityError, text);
    }
}

void RTCGstCameraVideoCapturer::onFrame(const RTCVideoFramePtr& frame) {
    frames_.fetch_add(1);
    session_->deliver(frame);
    if (auto delegate = delegate_.lock()) {
        delegate->capturer(this, frame);
    }
}
