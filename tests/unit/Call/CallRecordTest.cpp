#include <atomic>
#include <thread>

#include "VelmorinVideoChat/Call/QXVCBaseCall.h"
#include "VelmorinVideoChat/Call/QXVCCallManager.h"

namespace {

QXVCCallUserPtr user(const std::string& id) {
    auto u = std::make_shared<QXVCCallUser>();
    u->setUserId(id);
    return u;
}

std::shared_ptr<QXVCBaseCall> callWithId(const std::string& id) {
    auto call = QXVCBaseCall::init();
    call->setCallId(id);
    return call;
}

TEST(BaseCall, EnderIsTheParticipantWhoseIdMatchesCallerFirst) {
    auto call = QXVCBaseCall::init();
    auto caller = user("alice"), callee = user("bob");
    call->setCaller(caller);
    call->setCallee(callee);
    EXPECT_EQ(call->getEnder(), nullptr);  // no ender id
    call->setEnderId("bob");
    EXPECT_EQ(call->getEnder(), callee);
    call->setEnderId("carol");
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
    call->setCaller(user("alice"));
    call->setCallee(user("bob"));
    call->setCallerAudioEnabled(false, true);
    call->setCalleeAudioEnabled(true, false);
    EXPECT_EQ(
        (std::vector<bool>{call->caller()->isAudioEnabled(), call->caller()->isVideoEnabled(),
                           call->callee()->isAudioEnabled(), call->callee()->isVideoEnabled()}),
        (std::vector<bool>{false, true, true, false}));
}

class CallManagerTest : public ::testing::Test {
  protected:
    void SetUp() override { QXVCCallManager::removeAllForTesting(); }
    void TearDown() override { QXVCCallManager::removeAllForTesting(); }
};

TEST_F(CallManagerTest, StoredUnderTheIdItHadWhenAddedAndNeverWithoutOne) {
    auto first = callWithId("id-1");
    auto second = callWithId("id-1");
    QXVCCallManager::add(first);
    QXVCCallManager::add(second);  // replaces
    EXPECT_EQ(QXVCCallManager::get<QXVCBaseCall>("id-1"), second);
    QXVCCallManager::add(QXVCBaseCall::init());
    QXVCCallManager::add(nullptr);
    QXVCCallManager::remove("");
    EXPECT_EQ(QXVCCallManager::count(), 1u);
    QXVCCallManager::remove("id-1");
    EXPECT_EQ(QXVCCallManager::getBaseCall("id-1"), nullptr);

    auto moving = callWithId("id-2");
    QXVCCallManager::add(moving);
    moving->setCallId("id-3");
    EXPECT_EQ(QXVCCallManager::getBaseCall("id-2"), moving);
    EXPECT_EQ(QXVCCallManager::getBaseCall("id-3"), nullptr);
}

TEST_F(CallManagerTest, ConcurrentAddsAndLookupsSeeEveryCompletedAdd) {
    std::atomic<int> missing{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &missing] {
            for (int i = 0; i < 200; ++i) {
                const std::string id = std::to_string(t) + "-" + std::to_string(i);
                auto call = callWithId(id);
                QXVCCallManager::add(call);
                missing += QXVCCallManager::getBaseCall(id) != call;
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
    EXPECT_EQ(QXVCCallManager::count(), 400u);
}

}  // namespace
