#include "RTCGstAudioDevices.h"

#include <gst/gst.h>

#include <chrono>
#include <filesystem>

#include "RTCGstHandles.h"

namespace {

// Low-latency sound-server buffers: 60 ms of buffering, 10 ms periods.
constexpr gint64 kBufferTimeUs = 60000;
constexpr gint64 kLatencyTimeUs = 10000;

/// The engine's buffer sizes, and the device. The elements keep their own
/// clocks: the call's sound devices run together on the sound server's clock
/// (RTCGstAudioIO.h).
void configureDevice(GstElement* element, const std::string& device) {
    g_object_set(element, "buffer-time", kBufferTimeUs, "latency-time", kLatencyTimeUs, nullptr);
    if (!device.empty()) {
        g_object_set(element, "device", device.c_str(), nullptr);
    }
}

bool factoryIs(GstElement* element, const char* name) {
    GstElementFactory* factory = gst_element_get_factory(element);
    return factory && g_strcmp0(GST_OBJECT_NAME(factory), name) == 0;
}

std::vector<RTCGstAudioEndpoint> scanClass(const char* deviceClass) {
    std::vector<RTCGstAudioEndpoint> endpoints;
    rtcgst::Owned<GstDeviceMonitor> monitor(gst_device_monitor_new());
    gst_device_monitor_add_filter(monitor.get(), deviceClass, nullptr);
    GList* devices = gst_device_monitor_get_devices(monitor.get());
    for (GList* item = devices; item; item = item->next) {
        auto* device = GST_DEVICE(item->data);
        auto element = rtcgst::sink(gst_device_create_element(device, nullptr));
        if (!element ||
            !g_object_class_find_property(G_OBJECT_GET_CLASS(element.get()), "device")) {
            continue;
        }
        rtcgst::GChars name;
        g_object_get(element.get(), "device", name.out(), nullptr);
        if (!name) {
            continue;
        }
        RTCGstAudioEndpoint endpoint;
        endpoint.name = name.str();
        endpoint.pulse =
            factoryIs(element.get(), "pulsesrc") || factoryIs(element.get(), "pulsesink");
        rtcgst::GChars display(gst_device_get_display_name(device));
        endpoint.description = display ? display.str() : endpoint.name;
        if (GstStructure* props = gst_device_get_properties(device)) {
            gboolean isDefault = FALSE;
            if (gst_structure_get_boolean(props, "is-default", &isDefault)) {
                endpoint.isDefault = isDefault;
            }
            gst_structure_free(props);
        }
        endpoints.push_back(std::move(endpoint));
    }
    g_list_free_full(devices, gst_object_unref);
    return endpoints;
}

const RTCGstAudioEndpoint* find(const std::vector<RTCGstAudioEndpoint>& list,
                                const std::string& name) {
    for (const auto& endpoint : list) {
        if (endpoint.name == name) {
            return &endpoint;
        }
    }
    return nullptr;
}

bool isAudioFile(const std::string& choice) {
    std::error_code error;
    return std::filesystem::is_regular_file(choice, error);
}

bool looksLikePath(const std::string& choice) {
    return choice.find('/') != std::string::npos;
}

}  // namespace

bool RTCGstAudioSnapshot::soundServer() const {
    for (const auto* list : {&sources, &sinks}) {
        for (const auto& endpoint : *list) {
            if (endpoint.pulse) {
                return true;
            }
        }
    }
    return false;
}

const RTCGstAudioEndpoint* RTCGstAudioSnapshot::findSource(const std::string& name) const {
    return find(sources, name);
}

const RTCGstAudioEndpoint* RTCGstAudioSnapshot::findSink(const std::string& name) const {
    return find(sinks, name);
}

RTCGstMicrophonePlan RTCGstPlanMicrophone(const std::string& choice,
                                          const RTCGstAudioSnapshot& snapshot) {
    using Kind = RTCGstMicrophonePlan::Kind;
    RTCGstMicrophonePlan plan;
    if (choice == "tone") {
        plan.kind = Kind::Tone;
        return plan;
    }
    if (isAudioFile(choice)) {
        plan.kind = Kind::File;
        plan.device = choice;
        return plan;
    }
    if (looksLikePath(choice)) {
        plan.kind = Kind::Silence;
        plan.warning = "The microphone file " + choice + " cannot be read: sending silence.";
        return plan;
    }
    const bool server = snapshot.soundServer();
    if (choice.empty()) {
        if (server) {
            plan.kind = Kind::Pulse;
        } else if (!snapshot.sources.empty()) {
            plan.kind = Kind::Alsa;
        } else {
            plan.kind = Kind::Tone;
            plan.warning = "No sound server and no sound card: the microphone sends a test tone.";
        }
        return plan;
    }
    if (const auto* source = snapshot.findSource(choice)) {
        plan.kind = source->pulse ? Kind::Pulse : Kind::Alsa;
        plan.device = choice;
        return plan;
    }
    plan.kind = Kind::Silence;
    plan.warning = server ? "The microphone " + choice +
                                " is not a source of the sound server: sending silence."
                          : "No sound server runs, so the microphone " + choice +
                                " cannot be opened: sending silence.";
    return plan;
}

