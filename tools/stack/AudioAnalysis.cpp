#include "AudioAnalysis.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

constexpr int kAnalysisRate = 8000;
constexpr double kSilenceDb = -120;

/// Averages blocks of samples down to about kAnalysisRate.
std::vector<double> decimate(const AudioSignal& signal, int& rate) {
    const int factor = std::max(1, signal.rate / kAnalysisRate);
    rate = signal.rate / factor;
    std::vector<double> out(signal.samples.size() / size_t(factor));
    for (size_t i = 0; i < out.size(); ++i) {
        double sum = 0;
        for (int k = 0; k < factor; ++k) {
            sum += signal.samples[i * size_t(factor) + size_t(k)];
        }
        out[i] = sum / factor;
    }
    return out;
}

size_t index(double seconds, int rate, size_t size) {
    return std::min(size, size_t(std::max(0.0, seconds) * rate));
}

}  // namespace

std::optional<AudioSignal> readAudioFile(const std::string& path, std::string& error) {
    SF_INFO info{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file(sf_open(path.c_str(), SFM_READ, &info),
                                                     sf_close);
    if (!file) {
        error = path + ": " + sf_strerror(nullptr);
        return std::nullopt;
    }
    if (info.channels < 1 || info.samplerate < 1) {
        error = path + ": no audio";
        return std::nullopt;
    }
    std::vector<float> interleaved(size_t(info.frames) * size_t(info.channels));
    const sf_count_t read = sf_readf_float(file.get(), interleaved.data(), info.frames);
    AudioSignal signal;
    signal.rate = info.samplerate;
    signal.samples.resize(size_t(std::max<sf_count_t>(read, 0)));
    for (size_t i = 0; i < signal.samples.size(); ++i) {
        float sum = 0;
        for (int c = 0; c < info.channels; ++c) {
            sum += interleaved[i * size_t(info.channels) + size_t(c)];
        }
        signal.samples[i] = sum / float(info.channels);
    }
    return signal;
}

AudioMatch matchAudio(const AudioSignal& sent, const AudioSignal& received, double fromSeconds,
                      double toSeconds, double maxLagSeconds) {
    int sentRate = 0;
    int receivedRate = 0;
    const auto a = decimate(sent, sentRate);
    const auto b = decimate(received, receivedRate);
    AudioMatch best;
    if (sentRate != receivedRate || a.empty() || b.empty()) {
        return best;
    }
    const size_t begin = index(fromSeconds, sentRate, a.size());
    const size_t end = index(toSeconds, sentRate, a.size());
    if (end <= begin) {
        return best;
    }
    double energyA = 0;
    for (size_t i = begin; i < end; ++i) {
        energyA += a[i] * a[i];
    }
    const size_t maxLag = size_t(maxLagSeconds * sentRate);
    for (size_t lag = 0; lag <= maxLag && end + lag <= b.size(); ++lag) {
        double dot = 0;
        double energyB = 0;
        for (size_t i = begin; i < end; ++i) {
            dot += a[i] * b[i + lag];
            energyB += b[i + lag] * b[i + lag];
        }
        const double correlation = dot / std::sqrt(energyA * energyB + 1e-12);
        if (correlation > best.correlation) {
            best.correlation = correlation;
            best.lagMs = 1000.0 * double(lag) / sentRate;
        }
    }
    return best;
}

double levelDb(const AudioSignal& signal, double fromSeconds, double toSeconds) {
    const size_t begin = index(fromSeconds, signal.rate, signal.samples.size());
    const size_t end = index(toSeconds, signal.rate, signal.samples.size());
    if (end <= begin) {
        return kSilenceDb;
    }
    double energy = 0;
    for (size_t i = begin; i < end; ++i) {
        energy += double(signal.samples[i]) * signal.samples[i];
    }
    const double rms = std::sqrt(energy / double(end - begin));
    return rms > 1e-6 ? 20 * std::log10(rms) : kSilenceDb;
}

std::optional<std::pair<double, double>> speechSpan(const AudioSignal& signal, double thresholdDb) {
    const double window = 0.02;
    std::optional<double> first;
    double last = 0;
    for (double t = 0; t + window <= signal.seconds(); t += window) {
        if (levelDb(signal, t, t + window) > thresholdDb) {
            if (!first) {
                first = t;
            }
            last = t + window;
        }
    }
    if (!first) {
        return std::nullopt;
    }
    return std::make_pair(*first, last);
}
