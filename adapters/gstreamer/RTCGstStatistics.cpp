// Byte and packet counters of a peer connection, read from webrtcbin's
// get-stats: the inbound-rtp and outbound-rtp entries, summed per kind of media.
#include <gst/webrtc/webrtc.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "RTCGstPeerConnection.h"
#include "RTCGstPeerConnectionImpl.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace {

int64_t nowUs() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// One get-stats request; never answered (the pipeline went away), it
/// delivers zeros.
struct StatsRequest {
    std::shared_ptr<QXVCSerialQueue> queue;
    RTCStatisticsCompletionHandler completion;

    void deliver(const RTCStatisticsReport& report);
    ~StatsRequest() {
        if (completion) {
            RTCStatisticsReport report;
            report.timestampUs = nowUs();
            deliver(report);
        }
    }
};

/// An unsigned counter of a stats entry, whatever integer type it has.
uint64_t counter(const GstStructure* entry, const char* field) {
    const GValue* value = gst_structure_get_value(entry, field);
    if (!value) {
        return 0;
    }
    if (G_VALUE_HOLDS_UINT64(value)) {
        return g_value_get_uint64(value);
    }
    if (G_VALUE_HOLDS_UINT(value)) {
        return g_value_get_uint(value);
    }
    if (G_VALUE_HOLDS_INT64(value)) {
        return static_cast<uint64_t>(std::max<gint64>(0, g_value_get_int64(value)));
    }
    if (G_VALUE_HOLDS_INT(value)) {
        return static_cast<uint64_t>(std::max(0, g_value_get_int(value)));
    }
    return 0;
}

gboolean addEntry(GQuark, const GValue* value, gpointer data) {
    auto* report = static_cast<RTCStatisticsReport*>(data);
    if (!GST_VALUE_HOLDS_STRUCTURE(value)) {
        return TRUE;
    }
    const GstStructure* entry = gst_value_get_structure(value);
    GstWebRTCStatsType type;
    if (!gst_structure_get_enum(entry, "type", GST_TYPE_WEBRTC_STATS_TYPE,
                                reinterpret_cast<gint*>(&type))) {
        return TRUE;
    }
    // With one bundled transport webrtcbin 1.22 labels every stream with the
    // same kind and codec; the RTP clock rate of the stream's source tells
    // them apart (90 kHz video, 48 kHz Opus). A stream whose source has no
    // clock rate yet (its first moments) is left out rather than counted by
    // that label: the first video bytes were reported as audio.
    gint clockRate = 0;
    const GValue* source = gst_structure_get_value(entry, "gst-rtpsource-stats");
    if (source && GST_VALUE_HOLDS_STRUCTURE(source)) {
        gst_structure_get_int(gst_value_get_structure(source), "clock-rate", &clockRate);
    }
    if (clockRate <= 0) {
        return TRUE;
    }
    auto& counters = clockRate == 90000 ? report->video : report->audio;
    if (type == GST_WEBRTC_STATS_INBOUND_RTP) {
        counters.bytesReceived += counter(entry, "bytes-received");
        counters.packetsReceived += counter(entry, "packets-received");
    } else if (type == GST_WEBRTC_STATS_OUTBOUND_RTP) {
        counters.bytesSent += counter(entry, "bytes-sent");
        counters.packetsSent += counter(entry, "packets-sent");
    }
    return TRUE;
}

void StatsRequest::deliver(const RTCStatisticsReport& report) {
    queue->async([completion = std::exchange(completion, nullptr), report] {
        qxvc::safeCall("statistics completion", completion,
                       std::make_shared<const RTCStatisticsReport>(report));
    });
}

void statsReplied(GstPromise* promise, gpointer data) {
    auto* request = static_cast<StatsRequest*>(data);
    RTCStatisticsReport report;
    report.timestampUs = nowUs();
    if (gst_promise_wait(promise) == GST_PROMISE_RESULT_REPLIED) {
        if (const GstStructure* reply = gst_promise_get_reply(promise)) {
            gst_structure_foreach(reply, addEntry, &report);
        }
    }
    request->deliver(report);
}

}  // namespace

void RTCGstPeerConnection::statisticsWithCompletionHandler(
    RTCStatisticsCompletionHandler completion) {
    if (!completion) {
        return;
    }
    auto request = std::make_unique<StatsRequest>();
    request->queue = queue_;
    request->completion = std::move(completion);
    rtcgst::GstRef<> webrtc;
    {
        std::lock_guard lock(impl_->mutex);
        if (!closed_) {
            webrtc = rtcgst::ref(impl_->webrtc.get());
        }
    }
    if (!webrtc) {
        return;  // `request` answers with zeros
    }
    rtcgst::PromiseRef promise(gst_promise_new_with_change_func(
        statsReplied, rtcgst::giveToC(std::move(request)), rtcgst::destroyFromC<StatsRequest>));
    g_signal_emit_by_name(webrtc.get(), "get-stats", nullptr, promise.get());
}
