// Media branches of a peer connection: encoders feeding webrtcbin, decoders fed
// by it.
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>
#include <gst/webrtc/webrtc.h>

#include <algorithm>
#include <climits>

#include "RTCGstFrames.h"
#include "RTCGstMedia.h"
#include "RTCGstPeerConnectionImpl.h"
#include "RTCGstPlatform.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"

using Impl = RTCGstPeerConnection::Impl;

namespace {

constexpr int kDefaultVp8PayloadType = 96;
constexpr int kDefaultOpusPayloadType = 111;
constexpr int kOpusBitrate = 32000;

GstWebRTCRTPTransceiverDirection gstDirection(RTCRtpTransceiverDirection direction) {
    switch (direction) {
        case RTCRtpTransceiverDirectionSendRecv:
            return GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_SENDRECV;
        case RTCRtpTransceiverDirectionSendOnly:
            return GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_SENDONLY;
        case RTCRtpTransceiverDirectionRecvOnly:
            return GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_RECVONLY;
        default:
            return GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_INACTIVE;
    }
}

std::string rtpCaps(bool video, int pt) {
    return video ? "application/x-rtp,media=video,encoding-name=VP8,clock-rate=90000,payload=" +
                       std::to_string(pt) + ",rtcp-fb-nack-pli=(boolean)true"
                 : "application/x-rtp,media=audio,encoding-name=OPUS,clock-rate=48000,payload=" +
                       std::to_string(pt) + ",encoding-params=(string)2";
}

struct VideoSinkData {
    std::shared_ptr<RTCGstVideoTrack> track;
    std::shared_ptr<RTCGstCounters> counters;
};

struct StartData {
    RTCGstRefPtr ref;
    std::weak_ptr<RTCGstRtpTransceiver> transceiver;
};

}  // namespace

