// The engine's one-time work that no call depends on, done in the background
// as soon as the engine is made, so that the first call does not pay for it:
// loading the plugins a call uses, and GStreamer's DTLS set-up (the DTLS
// elements generate a default RSA certificate the first time one is made).
//
// A call that comes before the work is done simply does what is still missing
// itself; nothing waits for the warm-up.
#pragma once

class RTCGstWarmUp {
  public:
    /// Starts the work, once per process; returns at once.
    static void begin();
    /// Waits at most `seconds` for the work to be done; true when it is.
    static bool waitUntilDone(double seconds);
};
