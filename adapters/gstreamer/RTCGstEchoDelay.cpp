#include "RTCGstEchoDelay.h"

#include <cmath>

namespace {

constexpr size_t kDecimation = 12;                 ///< 48 kHz to 4 kHz
constexpr int64_t kStepNs = 1'000'000'000 / 4000;  ///< one 4 kHz sample
/// Played sound quieter than this (mean square, full scale 1) gives no estimate:
/// about -50 dBFS.
constexpr double kQuietPower = 1e-5;
/// A clear echo: how well the heard sound must match the played one.
constexpr double kClearMatch = 0.4;

}  // namespace

void RTCGstEchoDelay::append(std::deque<Block>& blocks, int64_t atNs, const int16_t* samples,
                             size_t count, int64_t keepFromNs) {
    Block block{atNs, {}};
    block.samples.reserve(count / kDecimation);
    for (size_t i = 0; i + kDecimation <= count; i += kDecimation) {
        float sum = 0;
        for (size_t k = 0; k < kDecimation; ++k) {
            sum += samples[i + k];
        }
        block.samples.push_back(sum / (32768.0f * kDecimation));
    }
    blocks.push_back(std::move(block));
    while (!blocks.empty() && blocks.front().atNs < keepFromNs) {
        blocks.pop_front();
    }
}

void RTCGstEchoDelay::played(int64_t atNs, const int16_t* samples, size_t count) {
    append(played_, atNs, samples, count, atNs - 2 * (kWindowNs + kMaxDelayNs));
}

void RTCGstEchoDelay::heard(int64_t atNs, const int16_t* samples, size_t count) {
    append(heard_, atNs, samples, count, atNs - 2 * kWindowNs);
    const int64_t end = atNs + int64_t(count / kDecimation) * kStepNs;
    if (end > heardEnd_) {
        heardEnd_ = end;
    }
}

std::vector<float> RTCGstEchoDelay::grid(const std::deque<Block>& blocks, int64_t fromNs,
                                         size_t length) {
    std::vector<float> out(length, 0.0f);
    for (const auto& block : blocks) {
        const int64_t offset = block.atNs - fromNs;
        // Nearest grid point; blocks wholly outside are skipped.
        int64_t index = (offset >= 0 ? offset + kStepNs / 2 : offset - kStepNs / 2) / kStepNs;
        for (float sample : block.samples) {
            if (index >= 0 && index < int64_t(length)) {
                out[size_t(index)] = sample;
            }
            ++index;
        }
    }
    return out;
}

std::optional<RTCGstEchoDelay::Estimate> RTCGstEchoDelay::estimate() const {
    if (heardEnd_ < 0 || played_.empty()) {
        return std::nullopt;
    }
    const size_t window = size_t(kWindowNs / kStepNs);
    const size_t lags = size_t(kMaxDelayNs / kStepNs);
    const int64_t heardFrom = heardEnd_ - kWindowNs;
    const auto heard = grid(heard_, heardFrom, window);
    // played[j] is the sound at heardFrom - kMaxDelayNs + j * step.
    const auto played = grid(played_, heardFrom - kMaxDelayNs, window + lags);

    double heardPower = 0;
    for (float x : heard) {
        heardPower += double(x) * x;
    }
    // Energy of the played stretch each lag compares, slid along.
    double playedPower = 0;
    for (size_t j = lags; j < lags + window; ++j) {
        playedPower += double(played[j]) * played[j];
    }
    if (heardPower <= 0) {
        return std::nullopt;
    }
    Estimate best;
    double bestPlayedPower = 0;
    for (size_t lag = 0; lag <= lags; ++lag) {
        // The heard sound at i was played at i + lags - lag.
        const size_t start = lags - lag;
        if (lag > 0) {
            const float in = played[start];
            const float out = played[start + window];
            playedPower += double(in) * in - double(out) * out;
        }
        if (playedPower <= 0) {
            continue;
        }
        // Four running sums, so that the compiler can keep them in one register.
        float sums[4] = {0, 0, 0, 0};
        const float* p = played.data() + start;
        size_t i = 0;
        for (; i + 4 <= window; i += 4) {
            for (size_t k = 0; k < 4; ++k) {
                sums[k] += heard[i + k] * p[i + k];
            }
        }
        for (; i < window; ++i) {
            sums[0] += heard[i] * p[i];
        }
        const double dot = double(sums[0]) + sums[1] + sums[2] + sums[3];
        const double correlation = dot / std::sqrt(heardPower * playedPower);
        if (correlation > best.correlation) {
            best.correlation = correlation;
            best.delayMs = double(lag) * kStepNs / 1e6;
            bestPlayedPower = playedPower;
        }
    }
    if (best.correlation < kClearMatch || bestPlayedPower / double(window) < kQuietPower) {
        return std::nullopt;
    }
    return best;
}
