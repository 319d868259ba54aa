// An audio file as a microphone: the file is decoded once into memory (16-bit
// mono at 48 kHz, at most kRTCGstMaxAudioFileSeconds) and played in a loop,
// in real time, through an appsrc.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

typedef struct _GstElement GstElement;

class RTCGstAudioClip {
  public:
    static constexpr int kRate = 48000;

    /// Decodes `path`; nullptr with the reason in `error` when GStreamer
    /// cannot read it or it holds no audio.
    static std::shared_ptr<const RTCGstAudioClip> decode(const std::string& path,
                                                         std::string& error);

    const std::vector<int16_t>& samples() const { return samples_; }

    /// Feeds the clip, looped, into `appsrc` (an appsrc of RTCGstMakeMicrophone
    /// followed by a clocksync): 20 ms buffers stamped from the pipeline's
    /// running time when the first is asked for.
    static void feed(GstElement* appsrc, std::shared_ptr<const RTCGstAudioClip> clip);

  private:
    std::vector<int16_t> samples_;
};

/// Decoded clips by path, kept while the file stays as it was.
class RTCGstAudioClips {
  public:
    std::shared_ptr<const RTCGstAudioClip> get(const std::string& path, std::string& error);

  private:
    struct Entry {
        int64_t modified = 0;
        std::shared_ptr<const RTCGstAudioClip> clip;
    };
    std::mutex mutex_;
    std::map<std::string, Entry> clips_;
};