void Impl::buildBranch(RTCGstBranch& branch, int mline, int pt) {
    branch.built = true;
    branch.mline = mline;
    const bool video = branch.transceiver->mediaType() == RTCRtpMediaTypeVideo;
    auto track = branch.transceiver->gstSender()->track();
    GstCaps* caps = gst_caps_from_string(rtpCaps(video, pt).c_str());
    if (!track) {
        GstWebRTCRTPTransceiver* transceiver = nullptr;
        g_signal_emit_by_name(webrtc, "add-transceiver",
                              gstDirection(branch.transceiver->direction()), caps, &transceiver);
        branch.gstTransceiver = transceiver ? GST_OBJECT(transceiver) : nullptr;
        gst_caps_unref(caps);
        return;
    }
    GstElement* bin = nullptr;
    if (video) {
        const auto& options = pc.platform_->options();
        std::string description =
            "appsrc name=src format=time is-live=true do-timestamp=true "
            "! queue leaky=downstream max-size-buffers=2 max-size-bytes=0 max-size-time=0 "
            // One encoder thread: libvpx's multi-threaded mode stalls to a few
            // frames per second on a loaded two-core machine.
            "! videoconvert ! vp8enc name=enc deadline=1 cpu-used=8 end-usage=cbr lag-in-frames=0 "
            "keyframe-max-dist=90 threads=1 target-bitrate=" +
            std::to_string(options.defaultVideoBitrateBps) +
            " ! rtpvp8pay picture-id-mode=15-bit mtu=1200 ! capsfilter name=caps";
        GError* error = nullptr;
        bin = gst_parse_bin_from_description(description.c_str(), TRUE, &error);
        if (!bin) {
            RTCLogEx(RTCLoggingSeverityError, std::string("Send branch could not be made: ") +
                                                  (error ? error->message : "?"));
        }
        g_clear_error(&error);
    } else {
        bin = makeAudioSendBin(rtpCaps(false, pt));
    }
    if (!bin) {
        gst_caps_unref(caps);
        return;
    }
    GstElement* capsfilter = gst_bin_get_by_name(GST_BIN(bin), "caps");
    g_object_set(capsfilter, "caps", caps, nullptr);
    gst_object_unref(capsfilter);
    branch.encoder = gst_bin_get_by_name(GST_BIN(bin), "enc");
    branch.volume = video ? nullptr : gst_bin_get_by_name(GST_BIN(bin), "vol");
    gst_bin_add(GST_BIN(pipeline.get()), bin);
    std::string padName = "sink_" + std::to_string(mline);
    GstPad* sinkPad = gst_element_request_pad_simple(webrtc, padName.c_str());
    GstPad* srcPad = gst_element_get_static_pad(bin, "src");
    if (!sinkPad || gst_pad_link(srcPad, sinkPad) != GST_PAD_LINK_OK) {
        RTCLogEx(RTCLoggingSeverityError, "Send branch could not be linked to " + padName);
    }
    if (sinkPad) {
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(sinkPad), "transceiver")) {
            GstWebRTCRTPTransceiver* transceiver = nullptr;
            g_object_get(sinkPad, "transceiver", &transceiver, nullptr);
            branch.gstTransceiver = transceiver ? GST_OBJECT(transceiver) : nullptr;
        }
        gst_object_unref(sinkPad);
    }
    gst_object_unref(srcPad);
    if (branch.gstTransceiver) {
        g_object_set(branch.gstTransceiver, "codec-preferences", caps, "direction",
                     gstDirection(branch.transceiver->direction()), nullptr);
    }
    gst_caps_unref(caps);
    gst_element_sync_state_with_parent(bin);

    if (video) {
        GstElement* appsrc = gst_bin_get_by_name(GST_BIN(bin), "src");
        branch.appsrc = std::make_shared<RTCGstAppSrc>(appsrc);
        auto holder = branch.appsrc;
        auto sent = counters;
        auto videoTrack = std::dynamic_pointer_cast<RTCGstVideoTrack>(track);
        branch.sinkId = videoTrack->addSink([holder, sent](const RTCVideoFramePtr& frame) {
            std::lock_guard lock(holder->mutex);
            if (frame->width() != holder->width || frame->height() != holder->height) {
                holder->width = frame->width();
                holder->height = frame->height();
                GstCaps* raw = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420",
                                                   "width", G_TYPE_INT, holder->width, "height",
                                                   G_TYPE_INT, holder->height, "framerate",
                                                   GST_TYPE_FRACTION, 30, 1, nullptr);
                gst_app_src_set_caps(GST_APP_SRC(holder->element), raw);
                gst_caps_unref(raw);
            }
            if (gst_app_src_push_buffer(GST_APP_SRC(holder->element),
                                        rtcgst::bufferFromFrame(*frame)) == GST_FLOW_OK) {
                sent->videoSent.fetch_add(1);
            }
        });
        branch.transceiver->gstSender()->setParametersHandler([r = ref] {
            Impl::post(*r, [](RTCGstPeerConnection& owner) {
                std::lock_guard lock(owner.impl_->mutex);
                for (auto& b : owner.impl_->branches) {
                    owner.impl_->applyBitrate(b);
                }
            });
        });
    } else {
        auto audioTrack = std::dynamic_pointer_cast<RTCGstAudioTrack>(track);
        branch.listenerId = audioTrack->listeners().add([r = ref] {
            Impl::post(*r, [](RTCGstPeerConnection& owner) { owner.impl_->updateAudioMute(); });
        });
        branch.transceiver->gstSender()->setParametersHandler([r = ref] {
            Impl::post(*r, [](RTCGstPeerConnection& owner) {
                std::lock_guard lock(owner.impl_->mutex);
                for (auto& b : owner.impl_->branches) {
                    owner.impl_->applyBitrate(b);
                }
            });
        });
    }
    applyBitrate(branch);
}

void Impl::applyBitrate(RTCGstBranch& branch) {
    if (!branch.encoder) {
        return;
    }
    auto cap = branch.transceiver->gstSender()->maxBitrateBps().value_or(INT_MAX);
    if (branch.transceiver->mediaType() == RTCRtpMediaTypeVideo) {
        int target = std::min(cap, pc.platform_->options().defaultVideoBitrateBps);
        g_object_set(branch.encoder, "target-bitrate", target, nullptr);
        bitrate.store(target);
    } else {
        g_object_set(branch.encoder, "bitrate",
                     std::clamp(std::min(cap, kOpusBitrate), 4000, kOpusBitrate), nullptr);
    }
}

void Impl::buildOfferBranches() {
    std::lock_guard lock(mutex);
    for (size_t i = 0; i < branches.size(); ++i) {
        if (!branches[i].built) {
            bool video = branches[i].transceiver->mediaType() == RTCRtpMediaTypeVideo;
            buildBranch(branches[i], static_cast<int>(i),
                        video ? kDefaultVp8PayloadType : kDefaultOpusPayloadType);
        }
    }
    updateAudioMuteLocked();
}

