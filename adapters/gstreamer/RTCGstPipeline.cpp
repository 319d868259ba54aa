// Set-up and tear-down of a peer connection's webrtcbin pipeline, and the
// GStreamer signal handlers that feed the signalling queue.
#include <agent.h>
#include <gst/webrtc/webrtc.h>

#include <algorithm>

#include "Platform/RTC/RTCLogging.h"
#include "RTCGstCertificates.h"
#include "RTCGstFrames.h"
#include "RTCGstMedia.h"
#include "RTCGstPeerConnectionImpl.h"
#include "RTCGstPlatform.h"
#include "Utils/QXVCSafeCall.h"

using Impl = RTCGstPeerConnection::Impl;

namespace {

std::string factoryName(GstElement* element) {
    GstElementFactory* factory = gst_element_get_factory(element);
    return factory ? GST_OBJECT_NAME(factory) : "";
}

struct ProbeData {
    std::shared_ptr<RTCGstCounters> counters;
    std::atomic<uint64_t> RTCGstCounters::*field;
    bool stampTime;
};

GstPadProbeReturn countProbe(GstPad*, GstPadProbeInfo* info, gpointer data) {
    auto* probe = static_cast<ProbeData*>(data);
    uint64_t n = 1;
    if (GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER_LIST) {
        n = gst_buffer_list_length(GST_PAD_PROBE_INFO_BUFFER_LIST(info));
    }
    ((*probe->counters).*(probe->field)).fetch_add(n);
    if (probe->stampTime) {
        probe->counters->lastPacketNs.store(rtcgst::monotonicNs());
    }
    return GST_PAD_PROBE_OK;
}

}  // namespace

