// The in-process chat client: completions and events on their queues, weak
// delegates, connection, fault injection, and its use through the chat port.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "VelmorinChat/QXDInProcessChatClient.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"

namespace {

velmorin::ChatServicePtr makeService() {
    auto service = velmorin::ChatService::create();
    for (const char* user : {"alice", "bob"}) {
        service->upsertUser(QXDUser(user, user));
    }
    service->createGroupChannel({"ab", "", false, false, {"alice", "bob"}});
    return service;
}

/// Records what it hears; used on the manual queues only.
struct RecordingDelegate : QXDChannelDelegate {
    void channel(const QXDBaseChannelPtr& channel, const QXDBaseMessagePtr& message) override {
        heard.emplace_back(channel, message);
    }
    std::vector<std::pair<QXDBaseChannelPtr, QXDBaseMessagePtr>> heard;
};

class InProcessChatClientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        service = makeService();
        alice = makeClient("alice");
        bob = makeClient("bob");
        bobDelegate = std::make_shared<RecordingDelegate>();
        bob->addChannelDelegate(bobDelegate, "test");
    }

    QXDInProcessChatClientPtr makeClient(const std::string& user) {
        QXDInProcessChatClient::Options options;
        options.eventQueue = events;
        options.callbackQueue = callbacks;
        return QXDInProcessChatClient::create(service, user, options);
    }

    void aliceSends(const std::string& text) {
        alice->sendUserMessage("ab", QXDUserMessageParams::initWithMessage(text), nullptr);
        callbacks->runUntilIdle();
        events->runUntilIdle();
    }

    std::shared_ptr<QXVCManualQueue> events = QXVCManualQueue::create("events");
    std::shared_ptr<QXVCManualQueue> callbacks = QXVCManualQueue::create("callbacks");
    velmorin::ChatServicePtr service;
    QXDInProcessChatClientPtr alice;
    QXDInProcessChatClientPtr bob;
    std::shared_ptr<RecordingDelegate> bobDelegate;
};

TEST_F(InProcessChatClientTest, LookupAndSendCompleteOnTheCallbackQueueAndEventsOnTheEventQueue) {
    EXPECT_EQ(QXDInProcessChatClient::create(service, "nobody"), nullptr);
    QXDGroupChannelPtr channel;
    alice->getGroupChannel("ab", [&](QXDGroupChannelPtr c, QXDErrorPtr) { channel = c; });
    EXPECT_EQ(channel, nullptr);  // never inline
    callbacks->runUntilIdle();
    ASSERT_NE(channel, nullptr);

    QXDUserMessagePtr echo;
    channel->sendUserMessageWithParams(QXDUserMessageParams::initWithMessage("hi"),
                                       [&](QXDUserMessagePtr m, QXDErrorPtr) { echo = m; });
    EXPECT_EQ(echo, nullptr);
    callbacks->runUntilIdle();
    ASSERT_NE(echo, nullptr);
    EXPECT_TRUE(bobDelegate->heard.empty());
    events->runUntilIdle();
    ASSERT_EQ(bobDelegate->heard.size(), 1u);
    EXPECT_EQ(bobDelegate->heard[0].second->messageId(), echo->messageId());
    auto group = std::dynamic_pointer_cast<QXDGroupChannel>(bobDelegate->heard[0].first);
    EXPECT_EQ(group ? group->channelUrl() : "", "ab");
}

TEST(InProcessChatClientThreadsTest, EventsReachDelegatesOnOneThreadOneAtATime) {
    auto service = makeService();
    auto alice = QXDInProcessChatClient::create(service, "alice");
    auto bob = QXDInProcessChatClient::create(service, "bob");

    // Deliveries and completions each come on one thread of the client's own, never
    // a sender's, and deliveries one at a time.
    struct Probe : QXDChannelDelegate {
        void channel(const QXDBaseChannelPtr&, const QXDBaseMessagePtr&) override {
            overlapped = overlapped || ++inFlight > 1;
            std::this_thread::yield();
            seen(deliveryThreads);
            --inFlight;
        }
        void seen(std::set<std::thread::id>& threads) {
            std::lock_guard lock(mutex);
            threads.insert(std::this_thread::get_id());
            ++count;
            done.notify_all();
        }
        std::atomic<int> inFlight{0};
        std::atomic<bool> overlapped{false};
        std::mutex mutex;
        std::condition_variable done;
        std::set<std::thread::id> deliveryThreads, completionThreads;
        int count = 0;
    };
    auto probe = std::make_shared<Probe>();
    bob->addChannelDelegate(probe, "probe");
    std::vector<std::thread> senders;
    for (int t = 0; t < 3; ++t) {
        senders.emplace_back([&] {
            for (int i = 0; i < 50; ++i) {
                alice->sendUserMessage(
                    "ab", QXDUserMessageParams::initWithMessage("m"),
                    [&](QXDUserMessagePtr, QXDErrorPtr) { probe->seen(probe->completionThreads); });
            }
        });
    }
    for (auto& sender : senders) {
        sender.join();
    }
    std::unique_lock lock(probe->mutex);
    ASSERT_TRUE(probe->done.wait_for(lock, std::chrono::seconds(30),
                                     [&] { return probe->count == 2 * 3 * 50; }));
    EXPECT_EQ(probe->deliveryThreads.size(), 1u);
    EXPECT_EQ(probe->completionThreads.size(), 1u);
    EXPECT_EQ(probe->deliveryThreads.count(std::this_thread::get_id()), 0u);
    EXPECT_FALSE(probe->overlapped.load());
}

// Lookups and the current user through the port: every flow test goes through them.
TEST_F(InProcessChatClientTest, ServesThePortAndAReplacedClientStopsDelivering) {
    auto portDelegate = std::make_shared<RecordingDelegate>();
    QXDMain::addChannelDelegate(portDelegate, "port-test");
    QXDMain::setChatClient(bob);
    aliceSends("through the port");
    EXPECT_EQ(portDelegate->heard.size(), 1u);

    QXDMain::setChatClient(alice);
    aliceSends("after the switch");
    EXPECT_EQ(portDelegate->heard.size(), 1u);
    QXDMain::setChatClient(nullptr);
    QXDMain::removeChannelDelegate("port-test");
}

}  // namespace
