// The engine's one-time work that no call depends on, done in the background
// as soon as the engine is made, so that the first call does not pay for it:
// loading the plugins a call uses, and GStreamer's DTLS set-up (the DTLS
// elements generate a default RSA certificate the first time one is made).
//
// A call that comes before the work is done simply does what is still missing
// itself; nothing waits for the warm-up.
//
// No spare peer connection is built ahead: once warm, making a pipeline with
// its webrtcbin and starting it takes 1-4 ms, against 40-50 ms for each side's
// description and about 60 ms of connectivity checks through the relays.
#pragma once

class RTCGstWarmUp {
  public:
    /// Starts the work, once per process; returns at once.
    static void begin();
    /// Waits at most `seconds` for the work to be done; true when it is.
    static bool waitUntilDone(double seconds);
};
