// An ended call frees everything it held: calls made one after the other in one
// process leave the process's open descriptors and threads where they were.
#include <gtest/gtest.h>

#include <thread>

#include "GStreamerCallHarness.h"
#include "support/TurnServerFixture.h"

namespace {

constexpr int kCalls = 20;

class GStreamerLifecycleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(turn_.start()) << turn_.error();
        RTCGstPlatform::Options options;
        options.includeV4L2Cameras = false;
        platform_ = RTCGstPlatform::create(options);
        ASSERT_NE(platform_, nullptr);
        RTCPlatform::install(platform_);
    }
    void TearDown() override { RTCPlatform::install(nullptr); }

    /// A whole call: both sides connect and see each other's video, then close.
    void call(int index) {
        auto credentials = turn_.credentialsForUser("erin");
        auto call = GStreamerCall::start(platform_,
                                         {turn_.url(), credentials.username, credentials.password});
        ASSERT_TRUE(call.error.empty()) << "call " << index << ": " << call.error;
        for (auto& peer : {call.a, call.b}) {
            ASSERT_TRUE(peer->waitFor(30, [&] { return peer->remoteRenderer->frames() > 0; }))
                << "call " << index << ", " << peer->name;
        }
        call.close();
    }

    /// Waits until the counts are back to the baseline (the tear-down finishes
    /// on the engine's queue); true if they came back.
    bool backToBaseline(size_t descriptors, size_t threads) {
        GStreamerPeer clock;
        return clock.waitFor(15, [&] {
            return GStreamerOpenDescriptors() <= descriptors && GStreamerThreads() <= threads;
        });
    }

    TurnServerFixture turn_;
    std::shared_ptr<RTCGstPlatform> platform_;
};

TEST_F(GStreamerLifecycleTest, SequentialCallsGiveBackEveryDescriptorAndThread) {
    // The first call also starts what lives as long as the process (plugins,
    // GStreamer's pools); the baseline is taken after it.
    call(0);
    GStreamerPeer clock;
    size_t descriptors = 0;
    size_t threads = 0;
    // Settled: two readings a second apart agree.
    ASSERT_TRUE(clock.waitFor(20, [&] {
        size_t d = GStreamerOpenDescriptors();
        size_t t = GStreamerThreads();
        bool same = d == descriptors && t == threads;
        descriptors = d;
        threads = t;
        if (!same) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
        return same;
    }));
    for (int i = 1; i <= kCalls; ++i) {
        call(i);
        EXPECT_TRUE(backToBaseline(descriptors, threads))
            << "after call " << i << ": " << GStreamerOpenDescriptors() << " descriptors (baseline "
            << descriptors << "), " << GStreamerThreads() << " threads (baseline " << threads
            << ")";
    }
}

}  // namespace
