// The audio ends of a peer connection. The call's microphone and loudspeaker
// run in a pipeline of their own (RTCGstAudioIO.h); the connection's branches
// carry their sound: the send branch takes the microphone's sound from an
// appsrc to the encoder, the receive branch hands what it decoded to the
// loudspeaker and, when asked, to a WAV recording.
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include "RTCGstAudioDevices.h"
#include "RTCGstAudioRecorder.h"
#include "RTCGstMediaSettings.h"
#include "RTCGstPeerConnectionImpl.h"
#include "RTCGstPlatform.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"

using Impl = RTCGstPeerConnection::Impl;

namespace {

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

RTCGstSpeakerPlan speakerPlan(RTCGstPlatform& platform) {
    auto& settings = *platform.mediaSettings();
    const auto options = settings.options();
    const bool speakerRoute = platform.audioSession()->outputRoute() == RTCAudioOutputRouteSpeaker;
    return RTCGstPlanSpeaker(speakerRoute ? options.speakerSink : options.receiverSink,
                             settings.audioDevices().snapshot());
}

}  // namespace

void Impl::startAudioIO() {
    if (audioIO) {
        return;
    }
    auto& settings = *pc.platform_->mediaSettings();
    const auto options = settings.options();
    auto microphone = RTCGstPlanMicrophone(options.microphone, settings.audioDevices().snapshot());
    std::shared_ptr<const RTCGstAudioClip> clip;
    if (microphone.kind == RTCGstMicrophonePlan::Kind::File) {
        std::string error;
        clip = settings.clips().get(microphone.device, error);
        if (!clip) {
            microphone.warning = "The microphone file " + microphone.device +
                                 " cannot be decoded (" + error + "): sending silence.";
            microphone.kind = RTCGstMicrophonePlan::Kind::Silence;
        }
    }
    auto speaker = speakerPlan(*pc.platform_);
    for (const auto* warning : {&microphone.warning, &speaker.warning}) {
        if (!warning->empty()) {
            settings.warn(*warning);
        }
    }
    const bool processing = options.voiceProcessing && RTCGstAudioIO::processingAvailable();
    if (options.voiceProcessing && !processing) {
        settings.warn(
            "webrtcdsp is not installed: no echo cancellation, noise suppression or "
            "gain control.");
    }
    std::string error;
    audioIO = RTCGstAudioIO::start(microphone, clip, speaker, processing, error);
    if (!audioIO) {
        settings.warn("The sound devices cannot be started (" + error +
                      "): the call has no sound.");
        return;
    }
    if (voiceProcessing) {
        audioIO->decideProcessing(*voiceProcessing);
    }
}

rtcgst::GstRef<> Impl::makeAudioSendBin(const std::string& rtpCaps) {
    startAudioIO();
    const std::string description =
        std::string("appsrc name=mic is-live=true format=time caps=\"") + RTCGstAudioIO::kPcmCaps +
        "\" ! volume name=vol ! audioconvert ! opusenc name=enc bitrate=32000 frame-size=20 "
        "! rtpopuspay ! capsfilter name=caps caps=\"" +
        rtpCaps + "\"";
    auto bin = parseBin(description, "Send branch could not be made: ");
    if (!bin) {
        return nullptr;
    }
    rtcgst::Owned<GstElement> mic(gst_bin_get_by_name(GST_BIN(bin.get()), "mic"));
    g_object_set(mic.get(), "max-bytes", guint64(48000 * 2 / 5), nullptr);
    gst_util_set_object_arg(G_OBJECT(mic.get()), "leaky-type", "downstream");
    if (audioIO) {
        audioIO->sendTo(mic.get());
    }
    return bin;
}

void Impl::decideVoiceProcessing(const RTCMediaConstraintsPtr& constraints) {
    std::lock_guard lock(mutex);
    if (voiceProcessing) {
        return;
    }
    voiceProcessing = wantsEchoCancellation(constraints);
    if (audioIO) {
        audioIO->decideProcessing(*voiceProcessing);
    }
}

namespace {

/// What the receive branch's appsink reaches: the loudspeaker, weakly.
struct Playback {
    std::weak_ptr<RTCGstAudioIO> io;
    std::shared_ptr<QXVCSerialQueue> queue;
};

GstFlowReturn playSample(GstAppSink* appsink, gpointer data) {
    rtcgst::SampleRef sample(gst_app_sink_pull_sample(appsink));
    if (!sample) {
        return GST_FLOW_OK;
    }
    const auto& playback = *static_cast<Playback*>(data);
    if (auto io = playback.io.lock()) {
        if (GstBuffer* buffer = gst_sample_get_buffer(sample.get())) {
            io->play(gst_buffer_ref(buffer));
        }
        if (io.use_count() == 1) {
            // The call let go meanwhile: the devices stop elsewhere.
            playback.queue->async([last = std::move(io)] {});
        }
    }
    return GST_FLOW_OK;
}

}  // namespace

rtcgst::GstRef<> Impl::makeAudioReceiveBin() {
    auto& settings = *pc.platform_->mediaSettings();
    const auto options = settings.options();
    std::weak_ptr<RTCGstAudioIO> io;
    {
        std::lock_guard lock(mutex);
        startAudioIO();  // a connection that only receives
        io = audioIO;
    }
    std::string description =
        std::string("queue ! rtpopusdepay ! opusdec ! audioconvert ! audioresample ! ") +
        RTCGstAudioIO::kPcmCaps +
        " ! tee name=tee ! queue ! appsink name=play sync=false async=false" +
        (options.recordAudioPath.empty()
             ? ""
             : " tee. ! queue ! appsink name=record sync=false async=false");
    auto bin = parseBin(description, "Receive branch could not be made: ");
    if (!bin) {
        return nullptr;
    }
    GstBin* parts = GST_BIN(bin.get());
    rtcgst::Owned<GstElement> tee(gst_bin_get_by_name(parts, "tee"));
    rtcgst::Owned<GstPad> teeSink(gst_element_get_static_pad(tee.get(), "sink"));
    countPackets(teeSink.get(), counters, &RTCGstCounters::audioBuffers, false);

    rtcgst::Owned<GstElement> play(gst_bin_get_by_name(parts, "play"));
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = playSample;
    auto playback = std::make_unique<Playback>();
    playback->io = io;
    playback->queue = pc.queue_;
    gst_app_sink_set_callbacks(GST_APP_SINK(play.get()), &callbacks,
                               rtcgst::giveToC(std::move(playback)),
                               rtcgst::destroyFromC<Playback>);
    if (rtcgst::Owned<GstElement> record{gst_bin_get_by_name(parts, "record")}) {
        std::string recordError;
        if (!RTCGstRecordAudio(record.get(), options.recordAudioPath, recordError)) {
            settings.warn("The received audio cannot be written to " + options.recordAudioPath +
                          ": " + recordError);
        }
    }
    return bin;
}

void Impl::applyOutputRoute() {
    std::shared_ptr<RTCGstAudioIO> io;
    {
        std::lock_guard lock(mutex);
        io = audioIO;
    }
    if (io) {
        io->moveSpeaker(speakerPlan(*pc.platform_));
    }
}
