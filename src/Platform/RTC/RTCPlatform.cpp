#include "VelmorinVideoChat/Platform/RTC/RTCPlatform.h"

#include <mutex>

namespace {
std::mutex gMutex;
std::shared_ptr<RTCPlatform> gPlatform;
}  // namespace

void RTCPlatform::install(std::shared_ptr<RTCPlatform> platform) {
    std::lock_guard lock(gMutex);
    gPlatform = std::move(platform);
}

std::shared_ptr<RTCPlatform> RTCPlatform::current() {
    std::lock_guard lock(gMutex);
    return gPlatform;
}

std::vector<RTCVideoCodecInfoPtr> RTCDefaultVideoEncoderFactory::supportedCodecs() {
    auto platform = RTCPlatform::current();
    return platform ? platform->supportedVideoEncoderCodecs() : std::vector<RTCVideoCodecInfoPtr>{};
}

std::shared_ptr<RTCDefaultVideoEncoderFactory> RTCDefaultVideoEncoderFactory::create() {
    auto platform = RTCPlatform::current();
    return platform ? std::make_shared<RTCDefaultVideoEncoderFactory>(
                          platform->supportedVideoEncoderCodecs())
                    : nullptr;
}

std::vector<RTCVideoCodecInfoPtr> RTCDefaultVideoDecoderFactory::supportedCodecs() {
    auto platform = RTCPlatform::current();
    return platform ? platform->supportedVideoDecoderCodecs() : std::vector<RTCVideoCodecInfoPtr>{};
}

std::shared_ptr<RTCDefaultVideoDecoderFactory> RTCDefaultVideoDecoderFactory::create() {
    auto platform = RTCPlatform::current();
    return platform ? std::make_shared<RTCDefaultVideoDecoderFactory>(
                          platform->supportedVideoDecoderCodecs())
                    : nullptr;
}

std::shared_ptr<RTCPeerConnectionFactory> RTCPeerConnectionFactory::initWithEncoderFactory(
    const RTCDefaultVideoEncoderFactoryPtr& encoderFactory,
    const RTCDefaultVideoDecoderFactoryPtr& decoderFactory) {
    auto platform = RTCPlatform::current();
    return platform ? platform->peerConnectionFactory(encoderFactory, decoderFactory) : nullptr;
}

std::vector<RTCCaptureDevicePtr> RTCCameraVideoCapturer::captureDevices() {
    auto platform = RTCPlatform::current();
    return platform ? platform->captureDevices() : std::vector<RTCCaptureDevicePtr>{};
}

std::vector<RTCCaptureDeviceFormatPtr> RTCCameraVideoCapturer::supportedFormatsForDevice(
    const RTCCaptureDevicePtr& device) {
    return device ? device->formats() : std::vector<RTCCaptureDeviceFormatPtr>{};
}

std::shared_ptr<RTCCameraVideoCapturer> RTCCameraVideoCapturer::initWithDelegate(
    const std::shared_ptr<RTCVideoCapturerDelegate>& delegate) {
    auto platform = RTCPlatform::current();
    return platform ? platform->cameraVideoCapturer(delegate) : nullptr;
}
