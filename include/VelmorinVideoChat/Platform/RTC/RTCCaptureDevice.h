// A camera and its capture formats.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

/// A supported frame-rate range in frames per second. A value may be NaN.
struct RTCFrameRateRange {
    double minFrameRate = 0;
    double maxFrameRate = 0;
};

/// One capture format: its dimensions, pixel-format code and frame-rate ranges
/// (what the platform reads with CMVideoFormatDescriptionGetDimensions and
/// CMFormatDescriptionGetMediaSubType).
class RTCCaptureDeviceFormat final {
  public:
    RTCCaptureDeviceFormat(int32_t width, int32_t height, FourCharCode mediaSubType,
                           std::vector<RTCFrameRateRange> frameRateRanges)
        : width_(width),
          height_(height),
          mediaSubType_(mediaSubType),
          ranges_(std::move(frameRateRanges)) {}
    int32_t width() const { return width_; }
    int32_t height() const { return height_; }
    FourCharCode mediaSubType() const { return mediaSubType_; }
    const std::vector<RTCFrameRateRange>& videoSupportedFrameRateRanges() const { return ranges_; }
    /// "640x480 '420f' 1-30fps".
    std::string description() const;

  private:
    int32_t width_;
    int32_t height_;
    FourCharCode mediaSubType_;
    std::vector<RTCFrameRateRange> ranges_;
};

using RTCCaptureDeviceFormatPtr = std::shared_ptr<RTCCaptureDeviceFormat>;

class RTCCaptureDevice final {
  public:
    RTCCaptureDevice(std::string uniqueId, std::string localizedName,
                     AVCaptureDevicePosition position,
                     std::vector<RTCCaptureDeviceFormatPtr> formats)
        : uniqueId_(std::move(uniqueId)),
          localizedName_(std::move(localizedName)),
          position_(position),
          formats_(std::move(formats)) {}
    const std::string& uniqueId() const { return uniqueId_; }
    const std::string& localizedName() const { return localizedName_; }
    AVCaptureDevicePosition position() const { return position_; }
    /// In the device's order.
    const std::vector<RTCCaptureDeviceFormatPtr>& formats() const { return formats_; }
    std::string description() const {
        return "RTCCaptureDevice: " + localizedName_ + " (" + uniqueId_ + ")";
    }

  private:
    std::string uniqueId_;
    std::string localizedName_;
    AVCaptureDevicePosition position_;
    std::vector<RTCCaptureDeviceFormatPtr> formats_;
};

using RTCCaptureDevicePtr = std::shared_ptr<RTCCaptureDevice>;
