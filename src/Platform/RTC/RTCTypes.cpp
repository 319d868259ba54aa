#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"

std::string RTCStringFromIceConnectionState(RTCIceConnectionState state) {
    switch (state) {
        case RTCIceConnectionStateNew:
            return "new";
        case RTCIceConnectionStateChecking:
            return "checking";
        case RTCIceConnectionStateConnected:
            return "connected";
        case RTCIceConnectionStateCompleted:
            return "completed";
        case RTCIceConnectionStateFailed:
            return "failed";
        case RTCIceConnectionStateDisconnected:
            return "disconnected";
        case RTCIceConnectionStateClosed:
            return "closed";
        case RTCIceConnectionStateCount:
            break;
    }
    return "unknown";
}

std::string RTCStringFromPeerConnectionState(RTCPeerConnectionState state) {
    switch (state) {
        case RTCPeerConnectionStateNew:
            return "new";
        case RTCPeerConnectionStateConnecting:
            return "connecting";
        case RTCPeerConnectionStateConnected:
            return "connected";
        case RTCPeerConnectionStateDisconnected:
            return "disconnected";
        case RTCPeerConnectionStateFailed:
            return "failed";
        case RTCPeerConnectionStateClosed:
            return "closed";
    }
    return "unknown";
}
