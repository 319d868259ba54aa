#include "RTCGstAudioRecorder.h"

#include <gst/app/gstappsink.h>
#include <sndfile.h>

#include "RTCGstHandles.h"

namespace {

struct SndFileClose {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

struct Recording {
    std::unique_ptr<SNDFILE, SndFileClose> file;
};

GstFlowReturn newSample(GstAppSink* appsink, gpointer data) {
    GstSample* sample = gst_app_sink_pull_sample(appsink);
    if (!sample) {
        return GST_FLOW_OK;
    }
    auto& recording = *static_cast<Recording*>(data);
    GstMapInfo map;
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    if (recording.file && buffer && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        sf_write_short(recording.file.get(), reinterpret_cast<const short*>(map.data),
                       sf_count_t(map.size / sizeof(short)));
        gst_buffer_unmap(buffer, &map);
    }
    gst_sample_unref(sample);
    return GST_FLOW_OK;
}

}  // namespace

bool RTCGstRecordAudio(GstElement* appsink, const std::string& path, std::string& error) {
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    auto recording = std::make_unique<Recording>();
    recording->file.reset(sf_open(path.c_str(), SFM_WRITE, &info));
    if (!recording->file) {
        error = sf_strerror(nullptr);
    } else {
        sf_command(recording->file.get(), SFC_SET_UPDATE_HEADER_AUTO, nullptr, SF_TRUE);
    }
    const bool opened = recording->file != nullptr;
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = newSample;
    gst_app_sink_set_callbacks(GST_APP_SINK(appsink), &callbacks,
                               rtcgst::giveToC(std::move(recording)),
                               rtcgst::destroyFromC<Recording>);
    return opened;
}
