// A call's sound devices: the microphone, with echo cancellation, noise
// suppression and gain control (webrtcdsp), and the loudspeaker, with the echo
// probe (webrtcechoprobe) the canceller reads the played sound from.
//
// They run in a pipeline of their own, started whole on the system clock: the
// canceller lines up what was played with what the microphone heard, and only
// one clock for both, running from the start, keeps those together. Played
// sound is stamped as one unbroken stream from where it starts (the
// loudspeaker plays it so, whatever the jitter of its arrival), and the time
// from the probe to the loudspeaker the probe is told is measured in the call:
// what the microphone hears is matched against what was played, every half
// second (RTCGstEchoDelay.h), because the sound server's buffer fills
// differently from call to call (10-30 ms on PulseAudio). Playback is not
// synchronised to that clock: received sound is already paced by the
// connection's jitter buffer and goes to the sound server as it comes (about
// 90 ms from one microphone to the other side's loudspeaker).
// The connection's pipeline (on the system clock, with branches that come and
// go) exchanges 16-bit mono 48 kHz sound with it: what the microphone sends
// goes to an appsrc of the connection, and what the connection receives is
// handed to play().
//
// Until decideProcessing() the microphone is held back: an answerer knows
// whether to process only when it is asked for its answer.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "RTCGstAudioClip.h"
#include "RTCGstAudioDevices.h"
#include "RTCGstHandles.h"

class RTCGstAudioIO {
  public:
    /// The sound all sides of the exchange use.
    static constexpr const char* kPcmCaps =
        "audio/x-raw,format=S16LE,layout=interleaved,rate=48000,channels=1";

    /// Starts the devices of `microphone` (fed from `clip` for a file) and
    /// `speaker`, with a voice processor on the microphone when `processing`
    /// (webrtcdsp must be installed). nullptr with the reason in `error`.
    static std::shared_ptr<RTCGstAudioIO> start(const RTCGstMicrophonePlan& microphone,
                                                std::shared_ptr<const RTCGstAudioClip> clip,
                                                const RTCGstSpeakerPlan& speaker, bool processing,
                                                std::string& error);
    /// Stops the devices. Never from one of their own streaming threads.
    ~RTCGstAudioIO();
    RTCGstAudioIO(const RTCGstAudioIO&) = delete;
    RTCGstAudioIO& operator=(const RTCGstAudioIO&) = delete;

    /// Where the microphone's sound goes from now on (an appsrc taking
    /// kPcmCaps); nullptr drops it.
    void sendTo(GstElement* appsrc);
    /// Plays received sound (kPcmCaps). From any thread.
    void play(GstBuffer* buffer);
    /// Switches the processor on or off and lets the microphone flow. Only the
    /// first call counts.
    void decideProcessing(bool on);
    /// Moves playback to another device where the sink can (PulseAudio).
    void moveSpeaker(const RTCGstSpeakerPlan& plan);

    /// Whether webrtcdsp and webrtcechoprobe are installed.
    static bool processingAvailable();

    struct EchoPath;

  private:
    struct Stamps;
    struct Microphone;
    RTCGstAudioIO() = default;
    /// Tells the echo probe the playback's latency, now and then and when it
    /// was measured anew. From play().
    void tellProbe();

    rtcgst::Owned<GstElement> pipeline_;
    rtcgst::Owned<GstElement> speakerSource_;  ///< appsrc before the probe
    rtcgst::Owned<GstElement> speakerSink_;
    rtcgst::Owned<GstElement> dsp_;    ///< the processor, when there is one
    rtcgst::Owned<GstElement> probe_;  ///< the echo probe, with the processor
    unsigned played_ = 0;              ///< buffers played, counted by play()
    rtcgst::Owned<GstElement> gated_;  ///< where the microphone is held back
    std::shared_ptr<Microphone> microphone_;
    std::unique_ptr<Stamps> speakerStamps_;
    std::shared_ptr<EchoPath> echoPath_;  ///< with the processor
    std::mutex mutex_;
    gulong gate_ = 0;
    bool decided_ = false;
};
