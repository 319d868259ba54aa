// The measure of the echo's way from the loudspeaker to the microphone.
#include <gtest/gtest.h>

#include <random>

#include "RTCGstEchoDelay.h"

namespace {

constexpr int64_t kMs = 1'000'000;
constexpr size_t kBlock = 480;  // 10 ms at 48 kHz

/// A loudspeaker playing noise in 10 ms blocks and a microphone hearing it
/// `delayMs` later at a quarter of its level, over some noise of the room.
struct Room {
    std::mt19937 random{7};
    std::normal_distribution<float> sound{0, 6000};
    std::normal_distribution<float> room{0, 300};
    std::vector<int16_t> played;  ///< everything played, one sample per 1/48 ms
    int64_t now = 0;              ///< ns, at the start of the next block

    void run(RTCGstEchoDelay& echo, int64_t delayMs, int64_t ms, bool silent = false,
             bool unrelated = false) {
        for (int64_t end = now + ms * kMs; now < end; now += 10 * kMs) {
            std::vector<int16_t> out(kBlock), in(kBlock);
            for (auto& sample : out) {
                sample = silent ? 0 : int16_t(sound(random));
            }
            played.insert(played.end(), out.begin(), out.end());
            const int64_t first = int64_t(played.size()) - int64_t(kBlock) - delayMs * 48;
            for (size_t i = 0; i < kBlock; ++i) {
                const int64_t at = first + int64_t(i);
                const float back = unrelated ? sound(random) : at >= 0 ? played[size_t(at)] : 0;
                in[i] = int16_t(back / 4 + room(random));
            }
            echo.played(now, out.data(), out.size());
            echo.heard(now, in.data(), in.size());
        }
    }
};

TEST(GStreamerEchoDelayTest, FindsTheEchoAndFollowsItWhenItsWayChanges) {
    RTCGstEchoDelay echo;
    Room room;
    EXPECT_FALSE(echo.estimate()) << "nothing heard yet";
    room.run(echo, 23, 2000);
    auto first = echo.estimate();
    ASSERT_TRUE(first);
    EXPECT_NEAR(first->delayMs, 23, 0.5);
    EXPECT_GT(first->correlation, 0.9);

    // The sound server's buffer fills up once: the echo comes 37 ms later.
    room.run(echo, 60, 2000);
    auto later = echo.estimate();
    ASSERT_TRUE(later);
    EXPECT_NEAR(later->delayMs, 60, 0.5);
}

TEST(GStreamerEchoDelayTest, NoMeasureWithoutAClearEcho) {
    const struct {
        int64_t delayMs;
        bool silent, unrelated;
        const char* why;
    } cases[] = {{23, true, false, "nothing was played"},
                 {23, false, true, "the microphone heard something else"},
                 {500, false, false, "beyond the longest way measured"}};
    for (const auto& c : cases) {
        RTCGstEchoDelay echo;
        Room().run(echo, c.delayMs, 2000, c.silent, c.unrelated);
        EXPECT_FALSE(echo.estimate()) << c.why;
    }
}

}  // namespace
