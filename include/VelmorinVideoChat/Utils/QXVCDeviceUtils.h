// Device facts the media set-up needs.
#pragma once

#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCVideoCodecInfo.h"

class QXVCDeviceUtils {
  public:
    /// The codecs the default video encoder factory supports, in its order of
    /// preference; empty when no RTC engine is installed. The media set-up
    /// prefers the first one.
    static std::vector<RTCVideoCodecInfoPtr> availableVideoCodecs();
};
