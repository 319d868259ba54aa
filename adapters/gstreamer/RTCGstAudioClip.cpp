#include "RTCGstAudioClip.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "RTCGstHandles.h"
#include "RTCGstMediaOptions.h"

namespace {

constexpr const char* kPcmCaps =
    "audio/x-raw,format=S16LE,layout=interleaved,rate=48000,channels=1";
constexpr GstClockTime kChunk = 20 * GST_MSECOND;
constexpr size_t kChunkSamples = RTCGstAudioClip::kRate / 50;
constexpr GstClockTime kDecodeStall = 10 * GST_SECOND;

std::string errorText(GstMessage* message) {
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    std::string text = error ? error->message : "unknown error";
    g_clear_error(&error);
    return text;
}

struct Feeder {
    std::shared_ptr<const RTCGstAudioClip> clip;
    size_t position = 0;
    GstClockTime next = GST_CLOCK_TIME_NONE;
};

void needData(GstAppSrc* appsrc, guint /*length*/, gpointer data) {
    auto& feeder = *static_cast<Feeder*>(data);
    if (feeder.next == GST_CLOCK_TIME_NONE) {
        // Start at the pipeline's present, whenever the branch joined it.
        feeder.next = 0;
        if (GstClock* clock = gst_element_get_clock(GST_ELEMENT(appsrc))) {
            GstClockTime now = gst_clock_get_time(clock);
            GstClockTime base = gst_element_get_base_time(GST_ELEMENT(appsrc));
            feeder.next = now > base ? now - base : 0;
            gst_object_unref(clock);
        }
    }
    const auto& samples = feeder.clip->samples();
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, kChunkSamples * sizeof(int16_t), nullptr);
    GstMapInfo map;
    if (gst_buffer_map(buffer, &map, GST_MAP_WRITE)) {
        auto* out = reinterpret_cast<int16_t*>(map.data);
        for (size_t i = 0; i < kChunkSamples; ++i) {
            out[i] = samples.empty() ? 0 : samples[feeder.position];
            feeder.position = samples.empty() ? 0 : (feeder.position + 1) % samples.size();
        }
        gst_buffer_unmap(buffer, &map);
    }
    GST_BUFFER_PTS(buffer) = feeder.next;
    GST_BUFFER_DURATION(buffer) = kChunk;
    feeder.next += kChunk;
    gst_app_src_push_buffer(appsrc, buffer);
}

}  // namespace

std::shared_ptr<const RTCGstAudioClip> RTCGstAudioClip::decode(const std::string& path,
                                                               std::string& error) {
    GError* parseError = nullptr;
    auto pipeline = rtcgst::sink(gst_parse_launch(
        (std::string("filesrc name=src ! decodebin ! audioconvert ! audioresample ! ") + kPcmCaps +
         " ! appsink name=sink sync=false")
            .c_str(),
        &parseError));
    if (!pipeline) {
        error = parseError ? parseError->message : "no decoder";
        g_clear_error(&parseError);
        return nullptr;
    }
    g_clear_error(&parseError);
    rtcgst::Owned<GstElement> src(gst_bin_get_by_name(GST_BIN(pipeline.get()), "src"));
    rtcgst::Owned<GstElement> sink(gst_bin_get_by_name(GST_BIN(pipeline.get()), "sink"));
    rtcgst::Owned<GstBus> bus(gst_element_get_bus(pipeline.get()));
    g_object_set(src.get(), "location", path.c_str(), nullptr);

    auto clip = std::make_shared<RTCGstAudioClip>();
    const size_t limit = size_t(kRTCGstMaxAudioFileSeconds) * kRate;
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    while (clip->samples_.size() < limit) {
        if (GstMessage* message = gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR)) {
            error = errorText(message);
            gst_message_unref(message);
            break;
        }
        GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), kDecodeStall);
        if (!sample) {
            if (!gst_app_sink_is_eos(GST_APP_SINK(sink.get()))) {
                GstMessage* message = gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR);
                error = message ? errorText(message) : "decoding stalled";
                if (message) {
                    gst_message_unref(message);
                }
            }
            break;
        }
        GstMapInfo map;
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        if (buffer && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            size_t count = std::min(map.size / sizeof(int16_t), limit - clip->samples_.size());
            size_t old = clip->samples_.size();
            clip->samples_.resize(old + count);
            std::memcpy(clip->samples_.data() + old, map.data, count * sizeof(int16_t));
            gst_buffer_unmap(buffer, &map);
        }
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    if (clip->samples_.empty()) {
        if (error.empty()) {
            error = "it holds no audio";
        }
        return nullptr;
    }
    error.clear();
    return clip;
}

void RTCGstAudioClip::feed(GstElement* appsrc, std::shared_ptr<const RTCGstAudioClip> clip) {
    rtcgst::OwnedCaps caps(gst_caps_from_string(kPcmCaps));
    g_object_set(appsrc, "caps", caps.get(), "max-bytes",
                 guint64(4 * kChunkSamples * sizeof(int16_t)), nullptr);
    GstAppSrcCallbacks callbacks{};
    callbacks.need_data = needData;
    auto feeder = std::make_unique<Feeder>();
    feeder->clip = std::move(clip);
    gst_app_src_set_callbacks(GST_APP_SRC(appsrc), &callbacks, rtcgst::giveToC(std::move(feeder)),
                              rtcgst::destroyFromC<Feeder>);
}

std::shared_ptr<const RTCGstAudioClip> RTCGstAudioClips::get(const std::string& path,
                                                             std::string& error) {
    std::error_code fsError;
    const auto modified =
        std::filesystem::last_write_time(path, fsError).time_since_epoch().count();
    if (fsError) {
        error = fsError.message();
        return nullptr;
    }
    {
        std::lock_guard lock(mutex_);
        auto it = clips_.find(path);
        if (it != clips_.end() && it->second.modified == modified) {
            return it->second.clip;
        }
    }
    auto clip = RTCGstAudioClip::decode(path, error);
    if (clip) {
        std::lock_guard lock(mutex_);
        clips_[path] = Entry{modified, clip};
    }
    return clip;
}
