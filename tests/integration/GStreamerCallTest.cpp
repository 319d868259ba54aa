// The GStreamer engine through a real coturn on loopback: relay-only calls
// between two peer connections in one process.
#include "GStreamerTurnTest.h"

namespace {

using GStreamerCallTest = GStreamerTurnTest;

TEST_F(GStreamerCallTest, RelayOnlyCallCarriesVideoAndAudioBothWaysAndCloseReleasesTheRelays) {
    ASSERT_NO_FATAL_FAILURE(connect(9));  // ten frames each way
    for (auto& peer : {call_.a, call_.b}) {
        EXPECT_TRUE(peer->waitForConnection(RTCPeerConnectionStateConnected, 30)) << peer->name;
        EXPECT_TRUE(peer->waitFor(30, [&] { return peer->pc->stats().audioBuffersDecoded >= 10; }))
            << peer->name;
        EXPECT_EQ(peer->remoteRenderer->size(), (CGSize{640, 480})) << peer->name;
        // ICE is Connected before anything else after checking.
        auto states = peer->iceStates();
        states.resize(std::min<size_t>(states.size(), 2));
        EXPECT_EQ(states,
                  (std::vector{RTCIceConnectionStateChecking, RTCIceConnectionStateConnected}));
        // Only relay candidates surface, without the address they were allocated from.
        auto lines = peer->candidateLines();
        EXPECT_FALSE(lines.empty());
        for (const auto& line : lines) {
            EXPECT_NE(line.find("typ relay"), std::string::npos) << line;
            EXPECT_NE(line.find("raddr 0.0.0.0 rport 0"), std::string::npos) << line;
        }
        EXPECT_EQ(peer->pc->localDescription()->sdp().find("typ host"), std::string::npos);
        EXPECT_EQ(peer->pc->localDescription()->sdp().find("typ srflx"), std::string::npos);
    }

    call_.close();
    EXPECT_EQ(call_.a->pc->connectionState(), RTCPeerConnectionStateClosed);
    EXPECT_EQ(call_.a->pc->iceConnectionState(), RTCIceConnectionStateClosed);
    // Both allocations are refreshed to a lifetime of 0 (deleted) by the client.
    EXPECT_TRUE(call_.a->waitFor(10, [&] { return turn_.countLogLines("lifetime=0") >= 2; }))
        << "see " << turn_.logPath();
}

}  // namespace
