// Where the GStreamer engine takes its media from and plays it to.
//
// Microphone (`microphone`):
//   ""          the sound server's default source (PulseAudio, or PipeWire's
//               Pulse interface); ALSA's default device when no sound server
//               runs but ALSA devices exist;
//   "tone"      a 440 Hz test tone;
//   a file path an audio file GStreamer decodes (WAV, Ogg, ...), played in a
//               loop; at most kRTCGstMaxAudioFileSeconds of it are kept;
//   other text  the name of a sound-server source (see
//               RTCGstPlatform::audioInputDevices()).
// Playback: the received audio plays to `speakerSink` while the audio session's
// route is the speaker, to `receiverSink` otherwise ("" = the default sink).
// A PulseAudio stream follows a route change in place.
//
// What cannot be had is replaced, never fatal: a microphone that does not
// exist or a file that cannot be decoded sends silence, a missing sink plays
// to nothing, and with no sound server at all the microphone is the test tone
// and playback is silent. Each replacement is reported once per call through
// `warningHandler` (default: the RTC log at warning level).
//
// Cameras: `frontCamera` and `backCamera` choose the devices the front and
// back positions stand for: a V4L2 device ("/dev/video0" or its device id), a
// video file (looped), or "front"/"back" for the built-in test cameras. Empty:
// the first V4L2 camera is the front one and the second the back one, and the
// test cameras fill the positions no V4L2 camera takes. Every other camera is
// listed with an unspecified position. The test cameras draw `cameraLabel`
// and their own name ("alice - front"), a clock, and a frame tag (see
// RTCGstFrameTag.h) that carries the label and the capture time.
#pragma once

#include <functional>
#include <string>

struct RTCGstMediaOptions {
    std::string microphone;
    std::string speakerSink;
    std::string receiverSink;
    /// Every call's received audio is also written to this WAV file (16-bit
    /// mono, 48 kHz), replacing what an earlier call wrote. "" = none.
    std::string recordAudioPath;
    /// Echo cancellation, noise suppression and gain control (webrtcdsp) on
    /// the microphone, when the offer or answer constraints ask for echo
    /// cancellation ("echoCancellation" or "googEchoCancellation" = "true";
    /// absent means on). False turns them off whatever the constraints say.
    bool voiceProcessing = true;
    std::string frontCamera;
    std::string backCamera;
    std::string cameraLabel;
    /// Called with a readable sentence for every medium that had to be
    /// replaced, on an engine thread.
    std::function<void(const std::string& warning)> warningHandler;
};

/// Longest stretch of an audio file the microphone keeps (and loops).
inline constexpr int kRTCGstMaxAudioFileSeconds = 600;
