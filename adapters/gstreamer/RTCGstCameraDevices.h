// The cameras of the GStreamer engine: V4L2 devices with the formats and frame
// rates they report, video files standing in for cameras, and two built-in
// test cameras. Which device stands for the front and back positions follows
// RTCGstMediaOptions (see there); every other camera has an unspecified
// position. Devices are listed front first, then back, then the others.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "RTCGstMediaOptions.h"
#include "VelmorinVideoChat/Platform/RTC/RTCCaptureDevice.h"

typedef struct _GstCaps GstCaps;

/// The built-in devices' ids; a file camera's id is "file:" and its path, a
/// V4L2 camera's "v4l2:" and its device path.
inline constexpr const char* kRTCGstFrontCameraId = "velmorin-test-camera-front";
inline constexpr const char* kRTCGstBackCameraId = "velmorin-test-camera-back";
inline constexpr const char* kRTCGstFileCameraPrefix = "file:";
inline constexpr const char* kRTCGstV4L2CameraPrefix = "v4l2:";

/// Pixel-format codes the V4L2 formats are listed with.
inline constexpr FourCharCode kRTCGstPixelFormatYUY2 = 0x79757673;   // 'yuvs'
inline constexpr FourCharCode kRTCGstPixelFormatMJPEG = 0x646d6231;  // 'dmb1'

/// The capture formats of a camera's caps: one per size and pixel format, with
/// the range of frame rates offered (sizes given as ranges are skipped).
std::vector<RTCCaptureDeviceFormatPtr> RTCGstCaptureFormats(GstCaps* caps);

/// The raw caps ("video/x-raw,format=YUY2" or "image/jpeg") of a format made
/// by RTCGstCaptureFormats, for asking the camera for it.
std::string RTCGstCaptureCapsName(FourCharCode pixelFormat);

/// Every camera, positioned as `options` say. `warn` hears of a chosen camera
/// that does not exist.
std::vector<RTCCaptureDevicePtr> RTCGstCaptureDevices(
    bool includeV4L2, const RTCGstMediaOptions& options,
    const std::function<void(const std::string&)>& warn);