void Impl::countPackets(GstPad* pad, const std::shared_ptr<RTCGstCounters>& counters,
                        std::atomic<uint64_t> RTCGstCounters::*field, bool stampTime) {
    gst_pad_add_probe(pad,
                      GstPadProbeType(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
                      countProbe, new ProbeData{counters, field, stampTime},
                      [](gpointer data) { delete static_cast<ProbeData*>(data); });
}

void Impl::post(RTCGstRef* ref, std::function<void(RTCGstPeerConnection&)> task) {
    auto pc = ref->pc.lock();
    if (!pc || pc->closed_) {
        return;
    }
    pc->queue_->async([weak = ref->pc, task = std::move(task)] {
        if (auto strong = weak.lock(); strong && !strong->closed_) {
            task(*strong);
        }
    });
    if (pc.use_count() == 1) {
        // The last owner let go meanwhile; never tear down on a streaming thread.
        pc->queue_->async([last = std::move(pc)] {});
    }
}

void Impl::notify(
    std::function<void(RTCPeerConnectionDelegate&, const RTCPeerConnectionPtr&)> call) {
    pc.queue_->async([weak = pc.weak_from_this(), call = std::move(call)] {
        auto strong = weak.lock();
        if (!strong || strong->closed_) {
            return;
        }
        if (auto delegate = strong->delegate_.lock()) {
            qxvc::safeCall("RTCPeerConnectionDelegate", call, *delegate, strong);
        }
    });
}

void Impl::onDeepElementAdded(GstBin*, GstBin*, GstElement* element, gpointer data) {
    auto pc = static_cast<RTCGstRef*>(data)->pc.lock();
    if (!pc) {
        return;
    }
    Impl& impl = *pc->impl_;
    std::string name = factoryName(element);
    if (name == "dtlssrtpdec" && impl.certificate) {
        // Still in the NULL state: the certificate is taken when it starts.
        std::string pem = impl.certificate->certificate() + impl.certificate->privateKey();
        g_object_set(element, "pem", pem.c_str(), nullptr);
    } else if (name == "dtlsdec") {
        {
            std::lock_guard lock(impl.mutex);
            impl.dtlsDecoders.push_back(GST_ELEMENT(gst_object_ref(element)));
        }
        g_signal_connect(element, "notify::connection-state", G_CALLBACK(onDtlsNotify), impl.ref);
    } else if (name == "nicesrc") {
        if (GstPad* pad = gst_element_get_static_pad(element, "src")) {
            countPackets(pad, impl.counters, &RTCGstCounters::packets, true);
            gst_object_unref(pad);
        }
    }
}

void Impl::onIceCandidateSignal(GstElement*, guint mline, gchar* candidate, gpointer data) {
    std::string line = candidate ? candidate : "";
    post(static_cast<RTCGstRef*>(data),
         [mline, line](RTCGstPeerConnection& pc) { pc.impl_->onIceCandidate(mline, line); });
}

void Impl::onIceStateNotify(GObject* object, GParamSpec*, gpointer data) {
    int state = 0;
    g_object_get(object, "ice-connection-state", &state, nullptr);
    post(static_cast<RTCGstRef*>(data), [state](RTCGstPeerConnection& pc) {
        pc.impl_->onGstIceState(static_cast<RTCIceConnectionState>(state));
    });
}

void Impl::onGatheringNotify(GObject* object, GParamSpec*, gpointer data) {
    int state = 0;
    g_object_get(object, "ice-gathering-state", &state, nullptr);
    post(static_cast<RTCGstRef*>(data), [state](RTCGstPeerConnection& pc) {
        pc.impl_->reportGathering(static_cast<RTCIceGatheringState>(state));
    });
}

void Impl::onPadAddedSignal(GstElement*, GstPad* pad, gpointer data) {
    if (GST_PAD_DIRECTION(pad) != GST_PAD_SRC) {
        return;
    }
    auto pc = static_cast<RTCGstRef*>(data)->pc.lock();
    if (pc && !pc->closed_) {
        pc->impl_->onPadAdded(pad);
    }
    if (pc && pc.use_count() == 1) {
        pc->queue_->async([last = std::move(pc)] {});
    }
}

void Impl::onDtlsNotify(GObject* object, GParamSpec*, gpointer data) {
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_PARAM_SPEC_VALUE_TYPE(g_object_class_find_property(
                             G_OBJECT_GET_CLASS(object), "connection-state")));
    g_object_get_property(object, "connection-state", &value);
    std::string nick;
    if (GEnumValue* e = g_enum_get_value(G_ENUM_CLASS(g_type_class_peek(G_VALUE_TYPE(&value))),
                                         g_value_get_enum(&value))) {
        nick = e->value_nick;
    }
    g_value_unset(&value);
    auto* element = GST_ELEMENT(gst_object_ref(object));
    post(static_cast<RTCGstRef*>(data), [element, nick](RTCGstPeerConnection& pc) {
        pc.impl_->onDtlsState(element, nick == "connected", nick == "failed");
        gst_object_unref(element);
    });
}