RTCGstSpeakerPlan RTCGstPlanSpeaker(const std::string& choice,
                                    const RTCGstAudioSnapshot& snapshot) {
    using Kind = RTCGstSpeakerPlan::Kind;
    RTCGstSpeakerPlan plan;
    const bool server = snapshot.soundServer();
    if (choice.empty()) {
        if (server) {
            plan.kind = Kind::Pulse;
        } else if (!snapshot.sinks.empty()) {
            plan.kind = Kind::Alsa;
        } else {
            plan.warning = "No sound server and no sound card: received audio is not played.";
        }
        return plan;
    }
    if (const auto* sink = snapshot.findSink(choice)) {
        plan.kind = sink->pulse ? Kind::Pulse : Kind::Alsa;
        plan.device = choice;
        return plan;
    }
    plan.warning = server ? "The speaker " + choice +
                                " is not a sink of the sound server: received audio is not played."
                          : "No sound server runs, so the speaker " + choice +
                                " cannot be opened: received audio is not played.";
    return plan;
}

GstElement* RTCGstMakeMicrophone(const RTCGstMicrophonePlan& plan) {
    using Kind = RTCGstMicrophonePlan::Kind;
    GstElement* element = nullptr;
    switch (plan.kind) {
        case Kind::Tone:
        case Kind::Silence:
            element = gst_element_factory_make("audiotestsrc", nullptr);
            if (element) {
                g_object_set(element, "is-live", TRUE, nullptr);
                if (plan.kind == Kind::Tone) {
                    g_object_set(element, "freq", 440.0, "volume", 0.2, nullptr);
                } else {
                    gst_util_set_object_arg(G_OBJECT(element), "wave", "silence");
                }
            }
            break;
        case Kind::File:
            element = gst_element_factory_make("appsrc", nullptr);
            if (element) {
                g_object_set(element, "is-live", TRUE, "format", GST_FORMAT_TIME, nullptr);
            }
            break;
        case Kind::Pulse:
        case Kind::Alsa:
            element = gst_element_factory_make(plan.kind == Kind::Pulse ? "pulsesrc" : "alsasrc",
                                               nullptr);
            if (element) {
                configureDevice(element, plan.device);
            }
            break;
    }
    return element;
}

GstElement* RTCGstMakeSpeaker(const RTCGstSpeakerPlan& plan) {
    using Kind = RTCGstSpeakerPlan::Kind;
    GstElement* element = nullptr;
    if (plan.kind == Kind::Silent) {
        element = gst_element_factory_make("fakesink", nullptr);
        if (element) {
            g_object_set(element, "sync", FALSE, nullptr);
        }
    } else {
        element =
            gst_element_factory_make(plan.kind == Kind::Pulse ? "pulsesink" : "alsasink", nullptr);
        if (element) {
            configureDevice(element, plan.device);
        }
    }
    return element;
}

bool RTCGstMoveSpeaker(GstElement* sink, const RTCGstSpeakerPlan& plan) {
    if (!sink || plan.kind != RTCGstSpeakerPlan::Kind::Pulse || !factoryIs(sink, "pulsesink")) {
        return false;
    }
    // PulseAudio moves the running stream to the new sink; nullptr is the default.
    g_object_set(sink, "device", plan.device.empty() ? nullptr : plan.device.c_str(), nullptr);
    return true;
}

RTCGstAudioDevices::RTCGstAudioDevices() : worker_(QXVCSerialQueue::create("rtc.audio-devices")) {
    rescanInBackground();
}

RTCGstAudioSnapshot RTCGstAudioDevices::scan() {
    RTCGstAudioSnapshot snapshot;
    snapshot.sources = scanClass("Audio/Source");
    snapshot.sinks = scanClass("Audio/Sink");
    return snapshot;
}

void RTCGstAudioDevices::State::store(RTCGstAudioSnapshot snapshot) {
    {
        std::lock_guard lock(mutex);
        latest = std::move(snapshot);
    }
    scanned.notify_all();
}

RTCGstAudioSnapshot RTCGstAudioDevices::snapshot() {
    std::unique_lock lock(state_->mutex);
    state_->scanned.wait_for(lock, std::chrono::seconds(2),
                             [this] { return state_->latest.has_value(); });
    return state_->latest.value_or(RTCGstAudioSnapshot{});
}

RTCGstAudioSnapshot RTCGstAudioDevices::rescan() {
    auto snapshot = scan();
    state_->store(snapshot);
    return snapshot;
}

void RTCGstAudioDevices::rescanInBackground() {
    {
        std::lock_guard lock(state_->mutex);
        if (state_->pending) {
            return;
        }
        state_->pending = true;
    }
    worker_->async([state = state_] {
        {
            std::lock_guard lock(state->mutex);
            state->pending = false;
        }
        state->store(scan());
    });
}
