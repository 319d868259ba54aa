// A peer connection on one webrtcbin.
//
// Operations are queued and run one after the other on the engine's
// signalling queue: an operation starts when the previous one has finished
// (its webrtcbin promise answered), so the order of calls is the order of
// effects. GStreamer callbacks (webrtcbin's thread, streaming threads) only
// record facts and post work to that queue.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "RTCGstRtp.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPeerConnection.h"

class RTCGstPlatform;
typedef struct _GstElement GstElement;
typedef struct _GstPad GstPad;

class RTCGstPeerConnection final : public RTCPeerConnection,
                                   public std::enable_shared_from_this<RTCGstPeerConnection> {
  public:
    /// nullptr when the configuration is unusable or webrtcbin cannot be made.
    static std::shared_ptr<RTCGstPeerConnection> create(
        const std::shared_ptr<RTCGstPlatform>& platform, const RTCConfigurationPtr& configuration,
        const std::shared_ptr<RTCPeerConnectionDelegate>& delegate);
    ~RTCGstPeerConnection() override;

    std::weak_ptr<RTCPeerConnectionDelegate> delegate() const override { return delegate_; }
    RTCConfigurationPtr configuration() const override { return configuration_; }
    void offerForConstraints(const RTCMediaConstraintsPtr& constraints,
                             RTCCreateSessionDescriptionCompletionHandler completion) override;
    void answerForConstraints(const RTCMediaConstraintsPtr& constraints,
                              RTCCreateSessionDescriptionCompletionHandler completion) override;
    void setLocalDescription(const RTCSessionDescriptionPtr& sdp,
                             RTCSetSessionDescriptionCompletionHandler completion) override;
    void setRemoteDescription(const RTCSessionDescriptionPtr& sdp,
                              RTCSetSessionDescriptionCompletionHandler completion) override;
    void addIceCandidate(const RTCIceCandidatePtr& candidate) override;
    void addIceCandidate(const RTCIceCandidatePtr& candidate,
                         std::function<void(QXDErrorPtr error)> completion) override;
    RTCRtpSenderPtr addTrack(const RTCMediaStreamTrackPtr& track,
                             const std::vector<std::string>& streamIds) override;
    bool removeTrack(const RTCRtpSenderPtr& sender) override;
    RTCRtpTransceiverPtr addTransceiverOfType(RTCRtpMediaType mediaType) override;
    std::vector<RTCRtpSenderPtr> senders() const override;
    std::vector<RTCRtpReceiverPtr> receivers() const override;
    std::vector<RTCRtpTransceiverPtr> transceivers() const override;
    void close() override;
    /// From webrtcbin's get-stats: the inbound and outbound RTP streams' counters.
    void statisticsWithCompletionHandler(RTCStatisticsCompletionHandler completion) override;
    RTCSignalingState signalingState() const override { return signaling_.load(); }
    RTCIceConnectionState iceConnectionState() const override { return ice_.load(); }
    RTCIceGatheringState iceGatheringState() const override { return gathering_.load(); }
    RTCPeerConnectionState connectionState() const override { return connection_.load(); }
    RTCSessionDescriptionPtr localDescription() const override;
    RTCSessionDescriptionPtr remoteDescription() const override;

    /// Counters for tests and benchmarks.
    struct Stats {
        uint64_t packetsReceived = 0;  ///< anything from the network
        uint64_t audioBuffersDecoded = 0;
        uint64_t videoFramesDecoded = 0;
        uint64_t videoFramesSent = 0;
        uint64_t nonRelayCandidatesDropped = 0;
        int videoEncoderBitrateBps = 0;  ///< what the encoder was set to
        bool audioMuted = false;         ///< the microphone branch sends silence
    };
    Stats stats() const;

    struct Impl;
    RTCGstPeerConnection(std::shared_ptr<RTCGstPlatform> platform,
                         RTCConfigurationPtr configuration,
                         std::weak_ptr<RTCPeerConnectionDelegate> delegate);

  private:
    using Done = std::function<void()>;
    using Operation = std::function<void(Done done)>;
    void enqueue(Operation operation);
    void runNext();

    std::shared_ptr<RTCGstPlatform> platform_;
    std::shared_ptr<QXVCSerialQueue> queue_;
    RTCConfigurationPtr configuration_;
    std::weak_ptr<RTCPeerConnectionDelegate> delegate_;
    std::unique_ptr<Impl> impl_;

    std::atomic<RTCSignalingState> signaling_{RTCSignalingStateStable};
    std::atomic<RTCIceConnectionState> ice_{RTCIceConnectionStateNew};
    std::atomic<RTCIceGatheringState> gathering_{RTCIceGatheringStateNew};
    std::atomic<RTCPeerConnectionState> connection_{RTCPeerConnectionStateNew};
    std::atomic<bool> closed_{false};

    mutable std::mutex opMutex_;
    std::deque<Operation> operations_;
    bool running_ = false;
};
