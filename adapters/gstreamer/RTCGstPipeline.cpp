// Set-up of a peer connection's webrtcbin pipeline, and the GStreamer signal
// handlers that feed the signalling queue.
#include <gst/webrtc/webrtc.h>

#include "RTCGstCertificates.h"
#include "RTCGstFrames.h"
#include "RTCGstMedia.h"
#include "RTCGstPeerConnectionImpl.h"
#include "RTCGstPlatform.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

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
    gst_pad_add_probe(
        pad, GstPadProbeType(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
        countProbe, rtcgst::giveToC(std::make_unique<ProbeData>(counters, field, stampTime)),
        rtcgst::destroyFromC<ProbeData>);
}

void Impl::connect(gpointer instance, const char* signal, GCallback handler,
                   const RTCGstRefPtr& ref) {
    g_signal_connect_data(instance, signal, handler,
                          rtcgst::giveToC(std::make_unique<RTCGstHandlerData>(ref)),
                          rtcgst::destroyClosureData<RTCGstHandlerData>, GConnectFlags{});
}

void Impl::post(const RTCGstRef& ref, std::function<void(RTCGstPeerConnection&)> task) {
    if (!ref.live) {
        return;
    }
    auto pc = ref.lock();
    if (!pc || pc->closed_) {
        return;
    }
    pc->queue_->async([weak = std::weak_ptr<RTCGstPeerConnection>(pc), task = std::move(task)] {
        auto strong = weak.lock();
        if (strong && !strong->closed_ && strong->impl_->webrtc) {
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

std::pair<rtcgst::GstRef<>, rtcgst::GstRef<>> Impl::pipelineAndWebrtc() const {
    std::lock_guard lock(mutex);
    return {rtcgst::ref(pipeline.get()), rtcgst::ref(webrtc.get())};
}

void Impl::onDeepElementAdded(GstBin*, GstBin*, GstElement* element, gpointer data) {
    const RTCGstRef& ref = refOf(data);
    auto pc = ref.lock();
    if (!pc || !ref.live) {
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
            impl.dtlsDecoders.push_back(rtcgst::ref(element));
        }
        connect(element, "notify::connection-state", G_CALLBACK(onDtlsNotify),
                static_cast<const RTCGstHandlerData*>(data)->ref());
    } else if (name == "nicesrc") {
        if (rtcgst::GstRef<GstPad> pad{gst_element_get_static_pad(element, "src")}) {
            countPackets(pad.get(), impl.counters, &RTCGstCounters::packets, true);
        }
    }
}

void Impl::onIceCandidateSignal(GstElement*, guint mline, gchar* candidate, gpointer data) {
    std::string line = candidate ? candidate : "";
    post(refOf(data),
         [mline, line](RTCGstPeerConnection& pc) { pc.impl_->onIceCandidate(mline, line); });
}

void Impl::onIceStateNotify(GObject* object, GParamSpec*, gpointer data) {
    int state = 0;
    g_object_get(object, "ice-connection-state", &state, nullptr);
    post(refOf(data), [state](RTCGstPeerConnection& pc) {
        pc.impl_->onGstIceState(static_cast<RTCIceConnectionState>(state));
    });
}

void Impl::onGatheringNotify(GObject* object, GParamSpec*, gpointer data) {
    int state = 0;
    g_object_get(object, "ice-gathering-state", &state, nullptr);
    post(refOf(data), [state](RTCGstPeerConnection& pc) {
        pc.impl_->reportGathering(static_cast<RTCIceGatheringState>(state));
    });
}

void Impl::onPadAddedSignal(GstElement*, GstPad* pad, gpointer data) {
    if (GST_PAD_DIRECTION(pad) != GST_PAD_SRC) {
        return;
    }
    const RTCGstRef& ref = refOf(data);
    auto pc = ref.live ? ref.lock() : nullptr;
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
    // Held by the task, and released with it whether it runs or not.
    std::shared_ptr<GstElement> element = rtcgst::ref(GST_ELEMENT(object));
    post(refOf(data), [element, nick](RTCGstPeerConnection& pc) {
        pc.impl_->onDtlsState(element.get(), nick == "connected", nick == "failed");
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
    auto newPipeline = rtcgst::sink(gst_pipeline_new(nullptr));
    auto newWebrtc = rtcgst::sink(gst_element_factory_make("webrtcbin", nullptr));
    if (!newPipeline || !newWebrtc) {
        return false;
    }
    GstElement* bin = newWebrtc.get();
    g_object_set(
        bin, "bundle-policy", GST_WEBRTC_BUNDLE_POLICY_MAX_BUNDLE, "ice-transport-policy",
        relayOnly ? GST_WEBRTC_ICE_TRANSPORT_POLICY_RELAY : GST_WEBRTC_ICE_TRANSPORT_POLICY_ALL,
        "latency", options.jitterBufferMs, nullptr);
    bool loopback = false;
    for (const auto& server : turnServers) {
        gboolean added = FALSE;
        g_signal_emit_by_name(bin, "add-turn-server", server.uri.c_str(), &added);
        if (!added) {
            RTCLogEx(RTCLoggingSeverityWarning,
                     "TURN server refused by the ICE agent: " + server.redacted);
        }
        loopback = loopback || server.loopback;
    }
    if (loopback) {
        // libnice binds to the outgoing interface's address; a TURN server on
        // loopback is only reachable from a loopback socket.
        GstWebRTCICE* agent = nullptr;
        g_object_get(bin, "ice-agent", &agent, nullptr);
        if (rtcgst::GstRef<GstWebRTCICE> ice{agent}) {
            gboolean ok = FALSE;
            g_signal_emit_by_name(ice.get(), "add-local-ip-address", "127.0.0.1", &ok);
        }
    }
    connect(bin, "deep-element-added", G_CALLBACK(onDeepElementAdded), ref);
    connect(bin, "on-ice-candidate", G_CALLBACK(onIceCandidateSignal), ref);
    connect(bin, "notify::ice-connection-state", G_CALLBACK(onIceStateNotify), ref);
    connect(bin, "notify::ice-gathering-state", G_CALLBACK(onGatheringNotify), ref);
    connect(bin, "pad-added", G_CALLBACK(onPadAddedSignal), ref);
    gst_bin_add(GST_BIN(newPipeline.get()), bin);
    {
        std::lock_guard lock(mutex);
        pipeline = std::move(newPipeline);
        webrtc = std::move(newWebrtc);
    }
    watchBus();
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        tearDown();
        return false;
    }
    sessionListener = pc.platform_->addAudioSessionListener([r = ref] {
        post(*r, [](RTCGstPeerConnection& owner) {
            owner.impl_->updateAudioMute();
            owner.impl_->applyOutputRoute();
        });
    });
    return true;
}