bool Impl::setUp(const RTCConfiguration& configuration) {
    const auto& options = pc.platform_->options();
    relayOnly = configuration.iceTransportPolicy() == RTCIceTransportPolicyRelay;
    certificate = configuration.certificate();
    if (!certificate) {
        certificate = pc.platform_->generateCertificate(RTCKeyTypeRSA, 30LL * 24 * 3600 * 1000);
    }
    auto fingerprint = certificate
                           ? RTCGstCertificates::fingerprintOfPem(certificate->certificate())
                           : std::nullopt;
    if (!fingerprint) {
        RTCLogEx(RTCLoggingSeverityError, "The peer connection has no usable DTLS certificate.");
        return false;
    }
    localFingerprint = *fingerprint;
    if (configuration.iceServers()) {
        for (const auto& server : *configuration.iceServers()) {
            if (!server) {
                continue;
            }
            for (const auto& url : server->urlStrings()) {
                auto uri = rtcgst::turnUriForUrl(url, server->username().value_or(""),
                                                 server->credential().value_or(""));
                if (uri) {
                    turnServers.push_back(*uri);
                } else if (url.rfind("stun:", 0) != 0) {
                    RTCLogEx(RTCLoggingSeverityWarning, "ICE server URL ignored: " + url);
                }
            }
        }
    }
    pipeline = gst_pipeline_new(nullptr);
    webrtc = gst_element_factory_make("webrtcbin", nullptr);
    if (!pipeline || !webrtc) {
        if (webrtc) {
            gst_object_unref(webrtc);
        }
        if (pipeline) {
            gst_object_unref(pipeline);
            pipeline = nullptr;
        }
        return false;
    }
    g_object_set(
        webrtc, "bundle-policy", GST_WEBRTC_BUNDLE_POLICY_MAX_BUNDLE, "ice-transport-policy",
        relayOnly ? GST_WEBRTC_ICE_TRANSPORT_POLICY_RELAY : GST_WEBRTC_ICE_TRANSPORT_POLICY_ALL,
        "latency", options.jitterBufferMs, nullptr);
    bool loopback = false;
    for (const auto& server : turnServers) {
        gboolean added = FALSE;
        g_signal_emit_by_name(webrtc, "add-turn-server", server.uri.c_str(), &added);
        if (!added) {
            RTCLogEx(RTCLoggingSeverityWarning,
                     "TURN server refused by the ICE agent: " + server.redacted);
        }
        loopback = loopback || server.loopback;
    }
    if (loopback) {
        // libnice binds to the outgoing interface's address; a TURN server on
        // loopback is only reachable from a loopback socket.
        GstWebRTCICE* ice = nullptr;
        g_object_get(webrtc, "ice-agent", &ice, nullptr);
        if (ice) {
            gboolean ok = FALSE;
            g_signal_emit_by_name(ice, "add-local-ip-address", "127.0.0.1", &ok);
            gst_object_unref(ice);
        }
    }
    watchBus();
    g_signal_connect(webrtc, "deep-element-added", G_CALLBACK(onDeepElementAdded), ref);
    g_signal_connect(webrtc, "on-ice-candidate", G_CALLBACK(onIceCandidateSignal), ref);
    g_signal_connect(webrtc, "notify::ice-connection-state", G_CALLBACK(onIceStateNotify), ref);
    g_signal_connect(webrtc, "notify::ice-gathering-state", G_CALLBACK(onGatheringNotify), ref);
    g_signal_connect(webrtc, "pad-added", G_CALLBACK(onPadAddedSignal), ref);
    gst_bin_add(GST_BIN(pipeline), webrtc);
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        destroyPipeline(nullptr, pipeline, nullptr, {});
        pipeline = nullptr;
        webrtc = nullptr;
        return false;
    }
    sessionListener = pc.platform_->addAudioSessionListener([r = ref] {
        post(r, [](RTCGstPeerConnection& owner) {
            owner.impl_->updateAudioMute();
            owner.impl_->applyOutputRoute();
        });
    });
    return true;
}

namespace {

/// A pipeline on its way out, waiting for its ICE agents to release their TURN
/// allocations.
struct Retiring {
    std::shared_ptr<QXVCSerialQueue> queue;
    GstElement* pipeline = nullptr;
    RTCGstRef* ref = nullptr;
    std::vector<GstElement*> refs;
    std::vector<GObject*> agents;
    std::atomic<int> pending{0};
    std::atomic<bool> finished{false};
    QXVCTimerPtr timer;

    void finish() {
        if (finished.exchange(true)) {
            return;
        }
        if (timer) {
            timer->cancel();
        }
        if (pipeline) {
            gst_element_set_state(pipeline, GST_STATE_NULL);
            gst_object_unref(pipeline);
        }
        for (GstElement* element : refs) {
            gst_object_unref(element);
        }
        for (GObject* agent : agents) {
            g_object_unref(agent);
        }
        delete ref;
    }
};

constexpr double kTurnReleaseWait = 2.0;

}  // namespace

