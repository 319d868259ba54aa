// Measures how long the loudspeaker's sound takes to come back through the
// microphone: the played sound, stamped as the echo probe receives it, is
// cross-correlated with what the microphone heard, stamped as it was captured,
// on one clock. The echo canceller lines the two up by a latency it is told;
// when the real path differs (the sound server's buffer fills differently from
// call to call, or changes once in a call), this tells by how much.
//
// Both sides are kept at 4 kHz (16-bit 48 kHz mono in, averaged by 12) for the
// last few seconds. Not thread-safe: the owner locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

class RTCGstEchoDelay {
  public:
    /// Longest path measured.
    static constexpr int64_t kMaxDelayNs = 400'000'000;
    /// Length of microphone sound compared at each estimate.
    static constexpr int64_t kWindowNs = 1'500'000'000;

    /// 48 kHz samples that reached the echo probe at `atNs`.
    void played(int64_t atNs, const int16_t* samples, size_t count);
    /// 48 kHz samples the microphone captured from `atNs` on.
    void heard(int64_t atNs, const int16_t* samples, size_t count);

    struct Estimate {
        double delayMs = 0;      ///< from the probe to the microphone
        double correlation = 0;  ///< normalised, at that delay
    };
    /// The delay over the latest window of heard sound, when the played sound
    /// was loud enough and came back clearly; nullopt otherwise.
    std::optional<Estimate> estimate() const;
    /// Time of the latest heard sound (ns), -1 before any.
    int64_t heardUntil() const { return heardEnd_; }

  private:
    struct Block {
        int64_t atNs;
        std::vector<float> samples;  ///< at 4 kHz
    };
    static void append(std::deque<Block>& blocks, int64_t atNs, const int16_t* samples,
                       size_t count, int64_t keepFromNs);
    /// `blocks` laid on a 4 kHz grid of `length` points from `fromNs` (zero
    /// where nothing was stamped).
    static std::vector<float> grid(const std::deque<Block>& blocks, int64_t fromNs, size_t length);

    std::deque<Block> played_;
    std::deque<Block> heard_;
    int64_t heardEnd_ = -1;
};
