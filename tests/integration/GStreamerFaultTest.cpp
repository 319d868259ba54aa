// The GStreamer engine when things go wrong: a forged DTLS fingerprint, a TURN
// server that freezes or dies, credentials TURN refuses. Watchdog timeouts are
// shortened so the suite stays quick; the behaviour is the same at 5/30 s.
#include <algorithm>

#include "GStreamerTurnTest.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"

namespace {

class GStreamerFaultTest : public GStreamerTurnTest {
  protected:
    void SetUp() override {
        GStreamerTurnTest::SetUp();
        RTCSetLogSink([this](int severity, const std::string& text) {
            lockedAppend(logMutex_, log_, std::pair{severity, text});
        });
    }
    void TearDown() override {
        GStreamerTurnTest::TearDown();
        RTCSetLogSink(nullptr);
    }
    RTCGstPlatform::Options options() const override {
        auto shortened = GStreamerTurnTest::options();
        shortened.disconnectedTimeout = 2;
        shortened.failedTimeout = 6;
        shortened.turnTimeout = 3;
        return shortened;
    }
    void connect() {
        ASSERT_NO_FATAL_FAILURE(GStreamerTurnTest::connect(0, "bob"));
        for (auto& peer : {call_.a, call_.b}) {
            ASSERT_TRUE(peer->waitForConnection(RTCPeerConnectionStateConnected, 30)) << peer->name;
        }
    }
    std::vector<std::pair<int, std::string>> log() { return lockedCopy(logMutex_, log_); }
    /// Whether a line holding `text` was logged (at `severity` when given).
    bool logged(const std::string& text, int severity = -1) {
        const auto lines = log();
        return std::any_of(lines.begin(), lines.end(), [&](const auto& line) {
            return (severity < 0 || line.first == severity) &&
                   line.second.find(text) != std::string::npos;
        });
    }

    std::mutex logMutex_;
    std::vector<std::pair<int, std::string>> log_;
};

TEST_F(GStreamerFaultTest, ForgedFingerprintFailsTheConnection) {
    auto options = callOptions("bob");
    options.tamperAnswerFingerprint = true;
    call_ = GStreamerCall::start(platform_, options);
    ASSERT_TRUE(call_.error.empty()) << call_.error;
    // The offerer sees a certificate that is not the one the answer names.
    EXPECT_TRUE(call_.a->waitForConnection(RTCPeerConnectionStateFailed, 30));
    EXPECT_TRUE(call_.a->waitForIce(RTCIceConnectionStateFailed, 5));
    auto states = call_.a->connectionStates();
    EXPECT_EQ(std::count(states.begin(), states.end(), RTCPeerConnectionStateConnected), 0);
    EXPECT_EQ(call_.a->remoteRenderer->frames(), 0u);
    EXPECT_TRUE(logged("does not match the fingerprint"));
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
        EXPECT_FALSE(peer->sawIce(RTCIceConnectionStateDisconnected)) << peer->name;
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
        EXPECT_FALSE(peer->sawIce(RTCIceConnectionStateFailed)) << peer->name;
    }
}

TEST_F(GStreamerFaultTest, KilledTurnServerDisconnectsThenFails) {
    connect();
    turn_.kill();
    for (auto& peer : {call_.a, call_.b}) {
        EXPECT_TRUE(peer->waitForIce(RTCIceConnectionStateFailed, 40)) << peer->name;
        auto states = peer->iceStates();
        auto first = [&](auto state) { return std::find(states.begin(), states.end(), state); };
        EXPECT_TRUE(first(RTCIceConnectionStateDisconnected) < first(RTCIceConnectionStateFailed))
            << peer->name << ": Disconnected comes first";
        EXPECT_TRUE(peer->waitForConnection(RTCPeerConnectionStateFailed, 5)) << peer->name;
    }
}

TEST_F(GStreamerFaultTest, RefusedCredentialsFailAfterABoundedWait) {
    auto wrong = callOptions("bob");
    wrong.password = "not-the-password";
    auto expired = turn_.credentialsForUser("bob", -60);
    for (const auto& [kind, options] :
         {std::pair{"wrong", wrong},
          std::pair{"expired",
                    GStreamerCallOptions{turn_.url(), expired.username, expired.password}}}) {
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
    EXPECT_TRUE(logged("No relay candidate", RTCLoggingSeverityError));
    for (const auto& line : log()) {
        EXPECT_EQ(line.second.find("not-the-password"), std::string::npos) << line.second;
        EXPECT_EQ(line.second.find(turn_.secret()), std::string::npos) << line.second;
    }
}

}  // namespace
