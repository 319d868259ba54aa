#include <atomic>
#include <set>
#include <thread>

#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "support/FakeChatClient.h"
#include "unit/Coordinator/CoordinatorFixture.h"

namespace {

/// Counts how often it is described, to show that lines that are not printed
/// are not formatted either.
struct Expensive {
    std::atomic<int>* described;
    std::string description() const {
        ++*described;
        return "expensive";
    }
};

TEST_F(CoordinatorTest, LinePrintsOnlyWhenTheStoredLevelIsAtLeastItsLevel) {
    std::atomic<int> described{0};
    Expensive expensive{&described};

    // Default level 0: nothing, not even an error line.
    QXVCMain::logWithLevel(QXVCLogLevelError, "error %@", expensive);
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, "[QXVC] debug");
    EXPECT_TRUE(printed().empty());
    EXPECT_EQ(described.load(), 0);

    for (long stored : {0L, 1L, 2L, 3L}) {
        QXVCMain::setLogLevel(stored);
        QXVCMain::logWithLevel(2, "level 2 at %ld", stored);
    }
    EXPECT_EQ(printed(), (std::vector<std::string>{"level 2 at 2", "level 2 at 3"}));

    // The highest public level still keeps the library's own lines quiet.
    QXVCMain::setLogLevel(QXVCLogLevelInfo);
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, "[QXVC] hidden");
    EXPECT_EQ(printed().size(), 2u);

    QXVCMain::setLogLevel(QXVCInternalLogLevelDebug);
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, "[QXVC] shown %@ %d", expensive, 7);
    EXPECT_EQ(printed().back(), "[QXVC] shown expensive 7");
    EXPECT_EQ(described.load(), 1);

    // Negative levels compare as signed numbers.
    QXVCMain::setLogLevel(-5);
    QXVCMain::logWithLevel(-4, "not printed");
    QXVCMain::logWithLevel(-5, "printed");
    EXPECT_EQ(printed().back(), "printed");
    EXPECT_EQ(QXVCMain::getLogLevel(), -5);

    // A sink that throws is contained.
    QXVCMain::setLogSink([](const std::string&) { throw std::runtime_error("sink"); });
    EXPECT_NO_THROW(QXVCMain::logWithLevel(-5, "x"));
}

TEST_F(CoordinatorTest, SettingsStartAtTheirDefaultsAndTheTimeoutKeepsOnlyThirtyToSixty) {
    EXPECT_EQ(QXVCMain::getSDKVersion(), "0.9.1");
    EXPECT_FALSE(QXVCMain::getAutoAcceptSimultaneousStartCall());
    EXPECT_EQ(QXVCMain::getStartCallTimeout(), 30);
    std::vector<long> kept;
    for (long value : {29L, 61L, 60L, 0L, -30L, 30L}) {
        QXVCMain::setStartCallTimeout(value);
        kept.push_back(QXVCMain::getStartCallTimeout());
    }
    EXPECT_EQ(kept, (std::vector<long>{30, 30, 60, 60, 60, 30}));
    QXVCMain::setLogLevel(QXVCInternalLogLevelDebug);
    QXVCMain::setStartCallTimeout(45);
    EXPECT_EQ(QXVCMain::getStartCallTimeout(), 45);
    EXPECT_EQ(printed(), (std::vector<std::string>{"[QXVC] Start call: 45"}));
}

TEST(CoordinatorInstance, CreatedOnceAndRegisteredAsOneChannelDelegate) {
    auto client = FakeChatClient::create("alice");
    QXDMain::setChatClient(client);

    std::vector<std::thread> threads;
    std::vector<QXVCMain*> seen(8, nullptr);
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&seen, i] { seen[i] = QXVCMain::sharedInstance().get(); });
    }
    for (auto& t : threads) {
        t.join();
    }
    auto instance = QXVCMain::sharedInstance();
    EXPECT_EQ(std::set<QXVCMain*>(seen.begin(), seen.end()), std::set<QXVCMain*>{instance.get()});

    EXPECT_THAT(client->delegateIdentifiers(),
                ::testing::Contains(::testing::StartsWith("<QXVCMain: ")).Times(1));
    EXPECT_THAT(client->delegateIdentifiers(), ::testing::Contains(instance->description()));
    QXDMain::setChatClient(nullptr);
}

}  // namespace
