// Internals of RTCGstPeerConnection shared by its two source files.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "RTCGstAudioIO.h"
#include "RTCGstHandles.h"
#include "RTCGstPeerConnection.h"
#include "RTCGstSdpUtils.h"

/// Counters updated from streaming threads.
struct RTCGstCounters {
    std::atomic<int64_t> lastPacketNs{0};
    std::atomic<uint64_t> packets{0};
    std::atomic<uint64_t> audioBuffers{0};
    std::atomic<uint64_t> videoFrames{0};
    std::atomic<uint64_t> videoSent{0};
    std::atomic<uint64_t> dropped{0};
};

/// What GStreamer callbacks hold: the connection, weakly, and whether its
/// pipeline is still the connection's. Every signal handler, probe and listener
/// holds its own reference, released with it, so a late callback never reaches
/// freed memory; once `live` is false (the connection failed or closed) they
/// do nothing.
struct RTCGstRef {
    explicit RTCGstRef(std::weak_ptr<RTCGstPeerConnection> owner) : pc_(std::move(owner)) {}
    ~RTCGstRef() { (void)looks_.load(std::memory_order_acquire); }
    RTCGstRef(const RTCGstRef&) = delete;
    RTCGstRef& operator=(const RTCGstRef&) = delete;

    /// The connection, if it still exists. The last reference to this object
    /// is often dropped by GLib on another thread than the callback that looked
    /// through it; the release here and the acquire in the destructor order
    /// that look before the release of `pc_` (GLib's own locks are invisible
    /// to ThreadSanitizer).
    std::shared_ptr<RTCGstPeerConnection> lock() const {
        auto pc = pc_.lock();
        looks_.fetch_add(1, std::memory_order_release);
        return pc;
    }
    std::atomic<bool> live{true};

  private:
    const std::weak_ptr<RTCGstPeerConnection> pc_;
    mutable std::atomic<unsigned> looks_{0};
};
using RTCGstRefPtr = std::shared_ptr<RTCGstRef>;

/// A signal handler's data: its own reference to the connection's RTCGstRef.
/// GLib hands it to whichever thread emits the signal; the release/acquire
/// pair orders that hand-off for every reader, since GLib's own locks are
/// invisible to ThreadSanitizer.
class RTCGstHandlerData {
  public:
    explicit RTCGstHandlerData(RTCGstRefPtr ref) : ref_(std::move(ref)) {
        published_.store(true, std::memory_order_release);
    }
    /// Ordered after its making, on whichever thread GLib lets go of it.
    ~RTCGstHandlerData() { (void)published_.load(std::memory_order_acquire); }
    RTCGstHandlerData(const RTCGstHandlerData&) = delete;
    RTCGstHandlerData& operator=(const RTCGstHandlerData&) = delete;
    const RTCGstRefPtr& ref() const {
        (void)published_.load(std::memory_order_acquire);
        return ref_;
    }

  private:
    RTCGstRefPtr ref_;
    std::atomic<bool> published_{false};
};

/// A reference to an appsrc that outlives removal from the track's sinks.
struct RTCGstAppSrc {
    explicit RTCGstAppSrc(rtcgst::GstRef<> appsrc) : element(std::move(appsrc)) {}
    const rtcgst::GstRef<> element;
    std::mutex mutex;
    int width = 0;
    int height = 0;
};

struct RTCGstBranch {
    std::shared_ptr<RTCGstRtpTransceiver> transceiver;
    int mline = -1;  ///< webrtcbin media line, -1 until built
    bool built = false;
    rtcgst::GstRef<> encoder;  ///< vp8enc / opusenc
    rtcgst::GstRef<> volume;   ///< microphone mute
    std::shared_ptr<RTCGstAppSrc> appsrc;
    int sinkId = 0;                            ///< on the local video track
    int listenerId = 0;                        ///< on the local audio track
    rtcgst::GstRef<GstObject> gstTransceiver;  ///< webrtcbin's transceiver
    bool receiving = false;
};

struct RTCGstPeerConnection::Impl {
    explicit Impl(RTCGstPeerConnection& owner) : pc(owner) {}
    RTCGstPeerConnection& pc;
    std::shared_ptr<RTCGstCounters> counters = std::make_shared<RTCGstCounters>();
    RTCGstRefPtr ref;

    mutable std::mutex mutex;  // guards what public getters and streaming threads read
    rtcgst::GstRef<> pipeline;
    rtcgst::GstRef<> webrtc;  ///< inside `pipeline`; null once torn down
    std::vector<RTCGstBranch> branches;
    RTCSessionDescriptionPtr local;
    RTCSessionDescriptionPtr remote;
    std::atomic<int> bitrate{0};
    std::atomic<bool> audioMuted{false};

    // Signalling queue only.
    std::vector<std::string> localMids;
    std::vector<std::string> remoteMids;
    RTCCertificatePtr certificate;
    std::string localFingerprint;
    std::vector<rtcgst::Fingerprint> remoteFingerprints;
    std::vector<rtcgst::TurnUri> turnServers;
    bool relayOnly = false;
    std::atomic<bool> sawRelayCandidate{false};
    RTCIceConnectionState gstIce = RTCIceConnectionStateNew;
    bool dtlsConnected = false;
    bool failed = false;
    bool reportedCompleted = false;
    int64_t disconnectedAtNs = 0;
    QXVCTimerPtr watchdog;
    QXVCTimerPtr turnTimer;
    int sessionListener = 0;
    std::vector<rtcgst::GstRef<>> dtlsDecoders;  // guarded by `mutex`