void Impl::destroyPipeline(const std::shared_ptr<QXVCSerialQueue>& queue, GstElement* pipe,
                           RTCGstRef* callbackRef, std::vector<GstElement*> refs) {
    auto retiring = std::make_shared<Retiring>();
    retiring->queue = queue;
    retiring->pipeline = pipe;
    retiring->ref = callbackRef;
    retiring->refs = std::move(refs);
    // webrtcbin's ICE agents. Closing them makes libnice delete the TURN
    // allocations (a refresh with lifetime 0) instead of leaving them to expire
    // on the server; the pipeline stops once that is answered, or after a short
    // wait when the server does not answer.
    if (pipe) {
        GstIterator* it = gst_bin_iterate_recurse(GST_BIN(pipe));
        GValue item = G_VALUE_INIT;
        while (gst_iterator_next(it, &item) == GST_ITERATOR_OK) {
            auto* element = GST_ELEMENT(g_value_get_object(&item));
            if (factoryName(element) == "nicesrc") {
                NiceAgent* agent = nullptr;
                g_object_get(element, "agent", &agent, nullptr);
                if (agent && std::find(retiring->agents.begin(), retiring->agents.end(),
                                       G_OBJECT(agent)) == retiring->agents.end()) {
                    retiring->agents.push_back(G_OBJECT(agent));
                } else if (agent) {
                    g_object_unref(agent);
                }
            }
            g_value_reset(&item);
        }
        g_value_unset(&item);
        gst_iterator_free(it);
    }
    if (retiring->agents.empty() || !queue) {
        retiring->finish();
        return;
    }
    retiring->pending = static_cast<int>(retiring->agents.size());
    retiring->timer = queue->asyncAfter(kTurnReleaseWait, [retiring] { retiring->finish(); });
    for (GObject* agent : retiring->agents) {
        nice_agent_close_async(
            NICE_AGENT(agent),
            [](GObject*, GAsyncResult*, gpointer data) {
                auto* held = static_cast<std::shared_ptr<Retiring>*>(data);
                if (--(*held)->pending == 0) {
                    // Not on the agent's own thread: stopping webrtcbin joins it.
                    (*held)->queue->async([r = *held] { r->finish(); });
                }
                delete held;
            },
            new std::shared_ptr<Retiring>(retiring));
    }
}

void Impl::tearDown() {
    if (watchdog) {
        watchdog->cancel();
    }
    if (turnTimer) {
        turnTimer->cancel();
    }
    if (sessionListener) {
        pc.platform_->removeAudioSessionListener(sessionListener);
        sessionListener = 0;
    }
    std::vector<GstElement*> refs;
    {
        std::lock_guard lock(mutex);
        for (auto& branch : branches) {
            auto track = branch.transceiver->gstSender()->track();
            if (auto video = std::dynamic_pointer_cast<RTCGstVideoTrack>(track);
                video && branch.sinkId) {
                video->removeSink(branch.sinkId);
            }
            if (auto audio = std::dynamic_pointer_cast<RTCGstAudioTrack>(track);
                audio && branch.listenerId) {
                audio->listeners().remove(branch.listenerId);
            }
            branch.sinkId = 0;
            branch.listenerId = 0;
            if (branch.encoder) {
                refs.push_back(branch.encoder);
                branch.encoder = nullptr;
            }
            if (branch.volume) {
                refs.push_back(branch.volume);
                branch.volume = nullptr;
            }
            branch.appsrc.reset();
        }
        refs.insert(refs.end(), dtlsDecoders.begin(), dtlsDecoders.end());
        dtlsDecoders.clear();
        if (audioIO) {
            audioIO->sendTo(nullptr);
        }
        audioIO.reset();
    }
    GstElement* pipe = pipeline;
    RTCGstRef* callbackRef = ref;
    pipeline = nullptr;
    webrtc = nullptr;
    ref = nullptr;
    if (!pipe && !callbackRef && refs.empty()) {
        return;
    }
    // Stopping the pipeline releases the TURN allocations. It blocks until the
    // streaming threads have stopped, so it runs on the signalling queue.
    auto queue = pc.queue_;
    queue->async(
        [queue, pipe, callbackRef, refs] { destroyPipeline(queue, pipe, callbackRef, refs); });
}
