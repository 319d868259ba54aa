#include "RTCGstFrames.h"

#include <gst/video/video.h>

#include <cstring>

namespace rtcgst {

int64_t monotonicNs() {
    return g_get_monotonic_time() * 1000;
}

RTCVideoFramePtr frameFromSample(GstSample* sample,
                                 const std::function<void(uint8_t*, int, int)>& edit) {
    GstCaps* caps = gst_sample_get_caps(sample);
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    GstVideoInfo info;
    if (!caps || !buffer || !gst_video_info_from_caps(&info, caps) ||
        GST_VIDEO_INFO_FORMAT(&info) != GST_VIDEO_FORMAT_I420) {
        return nullptr;
    }
    GstVideoFrame vframe;
    if (!gst_video_frame_map(&vframe, &info, buffer, GST_MAP_READ)) {
        return nullptr;
    }
    int32_t width = GST_VIDEO_INFO_WIDTH(&info);
    int32_t height = GST_VIDEO_INFO_HEIGHT(&info);
    std::vector<uint8_t> data(RTCVideoFrame::i420Size(width, height));
    uint8_t* out = data.data();
    for (guint plane = 0; plane < 3; ++plane) {
        int32_t pw = plane == 0 ? width : (width + 1) / 2;
        int32_t ph = plane == 0 ? height : (height + 1) / 2;
        const auto* src = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&vframe, plane));
        int stride = GST_VIDEO_FRAME_PLANE_STRIDE(&vframe, plane);
        for (int32_t row = 0; row < ph; ++row) {
            std::memcpy(out, src + static_cast<size_t>(row) * static_cast<size_t>(stride),
                        static_cast<size_t>(pw));
            out += pw;
        }
    }
    gst_video_frame_unmap(&vframe);
    if (edit) {
        edit(data.data(), width, height);
    }
    return RTCVideoFrame::frameWithI420(width, height, std::move(data), RTCVideoRotation_0,
                                        monotonicNs());
}

GstBuffer* bufferFromFrame(const RTCVideoFrame& frame) {
    const auto& data = frame.i420();
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, data.size(), nullptr);
    gst_buffer_fill(buffer, 0, data.data(), data.size());
    // Tightly packed planes, which differ from GStreamer's default strides when
    // the width is not a multiple of 8.
    gsize offsets[GST_VIDEO_MAX_PLANES] = {0, static_cast<gsize>(frame.dataU() - frame.dataY()),
                                           static_cast<gsize>(frame.dataV() - frame.dataY())};
    gint strides[GST_VIDEO_MAX_PLANES] = {frame.strideY(), frame.strideU(), frame.strideV()};
    gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_I420,
                                   static_cast<guint>(frame.width()),
                                   static_cast<guint>(frame.height()), 3, offsets, strides);
    return buffer;
}

}  // namespace rtcgst
