// The GStreamer engine when things go wrong: a forged DTLS fingerprint, a TURN
// server that freezes or dies, credentials TURN refuses. Watchdog timeouts are
// shortened so the suite stays quick; the behaviour is the same at 5/30 s.
#include <gtest/gtest.h>

#include <algorithm>

#include "GStreamerCallHarness.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"
#include "support/TurnServerFixture.h"

namespace {

bool contains(const std::vector<RTCIceConnectionState>& states, RTCIceConnectionState state) {
    return std::find(states.begin(), states.end(), state) != states.end();
}

class GStreamerFaultTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(turn_.start()) << turn_.error();
        RTCGstPlatform::Options options;
        options.disconnectedTimeout = 2;
        options.failedTimeout = 6;
        options.turnTimeout = 3;
        options.includeV4L2Cameras = false;
        platform_ = RTCGstPlatform::create(options);
        ASSERT_NE(platform_, nullptr);
        RTCPlatform::install(platform_);
        RTCSetLogSink([this](int severity, const std::string& text) {
            std::lock_guard lock(logMutex_);
            log_.push_back({severity, text});
        });
    }
    void TearDown() override {
        call_.close();
        RTCSetLogSink(nullptr);
        RTCPlatform::install(nullptr);
    }
    GStreamerCallOptions callOptions() const {
        auto credentials = turn_.credentialsForUser("bob");
        return {turn_.url(), credentials.username, credentials.password};
    }
    void connect() {
        call_ = GStreamerCall::start(platform_, callOptions());
        ASSERT_TRUE(call_.error.empty()) << call_.error;
        for (auto& peer : {call_.a, call_.b}) {
            ASSERT_TRUE(peer->waitForConnection(RTCPeerConnectionStateConnected, 30)) << peer->name;
            ASSERT_TRUE(peer->waitFor(30, [&] { return peer->remoteRenderer->frames() > 0; }))
                << peer->name;
        }
    }
    std::vector<std::pair<int, std::string>> log() {
        std::lock_guard lock(logMutex_);
        return log_;
    }

    TurnServerFixture turn_;
    std::shared_ptr<RTCGstPlatform> platform_;
    GStreamerCall call_;
    std::mutex logMutex_;
    std::vector<std::pair<int, std::string>> log_;
};

TEST_F(GStreamerFaultTest, ForgedFingerprintFailsTheConnection) {
    auto options = callOptions();
    options.tamperAnswerFingerprint = true;
    call_ = GStreamerCall::start(platform_, options);
    ASSERT_TRUE(call_.error.empty()) << call_.error;
    // The offerer sees a certificate that is not the one the answer names.
    EXPECT_TRUE(call_.a->waitForConnection(RTCPeerConnectionStateFailed, 30));
    EXPECT_TRUE(call_.a->waitForIce(RTCIceConnectionStateFailed, 5));
    auto states = call_.a->connectionStates();
    EXPECT_EQ(std::count(states.begin(), states.end(), RTCPeerConnectionStateConnected), 0);
    EXPECT_EQ(call_.a->remoteRenderer->frames(), 0u);
    auto lines = log();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const auto& line) {
        return line.second.find("does not match the fingerprint") != std::string::npos;
    }));
}

TEST_F(GStreamerFaultTest, RemoteCandidatesOfAnyKindLeaveAWorkingPathAlone) {
    connect();
    // What a peer that is not relay-only sends as a matter of course: host and
    // server-reflexive addresses that cannot be reached from here.
    for (const char* line : {"candidate:1 1 UDP 2130706431 192.0.2.77 9 typ host",
                             "candidate:2 1 UDP 1694498815 198.51.100.7 40000 typ srflx raddr "
                             "0.0.0.0 rport 0",
                             "candidate:3 1 UDP 2130706431 127.0.0.1 9 typ host"}) {
        for (auto& peer : {call_.a, call_.b}) {
            peer->pc->addIceCandidate(std::make_shared<RTCIceCandidate>(line, 0, std::nullopt));
        }
    }
    // Media keep flowing both ways for longer than the watchdog's silence limit.
    for (auto& peer : {call_.a, call_.b}) {
        uint64_t frames = peer->remoteRenderer->frames();
        EXPECT_TRUE(peer->waitFor(20, [&] { return peer->remoteRenderer->frames() > frames + 90; }))
            << peer->name;
    }
    for (auto& peer : {call_.a, call_.b}) {
        EXPECT_FALSE(contains(peer->iceStates(), RTCIceConnectionStateDisconnected)) << peer->name;
        EXPECT_EQ(peer->pc->connectionState(), RTCPeerConnectionStateConnected) << peer->name;
    }
}

