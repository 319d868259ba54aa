#include "RTCGstWarmUp.h"

#include <gst/gst.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "RTCGstCertificates.h"
#include "RTCGstHandles.h"

namespace {

// Made once and dropped: making an element loads its plugin and initialises
// its class. dtlsdec, made first in run(), is not listed: its first instance
// generates GStreamer's default DTLS certificate, the longest part.
constexpr const char* kElements[] = {
    "webrtcbin",    "dtlssrtpenc",   "dtlssrtpdec",   "srtpenc",         "srtpdec",
    "nicesrc",      "nicesink",      "rtpbin",        "rtpjitterbuffer", "rtpstorage",
    "rtprtxsend",   "rtprtxreceive", "rtpfunnel",     "vp8enc",          "vp8dec",
    "opusenc",      "opusdec",       "rtpvp8pay",     "rtpvp8depay",     "rtpopuspay",
    "rtpopusdepay", "appsrc",        "appsink",       "queue",           "capsfilter",
    "videoconvert", "audioconvert",  "audioresample", "volume",          "audiotestsrc",
    "videotestsrc", "fakesink"};

struct State {
    std::mutex mutex;
    std::condition_variable cv;
    bool started = false;
    bool done = false;
    std::thread thread;

    ~State() {
        if (thread.joinable()) {
            thread.join();
        }
    }
};

State& state() {
    static State instance;
    return instance;
}

void run() {
    // The default certificate is a throw-away: quicker with three primes.
    RTCGstCertificates::withThreePrimeRsaKeys(
        [] { rtcgst::sink(gst_element_factory_make("dtlsdec", nullptr)); });
    for (const char* name : kElements) {
        rtcgst::sink(gst_element_factory_make(name, nullptr));
    }
    auto& s = state();
    std::lock_guard lock(s.mutex);
    s.done = true;
    s.cv.notify_all();
}

}  // namespace

void RTCGstWarmUp::begin() {
    auto& s = state();
    std::lock_guard lock(s.mutex);
    if (s.started) {
        return;
    }
    s.started = true;
    s.thread = std::thread(run);
}

bool RTCGstWarmUp::waitUntilDone(double seconds) {
    auto& s = state();
    std::unique_lock lock(s.mutex);
    return s.cv.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return s.done; });
}
