// Speech through a call, as the demo and the tests make and measure it: a
// sentence spoken by espeak-ng into one user's room of the private sound
// server, recorded at that user's microphone and wherever it should arrive.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AudioAnalysis.h"
#include "SoundServerProcess.h"

/// Writes `text`, spoken, to the WAV file `path`.
bool makeSentence(const std::string& path, const std::string& text, std::string& error);

struct SpokenSentence {
    AudioSignal said;                  ///< the speaker's microphone
    std::vector<AudioSignal> heard;    ///< each listening source, in the order asked
    std::pair<double, double> speech;  ///< where the speech is in `said`, in seconds
};

/// `speaker` says `file` `times` times while `speaker`'s microphone and
/// `listeners` (sources of the sound server) are recorded into
/// `basePath`-said.wav and `basePath`-heard-N.wav. nullopt, with the reason in
/// `error`, when a step failed or the microphone heard nothing.
std::optional<SpokenSentence> speakAndRecord(SoundServerProcess& sound, const std::string& speaker,
                                             const std::vector<std::string>& listeners,
                                             const std::string& file, const std::string& basePath,
                                             int times, std::string& error);
