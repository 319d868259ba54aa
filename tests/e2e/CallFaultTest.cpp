// Faults in the middle of a call: the TURN server frozen and resumed, then gone
// for good; and the chat server restarted.
#include "PhoneCallFixture.h"

namespace {

/// The phone's chat client lost the server and logged in again.
bool reconnected(PhoneProcess& phone) {
    auto has = [](const char* text) {
        return [text](const std::string& line) { return line.find(text) != std::string::npos; };
    };
    const long down = phone.process().waitForLine(has("chat=disconnected"), kStep);
    return down >= 0 && phone.process().waitForLine(has("chat=connected"), kStep,
                                                    static_cast<size_t>(down) + 1) >= 0;
}

}  // namespace

TEST_F(PhoneCallTest, FrozenTurnServerDropsAndReopensTheCallALostOneEndsItByTimeout) {
    auto& alice = phone("alice");
    auto& bob = phone("bob");
    ASSERT_FALSE(establishCall(alice, bob).empty());
    stack().turn().pause();
    expectEvent(alice, "didDropCall");
    expectEvent(bob, "didDropCall");
    stack().turn().resume();
    expectEvent(alice, "didReopenCall");
    expectEvent(bob, "didReopenCall");
    EXPECT_TRUE(framesGrowBeyond(bob, remoteFrames(bob)));

    // Gone for good: 20 s after the drop each side ends the call itself; the
    // end of whichever side is first reaches the other.
    stack().turn().kill();
    expectEvent(alice, "didDropCall");
    expectEvent(bob, "didDropCall");
    const auto aliceEnd = endHeard(alice, 45);
    const auto bobEnd = endHeard(bob, 45);
    EXPECT_EQ(aliceEnd.field("endType"), "timeout");
    EXPECT_EQ(bobEnd.field("endType"), "timeout");
    EXPECT_TRUE(aliceEnd.name == "didSendEndCall" || bobEnd.name == "didSendEndCall")
        << "neither side ended the call itself";
    EXPECT_EQ(alice.events("didReopenCall").size() + bob.events("didReopenCall").size(), 2u);
}

TEST_F(PhoneCallTest, ChatServerRestartKeepsTheMediaAndTheCallStillEndsCleanly) {
    auto& alice = phone("alice");
    auto& bob = phone("bob");
    ASSERT_FALSE(establishCall(alice, bob).empty());
    std::string error;
    ASSERT_TRUE(stack().server().restart(error)) << error;
    // Media never went through the chat server: frames keep coming meanwhile.
    EXPECT_TRUE(framesGrowBeyond(alice, remoteFrames(alice) + 30, 15));
    EXPECT_TRUE(framesGrowBeyond(bob, remoteFrames(bob) + 30, 15));
    // Both clients are back before the end is sent.
    EXPECT_TRUE(reconnected(alice));
    ASSERT_TRUE(reconnected(bob));
    endCall(alice, bob, "end");
    EXPECT_TRUE(alice.events("didDropCall").empty());
}
