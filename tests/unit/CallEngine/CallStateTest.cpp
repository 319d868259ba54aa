#include "unit/CallEngine/CallEngineFixture.h"

// The transitions a call's state has, and the ones it does not: an accept moves
// only a Connecting call, and a closed call is not revived by one.
TEST_F(CallEngineTest, AcceptMovesOnlyAConnectingCallAndAClosedCallStaysClosed) {
    auto call = incomingCall();
    ASSERT_TRUE(call->changeState(QXVCCall::StateTrigger::Accepted));
    EXPECT_EQ(call->state(), QXVCStateConnecting);

    ASSERT_TRUE(call->changeState(QXVCCall::StateTrigger::PushedEnd));
    call->viewIsReady();
    call->acceptWithOptions(QXVCCallOptions::initWithChannelUrl(kChannel), nullptr);
    queue->runUntilIdle();
    EXPECT_EQ(call->state(), QXVCStateClosed);
    EXPECT_FALSE(call->changeState(QXVCCall::StateTrigger::StartFlowStarted));
    EXPECT_FALSE(call->changeState(QXVCCall::StateTrigger::IncomingStart));

    // The media path moves it from any state, back and forth.
    EXPECT_TRUE(call->changeState(QXVCCall::StateTrigger::MediaDisconnected));
    EXPECT_EQ(call->state(), QXVCStateDropped);
    EXPECT_TRUE(call->changeState(QXVCCall::StateTrigger::MediaOpened));
    EXPECT_EQ(call->state(), QXVCStateOpened);
    EXPECT_FALSE(call->changeState(QXVCCall::StateTrigger::Accepted));
}
