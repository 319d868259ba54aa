// Owning holders for GStreamer and GLib handles: whoever holds one releases
// it by letting go of the holder, never by hand.
#pragma once

#include <gst/gst.h>

#include <memory>

namespace rtcgst {

/// Calls `Release` on a handle that is not null.
template <auto Release>
struct Releaser {
    template <typename T>
    void operator()(T* handle) const {
        if (handle) {
            Release(handle);
        }
    }
};

/// One reference to a GstObject: an element, a pad, a webrtcbin transceiver.
template <typename T = GstElement>
using GstRef = std::unique_ptr<T, Releaser<gst_object_unref>>;
/// One reference to a plain GObject (a NiceAgent, webrtcbin's ICE object).
template <typename T>
using GObjectRef = std::unique_ptr<T, Releaser<g_object_unref>>;
using CapsRef = std::unique_ptr<GstCaps, Releaser<gst_caps_unref>>;
using StructureRef = std::unique_ptr<GstStructure, Releaser<gst_structure_free>>;
using ErrorRef = std::unique_ptr<GError, Releaser<g_error_free>>;
using TextRef = std::unique_ptr<gchar, Releaser<g_free>>;

/// A new reference to `object` (null stays null).
template <typename T>
GstRef<T> ref(T* object) {
    return GstRef<T>(object ? static_cast<T*>(gst_object_ref(object)) : nullptr);
}

/// Takes over a reference the caller already owns (a "transfer full" result).
template <typename T>
GstRef<T> adopt(T* object) {
    return GstRef<T>(object);
}

/// Takes over a newly made object, sinking its floating reference.
template <typename T>
GstRef<T> sink(T* object) {
    return GstRef<T>(object ? static_cast<T*>(gst_object_ref_sink(object)) : nullptr);
}

}  // namespace rtcgst
