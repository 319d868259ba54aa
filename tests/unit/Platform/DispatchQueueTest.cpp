#include <atomic>
#include <condition_variable>
#include <mutex>
#include <numeric>

#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"

TEST(ManualQueue, RunsInPostingOrderThenTimersInTimeOrderOnTheVirtualClock) {
    auto q = QXVCManualQueue::create();
    std::vector<std::string> order;
    q->async([&] {
        order.push_back("1");
        q->async([&] { order.push_back("3"); });  // posted from a task: runs in the same drain
    });
    q->async([] { throw std::runtime_error("application bug"); });  // does not stop the queue
    q->async([&] { order.push_back(q->isCurrent() ? "2" : "not current"); });
    auto late = q->asyncAfter(20.0, [&] { order.push_back("20s"); });
    q->asyncAfter(0.25, [&] { order.push_back("0.25s at " + std::to_string(q->now())); });
    auto cancelled = q->asyncAfter(5.0, [&] { order.push_back("5s"); });
    cancelled->cancel();
    EXPECT_TRUE(order.empty());
    EXPECT_FALSE(q->isCurrent());
    q->advance(19.9);
    EXPECT_EQ(order, (std::vector<std::string>{"1", "2", "3", "0.25s at 0.250000"}));
    EXPECT_TRUE(late->isValid());
    q->advance(0.1);
    EXPECT_EQ(order.back(), "20s");
    EXPECT_FALSE(late->isValid());
    EXPECT_EQ(q->pendingCount(), 0u);
}

TEST(SerialQueue, RunsTasksInOrderOnItsOwnThreadNeverInline) {
    auto q = QXVCSerialQueue::create("test.serial");
    std::mutex m;
    std::vector<int> order;
    std::atomic<bool> sawCurrent{true};
    for (int i = 0; i < 100; ++i) {
        q->async([&, i] {
            if (!q->isCurrent()) {
                sawCurrent = false;
            }
            std::lock_guard lock(m);
            order.push_back(i);
        });
    }
    q->sync([] {});
    EXPECT_TRUE(sawCurrent);
    EXPECT_FALSE(q->isCurrent());
    std::vector<int> expected(100);
    std::iota(expected.begin(), expected.end(), 0);
    std::lock_guard lock(m);
    EXPECT_EQ(order, expected);
}

TEST(SerialQueue, CancelledTimerNeverFiresAndLiveOneDoes) {
    auto q = QXVCSerialQueue::create("test.timers");
    std::mutex m;
    std::condition_variable cv;
    std::vector<int> fired;
    auto never = q->asyncAfter(0.001, [&] {
        std::lock_guard lock(m);
        fired.push_back(1);
    });
    never->cancel();
    q->asyncAfter(0.002, [&] {
        std::lock_guard lock(m);
        fired.push_back(2);
        cv.notify_one();
    });
    std::unique_lock lock(m);
    cv.wait(lock, [&] { return !fired.empty(); });
    EXPECT_EQ(fired, std::vector<int>{2});
}

TEST(MainQueue, InstallIsRefusedOnceTheQueueIsInUse) {
    auto manual = QXVCManualQueue::create("app");
    QXVCMainQueue::replaceForTesting(manual);
    EXPECT_EQ(QXVCMainQueue::get(), manual);
    EXPECT_FALSE(QXVCMainQueue::install(QXVCManualQueue::create("late")));
    EXPECT_EQ(QXVCMainQueue::get(), manual);
    QXVCMainQueue::replaceForTesting(nullptr);
}
