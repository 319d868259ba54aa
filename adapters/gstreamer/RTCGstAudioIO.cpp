#include "RTCGstAudioIO.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>

#include "RTCGstEchoDelay.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"

namespace {

/// Sound the devices' pipeline may hold for playback before it drops the
/// oldest (200 ms), and the headroom playback keeps (20 ms).
constexpr guint64 kMaxQueuedBytes = 48000 * 2 / 5;
constexpr gint64 kPlaybackLatencyNs = 20 * GST_MSECOND;

/// How often the echo probe is told the playback's latency (every 25 buffers
/// of received sound, half a second).
constexpr unsigned kProbeEvery = 25;

/// The sound server's playback buffer: small, so that what the echo probe
/// hands on is heard soon (30-50 ms on PulseAudio).
constexpr gint64 kSpeakerBufferUs = 60000;
constexpr gint64 kSpeakerPeriodUs = 10000;
/// A pause in the received sound after which playback starts again.
constexpr GstClockTime kPlaybackPause = 200 * GST_MSECOND;

/// The canceller's filter reaches from the moment it expects the echo to
/// about 40 ms later, never before: it is told to expect the echo this much
/// earlier than measured.
constexpr double kEchoMarginMs = 10;
/// What the probe is told before the first measure: the echo came back 5-31
/// ms after the probe on PulseAudio (half of the calls under 12 ms), all
/// within the filter when expected at once.
constexpr GstClockTime kFirstProbeLatencyNs = 0;
/// How often the echo's way is measured, and how far two measures in a row
/// may differ (ms) to count; a change smaller than the last is left alone.
constexpr GstClockTime kMeasureEvery = GST_SECOND / 2;
constexpr double kSteadyMs = 1;
constexpr double kSmallChangeMs = 3;

bool hasProperty(GstElement* element, const char* name) {
    return g_object_class_find_property(G_OBJECT_GET_CLASS(element), name) != nullptr;
}

/// Running time of `element`'s pipeline now; none before it runs.
GstClockTime runningNow(GstElement* element) {
    rtcgst::Owned<GstClock> clock(gst_element_get_clock(element));
    if (!clock) {
        return GST_CLOCK_TIME_NONE;
    }
    const GstClockTime time = gst_clock_get_time(clock.get());
    const GstClockTime base = gst_element_get_base_time(element);
    return time > base ? time - base : 0;
}

/// Stamps played sound as it reaches the echo probe with when it is played
/// (its own timestamps tell when it was received), and measures the echo's
/// way from there to the microphone (RTCGstAudioIO::EchoPath).
GstPadProbeReturn stampArrival(GstPad* pad, GstPadProbeInfo* info, gpointer data);
GstPadProbeReturn listenToMicrophone(GstPad* pad, GstPadProbeInfo* info, gpointer data);

bool hasFactory(const char* name) {
    rtcgst::Owned<GstElementFactory> factory(gst_element_factory_find(name));
    return factory != nullptr;
}

GstElement* make(const char* factory) {
    return gst_element_factory_make(factory, nullptr);
}

/// How far sound handed from one pipeline to the other may run behind or
/// ahead of the receiving pipeline's clock before its timestamps start again
/// from the present.
constexpr GstClockTime kBehind = 20 * GST_MSECOND;
constexpr GstClockTime kAhead = 200 * GST_MSECOND;

/// Length of the 48 kHz 16-bit mono sound in `buffer`.
GstClockTime pcmDuration(GstBuffer* buffer) {
    return gst_util_uint64_scale(gst_buffer_get_size(buffer) / 2, GST_SECOND, 48000);
}

/// Where sound of `duration` that comes at `now` goes in a stream played
/// without gaps: right where the sound before it ended (`next`), unless that
/// lies more than `behind` before now or more than `ahead` after it (NONE: no
/// limit); then the stream starts again from now, and `restarted` says so.
/// Moves `next` on past it.
GstClockTime placeInStream(GstClockTime& next, GstClockTime now, GstClockTime duration,
                           GstClockTime behind, GstClockTime ahead, bool& restarted) {
    restarted = next == GST_CLOCK_TIME_NONE || next + behind < now ||
                (ahead != GST_CLOCK_TIME_NONE && next > now + ahead);
    if (restarted) {
        next = now;
    }
    const GstClockTime at = next;
    next += duration;
    return at;
}

}  // namespace

