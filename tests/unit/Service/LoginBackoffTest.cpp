// The delays of the login back-off, on a clock the test moves.
#include "VelmorinService/LoginBackoff.h"

using namespace std::chrono_literals;
using velmorin::LoginBackoff;

namespace {

struct TestClock {
    std::chrono::steady_clock::time_point now{};
    LoginBackoff::Clock function() {
        return [this] { return now; };
    }
};

LoginBackoff::Settings settings() {
    LoginBackoff::Settings s;
    s.freeFailures = 1;
    s.firstDelay = 250ms;
    s.maxDelay = 2000ms;
    s.forgetAfter = 60s;
    s.maxUsers = 3;
    return s;
}

}  // namespace

TEST(LoginBackoffTest, DelayDoublesAfterTheFreeFailuresUpToTheCap) {
    TestClock clock;
    LoginBackoff backoff(settings(), clock.function());
    std::vector<long> delays;
    for (int i = 0; i < 7; ++i) {
        delays.push_back(static_cast<long>(backoff.userFailed("alice").count()));
    }
    EXPECT_EQ(delays, (std::vector<long>{0, 250, 500, 1000, 2000, 2000, 2000}));
    EXPECT_EQ(backoff.delayAfter(4'000'000'000u), 2000ms);
    EXPECT_EQ(backoff.userFailed("bob"), 0ms);  // each user id counts on its own
}

TEST(LoginBackoffTest, AUserIsForgivenAfterAQuietSpellAndGuessedIdsCannotGrowTheTable) {
    TestClock clock;
    LoginBackoff backoff(settings(), clock.function());
    backoff.userFailed("alice");
    backoff.userFailed("alice");
    clock.now += 59s;
    EXPECT_EQ(backoff.userFailed("alice"), 500ms);
    clock.now += 60s;
    EXPECT_EQ(backoff.userFailed("alice"), 0ms);

    for (int i = 0; i < 100; ++i) {
        clock.now += 1s;
        backoff.userFailed("guess-" + std::to_string(i));
    }
    EXPECT_EQ(backoff.trackedUsers(), 3u);
    EXPECT_EQ(backoff.userFailed("guess-99"), 250ms);  // the newest are the ones kept
}
