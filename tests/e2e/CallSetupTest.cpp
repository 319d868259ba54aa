// How a call comes about or fails to: declined, cancelled and unanswered in
// turn, taken from a push payload after coming online, and two users calling
// each other at once.
#include <cstdlib>
#include <fstream>
#include <string>

#include "PhoneCallFixture.h"

namespace {

/// alice calls; bob's phone rings. True when both saw it.
bool ring(PhoneProcess& alice, PhoneProcess& bob) {
    alice.send("call video");
    return alice.waitEvent("didSendStartCall", kStep).has_value() &&
           bob.waitEvent("didReceiveStartCall", kStep).has_value();
}

}  // namespace

class OneCallTest : public PhoneCallTest {
  protected:
    /// One call opens on both phones, with one caller, and ends.
    void expectOneCall(PhoneProcess& alice, PhoneProcess& bob) {
        expectRelayCandidates_ = true;
        auto aliceOpen = expectEvent(alice, "didOpenCall");
        auto bobOpen = expectEvent(bob, "didOpenCall");
        ASSERT_TRUE(aliceOpen && bobOpen);
        EXPECT_EQ(aliceOpen->field("call"), bobOpen->field("call"));
        EXPECT_NE(aliceOpen->field("role"), bobOpen->field("role"));
        expectEvent(alice, "firstRemoteFrame");
        expectEvent(bob, "firstRemoteFrame");
        endCall(alice, bob, "end");
        EXPECT_EQ(alice.events("didOpenCall").size() + bob.events("didOpenCall").size(), 2u);
    }
};

TEST_F(PhoneCallTest, DeclinedCancelledAndUnansweredCallsEndOnBothSides) {
    auto& alice = phone("alice", {"--start-call-timeout", "30"});
    auto& bob = phone("bob");
    ASSERT_TRUE(ring(alice, bob));
    if (!std::getenv("G_SLICE")) {  // a phone stays up: GLib allocates with malloc
        std::ifstream file("/proc/" + std::to_string(alice.process().pid()) + "/environ");
        bool set = false;
        for (std::string entry; std::getline(file, entry, '\0');) {
            set = set || entry == "G_SLICE=always-malloc";
        }
        EXPECT_TRUE(set);
    }
    bob.send("decline");
    expectEvent(bob, "didSendEndCall", kStep, fieldIs("endType", "decline"));
    expectEvent(alice, "didReceiveEndCall", kStep, fieldIs("endType", "decline"));
    // Both are free again at once: alice cancels the next call while it rings.
    ASSERT_TRUE(ring(alice, bob));
    endCall(alice, bob, "cancel");
    // Nobody answers the third: the start-call timeout ends it on both sides.
    ASSERT_TRUE(ring(alice, bob));
    expectEvent(alice, "didSendEndCall", 50, fieldIs("endType", "timeout"));
    expectEvent(bob, "didReceiveEndCall", kStep, fieldIs("endType", "timeout"));
    EXPECT_TRUE(alice.events("didOpenCall").empty() && bob.events("didOpenCall").empty());
}

TEST_F(OneCallTest, OfflineCalleeTakesThePushPayloadAndAccepts) {
    auto& alice = phone("alice");
    alice.send("call video");
    auto sent = expectEvent(alice, "didSendStartCall");
    ASSERT_TRUE(sent);

    // bob logs in afterwards: the start waits for him as a push payload.
    auto& bob = phone("bob", {"--push-mode", "build"});
    auto built = expectEvent(bob, "pushBuilt", kStep, fieldIs("result", "1"));
    ASSERT_TRUE(built);
    EXPECT_EQ(built->field("call"), sent->field("call"));
    // Collected at login, or handed over by the client as it logged in.
    EXPECT_TRUE(built->field("source") == "login" || built->field("source") == "live")
        << built->text;
    expectEvent(bob, "acceptCompleted", kStep, fieldIs("error", "0"));
    expectOneCall(alice, bob);
}

TEST_F(PhoneCallTest, OfflineCalleeHandsThePushPayloadToTheLibraryAndAccepts) {
    auto& alice = phone("alice");
    alice.send("call audio");
    auto sent = expectEvent(alice, "didSendStartCall");
    ASSERT_TRUE(sent);
    auto& bob = phone("bob", {"--push-mode", "handle"});
    expectEvent(bob, "pushHandled", kStep, fieldIs("result", "1"));
    auto ringing = expectEvent(bob, "didReceiveStartCall");
    ASSERT_TRUE(ringing);
    EXPECT_EQ(ringing->field("call"), sent->field("call"));
    expectEvent(bob, "acceptCompleted", kStep, fieldIs("error", "0"));
    expectRelayCandidates_ = true;
    expectEvent(alice, "didOpenCall");
    expectEvent(bob, "didOpenCall");
    endCall(alice, bob, "end");
}

TEST_F(OneCallTest, StartsAtOnceBecomeOneCall) {
    auto& alice = phone("alice", {"--auto-accept-simultaneous"});
    auto& bob = phone("bob", {"--auto-accept-simultaneous"});
    alice.send("call video");
    bob.send("call video");
    expectOneCall(alice, bob);
}

// Bob presses "call" after alice's call has rung on his phone (past the
// library's pairing window): his phone pairs the refusal with her call.
TEST_F(OneCallTest, AStartAfterTheOtherRangStillBecomesOneCall) {
    auto& alice = phone("alice", {"--auto-accept-simultaneous"});
    auto& bob = phone("bob", {"--auto-accept-simultaneous"});
    ASSERT_TRUE(ring(alice, bob));
    bob.send("call video");
    expectOneCall(alice, bob);
}
