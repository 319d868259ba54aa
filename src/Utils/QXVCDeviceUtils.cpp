#include "VelmorinVideoChat/Utils/QXVCDeviceUtils.h"

#include "VelmorinVideoChat/Platform/RTC/RTCDefaultVideoCodecFactory.h"

std::vector<RTCVideoCodecInfoPtr> QXVCDeviceUtils::availableVideoCodecs() {
    return RTCDefaultVideoEncoderFactory::supportedCodecs();
}
