#include "PhoneEngine.h"

#include <cstdio>
#include <mutex>

#include "RTCGstFrameTag.h"
#include "RTCGstVideoWindow.h"
#include "VelmorinVideoChat/QXVCMain.h"

std::shared_ptr<RTCGstPlatform> makePhoneEngine(const PhoneOptions& options,
                                                const std::shared_ptr<PhoneEventLog>& log) {
    RTCGstPlatform::Options engine;
    auto& media = engine.media;
    media.microphone = options.microphone;
    media.speakerSink = options.speaker;
    media.receiverSink = options.speaker;
    media.recordAudioPath = options.recordAudio;
    media.voiceProcessing = options.echoCancellation;
    media.frontCamera = options.camera;
    media.cameraLabel = options.user;
    std::weak_ptr<PhoneEventLog> weakLog = log;
    media.warningHandler = [weakLog](const std::string& warning) {
        std::fprintf(stderr, "qxvc-phone: %s\n", warning.c_str());
        if (auto out = weakLog.lock()) {
            out->stamped("WARN", warning);
        }
    };
    return RTCGstPlatform::create(engine);
}

namespace {

/// The window of the call under way (--window).
struct PhoneWindow {
    std::mutex mutex;
    std::shared_ptr<RTCGstVideoWindow> window;
    RTCVideoTrackPtr track;
    RTCCaptureSessionPtr session;
    RTCVideoRendererPtr inset;
};

std::string deviceLine(const std::string& kind, const std::string& id, const std::string& name,
                       const std::string& extra) {
    return "kind=" + kind + " id=" + id + extra + " name=\"" + name + "\"";
}

std::string positionName(AVCaptureDevicePosition position) {
    switch (position) {
        case AVCaptureDevicePositionFront:
            return "front";
        case AVCaptureDevicePositionBack:
            return "back";
        default:
            return "other";
    }
}

}  // namespace

PhoneMedia makePhoneMedia(const std::shared_ptr<RTCGstPlatform>& engine,
                          const std::shared_ptr<PhoneEventLog>& log) {
    PhoneMedia media;
    media.readTag = [](const RTCVideoFrame& frame) -> std::optional<PhoneFrameTag> {
        auto tag =
            RTCGstReadFrameTag(frame.dataY(), frame.width(), frame.height(), frame.strideY());
        if (!tag) {
            return std::nullopt;
        }
        return PhoneFrameTag{tag->label, tag->captureTimeMs};
    };
    media.wallClockMs = RTCGstWallClockMs;
    auto window = std::make_shared<PhoneWindow>();
    std::weak_ptr<PhoneEventLog> weakLog = log;
    media.showCall = [window, weakLog](const QXVCCallPtr& call) {
        std::lock_guard lock(window->mutex);
        if (window->window) {
            return;
        }
        std::string error;
        window->window = RTCGstVideoWindow::open(error);
        if (!window->window) {
            std::fprintf(stderr, "qxvc-phone: no window: %s\n", error.c_str());
            if (auto out = weakLog.lock()) {
                out->stamped("WARN", "no window: " + error);
            }
            return;
        }
        window->track = call->remoteVideoTrack();
        if (window->track) {
            window->track->addRenderer(window->window);
        }
        auto capturer = QXVCMain::getCameraVideoCapturer();
        window->session = capturer ? capturer->captureSession() : nullptr;
        if (window->session) {
            window->inset = window->window->insetRenderer();
            window->session->addPreviewRenderer(window->inset);
        }
        if (auto out = weakLog.lock()) {
            out->stamped("INFO", "window=open");
        }
    };
    media.hideCall = [window, weakLog] {
        std::lock_guard lock(window->mutex);
        if (!window->window) {
            return;
        }
        if (window->track) {
            window->track->removeRenderer(window->window);
        }
        if (window->session) {
            window->session->removePreviewRenderer(window->inset);
        }
        window->window->close();
        window->window.reset();
        window->track.reset();
        window->session.reset();
        window->inset.reset();
        if (auto out = weakLog.lock()) {
            out->stamped("INFO", "window=closed");
        }
    };
    std::weak_ptr<RTCGstPlatform> weakEngine = engine;
    media.devices = [weakEngine] {
        std::vector<std::string> lines;
        auto platform = weakEngine.lock();
        if (!platform) {
            return lines;
        }
        for (const auto& camera : platform->captureDevices()) {
            lines.push_back(deviceLine("camera", camera->uniqueId(), camera->localizedName(),
                                       " position=" + positionName(camera->position())));
        }
        for (const auto& microphone : platform->audioInputDevices()) {
            lines.push_back(deviceLine("microphone", microphone->uniqueId(),
                                       microphone->localizedName(),
                                       microphone->isDefault() ? " default=1" : ""));
        }
        for (const auto& speaker : platform->audioOutputDevices()) {
            lines.push_back(deviceLine("speaker", speaker->uniqueId(), speaker->localizedName(),
                                       speaker->isDefault() ? " default=1" : ""));
        }
        return lines;
    };
    return media;
}
