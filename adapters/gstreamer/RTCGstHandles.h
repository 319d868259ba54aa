// Owners of GStreamer and GLib handles, so that every reference the engine
// takes is given back on every path.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

namespace rtcgst {

struct ObjectUnref {
    void operator()(gpointer object) const {
        if (object) {
            gst_object_unref(object);
        }
    }
};

/// A full reference to a GstObject (element, pad, bus, monitor, ...).
template <typename T>
using Owned = std::unique_ptr<T, ObjectUnref>;

/// Takes a newly made element (floating reference) into an owner.
template <typename T>
Owned<T> adopt(T* floating) {
    return Owned<T>(floating ? static_cast<T*>(gst_object_ref_sink(floating)) : nullptr);
}

struct CapsUnref {
    void operator()(GstCaps* caps) const {
        if (caps) {
            gst_caps_unref(caps);
        }
    }
};
using OwnedCaps = std::unique_ptr<GstCaps, CapsUnref>;

/// A string GLib allocated.
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

}  // namespace rtcgst
