// The audio ends of a peer connection: the microphone with its voice
// processing on the way out, playback, the echo probe and recording on the
// way in.
//
// Echo cancellation needs the played audio: webrtcdsp on the microphone reads
// it from a webrtcechoprobe placed just before the playback sink. The probe is
// made with the connection (the processor looks it up by name when audio
// starts to flow) and joins the receive branch when that is built. Whether the
// processor works is read from the offer's or answer's constraints; until then
// a blocking probe holds the microphone back (an answerer builds its branches
// from the remote offer, before it is asked for an answer).
#include <gst/app/gstappsink.h>

#include <atomic>

#include "Platform/RTC/RTCLogging.h"
#include "RTCGstAudioDevices.h"
#include "RTCGstAudioRecorder.h"
#include "RTCGstMediaSettings.h"
#include "RTCGstPeerConnectionImpl.h"
#include "RTCGstPlatform.h"

using Impl = RTCGstPeerConnection::Impl;

namespace {

constexpr const char* kPcm = "audio/x-raw,format=S16LE,layout=interleaved,rate=48000,channels=1";

bool hasFactory(const char* name) {
    GstElementFactory* factory = gst_element_factory_find(name);
    if (factory) {
        gst_object_unref(factory);
    }
    return factory != nullptr;
}

/// Reads the echo-cancellation constraint: absent means on, as in libwebrtc.
bool wantsEchoCancellation(const RTCMediaConstraintsPtr& constraints) {
    if (!constraints) {
        return true;
    }
    for (const char* key : {"echoCancellation", "googEchoCancellation"}) {
        if (auto value = constraints->valueForKey(key)) {
            return *value == kRTCMediaConstraintsValueTrue;
        }
    }
    return true;
}

void setProcessing(GstElement* dsp, bool on) {
    g_object_set(dsp, "echo-cancel", on, "noise-suppression", on, "gain-control", on,
                 "high-pass-filter", on, nullptr);
}

/// A bin of `elements` linked in order (floating references the bin takes).
GstElement* chain(std::initializer_list<GstElement*> elements) {
    GstElement* bin = gst_bin_new(nullptr);
    GstElement* previous = nullptr;
    for (GstElement* element : elements) {
        gst_bin_add(GST_BIN(bin), element);
        if (previous) {
            gst_element_link(previous, element);
        }
        previous = element;
    }
    return bin;
}

}  // namespace

void Impl::prepareVoiceProcessing() {
    if (!hasFactory("webrtcdsp") || !hasFactory("webrtcechoprobe")) {
        RTCLogEx(RTCLoggingSeverityWarning,
                 "webrtcdsp is not installed: no echo cancellation, noise suppression or gain "
                 "control.");
        return;
    }
    static std::atomic<unsigned> counter{0};
    const std::string name = "velmorin-echo-probe-" + std::to_string(counter.fetch_add(1));
    echoProbe = rtcgst::adopt(gst_element_factory_make("webrtcechoprobe", name.c_str()));
}

GstElement* Impl::makeAudioSendBin(const std::string& rtpCaps) {
    auto& settings = *pc.platform_->mediaSettings();
    const auto options = settings.options();
    auto plan = RTCGstPlanMicrophone(options.microphone, settings.audioDevices().snapshot());
    std::shared_ptr<const RTCGstAudioClip> clip;
    if (plan.kind == RTCGstMicrophonePlan::Kind::File) {
        std::string error;
        clip = settings.clips().get(plan.device, error);
        if (!clip) {
            plan.warning = "The microphone file " + plan.device + " cannot be decoded (" + error +
                           "): sending silence.";
            plan.kind = RTCGstMicrophonePlan::Kind::Silence;
        }
    }
    GstElement* microphone = RTCGstMakeMicrophone(plan);
    if (!microphone) {
        plan.warning =
            "The sound elements of GStreamer for the microphone are missing: sending a "
            "test tone.";
        plan.kind = RTCGstMicrophonePlan::Kind::Tone;
        microphone = RTCGstMakeMicrophone(plan);
    }
    if (!plan.warning.empty()) {
        settings.warn(plan.warning);
    }
    const bool processing = options.voiceProcessing && echoProbe;
    std::string description =
        std::string(clip ? "clocksync name=first ! audioconvert" : "audioconvert name=first") +
        " ! audioresample ! " + kPcm + (processing ? " ! webrtcdsp name=dsp" : "") +
        " ! volume name=vol ! audioconvert ! opusenc name=enc bitrate=32000 frame-size=20 "
        "! rtpopuspay ! capsfilter name=caps caps=\"" +
        rtpCaps + "\"";
    GError* error = nullptr;
    GstElement* bin = gst_parse_bin_from_description(description.c_str(), FALSE, &error);
    if (!bin) {
        RTCLogEx(RTCLoggingSeverityError,
                 std::string("Send branch could not be made: ") + (error ? error->message : "?"));
        g_clear_error(&error);
        gst_object_unref(gst_object_ref_sink(microphone));
        return nullptr;
    }
    g_clear_error(&error);
    gst_bin_add(GST_BIN(bin), microphone);
    rtcgst::Owned<GstElement> first(gst_bin_get_by_name(GST_BIN(bin), "first"));
    gst_element_link(microphone, first.get());
    if (clip) {
        RTCGstAudioClip::feed(microphone, clip);
    }
    rtcgst::Owned<GstElement> caps(gst_bin_get_by_name(GST_BIN(bin), "caps"));
    rtcgst::Owned<GstPad> src(gst_element_get_static_pad(caps.get(), "src"));
    gst_element_add_pad(bin, gst_ghost_pad_new("src", src.get()));

    if (processing) {
        voiceDsp.reset(gst_bin_get_by_name(GST_BIN(bin), "dsp"));
        g_object_set(voiceDsp.get(), "probe", GST_OBJECT_NAME(echoProbe.get()), nullptr);
        if (voiceProcessing) {
            setProcessing(voiceDsp.get(), *voiceProcessing);
        } else {
            rtcgst::Owned<GstPad> sink(gst_element_get_static_pad(voiceDsp.get(), "sink"));
            voiceGate = gst_pad_add_probe(
                sink.get(), GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM,
                [](GstPad*, GstPadProbeInfo*, gpointer) { return GST_PAD_PROBE_OK; }, nullptr,
                nullptr);
        }
    }
    return bin;
}

