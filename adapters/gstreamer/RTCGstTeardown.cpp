// Tear-down of a peer connection's pipeline. An ended connection keeps
// nothing: every callback is silenced at once, the tracks stop feeding it, and
// the pipeline goes with every reference the connection took into it (encoders,
// webrtcbin's transceivers, whose transports hold the ICE agent and its
// sockets). webrtcbin's ICE agents are closed first, so that the TURN server
// deletes the allocations instead of letting them expire.
#include <agent.h>
#include <gst/webrtc/webrtc.h>

#include <algorithm>

#include "RTCGstMedia.h"
#include "RTCGstMemory.h"
#include "RTCGstPeerConnectionImpl.h"
#include "RTCGstPlatform.h"

using Impl = RTCGstPeerConnection::Impl;

namespace {

/// A pipeline on its way out, waiting for its ICE agents to release their TURN
/// allocations.
struct Retiring {
    std::shared_ptr<QXVCSerialQueue> queue;
    rtcgst::GstRef<> pipeline;
    std::vector<rtcgst::GstRef<GstObject>> refs;
    std::vector<rtcgst::GObjectRef<GObject>> agents;
    /// Where libnice completes the closes: polled on the signalling queue.
    std::unique_ptr<GMainContext, rtcgst::Releaser<g_main_context_unref>> context{
        g_main_context_new()};
    int pending = 0;  ///< closes not yet completed
    double waited = 0;
    QXVCTimerPtr timer;

    /// Also when the engine's queue goes away with the poll still pending.
    ~Retiring() { finish(); }

    /// Stops media. Signalling queue, never an agent's own thread: stopping
    /// webrtcbin joins it.
    void stop() {
        if (pipeline) {
            gst_element_set_state(pipeline.get(), GST_STATE_NULL);
        }
    }
    /// Lets go of everything.
    void finish() {
        timer.reset();
        stop();
        refs.clear();
        agents.clear();
        if (pipeline) {
            pipeline.reset();
            RTCGstMemory::release();
        }
    }
};

/// Media stop after this long even when the TURN server does not answer.
constexpr double kTurnReleaseWait = 2.0;
/// libnice gives up on a silent TURN server by itself well before this.
constexpr double kCloseLimit = 60.0;
constexpr double kPollPeriod = 0.02;

/// The same reference, as a GstObject.
template <typename T>
rtcgst::GstRef<GstObject> asObject(rtcgst::GstRef<T> held) {
    return rtcgst::GstRef<GstObject>(GST_OBJECT(held.release()));
}

/// webrtcbin's ICE agents, one reference each.
std::vector<rtcgst::GObjectRef<GObject>> iceAgents(GstElement* pipeline) {
    std::vector<rtcgst::GObjectRef<GObject>> agents;
    rtcgst::IteratorRef it(gst_bin_iterate_recurse(GST_BIN(pipeline)));
    GValue item = G_VALUE_INIT;
    while (gst_iterator_next(it.get(), &item) == GST_ITERATOR_OK) {
        auto* element = GST_ELEMENT(g_value_get_object(&item));
        GstElementFactory* factory = gst_element_get_factory(element);
        if (factory && g_str_equal(GST_OBJECT_NAME(factory), "nicesrc")) {
            NiceAgent* agent = nullptr;
            g_object_get(element, "agent", &agent, nullptr);
            rtcgst::GObjectRef<GObject> held(G_OBJECT(agent));
            if (agent && std::none_of(agents.begin(), agents.end(),
                                      [&](const auto& a) { return a.get() == held.get(); })) {
                agents.push_back(std::move(held));
            }
        }
        g_value_reset(&item);
    }
    g_value_unset(&item);
    return agents;
}

/// Runs the completed closes; finishes once none is left. An agent whose close
/// never completed would stay, with its sockets, for as long as the process.
void poll(const std::shared_ptr<Retiring>& retiring) {
    while (g_main_context_iteration(retiring->context.get(), FALSE)) {
    }
    if (retiring->pending == 0 || retiring->waited >= kCloseLimit) {
        retiring->finish();
        return;
    }
    if (retiring->waited < kTurnReleaseWait && retiring->waited + kPollPeriod >= kTurnReleaseWait) {
        retiring->stop();
    }
    double period = retiring->waited < kTurnReleaseWait ? kPollPeriod : 10 * kPollPeriod;
    retiring->waited += period;
    retiring->timer = retiring->queue->asyncAfter(period, [retiring] { poll(retiring); });
}

void retire(const std::shared_ptr<Retiring>& retiring) {
    if (retiring->pipeline) {
        retiring->agents = iceAgents(retiring->pipeline.get());
    }
    retiring->pending = static_cast<int>(retiring->agents.size());
    // libnice completes a close in the thread-default main context of its
    // caller; this one is polled here.
    g_main_context_push_thread_default(retiring->context.get());
    for (const auto& agent : retiring->agents) {
        nice_agent_close_async(
            NICE_AGENT(agent.get()),
            [](GObject*, GAsyncResult*, gpointer data) { --*static_cast<int*>(data); },
            &retiring->pending);
    }
    g_main_context_pop_thread_default(retiring->context.get());
    poll(retiring);
}

}  // namespace

void Impl::tearDown() {
    if (ref) {
        ref->live = false;
    }
    if (watchdog) {
        watchdog->cancel();
        watchdog.reset();
    }
    if (turnTimer) {
        turnTimer->cancel();
        turnTimer.reset();
    }
    if (sessionListener) {
        pc.platform_->removeAudioSessionListener(sessionListener);
        sessionListener = 0;
    }
    auto retiring = std::make_shared<Retiring>();
    retiring->queue = pc.queue_;
    {
        std::lock_guard lock(mutex);
        for (auto& branch : branches) {
            auto sender = branch.transceiver->gstSender();
            auto track = sender->track();
            if (auto video = std::dynamic_pointer_cast<RTCGstVideoTrack>(track);
                video && branch.sinkId) {
                video->removeSink(branch.sinkId);
            }
            if (auto audio = std::dynamic_pointer_cast<RTCGstAudioTrack>(track);
                audio && branch.listenerId) {
                audio->listeners().remove(branch.listenerId);
            }
            sender->setParametersHandler(nullptr);
            branch.sinkId = 0;
            branch.listenerId = 0;
            retiring->refs.push_back(asObject(std::move(branch.encoder)));
            retiring->refs.push_back(asObject(std::move(branch.volume)));
            retiring->refs.push_back(std::move(branch.gstTransceiver));
            branch.appsrc.reset();
        }
        for (auto& decoder : dtlsDecoders) {
            retiring->refs.push_back(asObject(std::move(decoder)));
        }
        dtlsDecoders.clear();
        if (audioIO) {
            audioIO->sendTo(nullptr);
        }
        audioIO.reset();  // stops the call's sound devices
        retiring->pipeline = std::move(pipeline);
        retiring->refs.push_back(asObject(std::move(webrtc)));
    }
    std::erase_if(retiring->refs, [](const auto& held) { return !held; });
    if (!retiring->pipeline && retiring->refs.empty()) {
        return;
    }
    // Stopping the pipeline waits for its streaming threads, so it happens on
    // the signalling queue, never on a streaming thread.
    pc.queue_->async([retiring] { retire(retiring); });
}
