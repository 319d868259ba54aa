#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "VelmorinVideoChat/Call/QXVCBaseCall.h"
#include "VelmorinVideoChat/Call/QXVCCallManager.h"
#include "VelmorinVideoChat/Call/QXVCCallOptions.h"

namespace {

QXVCCallUserPtr user(const std::string& id) {
    auto u = std::make_shared<QXVCCallUser>();
    u->setUserId(id);
    return u;
}

TEST(BaseCall, NewRecordHasTheDocumentedDefaults) {
    auto call = QXVCBaseCall::init();
    EXPECT_FALSE(call->isAudioCall());
    EXPECT_EQ(call->callId(), "");
    EXPECT_EQ(call->channelUrl(), "");
    EXPECT_EQ(call->messageId(), 0);
    EXPECT_EQ(call->caller(), nullptr);
    EXPECT_EQ(call->callee(), nullptr);
    EXPECT_EQ(call->endType(), QXVCEndTypeUnknown);
    EXPECT_EQ(call->period(), 0);
    EXPECT_EQ(call->myRole(), QXVCRoleNone);
    EXPECT_EQ(call->enderId(), std::nullopt);
    EXPECT_EQ(call->operationMode(), QXVCOperationModeNone);
    EXPECT_EQ(call->getState(), QXVCStateNone);
    EXPECT_EQ(call->startCallTimer(), nullptr);
    EXPECT_EQ(call->getEnder(), nullptr);
}

TEST(BaseCall, EnderIsTheParticipantWhoseIdMatchesCallerFirst) {
    auto call = QXVCBaseCall::init();
    auto caller = user("alice");
    auto callee = user("bob");
    call->setCaller(caller);
    call->setCallee(callee);
    EXPECT_EQ(call->getEnder(), nullptr);  // no ender id, both users present

    call->setEnderId("bob");
    EXPECT_EQ(call->getEnder(), callee);
    call->setEnderId("alice");
    EXPECT_EQ(call->getEnder(), caller);
    call->setEnderId("carol");
    EXPECT_EQ(call->getEnder(), nullptr);
    call->setEnderId("");
    EXPECT_EQ(call->getEnder(), nullptr);

    call->setCallee(user("alice"));  // same id on both sides: the caller wins
    call->setEnderId("alice");
    EXPECT_EQ(call->getEnder(), caller);
    call->setCaller(nullptr);
    EXPECT_EQ(call->getEnder(), call->callee());
}

TEST(BaseCall, MediaFlagsChangeOnlyTheNamedExistingUser) {
    auto call = QXVCBaseCall::init();
    call->setCallerAudioEnabled(true, true);  // no users: nothing happens
    call->setCalleeAudioEnabled(true, true);

    call->setCaller(user("alice"));
    call->setCallee(user("bob"));
    call->setCallerAudioEnabled(false, true);
    EXPECT_FALSE(call->caller()->isAudioEnabled());
    EXPECT_TRUE(call->caller()->isVideoEnabled());
    EXPECT_FALSE(call->callee()->isVideoEnabled());
    call->setCalleeAudioEnabled(true, false);
    EXPECT_TRUE(call->callee()->isAudioEnabled());
    EXPECT_FALSE(call->callee()->isVideoEnabled());
    EXPECT_TRUE(call->caller()->isVideoEnabled());
}

TEST(CallOptions, DefaultsArePortraitFrontCameraWithAudioAndVideo) {
    auto options = QXVCCallOptions::initWithChannelUrl("channel-1");
    EXPECT_TRUE(options->audioEnabled());
    EXPECT_TRUE(options->videoEnabled());
    EXPECT_EQ(options->channelUrl(), "channel-1");
    EXPECT_EQ(options->localVideoView(), nullptr);
    EXPECT_EQ(options->remoteVideoView(), nullptr);
    EXPECT_EQ(options->videoFps(), 0);
    EXPECT_EQ(options->defaultCameraPosition(), QXVCCameraPositionFront);
    EXPECT_EQ(options->resolution(), (CGSize{1080, 1920}));

    EXPECT_EQ(QXVCCallOptions::initWithChannelUrl(std::nullopt)->channelUrl(), std::nullopt);
    EXPECT_EQ(QXVCCallOptions::initWithChannelUrl("")->channelUrl(), "");
}

class CallManagerTest : public ::testing::Test {
  protected:
    void SetUp() override { QXVCCallManager::removeAllForTesting(); }
    void TearDown() override { QXVCCallManager::removeAllForTesting(); }

    static std::shared_ptr<QXVCBaseCall> callWithId(const std::string& id) {
        auto call = QXVCBaseCall::init();
        call->setCallId(id);
        return call;
    }
};

TEST_F(CallManagerTest, AddLooksUpReplacesAndRemovesById) {
    auto first = callWithId("id-1");
    auto second = callWithId("id-1");
    QXVCCallManager::add(first);
    EXPECT_EQ(QXVCCallManager::get<QXVCBaseCall>("id-1"), first);
    QXVCCallManager::add(second);
    EXPECT_EQ(QXVCCallManager::get<QXVCBaseCall>("id-1"), second);
    EXPECT_EQ(QXVCCallManager::count(), 1u);

    QXVCCallManager::remove("unknown");
    EXPECT_EQ(QXVCCallManager::count(), 1u);
    QXVCCallManager::remove("id-1");
    EXPECT_EQ(QXVCCallManager::getBaseCall("id-1"), nullptr);
    EXPECT_EQ(QXVCCallManager::get<QXVCBaseCall>("never"), nullptr);

    // Stored under the id it had when added: a later change of id does not move it.
    auto moving = callWithId("id-2");
    QXVCCallManager::add(moving);
    moving->setCallId("id-3");
    EXPECT_EQ(QXVCCallManager::getBaseCall("id-2"), moving);
    EXPECT_EQ(QXVCCallManager::getBaseCall("id-3"), nullptr);
}

TEST_F(CallManagerTest, CallsWithoutAnIdAreNeitherStoredNorFound) {
    QXVCCallManager::add(QXVCBaseCall::init());
    QXVCCallManager::add(nullptr);
    EXPECT_EQ(QXVCCallManager::count(), 0u);
    EXPECT_EQ(QXVCCallManager::getBaseCall(""), nullptr);
    QXVCCallManager::add(callWithId("kept"));
    QXVCCallManager::remove("");
    EXPECT_EQ(QXVCCallManager::count(), 1u);
}

TEST_F(CallManagerTest, ConcurrentAddsAndLookupsSeeEveryCompletedAdd) {
    constexpr int kThreads = 4;
    constexpr int kCalls = 200;
    std::atomic<int> missing{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &missing] {
            for (int i = 0; i < kCalls; ++i) {
                const std::string id = std::to_string(t) + "-" + std::to_string(i);
                auto call = callWithId(id);
                QXVCCallManager::add(call);
                if (QXVCCallManager::getBaseCall(id) != call) {
                    ++missing;
                }
                if (i % 2 == 1) {
                    QXVCCallManager::remove(id);
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(missing.load(), 0);
    EXPECT_EQ(QXVCCallManager::count(), static_cast<size_t>(kThreads * kCalls / 2));
}

}  // namespace