void Impl::decideVoiceProcessing(const RTCMediaConstraintsPtr& constraints) {
    std::lock_guard lock(mutex);
    if (voiceProcessing) {
        return;
    }
    voiceProcessing = wantsEchoCancellation(constraints);
    if (!voiceDsp) {
        return;
    }
    setProcessing(voiceDsp.get(), *voiceProcessing);
    if (voiceGate) {
        rtcgst::Owned<GstPad> sink(gst_element_get_static_pad(voiceDsp.get(), "sink"));
        gst_pad_remove_probe(sink.get(), voiceGate);
        voiceGate = 0;
    }
}

namespace {

RTCGstSpeakerPlan speakerPlan(RTCGstPlatform& platform) {
    auto& settings = *platform.mediaSettings();
    const auto options = settings.options();
    const bool speakerRoute = platform.audioSession()->outputRoute() == RTCAudioOutputRouteSpeaker;
    return RTCGstPlanSpeaker(speakerRoute ? options.speakerSink : options.receiverSink,
                             settings.audioDevices().snapshot());
}

}  // namespace

GstElement* Impl::makeAudioReceiveBin() {
    auto& settings = *pc.platform_->mediaSettings();
    const auto options = settings.options();
    auto plan = speakerPlan(*pc.platform_);
    GstElement* sink = RTCGstMakeSpeaker(plan);
    if (!sink) {
        plan = RTCGstSpeakerPlan{};
        plan.warning =
            "The sound elements of GStreamer for playback are missing: received audio "
            "is not played.";
        sink = RTCGstMakeSpeaker(plan);
    }
    if (!plan.warning.empty()) {
        settings.warn(plan.warning);
    }
    GstElement* caps = gst_element_factory_make("capsfilter", nullptr);
    rtcgst::OwnedCaps pcm(gst_caps_from_string(kPcm));
    g_object_set(caps, "caps", pcm.get(), nullptr);
    GstElement* tee = gst_element_factory_make("tee", nullptr);
    GstElement* input = gst_element_factory_make("queue", nullptr);
    GstElement* bin = chain({input, gst_element_factory_make("rtpopusdepay", nullptr),
                             gst_element_factory_make("opusdec", nullptr),
                             gst_element_factory_make("audioconvert", nullptr),
                             gst_element_factory_make("audioresample", nullptr), caps, tee});
    rtcgst::Owned<GstPad> teeSink(gst_element_get_static_pad(tee, "sink"));
    countPackets(teeSink.get(), counters, &RTCGstCounters::audioBuffers, false);

    // Playback: the echo probe right before the sink, so that it sees the
    // audio as it is played.
    GstElement* playQueue = gst_element_factory_make("queue", nullptr);
    gst_bin_add_many(GST_BIN(bin), playQueue, sink, nullptr);
    {
        std::lock_guard lock(mutex);
        GstElement* probe = nullptr;
        if (echoProbe && !GST_OBJECT_PARENT(echoProbe.get())) {
            probe = echoProbe.get();
            gst_bin_add(GST_BIN(bin), probe);
        }
        gst_element_link(tee, playQueue);
        if (probe) {
            gst_element_link_many(playQueue, probe, sink, nullptr);
        } else {
            gst_element_link(playQueue, sink);
        }
        speaker.reset(GST_ELEMENT(gst_object_ref(sink)));
    }
    if (!options.recordAudioPath.empty()) {
        GstElement* recordQueue = gst_element_factory_make("queue", nullptr);
        GstElement* recorder = gst_element_factory_make("appsink", nullptr);
        g_object_set(recorder, "sync", FALSE, "async", FALSE, nullptr);
        gst_bin_add_many(GST_BIN(bin), recordQueue, recorder, nullptr);
        gst_element_link_many(tee, recordQueue, recorder, nullptr);
        std::string error;
        if (!RTCGstRecordAudio(recorder, options.recordAudioPath, error)) {
            settings.warn("The received audio cannot be written to " + options.recordAudioPath +
                          ": " + error);
        }
    }
    rtcgst::Owned<GstPad> inputPad(gst_element_get_static_pad(input, "sink"));
    gst_element_add_pad(bin, gst_ghost_pad_new("sink", inputPad.get()));
    return bin;
}

void Impl::applyOutputRoute() {
    rtcgst::Owned<GstElement> sink;
    {
        std::lock_guard lock(mutex);
        if (!speaker) {
            return;
        }
        sink.reset(GST_ELEMENT(gst_object_ref(speaker.get())));
    }
    RTCGstMoveSpeaker(sink.get(), speakerPlan(*pc.platform_));
}