/// Timestamps for sound pushed into a live appsrc from another pipeline: each
/// buffer starts where the one before ended, so that it is played without gaps
/// or overlaps; only when the flow falls behind or runs far ahead of the clock
/// does the next one start from the present again (marked as a discontinuity).
struct RTCGstAudioIO::Stamps {
    std::mutex mutex;
    GstClockTime next = GST_CLOCK_TIME_NONE;

    GstBuffer* stamp(GstElement* appsrc, GstBuffer* buffer) {
        GstBuffer* copy = gst_buffer_copy(buffer);
        GstClockTime now = runningNow(appsrc);
        if (now == GST_CLOCK_TIME_NONE) {
            now = 0;
        }
        const GstClockTime duration = pcmDuration(copy);
        std::lock_guard lock(mutex);
        bool restart = false;
        GST_BUFFER_PTS(copy) = placeInStream(next, now, duration, kBehind, kAhead, restart);
        if (restart) {
            GST_BUFFER_FLAG_SET(copy, GST_BUFFER_FLAG_DISCONT);
        } else {
            GST_BUFFER_FLAG_UNSET(copy, GST_BUFFER_FLAG_DISCONT);
        }
        GST_BUFFER_DTS(copy) = GST_CLOCK_TIME_NONE;
        GST_BUFFER_DURATION(copy) = duration;
        return copy;
    }
};

namespace {

void setProcessing(GstElement* dsp, bool on) {
    // A loudspeaker's echo needs the strong suppression of what the filter
    // leaves, and the adaptive gain control would raise that residue again
    // over the call: the gain stays fixed.
    gst_util_set_object_arg(G_OBJECT(dsp), "echo-suppression-level", "high");
    gst_util_set_object_arg(G_OBJECT(dsp), "gain-control-mode", "fixed-digital");
    g_object_set(dsp, "echo-cancel", on, "noise-suppression", on, "gain-control", on,
                 "high-pass-filter", on, nullptr);
}

}  // namespace

/// The echo's way from the probe to the microphone: measured as the call goes
/// on, and the latency the probe is told.
struct RTCGstAudioIO::EchoPath {
    std::mutex mutex;
    RTCGstEchoDelay delay;
    GstClockTime latency = kFirstProbeLatencyNs;
    bool latencyChanged = true;  ///< not yet told to the probe
    int64_t nextEstimateNs = 0;
    double lastDelayMs = -1;                  ///< the last clear measure
    GstClockTime next = GST_CLOCK_TIME_NONE;  ///< where the played sound goes on

    /// Stamps `buffer`, which reached the probe at `now`, with where it falls
    /// in the played sound: the loudspeaker plays on without gaps while it is
    /// fed, so each buffer follows the one before, whatever the jitter of its
    /// arrival; after a pause the sound starts again from the present.
    void stamp(GstBuffer* buffer, GstClockTime now) {
        const GstClockTime duration = pcmDuration(buffer);
        std::lock_guard lock(mutex);
        bool restarted = false;
        GST_BUFFER_PTS(buffer) =
            placeInStream(next, now, duration, kPlaybackPause, GST_CLOCK_TIME_NONE, restarted);
    }

