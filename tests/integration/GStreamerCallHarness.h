// Two GStreamer peer connections in one process, relayed through a coturn on
// loopback: the plumbing the GStreamer integration tests and the benchmark share.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "RTCGstPeerConnection.h"
#include "RTCGstPlatform.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPlatform.h"
#include "support/Locked.h"

/// Counts frames and remembers the last size it was told.
class GStreamerCountingRenderer final : public RTCVideoRenderer {
  public:
    void setSize(CGSize size) override { lockedSet(mutex_, size_, size); }
    void renderFrame(const RTCVideoFramePtr& frame) override;
    uint64_t frames() const { return frames_.load(); }
    CGSize size() const { return lockedCopy(mutex_, size_); }
    RTCVideoFramePtr lastFrame() const { return lockedCopy(mutex_, last_); }
    /// When the first frame came (the benchmark's time to first frame).
    std::chrono::steady_clock::time_point firstFrameAt() const {
        return lockedCopy(mutex_, first_);
    }

  private:
    std::atomic<uint64_t> frames_{0};
    mutable std::mutex mutex_;
    CGSize size_;
    RTCVideoFramePtr last_;
    std::chrono::steady_clock::time_point first_;
};

/// One side: its peer connection, local media and everything its delegate heard.
class GStreamerPeer final : public RTCPeerConnectionDelegate,
                            public std::enable_shared_from_this<GStreamerPeer> {
  public:
    using PC = const RTCPeerConnectionPtr&;
    void peerConnectionDidChangeSignalingState(PC, RTCSignalingState) override {}
    void peerConnectionDidAddStream(PC, const RTCMediaStreamPtr&) override {}
    void peerConnectionDidRemoveStream(PC, const RTCMediaStreamPtr&) override {}
    void peerConnectionShouldNegotiate(PC) override {}
    void peerConnectionDidChangeIceConnectionState(PC, RTCIceConnectionState state) override;
    void peerConnectionDidChangeIceGatheringState(PC, RTCIceGatheringState) override {}
    void peerConnectionDidGenerateIceCandidate(PC, const RTCIceCandidatePtr& candidate) override;
    void peerConnectionDidRemoveIceCandidates(PC, const std::vector<RTCIceCandidatePtr>&) override {
    }
    void peerConnectionDidOpenDataChannel(PC, const RTCDataChannelPtr&) override {}
    void peerConnectionDidChangeConnectionState(PC, RTCPeerConnectionState state) override;

    /// Waits (real time, `seconds` at most) until `predicate` holds.
    bool waitFor(double seconds, const std::function<bool()>& predicate);
    bool waitForIce(RTCIceConnectionState state, double seconds);
    bool waitForConnection(RTCPeerConnectionState state, double seconds);
    std::vector<RTCIceConnectionState> iceStates() const { return lockedCopy(mutex_, ice_); }
    bool sawIce(RTCIceConnectionState state) const;
    std::vector<RTCPeerConnectionState> connectionStates() const {
        return lockedCopy(mutex_, connection_);
    }
    std::vector<std::string> candidateLines() const { return lockedCopy(mutex_, candidates_); }
    /// When the connection state first became Connected (epoch if never).
    std::chrono::steady_clock::time_point connectedAt() const {
        return lockedCopy(mutex_, connectedAt_);
    }
    /// Where local candidates go (the other peer); until set they are kept.
    void setCandidateSink(std::function<void(const RTCIceCandidatePtr&)> sink);
    void close();  ///< stops the capture and closes the peer connection

    std::shared_ptr<RTCGstPeerConnection> pc;
    RTCVideoSourcePtr videoSource;
    RTCCameraVideoCapturerPtr capturer;
    RTCAudioTrackPtr audioTrack;
    RTCVideoTrackPtr videoTrack;
    RTCRtpSenderPtr videoSender;
    std::shared_ptr<GStreamerCountingRenderer> remoteRenderer =
        std::make_shared<GStreamerCountingRenderer>();
    std::string name;

  private:
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<RTCIceConnectionState> ice_;
    std::vector<RTCPeerConnectionState> connection_;
    std::chrono::steady_clock::time_point connectedAt_{};
    std::vector<std::string> candidates_;
    std::vector<RTCIceCandidatePtr> pending_;
    std::function<void(const RTCIceCandidatePtr&)> sink_;
};

struct GStreamerCallOptions {
    std::string turnUrl;
    std::string username;
    std::string password;
    /// Changes the answer's fingerprint before the offerer applies it.
    bool tamperAnswerFingerprint = false;
};

/// Offerer "a" and answerer "b".
struct GStreamerCall {
    std::shared_ptr<GStreamerPeer> a;
    std::shared_ptr<GStreamerPeer> b;
    std::string error;  ///< set when negotiation failed
    /// Just before the offer was asked for.
    std::chrono::steady_clock::time_point offerRequestedAt;

    /// Makes both peers with audio and video (b on an engine of its own when
    /// `platformB` is given), runs offer/answer and trades candidates. Returns
    /// once both descriptions are applied (connection continues in the background).
    static GStreamerCall start(const std::shared_ptr<RTCGstPlatform>& platformA,
                               const GStreamerCallOptions& options,
                               std::shared_ptr<RTCGstPlatform> platformB = nullptr);
    void close();
};

/// `sdp` naming a certificate that is not the one its sender presents: one hex
/// digit of every SHA-256 fingerprint is changed.
std::string GStreamerTamperedFingerprints(std::string sdp);

/// Asks `pc` for an offer (or an answer) for audio and video and waits for it; nullptr with
/// `error` set when none came.
RTCSessionDescriptionPtr GStreamerDescribe(RTCGstPeerConnection& pc, bool offer,
                                           std::string& error);

/// Open file descriptors and threads of this process.
size_t GStreamerOpenDescriptors();
size_t GStreamerThreads();

/// The first camera of `platform` at `position`, with its `width`x`height` format when it has one.
std::pair<RTCCaptureDevicePtr, RTCCaptureDeviceFormatPtr> GStreamerCamera(
    RTCGstPlatform& platform, AVCaptureDevicePosition position, int width, int height);

/// One side with audio and 640x480 video at 30 fps from the test camera at `position`, relay only
/// through `options`' TURN server, its remote video counted; nullptr when no connection was made.
std::shared_ptr<GStreamerPeer> GStreamerMakePeer(const std::shared_ptr<RTCGstPlatform>& platform,
                                                 const GStreamerCallOptions& options,
                                                 const char* name,
                                                 AVCaptureDevicePosition position);