    // The pipeline's bus (RTCGstBus.cpp).
    void watchBus();
    void recalculateLatency();  // signalling queue
    static GstBusSyncReply onBusMessage(GstBus* bus, GstMessage* message, gpointer data);

    // Media ends (RTCGstAudioBranches.cpp). Guarded by `mutex`.
    std::shared_ptr<RTCGstAudioIO> audioIO;  ///< the call's microphone and loudspeaker
    std::optional<bool> voiceProcessing;     ///< from the offer/answer constraints

    // Set-up (RTCGstPipeline.cpp).
    bool setUp(const RTCConfiguration& configuration);
    /// The pipeline and webrtcbin, or nulls once torn down (any thread).
    std::pair<rtcgst::GstRef<>, rtcgst::GstRef<>> pipelineAndWebrtc() const;

    // Tear-down (RTCGstTeardown.cpp). Signalling queue, or the destructor.
    /// Silences every callback, detaches the tracks and hands the pipeline and
    /// every reference into it to the signalling queue to be freed.
    void tearDown();

    // Media branches (RTCGstBranches.cpp).
    /// Offerer: a webrtcbin transceiver for every transceiver not yet built.
    void buildOfferBranches();
    /// Answerer: send branches in the offer's media-line order and payload types.
    void buildAnswerBranches(const std::vector<rtcgst::MediaLine>& lines);
    void syncDirections();
    void applyBitrate(RTCGstBranch& branch);
    void updateAudioMute();
    void updateAudioMuteLocked();  // `mutex` held
    void forceKeyFrames();
    void onPadAdded(GstPad* pad);
    void updateNegotiated();
    /// A send branch (track) or a bare webrtcbin transceiver (no track) for
    /// `branch` on media line `mline` with payload type `pt` (`mutex` not held).
    void buildBranch(RTCGstBranch& branch, int mline, int pt);
    /// Branch `index` of `branches` on media line `mline` with payload type `pt`.
    struct BranchJob {
        size_t index;
        int mline;
        int pt;
    };
    /// Builds each job's branch without holding `mutex`, then stores it.
    void buildBranches(const std::vector<BranchJob>& jobs);
    /// A bin made from `description`, or null (logged after `failure`).
    static rtcgst::GstRef<> parseBin(const std::string& description, const char* failure);

    // Media ends (RTCGstAudioBranches.cpp).
    /// Starts the call's sound devices unless they run (`mutex` held).
    void startAudioIO();
    /// The microphone's send bin up to the payloader (`mutex` held).
    rtcgst::GstRef<> makeAudioSendBin(const std::string& rtpCaps);
    /// The receive bin of decoded audio: to the loudspeaker, and recorded.
    rtcgst::GstRef<> makeAudioReceiveBin();
    /// The constraints of the offer or answer decide on voice processing;
    /// the microphone flows from then on.
    void decideVoiceProcessing(const RTCMediaConstraintsPtr& constraints);
    /// Plays to the sink of the audio session's route.
    void applyOutputRoute();

    // Connectivity (RTCGstConnectivity.cpp). Signalling queue only.
    void onIceCandidate(unsigned mline, const std::string& candidate);
    void onGstIceState(RTCIceConnectionState state);
    void onDtlsState(GstElement* decoder, bool connected, bool failedState);
    void watchdogTick();
    void startTurnTimer();
    void fail(const std::string& reason);
    void reportIce(RTCIceConnectionState state);
    void reportGathering(RTCIceGatheringState state);
    void reportSignaling(RTCSignalingState state);
    void updateConnectionState();
    /// Connects a handler whose `data` is a reference to `ref`, released with it.
    static void connect(gpointer instance, const char* signal, GCallback handler,
                        const RTCGstRefPtr& ref);
    // GStreamer signal handlers; `data` is an RTCGstHandlerData.
    static void onDeepElementAdded(GstBin* bin, GstBin* sub, GstElement* element, gpointer data);
    static void onIceCandidateSignal(GstElement* webrtc, guint mline, gchar* candidate,
                                     gpointer data);
    static void onIceStateNotify(GObject* object, GParamSpec* pspec, gpointer data);
    static void onGatheringNotify(GObject* object, GParamSpec* pspec, gpointer data);
    static void onPadAddedSignal(GstElement* webrtc, GstPad* pad, gpointer data);
    static void onDtlsNotify(GObject* object, GParamSpec* pspec, gpointer data);
    /// Adds a probe to `pad` that counts packets into `counters`.
    static void countPackets(GstPad* pad, const std::shared_ptr<RTCGstCounters>& counters,
                             std::atomic<uint64_t> RTCGstCounters::*field, bool stampTime);

    /// Posts `task` to the signalling queue if the connection is still alive.
    static void post(const RTCGstRef& ref, std::function<void(RTCGstPeerConnection&)> task);
    static const RTCGstRef& refOf(gpointer data) {
        return *static_cast<const RTCGstHandlerData*>(data)->ref();
    }
    /// Calls the delegate on the signalling queue (skipped once closed).
    void notify(std::function<void(RTCPeerConnectionDelegate&, const RTCPeerConnectionPtr&)> call);
};
