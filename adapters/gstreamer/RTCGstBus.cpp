// What a peer connection's pipeline reports on its bus: a changed latency is
// spread over the pipeline again (branches join a playing pipeline, and
// playback and the echo probe must know how late audio is to be played), and
// an element's error is reported as a media warning.
#include "RTCGstMediaSettings.h"
#include "RTCGstPeerConnectionImpl.h"
#include "RTCGstPlatform.h"

using Impl = RTCGstPeerConnection::Impl;

GstBusSyncReply Impl::onBusMessage(GstBus*, GstMessage* message, gpointer data) {
    const RTCGstRef& ref = refOf(data);
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_LATENCY:
            Impl::post(ref, [](RTCGstPeerConnection& pc) { pc.impl_->recalculateLatency(); });
            break;
        case GST_MESSAGE_ERROR: {
            GError* parsed = nullptr;
            gst_message_parse_error(message, &parsed, nullptr);
            rtcgst::ErrorRef error(parsed);
            std::string text = std::string(GST_OBJECT_NAME(GST_MESSAGE_SRC(message))) + ": " +
                               (error ? error->message : "unknown error");
            Impl::post(ref, [text](RTCGstPeerConnection& pc) {
                pc.platform_->mediaSettings()->warn("A media element of the call failed: " + text);
            });
            break;
        }
        default:
            break;
    }
    return GST_BUS_PASS;
}

void Impl::watchBus() {
    rtcgst::Owned<GstBus> bus(gst_element_get_bus(pipeline.get()));
    gst_bus_set_sync_handler(bus.get(), onBusMessage,
                             rtcgst::giveToC(std::make_unique<RTCGstHandlerData>(ref)),
                             rtcgst::destroyFromC<RTCGstHandlerData>);
}

void Impl::recalculateLatency() {
    auto [held, bin] = pipelineAndWebrtc();
    if (held) {
        gst_bin_recalculate_latency(GST_BIN(held.get()));
    }
}
