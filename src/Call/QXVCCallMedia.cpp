// QXVCCall: local tracks and senders, the camera (device, format, frame rate,
// switch), the video bitrate cap, transceiver lookup, the media controls and
// the view helpers.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Client/QXVCClient.h"
#include "VelmorinVideoChat/Platform/RTC/RTCCameraVideoCapturer.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPeerConnectionFactory.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/View/QXVCLocalVideoView.h"
#include "VelmorinVideoChat/View/QXVCRemoteVideoView.h"

namespace {

template <typename... Args>
void logDebug(std::string_view format, const Args&... args) {
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, format, args...);
}

/// The call's camera position as the capture device numbers it: front is
/// device position 2; every other value (back, unspecified) selects the back
/// camera, device position 1.
AVCaptureDevicePosition devicePosition(QXVCCameraPosition position) {
    return position == QXVCCameraPositionFront ? AVCaptureDevicePositionFront
                                               : AVCaptureDevicePositionBack;
}

/// A double truncated to a 32-bit integer, saturating instead of overflowing.
int32_t truncateToInt32(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= static_cast<double>(std::numeric_limits<int32_t>::max())) {
        return std::numeric_limits<int32_t>::max();
    }
    if (value <= static_cast<double>(std::numeric_limits<int32_t>::min())) {
        return std::numeric_limits<int32_t>::min();
    }
    return static_cast<int32_t>(value);
}

}  // namespace

// ---- Tracks and senders ---------------------------------------------------------

void QXVCCall::createMediaSenders() {
    auto opts = options();
    auto localView = opts ? opts->localVideoView() : nullptr;
    auto remoteView = opts ? opts->remoteVideoView() : nullptr;
    {
        std::lock_guard lock(callMutex_);
        localVideoView_ = localView;
        remoteVideoView_ = remoteView;
    }
    logDebug("[QXVC] Local video view: %@", localView);
    logDebug("[QXVC] Remote video view: %@", remoteView);

    auto factory = QXVCMain::getPeerConnectionFactory();
    auto source =
        factory ? factory->audioSourceWithConstraints(defaultMediaAudioConstraints()) : nullptr;
    auto track = factory ? factory->audioTrackWithSource(source, kQXVCAudioTrackId) : nullptr;
    logDebug("[QXVC] source:%@", source);
    logDebug("[QXVC] audio track:%@", track);
    {
        std::lock_guard lock(callMutex_);
        audioTrack_ = track;
    }

    auto connection = peerConnection();
    auto audioSender =
        connection && track ? connection->addTrack(track, {kQXVCMediaStreamId}) : nullptr;
    {
        std::lock_guard lock(callMutex_);
        audioTrackRtpSender_ = audioSender;
    }

    auto videoTrack = createLocalVideoTrack();
    setLocalVideoTrack(videoTrack);
    logDebug("[QXVC] local video track: %@", videoTrack);
    if (!videoTrack) {
        return;
    }
    auto videoSender =
        connection ? connection->addTrack(videoTrack, {kQXVCMediaStreamId}) : nullptr;
    {
        std::lock_guard lock(callMutex_);
        localVideoTrackRtpSender_ = videoSender;
    }
    logDebug("[QXVC] local video track rtp sender: %@", videoSender);

    RTCVideoTrackPtr remoteTrack;
    if (auto transceiver = videoTransceiver()) {
        if (auto receiver = transceiver->receiver()) {
            remoteTrack = std::dynamic_pointer_cast<RTCVideoTrack>(receiver->track());
        }
    }
    setRemoteVideoTrack(remoteTrack);
    if (remoteView && remoteTrack) {
        remoteTrack->addRenderer(remoteView);
    }
}

RTCVideoTrackPtr QXVCCall::createLocalVideoTrack() {
    auto source = QXVCMain::getVideoSource();
    auto capturer = QXVCMain::getCameraVideoCapturer();
    if (auto view = localVideoView()) {
        view->setCaptureSession(capturer ? capturer->captureSession() : nullptr);
    }
    auto device = findDeviceForPosition(devicePosition(currentPosition()));
    auto format = selectFormatForDevice(device);
    int fps = selectFpsForFormat(format);
    if (capturer) {
        // A missing format is not checked here: the capturer refuses it.
        capturer->startCaptureWithDevice(device, format, fps);
    }
    logDebug("[QXVC] video source: %@", source);
    auto factory = QXVCMain::getPeerConnectionFactory();
    return factory ? factory->videoTrackWithSource(source, kQXVCVideoTrackId) : nullptr;
}

