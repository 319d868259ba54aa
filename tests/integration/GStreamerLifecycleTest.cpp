// An ended call frees everything it held: calls made one after the other in one
// process leave the process's open descriptors and threads where they were.
#include <thread>

#include "GStreamerTurnTest.h"

namespace {

constexpr int kCalls = 20;

using GStreamerLifecycleTest = GStreamerTurnTest;

TEST_F(GStreamerLifecycleTest, SequentialCallsGiveBackEveryDescriptorAndThread) {
    // A whole call: both sides connect and see each other's video, then close.
    auto call = [this](int index) {
        SCOPED_TRACE("call " + std::to_string(index));
        ASSERT_NO_FATAL_FAILURE(connect(0, "erin"));
        call_.close();
        call_ = {};
    };
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
        // Back to the baseline once the tear-down finished on the engine's queue.
        EXPECT_TRUE(clock.waitFor(15,
                                  [&] {
                                      return GStreamerOpenDescriptors() <= descriptors &&
                                             GStreamerThreads() <= threads;
                                  }))
            << "after call " << i << ": " << GStreamerOpenDescriptors() << " descriptors (baseline "
            << descriptors << "), " << GStreamerThreads() << " threads (baseline " << threads
            << ")";
    }
}

}  // namespace
