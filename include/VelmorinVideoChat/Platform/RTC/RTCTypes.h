// Enumerations and small value types shared by the RTC port, with the numeric
// values of WebRTC's Objective-C interface.
#pragma once

#include <cstdint>
#include <string>

/// A size in points (or pixels for video frames), as the platform's CGSize.
struct CGSize {
    double width = 0;
    double height = 0;
    friend bool operator==(const CGSize&, const CGSize&) = default;
};

enum RTCSignalingState : long {
    RTCSignalingStateStable = 0,
    RTCSignalingStateHaveLocalOffer = 1,
    RTCSignalingStateHaveLocalPrAnswer = 2,
    RTCSignalingStateHaveRemoteOffer = 3,
    RTCSignalingStateHaveRemotePrAnswer = 4,
    RTCSignalingStateClosed = 5,
};

/// Goes New, Checking, Connected, Completed. Disconnected when connectivity is
/// lost, Connected again when it returns, Failed when it does not.
enum RTCIceConnectionState : long {
    RTCIceConnectionStateNew = 0,
    RTCIceConnectionStateChecking = 1,
    RTCIceConnectionStateConnected = 2,
    RTCIceConnectionStateCompleted = 3,
    RTCIceConnectionStateFailed = 4,
    RTCIceConnectionStateDisconnected = 5,
    RTCIceConnectionStateClosed = 6,
    RTCIceConnectionStateCount = 7,
};

enum RTCIceGatheringState : long {
    RTCIceGatheringStateNew = 0,
    RTCIceGatheringStateGathering = 1,
    RTCIceGatheringStateComplete = 2,
};

/// The peer-connection state (ICE and DTLS together).
enum RTCPeerConnectionState : long {
    RTCPeerConnectionStateNew = 0,
    RTCPeerConnectionStateConnecting = 1,
    RTCPeerConnectionStateConnected = 2,
    RTCPeerConnectionStateDisconnected = 3,
    RTCPeerConnectionStateFailed = 4,
    RTCPeerConnectionStateClosed = 5,
};

enum RTCSdpSemantics : long {
    RTCSdpSemanticsPlanB = 0,
    RTCSdpSemanticsUnifiedPlan = 1,
};

enum RTCIceTransportPolicy : long {
    RTCIceTransportPolicyNone = 0,
    RTCIceTransportPolicyRelay = 1,
    RTCIceTransportPolicyNoHost = 2,
    RTCIceTransportPolicyAll = 3,
};

enum RTCBundlePolicy : long {
    RTCBundlePolicyBalanced = 0,
    RTCBundlePolicyMaxCompat = 1,
    RTCBundlePolicyMaxBundle = 2,
};

enum RTCRtcpMuxPolicy : long {
    RTCRtcpMuxPolicyNegotiate = 0,
    RTCRtcpMuxPolicyRequire = 1,
};

enum RTCRtpMediaType : long {
    RTCRtpMediaTypeAudio = 0,
    RTCRtpMediaTypeVideo = 1,
    RTCRtpMediaTypeData = 2,
    RTCRtpMediaTypeUnsupported = 3,
};

enum RTCRtpTransceiverDirection : long {
    RTCRtpTransceiverDirectionSendRecv = 0,
    RTCRtpTransceiverDirectionSendOnly = 1,
    RTCRtpTransceiverDirectionRecvOnly = 2,
    RTCRtpTransceiverDirectionInactive = 3,
    RTCRtpTransceiverDirectionStopped = 4,
};

enum RTCVideoRotation : long {
    RTCVideoRotation_0 = 0,
    RTCVideoRotation_90 = 90,
    RTCVideoRotation_180 = 180,
    RTCVideoRotation_270 = 270,
};

enum RTCSourceState : long {
    RTCSourceStateInitializing = 0,
    RTCSourceStateLive = 1,
    RTCSourceStateEnded = 2,
    RTCSourceStateMuted = 3,
};

enum RTCMediaStreamTrackState : long {
    RTCMediaStreamTrackStateLive = 0,
    RTCMediaStreamTrackStateEnded = 1,
};

/// Position of a capture device (the platform's numbering: back 1, front 2).
enum AVCaptureDevicePosition : long {
    AVCaptureDevicePositionUnspecified = 0,
    AVCaptureDevicePositionBack = 1,
    AVCaptureDevicePositionFront = 2,
};

/// Four-character pixel-format codes of capture formats.
using FourCharCode = uint32_t;
inline constexpr FourCharCode kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange =
    0x34323076;  // '420v'
inline constexpr FourCharCode kCVPixelFormatType_420YpCbCr8BiPlanarFullRange =
    0x34323066;                                                        // '420f'
inline constexpr FourCharCode kCVPixelFormatType_32BGRA = 0x42475241;  // 'BGRA'
/// Planar 4:2:0 ('y420'), what the built-in cameras deliver.
inline constexpr FourCharCode kCVPixelFormatType_420YpCbCr8Planar = 0x79343230;

/// Error domain of errors raised by the RTC engine.
inline constexpr const char* kRTCErrorDomain = "org.webrtc.RTCPeerConnection";

/// "new", "checking", ... for logs.
std::string RTCStringFromIceConnectionState(RTCIceConnectionState state);
std::string RTCStringFromPeerConnectionState(RTCPeerConnectionState state);