// ---- Device, format and frame rate ----------------------------------------------------

RTCCaptureDevicePtr QXVCCall::findDeviceForPosition(AVCaptureDevicePosition position) const {
    auto devices = RTCCameraVideoCapturer::captureDevices();
    for (const auto& device : devices) {
        if (device && device->position() == position) {
            return device;
        }
    }
    return devices.empty() ? nullptr : devices.front();
}

RTCCaptureDeviceFormatPtr QXVCCall::selectFormatForDevice(const RTCCaptureDevicePtr& device) const {
    if (!device) {
        return nullptr;
    }
    auto formats = RTCCameraVideoCapturer::supportedFormatsForDevice(device);
    auto opts = options();
    // Compared as given: the default target is portrait while cameras list
    // landscape formats, and that is the rule the choice follows.
    CGSize resolution = opts ? opts->resolution() : CGSize{1080, 1920};
    int64_t targetWidth = truncateToInt32(resolution.width);
    int64_t targetHeight = truncateToInt32(resolution.height);
    auto capturer = QXVCMain::getCameraVideoCapturer();

    RTCCaptureDeviceFormatPtr best;
    int64_t bestDifference = std::numeric_limits<int32_t>::max();
    for (const auto& format : formats) {
        if (!format) {
            continue;
        }
        int64_t difference =
            std::llabs(targetWidth - format->width()) + std::llabs(targetHeight - format->height());
        if (difference < bestDifference) {
            best = format;
            bestDifference = difference;
        } else if (difference == bestDifference && capturer &&
                   format->mediaSubType() == capturer->preferredOutputPixelFormat()) {
            best = format;
        }
    }
    return best;
}

int QXVCCall::selectFpsForFormat(const RTCCaptureDeviceFormatPtr& format) const {
    double maxFrameRate = 0;
    if (format) {
        for (const auto& range : format->videoSupportedFrameRateRanges()) {
            if (!std::isnan(range.maxFrameRate) && range.maxFrameRate > maxFrameRate) {
                maxFrameRate = range.maxFrameRate;
            }
        }
    }
    return static_cast<int>(std::fmin(maxFrameRate, static_cast<double>(kMaxFps)));
}

void QXVCCall::setCameraWithDevice(const RTCCaptureDevicePtr& device) {
    auto format = selectFormatForDevice(device);
    if (!format) {
        RTCLogEx(RTCLoggingSeverityError,
                 qxvc::format("(%@:%d %s): No valid formats for device %@", RTCFileName(__FILE__),
                              __LINE__, __func__, device));
        return;
    }
    if (auto capturer = QXVCMain::getCameraVideoCapturer()) {
        capturer->startCaptureWithDevice(device, format, selectFpsForFormat(format));
    }
}

void QXVCCall::switchCamera() {
    RTCCaptureDevicePtr back;
    RTCCaptureDevicePtr front;
    // The last device of each position wins here.
    for (const auto& device : QXVCMain::getCameraDeviceList()) {
        if (!device) {
            continue;
        }
        if (device->position() == AVCaptureDevicePositionBack) {
            back = device;
        } else if (device->position() == AVCaptureDevicePositionFront) {
            front = device;
        }
    }
    if (currentPosition() != QXVCCameraPositionFront) {
        setCameraWithDevice(front);
        setCurrentPosition(QXVCCameraPositionFront);
    } else {
        setCameraWithDevice(back);
        setCurrentPosition(QXVCCameraPositionBack);
    }
}

// ---- Bitrate and transceivers ----------------------------------------------------------