    void played(GstBuffer* buffer) {
        GstMapInfo map;
        if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            return;
        }
        std::lock_guard lock(mutex);
        delay.played(int64_t(GST_BUFFER_PTS(buffer)), reinterpret_cast<const int16_t*>(map.data),
                     map.size / 2);
        gst_buffer_unmap(buffer, &map);
    }

    void heard(GstBuffer* buffer) {
        if (!GST_BUFFER_PTS_IS_VALID(buffer)) {
            return;
        }
        GstMapInfo map;
        if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            return;
        }
        std::optional<RTCGstEchoDelay> sounds;
        {
            std::lock_guard lock(mutex);
            delay.heard(int64_t(GST_BUFFER_PTS(buffer)), reinterpret_cast<const int16_t*>(map.data),
                        map.size / 2);
            if (delay.heardUntil() >= nextEstimateNs) {
                nextEstimateNs = delay.heardUntil() + int64_t(kMeasureEvery);
                sounds = delay;  // measured outside the lock, which playback takes too
            }
        }
        gst_buffer_unmap(buffer, &map);
        if (!sounds) {
            return;
        }
        const auto estimate = sounds->estimate();
        GstClockTime told = GST_CLOCK_TIME_NONE;
        if (estimate) {
            std::lock_guard lock(mutex);
            told = adjust(estimate->delayMs);
        }
        if (told != GST_CLOCK_TIME_NONE) {
            char line[160];
            std::snprintf(line, sizeof line,
                          "Echo comes back %.1f ms after the probe (match %.2f): the probe now "
                          "allows %.1f ms to the loudspeaker",
                          estimate->delayMs, estimate->correlation, double(told) / GST_MSECOND);
            RTCLogEx(RTCLoggingSeverityInfo, line);
        }
    }

    /// Takes a measure of the echo's delay; the probe's new latency when it
    /// is to change, none otherwise. Under the mutex.
    GstClockTime adjust(double delayMs) {
        const bool steady = lastDelayMs >= 0 && std::abs(delayMs - lastDelayMs) <= kSteadyMs;
        lastDelayMs = delayMs;
        if (!steady) {
            return GST_CLOCK_TIME_NONE;
        }
        const auto wanted =
            GstClockTime(std::max(0.0, delayMs - kEchoMarginMs) * double(GST_MSECOND));
        const auto change = wanted > latency ? wanted - latency : latency - wanted;
        if (double(change) / GST_MSECOND <= kSmallChangeMs) {
            return GST_CLOCK_TIME_NONE;
        }
        latency = wanted;
        latencyChanged = true;
        return wanted;
    }
};

namespace {

GstPadProbeReturn stampArrival(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
    rtcgst::Owned<GstElement> element(gst_pad_get_parent_element(pad));
    const GstClockTime now = element ? runningNow(element.get()) : GST_CLOCK_TIME_NONE;
    if (now != GST_CLOCK_TIME_NONE) {
        GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
        auto* path = static_cast<std::shared_ptr<RTCGstAudioIO::EchoPath>*>(data)->get();
        path->stamp(buffer, now);
        GST_PAD_PROBE_INFO_DATA(info) = buffer;
        path->played(buffer);
    }
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn listenToMicrophone(GstPad*, GstPadProbeInfo* info, gpointer data) {
    if (GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info)) {
        static_cast<std::shared_ptr<RTCGstAudioIO::EchoPath>*>(data)->get()->heard(buffer);
    }
    return GST_PAD_PROBE_OK;
}

}  // namespace

/// Where the microphone's sound goes; shared with the microphone's appsink.
struct RTCGstAudioIO::Microphone {
    std::mutex mutex;
    rtcgst::Owned<GstElement> target;
    Stamps stamps;
};

bool RTCGstAudioIO::processingAvailable() {
    return hasFactory("webrtcdsp") && hasFactory("webrtcechoprobe");
}

