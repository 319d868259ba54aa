#include <atomic>
#include <thread>

#include "QXVCMainDelegateFanOut.h"
#include "unit/Coordinator/CoordinatorFixture.h"

namespace {

using Strings = std::vector<std::string>;

QXVCVideoChatDelegatePtr recorder(Strings& log, const std::string& name) {
    auto delegate = std::make_shared<QXVCVideoChatDelegate>();
    delegate->didOpenCall = [&log, name](const QXVCCallPtr&) { log.push_back(name + ":open"); };
    delegate->didSendEndCall = [&log, name](const QXVCCallPtr&, const QXDUserMessagePtr& m) {
        log.push_back(name + ":end:" + (m ? m->data() : "(null)"));
    };
    return delegate;
}

TEST_F(CoordinatorTest, TableAddsReplacesAndRemovesByIdentifier) {
    auto a = std::make_shared<QXVCVideoChatDelegate>();
    auto b = std::make_shared<QXVCVideoChatDelegate>();
    QXVCMain::addVideoChatDelegate(a, "x");
    QXVCMain::addVideoChatDelegate(a, "y");
    EXPECT_EQ(QXVCMain::getVideoChatDelegates().size(), 2u);

    QXVCMain::addVideoChatDelegate(b, "x");  // replaces
    QXVCMain::removeVideoChatDelegateWithIdentifier("unknown");
    QXVCMain::removeVideoChatDelegateWithIdentifier("y");
    auto table = QXVCMain::getVideoChatDelegates();
    ASSERT_EQ(table.size(), 1u);
    EXPECT_EQ(table["x"].lock(), b);
    QXVCMain::addVideoChatDelegate(nullptr, "x");  // a null delegate removes the entry
    EXPECT_TRUE(QXVCMain::getVideoChatDelegates().empty());
    QXVCMain::addVideoChatDelegate(b, "q");
    QXVCMain::removeAllVideoChatDelegates();
    EXPECT_TRUE(QXVCMain::getVideoChatDelegates().empty());

    // The table does not keep a delegate alive.
    QXVCMain::addVideoChatDelegate(a, "x");
    a.reset();
    EXPECT_EQ(QXVCMain::getVideoChatDelegates()["x"].lock(), nullptr);
}

TEST_F(CoordinatorTest, FanOutPostsOneTaskPerLiveImplementingDelegateInTableOrder) {
    Strings log;
    auto b = recorder(log, "b");
    auto a = recorder(log, "a");
    auto gone = recorder(log, "gone");
    auto silent = std::make_shared<QXVCVideoChatDelegate>();  // implements nothing
    QXVCMain::addVideoChatDelegate(b, "2-b");
    QXVCMain::addVideoChatDelegate(a, "1-a");
    QXVCMain::addVideoChatDelegate(gone, "3-gone");
    QXVCMain::addVideoChatDelegate(silent, "4-silent");
    gone.reset();

    auto message = std::make_shared<const QXDUserMessage>(7, "c", "QX_VIDEOCHAT", "QX_VIDEOCHAT_id",
                                                          "ENCA{}", nullptr);
    qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didSendEndCall, QXVCCallPtr(), message);
    qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didOpenCall, QXVCCallPtr());
    message.reset();  // the tasks hold the argument

    EXPECT_TRUE(log.empty());  // never inline
    EXPECT_EQ(queue->pendingCount(), 4u);
    queue->runUntilIdle();
    EXPECT_EQ(log, (Strings{"a:end:ENCA{}", "b:end:ENCA{}", "a:open", "b:open"}));

    // A delegate destroyed between posting and running hears nothing.
    qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didOpenCall, QXVCCallPtr());
    b.reset();
    log.clear();
    queue->runUntilIdle();
    EXPECT_EQ(log, Strings{"a:open"});
}

TEST_F(CoordinatorTest, CompletionBlocksNeverRunInline) {
    std::vector<int> order;
    QXVCMain::performCompletionHandlerDelegateQueueBlock(nullptr);
    EXPECT_EQ(queue->pendingCount(), 0u);

    QXVCMain::performCompletionHandlerDelegateQueueBlock([&] {
        order.push_back(1);
        // Posted from the completion queue itself: still queued, not run here.
        QXVCMain::performCompletionHandlerDelegateQueueBlock([&] { order.push_back(3); });
        order.push_back(2);
    });
    EXPECT_TRUE(order.empty());
    queue->runUntilIdle();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));

    // A block that throws does not stop the next one.
    QXVCMain::performCompletionHandlerDelegateQueueBlock([] { throw std::runtime_error("app"); });
    QXVCMain::performCompletionHandlerDelegateQueueBlock([&] { order.push_back(4); });
    queue->runUntilIdle();
    EXPECT_EQ(order.back(), 4);
}

TEST_F(CoordinatorTest, TableStaysConsistentUnderConcurrentUse) {
    // Writers add, replace and remove their own identifiers while readers walk
    // the table and fan out; the final table holds each writer's last entry.
    constexpr int kWriters = 3;
    constexpr int kRounds = 200;
    std::vector<QXVCVideoChatDelegatePtr> finals(kWriters);
    std::atomic<bool> stop{false};
    std::atomic<int> heard{0};

    std::vector<std::thread> threads;
    for (int w = 0; w < kWriters; ++w) {
        threads.emplace_back([w, &finals, &heard] {
            const std::string id = "writer-" + std::to_string(w);
            for (int round = 0; round < kRounds; ++round) {
                auto delegate = std::make_shared<QXVCVideoChatDelegate>();
                delegate->didOpenCall = [&heard](const QXVCCallPtr&) { ++heard; };
                QXVCMain::addVideoChatDelegate(delegate, id);
                QXVCMain::addVideoChatDelegate(delegate, id + "-extra");
                QXVCMain::removeVideoChatDelegateWithIdentifier(id + "-extra");
                if (round + 1 == kRounds) {
                    finals[static_cast<size_t>(w)] = delegate;  // kept alive
                }
            }
        });
    }
    std::thread reader([&] {
        while (!stop.load()) {
            qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didOpenCall, QXVCCallPtr());
        }
    });
    for (auto& t : threads) {
        t.join();
    }
    stop.store(true);
    reader.join();
    queue->runUntilIdle();

    auto table = QXVCMain::getVideoChatDelegates();
    ASSERT_EQ(table.size(), static_cast<size_t>(kWriters));
    for (int w = 0; w < kWriters; ++w) {
        EXPECT_EQ(table["writer-" + std::to_string(w)].lock(), finals[static_cast<size_t>(w)]);
    }
    heard.store(0);
    qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didOpenCall, QXVCCallPtr());
    queue->runUntilIdle();
    EXPECT_EQ(heard.load(), kWriters);
}

}  // namespace
