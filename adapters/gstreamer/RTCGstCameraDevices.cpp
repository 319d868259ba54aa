#include "RTCGstCameraDevices.h"

#include <gst/gst.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>

#include "RTCGstHandles.h"

namespace {

/// The sizes the test and file cameras offer, in two 4:2:0 pixel formats, at
/// 1-30 fps.
std::vector<RTCCaptureDeviceFormatPtr> standardFormats() {
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

std::optional<FourCharCode> pixelFormat(const GstStructure* s) {
    if (gst_structure_has_name(s, "image/jpeg")) {
        return kRTCGstPixelFormatMJPEG;
    }
    if (!gst_structure_has_name(s, "video/x-raw")) {
        return std::nullopt;
    }
    const char* format = gst_structure_get_string(s, "format");
    if (!format) {
        return std::nullopt;  // a list of formats: the camera converts anyway
    }
    const std::string name = format;
    if (name == "YUY2") {
        return kRTCGstPixelFormatYUY2;
    }
    if (name == "NV12") {
        return kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    }
    if (name == "I420") {
        return kCVPixelFormatType_420YpCbCr8Planar;
    }
    return std::nullopt;
}

double fractionValue(const GValue* value) {
    const int den = gst_value_get_fraction_denominator(value);
    return den > 0 ? double(gst_value_get_fraction_numerator(value)) / den : 0;
}

/// Lowest and highest frame rate a structure offers (a fraction, a list of
/// them, or a range); nullopt when it states none.
std::optional<RTCFrameRateRange> frameRates(const GstStructure* s) {
    const GValue* value = gst_structure_get_value(s, "framerate");
    if (!value) {
        return std::nullopt;
    }
    RTCFrameRateRange range{1e9, 0};
    auto include = [&](double fps) {
        if (fps > 0) {
            range.minFrameRate = std::min(range.minFrameRate, fps);
            range.maxFrameRate = std::max(range.maxFrameRate, fps);
        }
    };
    if (GST_VALUE_HOLDS_FRACTION(value)) {
        include(fractionValue(value));
    } else if (GST_VALUE_HOLDS_LIST(value)) {
        for (guint i = 0; i < gst_value_list_get_size(value); ++i) {
            const GValue* item = gst_value_list_get_value(value, i);
            if (GST_VALUE_HOLDS_FRACTION(item)) {
                include(fractionValue(item));
            }
        }
    } else if (GST_VALUE_HOLDS_FRACTION_RANGE(value)) {
        include(fractionValue(gst_value_get_fraction_range_min(value)));
        include(fractionValue(gst_value_get_fraction_range_max(value)));
    }
    if (range.maxFrameRate <= 0) {
        return std::nullopt;
    }
    return range;
}

/// A list of devices, one reference each.
struct DeviceListReleaser {
    void operator()(GList* list) const { g_list_free_full(list, gst_object_unref); }
};

std::vector<RTCCaptureDevicePtr> v4l2Devices() {
    std::vector<RTCCaptureDevicePtr> devices;
    rtcgst::Owned<GstDeviceMonitor> monitor(gst_device_monitor_new());
    gst_device_monitor_add_filter(monitor.get(), "Video/Source", nullptr);
    std::unique_ptr<GList, DeviceListReleaser> list(gst_device_monitor_get_devices(monitor.get()));
    for (GList* item = list.get(); item; item = item->next) {
        auto* device = GST_DEVICE(item->data);
        rtcgst::StructureRef props(gst_device_get_properties(device));
        const char* path = props ? gst_structure_get_string(props.get(), "device.path") : nullptr;
        if (!path && props) {
            path = gst_structure_get_string(props.get(), "api.v4l2.path");
        }
        if (path) {
            rtcgst::OwnedCaps caps(gst_device_get_caps(device));
            rtcgst::GChars name(gst_device_get_display_name(device));
            auto formats = RTCGstCaptureFormats(caps.get());
            if (!formats.empty()) {
                devices.push_back(std::make_shared<RTCCaptureDevice>(
                    std::string(kRTCGstV4L2CameraPrefix) + path, name ? name.str() : path,
                    AVCaptureDevicePositionUnspecified, std::move(formats)));
            }
        }
    }
    return devices;
}

RTCCaptureDevicePtr withPosition(const RTCCaptureDevicePtr& device,
                                 AVCaptureDevicePosition position) {
    return std::make_shared<RTCCaptureDevice>(device->uniqueId(), device->localizedName(), position,
                                              device->formats());
}

}  // namespace

std::vector<RTCCaptureDeviceFormatPtr> RTCGstCaptureFormats(GstCaps* caps) {
    std::vector<RTCCaptureDeviceFormatPtr> formats;
    for (guint i = 0; caps && i < gst_caps_get_size(caps); ++i) {
        const GstStructure* s = gst_caps_get_structure(caps, i);
        int width = 0;
        int height = 0;
        auto code = pixelFormat(s);
        auto rates = frameRates(s);
        if (!code || !gst_structure_get_int(s, "width", &width) ||
            !gst_structure_get_int(s, "height", &height) || width <= 0 || height <= 0) {
            continue;
        }
        auto same = std::find_if(formats.begin(), formats.end(), [&](const auto& format) {
            return format->width() == width && format->height() == height &&
                   format->mediaSubType() == *code;
        });
        RTCFrameRateRange range = rates.value_or(RTCFrameRateRange{1, 30});
        if (same != formats.end()) {
            // Several structures of one size: merge their frame rates.
            const auto& old = (*same)->videoSupportedFrameRateRanges().front();
            range.minFrameRate = std::min(range.minFrameRate, old.minFrameRate);
            range.maxFrameRate = std::max(range.maxFrameRate, old.maxFrameRate);
            *same = std::make_shared<RTCCaptureDeviceFormat>(width, height, *code,
                                                             std::vector<RTCFrameRateRange>{range});
        } else {
            formats.push_back(std::make_shared<RTCCaptureDeviceFormat>(
                width, height, *code, std::vector<RTCFrameRateRange>{range}));
        }
    }
    return formats;
}

std::string RTCGstCaptureCapsName(FourCharCode pixelFormat) {
    switch (pixelFormat) {
        case kRTCGstPixelFormatMJPEG:
            return "image/jpeg";
        case kRTCGstPixelFormatYUY2:
            return "video/x-raw,format=YUY2";
        case kCVPixelFormatType_420YpCbCr8Planar:
            return "video/x-raw,format=I420";
        default:
            return "video/x-raw,format=NV12";
    }
}

std::vector<RTCCaptureDevicePtr> RTCGstCaptureDevices(
    bool includeV4L2, const RTCGstMediaOptions& options,
    const std::function<void(const std::string&)>& warn) {
    std::vector<RTCCaptureDevicePtr> others = includeV4L2 ? v4l2Devices() : decltype(others){};
    const size_t v4l2Count = others.size();
    others.push_back(std::make_shared<RTCCaptureDevice>(kRTCGstFrontCameraId, "Front Test Camera",
                                                        AVCaptureDevicePositionUnspecified,
                                                        standardFormats()));
    others.push_back(std::make_shared<RTCCaptureDevice>(kRTCGstBackCameraId, "Back Test Camera",
                                                        AVCaptureDevicePositionUnspecified,
                                                        standardFormats()));
    auto take = [&](const std::string& id) -> RTCCaptureDevicePtr {
        auto it = std::find_if(others.begin(), others.end(),
                               [&](const auto& device) { return device->uniqueId() == id; });
        if (it == others.end()) {
            return nullptr;
        }
        auto device = *it;
        others.erase(it);
        return device;
    };
    auto choose = [&](const std::string& choice) -> RTCCaptureDevicePtr {
        if (choice.empty()) {
            return nullptr;
        }
        if (choice == "front" || choice == "back") {
            return take(choice == "front" ? kRTCGstFrontCameraId : kRTCGstBackCameraId);
        }
        for (const std::string& id : {choice, kRTCGstV4L2CameraPrefix + choice}) {
            if (auto device = take(id)) {
                return device;
            }
        }
        std::error_code error;
        if (std::filesystem::is_regular_file(choice, error)) {
            const auto name = std::filesystem::path(choice).filename().string();
            return std::make_shared<RTCCaptureDevice>(kRTCGstFileCameraPrefix + choice, name,
                                                      AVCaptureDevicePositionUnspecified,
                                                      standardFormats());
        }
        if (warn) {
            warn("The camera " + choice + " is neither a V4L2 camera nor a video file.");
        }
        return nullptr;
    };
    auto front = choose(options.frontCamera);
    auto back = choose(options.backCamera);
    // Unchosen positions: V4L2 cameras first, then the matching test camera.
    auto firstV4L2 = [&]() -> RTCCaptureDevicePtr {
        for (const auto& device : others) {
            if (device->uniqueId().rfind(kRTCGstV4L2CameraPrefix, 0) == 0) {
                return take(device->uniqueId());
            }
        }
        return nullptr;
    };
    if (!front) {
        front = v4l2Count > 0 ? firstV4L2() : nullptr;
    }
    if (!front) {
        front = take(kRTCGstFrontCameraId);
    }
    if (!back) {
        back = firstV4L2();
    }
    if (!back) {
        back = take(kRTCGstBackCameraId);
    }
    std::vector<RTCCaptureDevicePtr> devices;
    if (front) {
        devices.push_back(withPosition(front, AVCaptureDevicePositionFront));
    }
    if (back) {
        devices.push_back(withPosition(back, AVCaptureDevicePositionBack));
    }
    devices.insert(devices.end(), others.begin(), others.end());
    return devices;
}
