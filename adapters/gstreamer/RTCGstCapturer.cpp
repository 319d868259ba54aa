#include "RTCGstCapturer.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <algorithm>
#include <string>
#include <thread>

#include "Platform/RTC/RTCLogging.h"
#include "RTCGstFrames.h"
#include "Utils/QXVCSafeCall.h"

namespace {

std::vector<RTCCaptureDeviceFormatPtr> testPatternFormats() {
    std::vector<RTCCaptureDeviceFormatPtr> formats;
    const std::pair<int, int> sizes[] = {{640, 480}, {1280, 720}, {1920, 1080}, {1920, 1440}};
    for (auto [w, h] : sizes) {
        for (FourCharCode code : {kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange,
                                  kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}) {
            formats.push_back(std::make_shared<RTCCaptureDeviceFormat>(
                w, h, code, std::vector<RTCFrameRateRange>{{1, 30}}));
        }
    }
    return formats;
}

std::vector<RTCCaptureDevicePtr> v4l2Devices() {
    std::vector<RTCCaptureDevicePtr> devices;
    GstDeviceMonitor* monitor = gst_device_monitor_new();
    GstCaps* filter = gst_caps_new_empty_simple("video/x-raw");
    gst_device_monitor_add_filter(monitor, "Video/Source", filter);
    gst_caps_unref(filter);
    GList* list = gst_device_monitor_get_devices(monitor);
    for (GList* item = list; item; item = item->next) {
        auto* device = GST_DEVICE(item->data);
        GstStructure* props = gst_device_get_properties(device);
        const char* path = props ? gst_structure_get_string(props, "device.path") : nullptr;
        if (!path) {
            path = props ? gst_structure_get_string(props, "api.v4l2.path") : nullptr;
        }
        if (path) {
            std::vector<RTCCaptureDeviceFormatPtr> formats;
            GstCaps* caps = gst_device_get_caps(device);
            for (guint i = 0; caps && i < gst_caps_get_size(caps); ++i) {
                GstStructure* s = gst_caps_get_structure(caps, i);
                int w = 0;
                int h = 0;
                if (!gst_structure_get_int(s, "width", &w) ||
                    !gst_structure_get_int(s, "height", &h)) {
                    continue;
                }
                double maxFps = 30;
                int num = 0;
                int den = 1;
                if (gst_structure_get_fraction(s, "framerate", &num, &den) && den > 0) {
                    maxFps = double(num) / den;
                }
                bool duplicate = std::any_of(formats.begin(), formats.end(), [&](const auto& f) {
                    return f->width() == w && f->height() == h;
                });
                if (!duplicate) {
                    formats.push_back(std::make_shared<RTCCaptureDeviceFormat>(
                        w, h, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange,
                        std::vector<RTCFrameRateRange>{{1, maxFps}}));
                }
            }
            if (caps) {
                gst_caps_unref(caps);
            }
            gchar* name = gst_device_get_display_name(device);
            devices.push_back(std::make_shared<RTCCaptureDevice>(
                std::string("v4l2:") + path, name ? name : path, AVCaptureDevicePositionUnspecified,
                std::move(formats)));
            g_free(name);
        }
        if (props) {
            gst_structure_free(props);
        }
    }
    g_list_free_full(list, gst_object_unref);
    gst_object_unref(monitor);
    return devices;
}

}  // namespace

std::vector<RTCCaptureDevicePtr> RTCGstCaptureDevices(bool includeV4L2) {
    std::vector<RTCCaptureDevicePtr> devices =
        includeV4L2 ? v4l2Devices() : std::vector<RTCCaptureDevicePtr>{};
    devices.push_back(std::make_shared<RTCCaptureDevice>(kRTCGstFrontCameraId, "Front Test Camera",
                                                         AVCaptureDevicePositionFront,
                                                         testPatternFormats()));
    devices.push_back(std::make_shared<RTCCaptureDevice>(kRTCGstBackCameraId, "Back Test Camera",
                                                         AVCaptureDevicePositionBack,
                                                         testPatternFormats()));
    return devices;
}

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

/// What the appsink callback reaches: the capturer, weakly.
struct RTCGstCameraVideoCapturer::Sink {
    std::weak_ptr<RTCGstCameraVideoCapturer> capturer;
};

RTCGstCameraVideoCapturer::RTCGstCameraVideoCapturer(
    std::weak_ptr<RTCVideoCapturerDelegate> delegate)
    : delegate_(std::move(delegate)), session_(std::make_shared<RTCGstCaptureSession>()) {}

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
    std::string source;
    if (device->uniqueId() == kRTCGstFrontCameraId) {
        source = "videotestsrc is-live=true pattern=smpte";
    } else if (device->uniqueId() == kRTCGstBackCameraId) {
        source = "videotestsrc is-live=true pattern=ball background-color=0xff203060";
    } else if (device->uniqueId().rfind("v4l2:", 0) == 0) {
        source = "v4l2src device=" + device->uniqueId().substr(5) +
                 " ! videoconvert ! videoscale ! videorate";
    } else {
        fail("unknown device " + device->uniqueId());
        return;
    }
    std::string description =
        source + " ! video/x-raw,format=I420,width=" + std::to_string(format->width()) +
        ",height=" + std::to_string(format->height()) + ",framerate=" + std::to_string(fps) +
        "/1 ! appsink name=sink sync=false max-buffers=2 drop=true";
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (!pipeline) {
        std::string text = error ? error->message : "pipeline";
        g_clear_error(&error);
        fail(text);
        return;
    }
    g_clear_error(&error);
    stopPipeline();  // switching devices or formats in place
    auto* sink = new Sink{weak_from_this()};
    GstElement* appsink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink* s, gpointer data) -> GstFlowReturn {
        GstSample* sample = gst_app_sink_pull_sample(s);
        if (!sample) {
            return GST_FLOW_OK;
        }
        auto frame = rtcgst::frameFromSample(sample);
        gst_sample_unref(sample);
        if (auto capturer = static_cast<Sink*>(data)->capturer.lock(); capturer && frame) {
            capturer->onFrame(frame);
            if (capturer.use_count() == 1) {
                // The last owner let go meanwhile: stopping the pipeline from its
                // own streaming thread would deadlock, so end it elsewhere.
                std::thread([last = std::move(capturer)] {}).detach();
            }
        }
        return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(appsink), &callbacks, sink, nullptr);
    gst_object_unref(appsink);
    bool ok = gst_element_set_state(pipeline, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
    if (!ok) {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
        delete sink;
        fail("the camera pipeline did not start");
        return;
    }
    {
        std::lock_guard lock(mutex_);
        pipeline_ = pipeline;
        sink_ = sink;
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
    GstElement* pipeline;
    Sink* sink;
    {
        std::lock_guard lock(mutex_);
        pipeline = pipeline_;
        sink = sink_;
        pipeline_ = nullptr;
        sink_ = nullptr;
        device_ = nullptr;
    }
    session_->setRunning(false);
    if (pipeline) {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
    }
    delete sink;
}

void RTCGstCameraVideoCapturer::onFrame(const RTCVideoFramePtr& frame) {
    frames_.fetch_add(1);
    session_->deliver(frame);
    if (auto delegate = delegate_.lock()) {
        delegate->capturer(this, frame);
    }
}