void QXVCCall::setMaxBitrateForPeerConnectionVideoSender() {
    auto connection = peerConnection();
    if (!connection) {
        return;
    }
    for (const auto& sender : connection->senders()) {
        auto track = sender ? sender->track() : nullptr;
        if (track && track->kind() == kQXVCVideoTrackKind) {
            setMaxBitrate(kMaxVideoBitrate, sender);
        }
    }
}

void QXVCCall::setMaxBitrate(double bitrate, const RTCRtpSenderPtr& sender) {
    int32_t value = truncateToInt32(bitrate);
    if (value < 1 || !sender) {
        return;
    }
    RTCRtpParameters parameters = sender->parameters();
    for (auto& encoding : parameters.encodings) {
        encoding.maxBitrateBps = value;
    }
    sender->setParameters(parameters);
}

RTCRtpTransceiverPtr QXVCCall::videoTransceiver() const {
    auto connection = peerConnection();
    if (!connection) {
        return nullptr;
    }
    for (const auto& transceiver : connection->transceivers()) {
        if (transceiver && transceiver->mediaType() == RTCRtpMediaTypeVideo) {
            return transceiver;
        }
    }
    return nullptr;
}

RTCRtpTransceiverPtr QXVCCall::audioTransceiver() const {
    auto connection = peerConnection();
    if (!connection) {
        return nullptr;
    }
    for (const auto& transceiver : connection->transceivers()) {
        if (transceiver && transceiver->mediaType() == RTCRtpMediaTypeAudio) {
            return transceiver;
        }
    }
    return nullptr;
}

// ---- Media controls ------------------------------------------------------------------------

void QXVCCall::startVideo() {
    if (auto track = localVideoTrack()) {
        track->setIsEnabled(true);
    }
    QXVCClient::sendVideoUpdateCall(weak_from_this().lock(), true);
}

void QXVCCall::stopVideo() {
    if (auto track = localVideoTrack()) {
        track->setIsEnabled(false);
    }
    QXVCClient::sendVideoUpdateCall(weak_from_this().lock(), false);
}

// The track goes silent before audio stops, and audio starts before the track
// is enabled again.
void QXVCCall::muteMicrophone() {
    if (auto track = audioTrack()) {
        track->setIsEnabled(false);
    }
    QXVCMain::stopAudio();
    QXVCClient::sendAudioUpdateCall(weak_from_this().lock(), false);
}

void QXVCCall::unmuteMicrophone() {
    QXVCMain::startAudio();
    if (auto track = audioTrack()) {
        track->setIsEnabled(true);
    }
    QXVCClient::sendAudioUpdateCall(weak_from_this().lock(), true);
}

void QXVCCall::turnOnSpeaker() {
    QXVCMain::startSpeaker();
}

void QXVCCall::turnOffSpeaker() {
    QXVCMain::stopSpeaker();
}

// ---- Views ------------------------------------------------------------------------------------

void QXVCCall::viewIsReady() {
    logDebug("[QXVC] The remote video view and the local video view are ready.");
    auto opts = options();
    if (auto view = opts ? opts->remoteVideoView() : nullptr) {
        view->setDelegate(weak_from_this().lock());
    }
    setReadyToProceed(true);
}

void QXVCCall::videoView(const std::shared_ptr<RTCVideoRenderer>& /*videoView*/, CGSize size) {
    auto opts = options();
    auto view = opts ? opts->remoteVideoView() : nullptr;
    notifyDelegate(QXVCCallDelegate::Event::RemoteVideoViewDidChangeVideoSize,
                   [&](QXVCCallDelegate& delegate) { delegate.remoteVideoView(view, size); });
}

void QXVCCall::clearRemoteVideoView() {
    auto opts = options();
    auto view = opts ? opts->remoteVideoView() : nullptr;
    if (!view) {
        return;
    }
    if (auto track = remoteVideoTrack()) {
        track->removeRenderer(view);
    }
    view->setDelegate(nullptr);
}

void QXVCCall::stopCapture() {
    if (auto capturer = QXVCMain::getCameraVideoCapturer()) {
        capturer->stopCaptureWithCompletionHandler();
    }
    auto opts = options();
    if (auto view = opts ? opts->localVideoView() : nullptr) {
        view->setCaptureSession(nullptr);
    }
}