TEST_F(GStreamerFaultTest, FrozenTurnServerDisconnectsAndReconnects) {
    connect();
    turn_.pause();
    for (auto& peer : {call_.a, call_.b}) {
        EXPECT_TRUE(peer->waitForIce(RTCIceConnectionStateDisconnected, 20)) << peer->name;
        EXPECT_TRUE(peer->waitForConnection(RTCPeerConnectionStateDisconnected, 5)) << peer->name;
    }
    turn_.resume();
    for (auto& peer : {call_.a, call_.b}) {
        EXPECT_TRUE(peer->waitForIce(RTCIceConnectionStateConnected, 20)) << peer->name;
        EXPECT_TRUE(peer->waitForConnection(RTCPeerConnectionStateConnected, 5)) << peer->name;
        uint64_t frames = peer->remoteRenderer->frames();
        EXPECT_TRUE(peer->waitFor(20, [&] { return peer->remoteRenderer->frames() > frames + 10; }))
            << peer->name;
        EXPECT_FALSE(contains(peer->iceStates(), RTCIceConnectionStateFailed)) << peer->name;
    }
}

TEST_F(GStreamerFaultTest, KilledTurnServerDisconnectsThenFails) {
    connect();
    turn_.kill();
    for (auto& peer : {call_.a, call_.b}) {
        EXPECT_TRUE(peer->waitForIce(RTCIceConnectionStateFailed, 40)) << peer->name;
        auto states = peer->iceStates();
        auto disconnected =
            std::find(states.begin(), states.end(), RTCIceConnectionStateDisconnected);
        auto failed = std::find(states.begin(), states.end(), RTCIceConnectionStateFailed);
        EXPECT_TRUE(disconnected < failed) << peer->name << ": Disconnected comes first";
        EXPECT_TRUE(peer->waitForConnection(RTCPeerConnectionStateFailed, 5)) << peer->name;
    }
}

TEST_F(GStreamerFaultTest, RefusedCredentialsFailAfterABoundedWait) {
    for (const char* kind : {"wrong", "expired"}) {
        auto options = callOptions();
        if (std::string(kind) == "wrong") {
            options.password = "not-the-password";
        } else {
            auto expired = turn_.credentialsForUser("bob", -60);
            options.username = expired.username;
            options.password = expired.password;
        }
        call_ = GStreamerCall::start(platform_, options);
        ASSERT_TRUE(call_.error.empty()) << kind << ": " << call_.error;
        for (auto& peer : {call_.a, call_.b}) {
            EXPECT_TRUE(peer->waitForIce(RTCIceConnectionStateFailed, 30))
                << kind << " " << peer->name;
            EXPECT_TRUE(peer->candidateLines().empty()) << kind << " " << peer->name;
        }
        call_.close();
    }
    // Reported in the error log, without the credentials.
    auto lines = log();
    bool reported = std::any_of(lines.begin(), lines.end(), [](const auto& line) {
        return line.first == RTCLoggingSeverityError &&
               line.second.find("No relay candidate") != std::string::npos;
    });
    EXPECT_TRUE(reported);
    for (const auto& line : lines) {
        EXPECT_EQ(line.second.find("not-the-password"), std::string::npos) << line.second;
        EXPECT_EQ(line.second.find(turn_.secret()), std::string::npos) << line.second;
    }
}

}  // namespace