std::shared_ptr<RTCGstAudioIO> RTCGstAudioIO::start(const RTCGstMicrophonePlan& microphone,
                                                    std::shared_ptr<const RTCGstAudioClip> clip,
                                                    const RTCGstSpeakerPlan& speaker,
                                                    bool processing, std::string& error) {
    static std::atomic<unsigned> counter{0};
    const unsigned number = counter.fetch_add(1);
    std::shared_ptr<RTCGstAudioIO> io(new RTCGstAudioIO());
    io->microphone_ = std::make_shared<Microphone>();
    io->speakerStamps_ = std::make_unique<Stamps>();
    io->pipeline_ =
        rtcgst::sink(gst_pipeline_new(("velmorin-audio-" + std::to_string(number)).c_str()));
    GstBin* bin = GST_BIN(io->pipeline_.get());
    // The system clock, which runs from the start: the sound server's clocks
    // stand still until their streams run, and the probe's and the
    // microphone's timestamps must be comparable from the first buffer.
    if (rtcgst::Owned<GstClock> system{gst_system_clock_obtain()}) {
        gst_pipeline_use_clock(GST_PIPELINE(io->pipeline_.get()), system.get());
    }
    rtcgst::OwnedCaps pcm(gst_caps_from_string(kPcmCaps));

    // Playback, with the probe the processor reads (made before the processor).
    GstElement* source = make("appsrc");
    GstElement* sink = RTCGstMakeSpeaker(speaker);
    GstElement* probe = processing ? gst_element_factory_make(
                                         "webrtcechoprobe",
                                         ("velmorin-echo-probe-" + std::to_string(number)).c_str())
                                   : nullptr;
    if (!source || !sink) {
        error = "the playback elements are missing";
        return nullptr;
    }
    g_object_set(source, "is-live", TRUE, "format", GST_FORMAT_TIME, "caps", pcm.get(), "max-bytes",
                 kMaxQueuedBytes, "min-latency", kPlaybackLatencyNs, nullptr);
    gst_util_set_object_arg(G_OBJECT(source), "leaky-type", "downstream");
    gst_bin_add_many(bin, source, sink, nullptr);
    // Played as it comes, at the pace the sound server takes it: the received
    // sound is already timed by the connection's jitter buffer, and waiting on
    // a clock here would only add a second, drifting schedule.
    g_object_set(sink, "sync", FALSE, nullptr);
    if (hasProperty(sink, "buffer-time")) {
        g_object_set(sink, "buffer-time", kSpeakerBufferUs, "latency-time", kSpeakerPeriodUs,
                     nullptr);
    }
    if (probe) {
        gst_bin_add(bin, probe);
        gst_element_link_many(source, probe, sink, nullptr);
        rtcgst::Owned<GstPad> probed(gst_element_get_static_pad(probe, "sink"));
        io->echoPath_ = std::make_shared<EchoPath>();
        gst_pad_add_probe(
            probed.get(), GST_PAD_PROBE_TYPE_BUFFER, stampArrival,
            rtcgst::giveToC(std::make_unique<std::shared_ptr<EchoPath>>(io->echoPath_)),
            rtcgst::destroyFromC<std::shared_ptr<EchoPath>>);
    } else {
        gst_element_link(source, sink);
    }
    io->speakerSource_.reset(GST_ELEMENT(gst_object_ref(source)));
    io->speakerSink_.reset(GST_ELEMENT(gst_object_ref(sink)));

    // The microphone, held back by a blocking probe until the processing is decided.
    GstElement* mic = RTCGstMakeMicrophone(microphone);
    if (!mic) {
        error = "the microphone's elements are missing";
        return nullptr;
    }
    GstElement* convert = make("audioconvert");
    GstElement* resample = make("audioresample");
    GstElement* caps = make("capsfilter");
    GstElement* dsp = probe ? make("webrtcdsp") : make("identity");
    GstElement* out = make("appsink");
    g_object_set(caps, "caps", pcm.get(), nullptr);
    g_object_set(out, "sync", FALSE, "async", FALSE, nullptr);
    gst_bin_add_many(bin, mic, convert, resample, caps, dsp, out, nullptr);
    GstElement* first = mic;
    if (clip) {
        // A file plays at the pace of the clock.
        GstElement* pace = make("clocksync");
        gst_bin_add(bin, pace);
        gst_element_link(mic, pace);
        first = pace;
        RTCGstAudioClip::feed(mic, std::move(clip));
    }
    gst_element_link_many(first, convert, resample, caps, dsp, out, nullptr);
    if (probe) {
        g_object_set(dsp, "probe", GST_OBJECT_NAME(probe), nullptr);
        io->dsp_.reset(GST_ELEMENT(gst_object_ref(dsp)));
        io->probe_.reset(GST_ELEMENT(gst_object_ref(probe)));
        rtcgst::Owned<GstPad> heard(gst_element_get_static_pad(dsp, "sink"));
        gst_pad_add_probe(
            heard.get(), GST_PAD_PROBE_TYPE_BUFFER, listenToMicrophone,
            rtcgst::giveToC(std::make_unique<std::shared_ptr<EchoPath>>(io->echoPath_)),
            rtcgst::destroyFromC<std::shared_ptr<EchoPath>>);
    }
    io->gated_.reset(GST_ELEMENT(gst_object_ref(dsp)));
    rtcgst::Owned<GstPad> gatePad(gst_element_get_static_pad(dsp, "sink"));
    io->gate_ = gst_pad_add_probe(
        gatePad.get(), GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo*, gpointer) { return GST_PAD_PROBE_OK; }, nullptr, nullptr);

    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink* appsink, gpointer data) -> GstFlowReturn {
        GstSample* sample = gst_app_sink_pull_sample(appsink);
        if (!sample) {
            return GST_FLOW_OK;
        }
        auto& target = *static_cast<std::shared_ptr<Microphone>*>(data);
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        std::lock_guard lock(target->mutex);
        if (buffer && target->target) {
            gst_app_src_push_buffer(GST_APP_SRC(target->target.get()),
                                    target->stamps.stamp(target->target.get(), buffer));
        }
        gst_sample_unref(sample);
        return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(
        GST_APP_SINK(out), &callbacks,
        rtcgst::giveToC(std::make_unique<std::shared_ptr<Microphone>>(io->microphone_)),
        rtcgst::destroyFromC<std::shared_ptr<Microphone>>);

    if (gst_element_set_state(io->pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        error = "the sound devices did not start";
        return nullptr;  // the destructor stops what did start
    }
    return io;
}

RTCGstAudioIO::~RTCGstAudioIO() {
    sendTo(nullptr);
    if (pipeline_) {
        gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
    }
}

void RTCGstAudioIO::sendTo(GstElement* appsrc) {
    if (!microphone_) {
        return;
    }
    std::lock_guard lock(microphone_->mutex);
    microphone_->target.reset(appsrc ? GST_ELEMENT(gst_object_ref(appsrc)) : nullptr);
    microphone_->stamps.next = GST_CLOCK_TIME_NONE;
}

void RTCGstAudioIO::play(GstBuffer* buffer) {
    if (!buffer) {
        return;
    }
    GstBuffer* stamped = speakerStamps_->stamp(speakerSource_.get(), buffer);
    gst_buffer_unref(buffer);
    gst_app_src_push_buffer(GST_APP_SRC(speakerSource_.get()), stamped);
    if (probe_) {
        tellProbe();
    }
}

void RTCGstAudioIO::tellProbe() {
    // The probe hands the canceller nothing until it knows the playback's
    // latency, and an unsynchronised sink announces none (latency events that
    // do reach it carry zero). It is told again now and then, so that it always
    // has one.
    GstClockTime latency;
    {
        std::lock_guard lock(echoPath_->mutex);
        if (played_++ % kProbeEvery != 0 && !echoPath_->latencyChanged) {
            return;
        }
        echoPath_->latencyChanged = false;
        latency = echoPath_->latency;
    }
    rtcgst::Owned<GstPad> pad(gst_element_get_static_pad(probe_.get(), "src"));
    gst_pad_send_event(pad.get(), gst_event_new_latency(latency));
}

void RTCGstAudioIO::decideProcessing(bool on) {
    std::lock_guard lock(mutex_);
    if (decided_) {
        return;
    }
    decided_ = true;
    if (dsp_) {
        setProcessing(dsp_.get(), on);
    }
    rtcgst::Owned<GstPad> pad(gst_element_get_static_pad(gated_.get(), "sink"));
    gst_pad_remove_probe(pad.get(), gate_);
    gate_ = 0;
}

void RTCGstAudioIO::moveSpeaker(const RTCGstSpeakerPlan& plan) {
    RTCGstMoveSpeaker(speakerSink_.get(), plan);
}
