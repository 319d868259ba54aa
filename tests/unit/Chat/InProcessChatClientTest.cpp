// The in-process chat client: completions and events on their queues, weak
// delegates, connection, fault injection, and its use through the chat port.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "VelmorinChat/QXDInProcessChatClient.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"

namespace {

class RecordingDelegate : public QXDChannelDelegate {
  public:
    void channel(const QXDBaseChannelPtr& channel, const QXDBaseMessagePtr& message) override {
        std::lock_guard lock(mutex);
        channels.push_back(channel);
        messages.push_back(std::dynamic_pointer_cast<const QXDUserMessage>(message));
        changed.notify_all();
    }
    std::vector<int64_t> ids() {
        std::lock_guard lock(mutex);
        std::vector<int64_t> result;
        for (const auto& m : messages) {
            result.push_back(m ? m->messageId() : -1);
        }
        return result;
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<QXDBaseChannelPtr> channels;
    std::vector<QXDUserMessagePtr> messages;
};

class InProcessChatClientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        service = velmorin::ChatService::create();
        service->upsertUser(QXDUser("alice", "Alice"));
        service->upsertUser(QXDUser("bob", "Bob"));
        service->upsertUser(QXDUser("carol", "Carol"));
        service->createGroupChannel({"ab", "", false, false, {"alice", "bob"}});
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

    QXDUserMessagePtr aliceSends(const std::string& data, QXDErrorPtr* error = nullptr) {
        auto params = QXDUserMessageParams::initWithMessage("QX_VIDEOCHAT");
        params->setData(data);
        QXDUserMessagePtr stored;
        alice->sendUserMessage("ab", params, [&](QXDUserMessagePtr m, QXDErrorPtr e) {
            stored = std::move(m);
            if (error) {
                *error = std::move(e);
            }
        });
        callbacks->runUntilIdle();
        return stored;
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
    EXPECT_TRUE(bobDelegate->messages.empty());
    events->runUntilIdle();
    ASSERT_EQ(bobDelegate->ids(), std::vector<int64_t>{echo->messageId()});
    auto group = std::dynamic_pointer_cast<QXDGroupChannel>(bobDelegate->channels[0]);
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(group->channelUrl(), "ab");
}

TEST_F(InProcessChatClientTest, DelegatesAreHeldWeaklyAndCanBeRemoved) {
    auto second = std::make_shared<RecordingDelegate>();
    bob->addChannelDelegate(second, "second");
    aliceSends("one");
    events->runUntilIdle();
    EXPECT_EQ(second->messages.size(), 1u);

    second.reset();  // destroyed: skipped without harm
    aliceSends("two");
    events->runUntilIdle();
    bob->removeChannelDelegate("test");
    aliceSends("three");
    events->runUntilIdle();
    EXPECT_EQ(bobDelegate->messages.size(), 2u);
}

TEST_F(InProcessChatClientTest, DisconnectedClientGetsPushPayloadsAndCannotSend) {
    bob->disconnect();
    EXPECT_FALSE(bob->isConnected());
    auto sent = aliceSends("STCA{}");
    ASSERT_NE(sent, nullptr);
    events->runUntilIdle();
    EXPECT_TRUE(bobDelegate->messages.empty());
    auto payloads = bob->takePushPayloads();
    ASSERT_EQ(payloads.size(), 1u);
    EXPECT_EQ(payloads[0]["velmorin"]["message_id"], sent->messageId());

    QXDErrorPtr error;
    auto params = QXDUserMessageParams::initWithMessage("hi");
    bob->sendUserMessage("ab", params, [&](QXDUserMessagePtr, QXDErrorPtr e) { error = e; });
    callbacks->runUntilIdle();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code(), QXDErrorConnectionRequired);

    bob->connect();
    aliceSends("live");
    events->runUntilIdle();
    EXPECT_EQ(bobDelegate->messages.size(), 1u);
}

TEST(InProcessChatClientThreadsTest, EventsReachDelegatesOnOneThreadOneAtATime) {
    auto service = velmorin::ChatService::create();
    service->upsertUser(QXDUser("alice"));
    service->upsertUser(QXDUser("bob"));
    service->createGroupChannel({"ab", "", false, false, {"alice", "bob"}});
    auto alice = QXDInProcessChatClient::create(service, "alice");
    auto bob = QXDInProcessChatClient::create(service, "bob");

    struct Probe : QXDChannelDelegate {
        void channel(const QXDBaseChannelPtr&, const QXDBaseMessagePtr&) override {
            overlapped = overlapped || ++inFlight > 1;
            std::this_thread::yield();
            std::lock_guard lock(mutex);
            threads.insert(std::this_thread::get_id());
            ++count;
            --inFlight;
            done.notify_all();
        }
        std::atomic<int> inFlight{0};
        std::atomic<bool> overlapped{false};
        std::mutex mutex;
        std::condition_variable done;
        std::set<std::thread::id> threads;
        int count = 0;
    };
    auto probe = std::make_shared<Probe>();
    bob->addChannelDelegate(probe, "probe");

    constexpr int kPerThread = 50;
    int completions = 0;
    std::set<std::thread::id> completionThreads;
    std::mutex completionMutex;
    std::condition_variable completed;
    std::vector<std::thread> senders;
    for (int t = 0; t < 3; ++t) {
        senders.emplace_back([&] {
            for (int i = 0; i < kPerThread; ++i) {
                auto params = QXDUserMessageParams::initWithMessage("m");
                alice->sendUserMessage("ab", params, [&](QXDUserMessagePtr, QXDErrorPtr) {
                    std::lock_guard lock(completionMutex);
                    completionThreads.insert(std::this_thread::get_id());
                    ++completions;
                    completed.notify_all();
                });
            }
        });
    }
    for (auto& sender : senders) {
        sender.join();
    }
    {
        std::unique_lock lock(probe->mutex);
        ASSERT_TRUE(probe->done.wait_for(lock, std::chrono::seconds(30),
                                         [&] { return probe->count == 3 * kPerThread; }));
        EXPECT_EQ(probe->threads.size(), 1u);
        EXPECT_EQ(probe->threads.count(std::this_thread::get_id()), 0u);
    }
    EXPECT_FALSE(probe->overlapped.load());
    // Completions: the client's callback thread, not a sender's.
    std::unique_lock lock(completionMutex);
    ASSERT_TRUE(completed.wait_for(lock, std::chrono::seconds(30),
                                   [&] { return completions == 3 * kPerThread; }));
    EXPECT_EQ(completionThreads.size(), 1u);
}

TEST_F(InProcessChatClientTest, ServesThePortAndAReplacedClientStopsDelivering) {
    auto portDelegate = std::make_shared<RecordingDelegate>();
    QXDMain::addChannelDelegate(portDelegate, "port-test");
    QXDMain::setChatClient(bob);
    EXPECT_EQ(QXDMain::getCurrentUser()->userId(), "bob");
    QXDGroupChannelPtr found;
    QXDGroupChannel::getChannelWithUrl("ab", [&](QXDGroupChannelPtr c, QXDErrorPtr) { found = c; });
    callbacks->runUntilIdle();
    ASSERT_NE(found, nullptr);
    aliceSends("through the port");
    events->runUntilIdle();
    EXPECT_EQ(portDelegate->messages.size(), 1u);

    QXDMain::setChatClient(alice);
    aliceSends("after the switch");
    events->runUntilIdle();
    EXPECT_EQ(portDelegate->messages.size(), 1u);
    QXDMain::setChatClient(nullptr);
    QXDMain::removeChannelDelegate("port-test");
}

}  // namespace
