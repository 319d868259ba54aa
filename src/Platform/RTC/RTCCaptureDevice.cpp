#include "VelmorinVideoChat/Platform/RTC/RTCCaptureDevice.h"

#include <cmath>

std::string RTCCaptureDeviceFormat::description() const {
    std::string fourcc;
    for (int shift = 24; shift >= 0; shift -= 8) {
        char c = static_cast<char>((mediaSubType_ >> shift) & 0xff);
        fourcc += (c >= 32 && c < 127) ? c : '?';
    }
    std::string out = std::to_string(width_) + "x" + std::to_string(height_) + " '" + fourcc + "'";
    for (const auto& range : ranges_) {
        if (std::isfinite(range.minFrameRate) && std::isfinite(range.maxFrameRate)) {
            out += " " + std::to_string(std::lround(range.minFrameRate)) + "-" +
                   std::to_string(std::lround(range.maxFrameRate)) + "fps";
        }
    }
    return out;
}