void Impl::buildAnswerBranches(const std::vector<rtcgst::MediaLine>& lines) {
    std::vector<std::pair<RTCRtpMediaType, int>>
        unmatched;  // media lines without a local transceiver
    {
        std::lock_guard lock(mutex);
        for (size_t i = 0; i < lines.size(); ++i) {
            const auto& line = lines[i];
            if (line.kind != "audio" && line.kind != "video") {
                continue;
            }
            RTCRtpMediaType type =
                line.kind == "video" ? RTCRtpMediaTypeVideo : RTCRtpMediaTypeAudio;
            int pt = type == RTCRtpMediaTypeVideo ? line.vp8PayloadType : line.opusPayloadType;
            auto it = std::find_if(branches.begin(), branches.end(), [&](const RTCGstBranch& b) {
                return !b.built && b.transceiver->mediaType() == type;
            });
            if (it == branches.end()) {
                unmatched.emplace_back(type, static_cast<int>(i));
                continue;
            }
            if (pt < 0) {
                it->built = true;  // the offer has no codec we can send
                continue;
            }
            buildBranch(*it, static_cast<int>(i), pt);
        }
    }
    for (auto [type, mline] : unmatched) {
        // webrtcbin receives on these itself; mirror them as receive-only.
        pc.addTransceiverOfType(type)->setDirection(RTCRtpTransceiverDirectionRecvOnly);
        std::lock_guard lock(mutex);
        branches.back().built = true;
        branches.back().mline = mline;
    }
    std::lock_guard lock(mutex);
    updateAudioMuteLocked();
}

void Impl::syncDirections() {
    std::lock_guard lock(mutex);
    for (auto& branch : branches) {
        if (branch.gstTransceiver) {
            g_object_set(branch.gstTransceiver, "direction",
                         gstDirection(branch.transceiver->direction()), nullptr);
        }
    }
}

void Impl::updateAudioMute() {
    std::lock_guard lock(mutex);
    updateAudioMuteLocked();
}

void Impl::updateAudioMuteLocked() {
    bool active = pc.platform_->audioSession()->isActive();
    for (auto& branch : branches) {
        if (!branch.volume) {
            continue;
        }
        auto track =
            std::dynamic_pointer_cast<RTCGstAudioTrack>(branch.transceiver->gstSender()->track());
        bool mute = !track || !track->isEnabled() || !active;
        double volume = track && track->source() ? track->source()->volume() : 1.0;
        g_object_set(branch.volume, "mute", mute, "volume", volume, nullptr);
        audioMuted.store(mute);
    }
}

void Impl::forceKeyFrames() {
    std::lock_guard lock(mutex);
    for (auto& branch : branches) {
        if (branch.encoder && branch.transceiver->mediaType() == RTCRtpMediaTypeVideo) {
            if (GstPad* src = gst_element_get_static_pad(branch.encoder, "src")) {
                gst_pad_send_event(
                    src, gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0));
                gst_object_unref(src);
            }
        }
    }
}

void Impl::updateNegotiated() {
    RTCSessionDescriptionPtr localDesc;
    {
        std::lock_guard lock(mutex);
        localDesc = local;
    }
    if (!localDesc || pc.signaling_.load() != RTCSignalingStateStable) {
        return;
    }
    auto message = rtcgst::parseSdp(localDesc->sdp());
    auto lines = message ? rtcgst::mediaLines(message.get()) : std::vector<rtcgst::MediaLine>{};
    std::lock_guard lock(mutex);
    for (auto& branch : branches) {
        if (branch.mline >= 0 && static_cast<size_t>(branch.mline) < lines.size()) {
            const auto& line = lines[static_cast<size_t>(branch.mline)];
            branch.transceiver->setNegotiated(line.mid, RTCGstDirectionFromString(line.direction));
        }
    }
}

