// Owning holders for GStreamer and GLib handles: whoever holds one releases
// it by letting go of the holder, never by hand.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

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
using PromiseRef = std::unique_ptr<GstPromise, Releaser<gst_promise_unref>>;
using SampleRef = std::unique_ptr<GstSample, Releaser<gst_sample_unref>>;
using IteratorRef = std::unique_ptr<GstIterator, Releaser<gst_iterator_free>>;

/// The same, by the names the media devices use.
template <typename T = GstElement>
using Owned = GstRef<T>;
using OwnedCaps = CapsRef;

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

/// A string GLib allocated, filled in by g_object_get.
class GChars {
  public:
    GChars() = default;
    explicit GChars(gchar* text) : text_(text) {}
    ~GChars() { g_free(text_); }
    GChars(const GChars&) = delete;
    GChars& operator=(const GChars&) = delete;
    /// Where a g_object_get fills it in.
    gchar** out() {
        g_free(text_);
        text_ = nullptr;
        return &text_;
    }
    explicit operator bool() const { return text_ != nullptr; }
    std::string str() const { return text_ ? text_ : ""; }

  private:
    gchar* text_ = nullptr;
};

/// Hands an owned context to a C callback registration whose destroy notify
/// is destroyFromC<T>.
template <typename T>
gpointer giveToC(std::unique_ptr<T> context) {
    return context.release();
}

template <typename T>
void destroyFromC(gpointer context) {
    std::unique_ptr<T> owned(static_cast<T*>(context));
}

/// The same for a signal handler's data (g_signal_connect_data).
template <typename T>
void destroyClosureData(gpointer context, GClosure*) {
    destroyFromC<T>(context);
}

}  // namespace rtcgst
