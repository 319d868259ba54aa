// The sound devices the engine can use, and the choice of the microphone and
// playback elements a call gets (see RTCGstMediaOptions.h for the rules).
//
// Devices come from GStreamer's device monitor: PulseAudio sources and sinks
// when a sound server answers (PipeWire serves the same interface), ALSA
// devices otherwise. A scan takes a few milliseconds but can block while a
// sound server is stuck, so scans run on a worker of their own; a call uses
// the latest finished scan.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"

typedef struct _GstElement GstElement;

/// One source or sink.
struct RTCGstAudioEndpoint {
    std::string name;  ///< what the element's "device" property takes
    std::string description;
    bool isDefault = false;
    bool pulse = false;  ///< a sound-server device (else ALSA)
};

struct RTCGstAudioSnapshot {
    std::vector<RTCGstAudioEndpoint> sources;
    std::vector<RTCGstAudioEndpoint> sinks;
    /// A PulseAudio (or PipeWire-pulse) server answered.
    bool soundServer() const;
    const RTCGstAudioEndpoint* findSource(const std::string& name) const;
    const RTCGstAudioEndpoint* findSink(const std::string& name) const;
};

/// What makes a call's microphone.
struct RTCGstMicrophonePlan {
    enum class Kind { Tone, Silence, File, Pulse, Alsa };
    Kind kind = Kind::Silence;
    std::string device;   ///< Pulse/Alsa: "" for the default; File: the path
    std::string warning;  ///< why the choice was replaced, "" when it was not
};

/// What a call's received audio plays to.
struct RTCGstSpeakerPlan {
    enum class Kind { Silent, Pulse, Alsa };
    Kind kind = Kind::Silent;
    std::string device;  ///< "" for the default
    std::string warning;
};

/// The plans for `choice` (RTCGstMediaOptions' microphone, or a sink name) on
/// the devices of `snapshot`.
RTCGstMicrophonePlan RTCGstPlanMicrophone(const std::string& choice,
                                          const RTCGstAudioSnapshot& snapshot);
RTCGstSpeakerPlan RTCGstPlanSpeaker(const std::string& choice, const RTCGstAudioSnapshot& snapshot);

/// The elements of a plan, with the engine's low-latency settings (floating
/// references; nullptr when the element is missing). A File plan gives an
/// appsrc that RTCGstAudioClip feeds.
GstElement* RTCGstMakeMicrophone(const RTCGstMicrophonePlan& plan);
GstElement* RTCGstMakeSpeaker(const RTCGstSpeakerPlan& plan);
/// Moves a playing sink to another device, where the element can (PulseAudio);
/// false when the sink must stay where it is.
bool RTCGstMoveSpeaker(GstElement* sink, const RTCGstSpeakerPlan& plan);

class RTCGstAudioDevices {
  public:
    /// Starts the first scan in the background.
    RTCGstAudioDevices();
    RTCGstAudioDevices(const RTCGstAudioDevices&) = delete;
    RTCGstAudioDevices& operator=(const RTCGstAudioDevices&) = delete;

    /// The latest scan; waits for the first one to finish (at most 2 s, then
    /// an empty snapshot).
    RTCGstAudioSnapshot snapshot();
    /// Scans now, on the caller's thread, and keeps the result.
    RTCGstAudioSnapshot rescan();
    /// Starts a scan in the background unless one is already waiting to run.
    void rescanInBackground();

  private:
    /// Shared with the scans under way, which may outlive this object.
    struct State {
        std::mutex mutex;
        std::condition_variable scanned;
        std::optional<RTCGstAudioSnapshot> latest;
        bool pending = false;
        void store(RTCGstAudioSnapshot snapshot);
    };
    static RTCGstAudioSnapshot scan();

    std::shared_ptr<State> state_ = std::make_shared<State>();
    std::shared_ptr<QXVCSerialQueue> worker_;
};
