// QXVCMain: the audio session and the shared media objects (peer-connection
// factory, video source, camera capturer).
//
// Everything goes through the installed RTC engine (RTCPlatform::current()).
// Without one the audio operations do nothing, and prepareVideoDevice stores an
// empty set (the getters then return nullptr), so an application that forgot
// to install an engine gets calls without media rather than a crash.
#include <memory>
#include <mutex>

#include "VelmorinVideoChat/Platform/RTC/RTCPlatform.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCDeviceUtils.h"

namespace {

// The set made by prepareVideoDevice; replaced as a whole, read under the lock.
struct MediaObjects {
    std::mutex mutex;
    std::shared_ptr<RTCPeerConnectionFactory> factory;
    std::shared_ptr<RTCVideoSource> videoSource;
    std::shared_ptr<RTCCameraVideoCapturer> capturer;
};

MediaObjects& mediaObjects() {
    // Never destroyed: calls on other threads may still read it at exit.
    static auto* objects = new MediaObjects();
    return *objects;
}

RTCAudioSessionPtr currentAudioSession() {
    auto platform = RTCPlatform::current();
    return platform ? platform->audioSession() : nullptr;
}

// The configuration the speaker operations build. It is not applied: only the
// output-port override changes the route.
RTCAudioSessionConfigurationPtr videoChatConfiguration() {
    auto configuration = RTCAudioSessionConfiguration::create();
    configuration->setCategory(AVAudioSessionCategoryPlayAndRecord);
    configuration->setMode(AVAudioSessionModeVideoChat);
    return configuration;
}

}  // namespace

void QXVCMain::configureAudioSession() {
    logWithLevel(QXVCInternalLogLevelDebug, "[QXVC] Audio session configured");
    auto configuration = RTCAudioSessionConfiguration::create();
    configuration->setCategory(AVAudioSessionCategoryMultiRoute);
    configuration->setMode(AVAudioSessionModeVoiceChat);
    auto session = currentAudioSession();
    if (!session) {
        return;
    }
    // Errors are ignored: the session keeps whatever it could apply.
    session->lockForConfiguration();
    session->overrideOutputAudioPort(AVAudioSessionPortOverrideNone);
    session->setConfiguration(configuration, false);
    session->unlockForConfiguration();
}

void QXVCMain::startAudio() {
    logWithLevel(QXVCInternalLogLevelDebug, "[QXVC] Audio started.");
    if (auto session = currentAudioSession()) {
        session->setActive(true);
    }
}

void QXVCMain::stopAudio() {
    logWithLevel(QXVCInternalLogLevelDebug, "[QXVC] Audio stopped.");
    if (auto session = currentAudioSession()) {
        session->setActive(false);
    }
}

void QXVCMain::startSpeaker() {
    QXVCMainQueue::get()->async([] {
        logWithLevel(QXVCInternalLogLevelDebug, "[QXVC] Speaker started.");
        (void)videoChatConfiguration();
        auto session = currentAudioSession();
        if (!session) {
            return;
        }
        session->lockForConfiguration();
        session->overrideOutputAudioPort(AVAudioSessionPortOverrideSpeaker);
        session->unlockForConfiguration();
        // Proximity monitoring is left as it is on purpose: once stopSpeaker has
        // turned it on, it stays on.
    });
}

void QXVCMain::stopSpeaker() {
    QXVCMainQueue::get()->async([] {
        logWithLevel(QXVCInternalLogLevelDebug, "[QXVC] Speaker stopped.");
        (void)videoChatConfiguration();
        auto platform = RTCPlatform::current();
        auto session = platform ? platform->audioSession() : nullptr;
        if (session) {
            session->lockForConfiguration();
            session->overrideOutputAudioPort(AVAudioSessionPortOverrideNone);
            session->unlockForConfiguration();
        }
        if (platform) {
            platform->setProximityMonitoringEnabled(true);
        }
    });
}

void QXVCMain::prepareVideoDevice() {
    auto decoderFactory = RTCDefaultVideoDecoderFactory::create();
    auto encoderFactory = RTCDefaultVideoEncoderFactory::create();
    if (encoderFactory) {
        const auto codecs = QXVCDeviceUtils::availableVideoCodecs();
        if (!codecs.empty()) {
            encoderFactory->setPreferredCodec(codecs.front());
        }
    }
    auto factory = RTCPeerConnectionFactory::initWithEncoderFactory(encoderFactory, decoderFactory);
    auto videoSource = factory ? factory->videoSource() : nullptr;
    auto capturer = RTCCameraVideoCapturer::initWithDelegate(videoSource);

    auto& objects = mediaObjects();
    std::lock_guard lock(objects.mutex);
    objects.factory = std::move(factory);
    objects.videoSource = std::move(videoSource);
    objects.capturer = std::move(capturer);
}

std::shared_ptr<RTCPeerConnectionFactory> QXVCMain::getPeerConnectionFactory() {
    auto& objects = mediaObjects();
    std::lock_guard lock(objects.mutex);
    return objects.factory;
}

std::shared_ptr<RTCVideoSource> QXVCMain::getVideoSource() {
    auto& objects = mediaObjects();
    std::lock_guard lock(objects.mutex);
    return objects.videoSource;
}

std::shared_ptr<RTCCameraVideoCapturer> QXVCMain::getCameraVideoCapturer() {
    auto& objects = mediaObjects();
    std::lock_guard lock(objects.mutex);
    return objects.capturer;
}

std::vector<std::shared_ptr<RTCCaptureDevice>> QXVCMain::getCameraDeviceList() {
    return RTCCameraVideoCapturer::captureDevices();
}

std::vector<std::shared_ptr<RTCAudioDevice>> QXVCMain::getAudioInputDeviceList() {
    auto platform = RTCPlatform::current();
    return platform ? platform->audioInputDevices() : std::vector<RTCAudioDevicePtr>{};
}

std::vector<std::shared_ptr<RTCAudioDevice>> QXVCMain::getAudioOutputDeviceList() {
    auto platform = RTCPlatform::current();
    return platform ? platform->audioOutputDevices() : std::vector<RTCAudioDevicePtr>{};
}
