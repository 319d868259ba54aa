// Measures of recorded speech: how well what arrived matches what was said,
// how late it arrived, and how loud a stretch of it is.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct AudioSignal {
    int rate = 0;
    std::vector<float> samples;  ///< mono, -1..1
    double seconds() const { return rate > 0 ? double(samples.size()) / rate : 0; }
};

/// A WAV (or any file libsndfile reads), mixed down to mono; nullopt with the
/// reason in `error`.
std::optional<AudioSignal> readAudioFile(const std::string& path, std::string& error);

struct AudioMatch {
    /// Normalised cross-correlation at the best lag: 1 for an exact (scaled)
    /// copy, near 0 for unrelated sound.
    double correlation = 0;
    /// How much later the sound appears in `received` than in `sent`.
    double lagMs = 0;
};

/// Finds `sent`'s stretch [fromSeconds, toSeconds) in `received`, at lags from
/// 0 to `maxLagSeconds`. Both signals are compared at 8 kHz.
AudioMatch matchAudio(const AudioSignal& sent, const AudioSignal& received, double fromSeconds,
                      double toSeconds, double maxLagSeconds = 2.0);

/// The level of [fromSeconds, toSeconds) in dB relative to full scale
/// (-120 for silence).
double levelDb(const AudioSignal& signal, double fromSeconds, double toSeconds);

/// Where speech is in a signal: the first and last moments louder than
/// `thresholdDb`, in seconds; nullopt when none is.
std::optional<std::pair<double, double>> speechSpan(const AudioSignal& signal,
                                                    double thresholdDb = -40);