void Impl::onPadAdded(GstPad* pad) {
    // A streaming thread: the connection may fail or close meanwhile. The
    // branch goes into the pipeline held here; a pipeline already torn down
    // gets none.
    auto pipe = pipelineAndWebrtc().first;
    if (!pipe || !ref->live) {
        return;
    }
    GstCaps* caps = gst_pad_get_current_caps(pad);
    if (!caps) {
        caps = gst_pad_query_caps(pad, nullptr);
    }
    std::string media;
    if (caps && gst_caps_get_size(caps) > 0) {
        const char* value = gst_structure_get_string(gst_caps_get_structure(caps, 0), "media");
        media = value ? value : "";
    }
    if (caps) {
        gst_caps_unref(caps);
    }
    if (media != "audio" && media != "video") {
        return;
    }
    int mline = -1;
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(pad), "transceiver")) {
        GstWebRTCRTPTransceiver* transceiver = nullptr;
        g_object_get(pad, "transceiver", &transceiver, nullptr);
        if (transceiver) {
            guint index = 0;
            g_object_get(transceiver, "mlineindex", &index, nullptr);
            mline = static_cast<int>(index);
            gst_object_unref(transceiver);
        }
    }
    std::shared_ptr<RTCGstRtpTransceiver> transceiver;
    {
        std::lock_guard lock(mutex);
        RTCRtpMediaType type = media == "video" ? RTCRtpMediaTypeVideo : RTCRtpMediaTypeAudio;
        for (auto& branch : branches) {
            if (branch.transceiver->mediaType() == type && (mline < 0 || branch.mline == mline)) {
                transceiver = branch.transceiver;
                break;
            }
        }
        if (!transceiver) {
            for (auto& branch : branches) {
                if (branch.transceiver->mediaType() == type) {
                    transceiver = branch.transceiver;
                    break;
                }
            }
        }
    }
    if (!transceiver) {
        return;
    }
    GstElement* bin = nullptr;
    if (media == "video") {
        GError* error = nullptr;
        bin = gst_parse_bin_from_description(
            "queue max-size-buffers=0 max-size-bytes=0 max-size-time=500000000 "
            "! rtpvp8depay request-keyframe=true wait-for-keyframe=true ! vp8dec ! videoconvert "
            "! video/x-raw,format=I420 ! appsink name=sink sync=false max-buffers=2 drop=true",
            TRUE, &error);
        if (!bin) {
            RTCLogEx(RTCLoggingSeverityError, std::string("Receive branch could not be made: ") +
                                                  (error ? error->message : "?"));
            g_clear_error(&error);
            return;
        }
        g_clear_error(&error);
        GstElement* sink = gst_bin_get_by_name(GST_BIN(bin), "sink");
        auto* data = new VideoSinkData{
            std::dynamic_pointer_cast<RTCGstVideoTrack>(transceiver->receiver()->track()),
            counters};
        GstAppSinkCallbacks callbacks{};
        callbacks.new_sample = [](GstAppSink* appsink, gpointer user) -> GstFlowReturn {
            GstSample* sample = gst_app_sink_pull_sample(appsink);
            if (!sample) {
                return GST_FLOW_OK;
            }
            auto* d = static_cast<VideoSinkData*>(user);
            if (auto frame = rtcgst::frameFromSample(sample)) {
                d->counters->videoFrames.fetch_add(1);
                if (d->track) {
                    d->track->deliver(frame);
                }
            }
            gst_sample_unref(sample);
            return GST_FLOW_OK;
        };
        gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, data,
                                   [](gpointer user) { delete static_cast<VideoSinkData*>(user); });
        gst_object_unref(sink);
    } else {
        bin = makeAudioReceiveBin();
    }
    // The first packet of this transceiver.
    gst_pad_add_probe(
        pad, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo*, gpointer user) -> GstPadProbeReturn {
            auto* d = static_cast<StartData*>(user);
            auto weak = d->transceiver;
            post(*d->ref, [weak](RTCGstPeerConnection& owner) {
                if (auto t = weak.lock()) {
                    owner.impl_->notify(
                        [t](RTCPeerConnectionDelegate& delegate, const RTCPeerConnectionPtr& p) {
                            delegate.peerConnectionDidStartReceivingOnTransceiver(p, t);
                        });
                }
            });
            return GST_PAD_PROBE_REMOVE;
        },
        new StartData{ref, transceiver},
        [](gpointer user) { delete static_cast<StartData*>(user); });
    gst_bin_add(GST_BIN(pipe.get()), bin);
    gst_element_sync_state_with_parent(bin);
    GstPad* binSink = gst_element_get_static_pad(bin, "sink");
    if (gst_pad_link(pad, binSink) != GST_PAD_LINK_OK) {
        RTCLogEx(RTCLoggingSeverityError, "Receive branch could not be linked for " + media);
    }
    gst_object_unref(binSink);
}
