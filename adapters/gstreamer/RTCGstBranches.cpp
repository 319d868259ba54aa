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

rtcgst::GstRef<> Impl::parseBin(const std::string& description, const char* failure) {
    GError* parsed = nullptr;
    auto bin = rtcgst::sink(gst_parse_bin_from_description(description.c_str(), TRUE, &parsed));
    rtcgst::ErrorRef error(parsed);
    if (!bin) {
        RTCLogEx(RTCLoggingSeverityError, failure + std::string(error ? error->message : "?"));
    }
    return bin;
}

void Impl::buildBranch(RTCGstBranch& branch, int mline, int pt) {
    branch.built = true;
    branch.mline = mline;
    const bool video = branch.transceiver->mediaType() == RTCRtpMediaTypeVideo;
    auto track = branch.transceiver->gstSender()->track();
    rtcgst::CapsRef caps(gst_caps_from_string(rtpCaps(video, pt).c_str()));
    if (!track) {
        GstWebRTCRTPTransceiver* transceiver = nullptr;
        g_signal_emit_by_name(webrtc.get(), "add-transceiver",
                              gstDirection(branch.transceiver->direction()), caps.get(),
                              &transceiver);
        branch.gstTransceiver.reset(GST_OBJECT(transceiver));
        return;
    }
    rtcgst::GstRef<> bin;
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
        bin = parseBin(description, "Send branch could not be made: ");
    } else {
        std::lock_guard lock(mutex);
        bin = makeAudioSendBin(rtpCaps(false, pt));
    }
    if (!bin) {
        return;
    }
    GstBin* parts = GST_BIN(bin.get());
    rtcgst::GstRef<> capsfilter(gst_bin_get_by_name(parts, "caps"));
    g_object_set(capsfilter.get(), "caps", caps.get(), nullptr);
    branch.encoder.reset(gst_bin_get_by_name(parts, "enc"));
    if (!video) {
        branch.volume.reset(gst_bin_get_by_name(parts, "vol"));
    }
    gst_bin_add(GST_BIN(pipeline.get()), bin.get());
    std::string padName = "sink_" + std::to_string(mline);
    rtcgst::GstRef<GstPad> sinkPad(gst_element_request_pad_simple(webrtc.get(), padName.c_str()));
    rtcgst::GstRef<GstPad> srcPad(gst_element_get_static_pad(bin.get(), "src"));
    if (!sinkPad || gst_pad_link(srcPad.get(), sinkPad.get()) != GST_PAD_LINK_OK) {
        RTCLogEx(RTCLoggingSeverityError, "Send branch could not be linked to " + padName);
    }
    if (sinkPad && g_object_class_find_property(G_OBJECT_GET_CLASS(sinkPad.get()), "transceiver")) {
        GstWebRTCRTPTransceiver* transceiver = nullptr;
        g_object_get(sinkPad.get(), "transceiver", &transceiver, nullptr);
        branch.gstTransceiver.reset(GST_OBJECT(transceiver));
    }
    if (branch.gstTransceiver) {
        g_object_set(branch.gstTransceiver.get(), "codec-preferences", caps.get(), "direction",
                     gstDirection(branch.transceiver->direction()), nullptr);
    }
    gst_element_sync_state_with_parent(bin.get());

    if (video) {
        branch.appsrc =
            std::make_shared<RTCGstAppSrc>(rtcgst::GstRef<>(gst_bin_get_by_name(parts, "src")));
        auto holder = branch.appsrc;
        auto sent = counters;
        auto videoTrack = std::dynamic_pointer_cast<RTCGstVideoTrack>(track);
        branch.sinkId = videoTrack->addSink([holder, sent](const RTCVideoFramePtr& frame) {
            std::lock_guard lock(holder->mutex);
            if (frame->width() != holder->width || frame->height() != holder->height) {
                holder->width = frame->width();
                holder->height = frame->height();
                rtcgst::CapsRef raw(gst_caps_new_simple(
                    "video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT,
                    holder->width, "height", G_TYPE_INT, holder->height, "framerate",
                    GST_TYPE_FRACTION, 30, 1, nullptr));
                gst_app_src_set_caps(GST_APP_SRC(holder->element.get()), raw.get());
            }
            if (gst_app_src_push_buffer(GST_APP_SRC(holder->element.get()),
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
        g_object_set(branch.encoder.get(), "target-bitrate", target, nullptr);
        bitrate.store(target);
    } else {
        g_object_set(branch.encoder.get(), "bitrate",
                     std::clamp(std::min(cap, kOpusBitrate), 4000, kOpusBitrate), nullptr);
    }
}

void Impl::buildOfferBranches() {
    std::vector<BranchJob> jobs;
    {
        std::lock_guard lock(mutex);
        for (size_t i = 0; i < branches.size(); ++i) {
            if (!branches[i].built) {
                bool video = branches[i].transceiver->mediaType() == RTCRtpMediaTypeVideo;
                branches[i].built = true;
                branches[i].mline = static_cast<int>(i);
                jobs.push_back({i, static_cast<int>(i),
                                video ? kDefaultVp8PayloadType : kDefaultOpusPayloadType});
            }
        }
    }
    buildBranches(jobs);
    std::lock_guard lock(mutex);
    updateAudioMuteLocked();
}

void Impl::buildAnswerBranches(const std::vector<rtcgst::MediaLine>& lines) {
    std::vector<BranchJob> jobs;
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
            it->built = true;  // with no codec we can send, that is all
            if (pt >= 0) {
                it->mline = static_cast<int>(i);
                jobs.push_back({static_cast<size_t>(it - branches.begin()), it->mline, pt});
            }
        }
    }
    buildBranches(jobs);
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

void Impl::buildBranches(const std::vector<BranchJob>& jobs) {
    for (const auto& job : jobs) {
        // Built outside `mutex`: webrtcbin holds its own lock while it emits
        // pad-added, whose handler takes `mutex`.
        RTCGstBranch made;
        {
            std::lock_guard lock(mutex);
            made.transceiver = branches[job.index].transceiver;
        }
        auto track = made.transceiver->gstSender()->track();
        buildBranch(made, job.mline, job.pt);
        RTCMediaStreamTrackPtr removed;
        {
            std::lock_guard lock(mutex);
            RTCGstBranch& branch = branches[job.index];
            branch.encoder = std::move(made.encoder);
            branch.volume = std::move(made.volume);
            branch.appsrc = std::move(made.appsrc);
            branch.gstTransceiver = std::move(made.gstTransceiver);
            branch.sinkId = made.sinkId;
            branch.listenerId = made.listenerId;
            if (track && branch.transceiver->gstSender()->track() != track) {
                removed = track;  // removeTrack came meanwhile and found nothing to undo
                std::swap(made.sinkId, branch.sinkId);
                std::swap(made.listenerId, branch.listenerId);
            }
        }
        if (auto video = std::dynamic_pointer_cast<RTCGstVideoTrack>(removed); video) {
            video->removeSink(made.sinkId);
        } else if (auto audio = std::dynamic_pointer_cast<RTCGstAudioTrack>(removed); audio) {
            audio->listeners().remove(made.listenerId);
        }
    }
}

void Impl::syncDirections() {
    std::lock_guard lock(mutex);
    for (auto& branch : branches) {
        if (branch.gstTransceiver) {
            g_object_set(branch.gstTransceiver.get(), "direction",
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
        g_object_set(branch.volume.get(), "mute", mute, "volume", volume, nullptr);
        audioMuted.store(mute);
    }
}

void Impl::forceKeyFrames() {
    std::lock_guard lock(mutex);
    for (auto& branch : branches) {
        if (branch.encoder && branch.transceiver->mediaType() == RTCRtpMediaTypeVideo) {
            if (rtcgst::GstRef<GstPad> src{
                    gst_element_get_static_pad(branch.encoder.get(), "src")}) {
                gst_pad_send_event(src.get(), gst_video_event_new_upstream_force_key_unit(
                                                  GST_CLOCK_TIME_NONE, TRUE, 0));
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
    rtcgst::CapsRef caps(gst_pad_get_current_caps(pad));
    if (!caps) {
        caps.reset(gst_pad_query_caps(pad, nullptr));
    }
    std::string media;
    if (caps && gst_caps_get_size(caps.get()) > 0) {
        const char* value =
            gst_structure_get_string(gst_caps_get_structure(caps.get(), 0), "media");
        media = value ? value : "";
    }
    if (media != "audio" && media != "video") {
        return;
    }
    int mline = -1;
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(pad), "transceiver")) {
        GstWebRTCRTPTransceiver* found = nullptr;
        g_object_get(pad, "transceiver", &found, nullptr);
        if (rtcgst::GstRef<GstWebRTCRTPTransceiver> held{found}) {
            guint index = 0;
            g_object_get(held.get(), "mlineindex", &index, nullptr);
            mline = static_cast<int>(index);
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
    rtcgst::GstRef<> bin;
    if (media == "video") {
        bin = parseBin(
            "queue max-size-buffers=0 max-size-bytes=0 max-size-time=500000000 "
            "! rtpvp8depay request-keyframe=true wait-for-keyframe=true ! vp8dec ! videoconvert "
            "! video/x-raw,format=I420 ! appsink name=sink sync=false max-buffers=2 drop=true",
            "Receive branch could not be made: ");
        if (!bin) {
            return;
        }
        rtcgst::GstRef<> sink(gst_bin_get_by_name(GST_BIN(bin.get()), "sink"));
        auto data = std::make_unique<VideoSinkData>(
            std::dynamic_pointer_cast<RTCGstVideoTrack>(transceiver->receiver()->track()),
            counters);
        GstAppSinkCallbacks callbacks{};
        callbacks.new_sample = [](GstAppSink* appsink, gpointer user) -> GstFlowReturn {
            rtcgst::SampleRef sample(gst_app_sink_pull_sample(appsink));
            if (!sample) {
                return GST_FLOW_OK;
            }
            auto* d = static_cast<VideoSinkData*>(user);
            if (auto frame = rtcgst::frameFromSample(sample.get())) {
                d->counters->videoFrames.fetch_add(1);
                if (d->track) {
                    d->track->deliver(frame);
                }
            }
            return GST_FLOW_OK;
        };
        gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &callbacks,
                                   rtcgst::giveToC(std::move(data)),
                                   rtcgst::destroyFromC<VideoSinkData>);
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
        rtcgst::giveToC(std::make_unique<StartData>(ref, transceiver)),
        rtcgst::destroyFromC<StartData>);
    if (!bin) {
        return;
    }
    gst_bin_add(GST_BIN(pipe.get()), bin.get());
    gst_element_sync_state_with_parent(bin.get());
    rtcgst::GstRef<GstPad> binSink(gst_element_get_static_pad(bin.get(), "sink"));
    if (gst_pad_link(pad, binSink.get()) != GST_PAD_LINK_OK) {
        RTCLogEx(RTCLoggingSeverityError, "Receive branch could not be linked for " + media);
    }
}
