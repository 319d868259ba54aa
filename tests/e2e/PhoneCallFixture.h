// Each test gets its own coturn, chat server and phones on loopback, in a work
// folder of its own; all of them are stopped when the test ends, and the
// server's database is then checked for candidates other than relay ones.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LocalCallStack.h"
#include "PhoneProcess.h"

/// Generous deadline of one step of a real call.
inline constexpr double kStep = 30;

class PhoneCallTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    /// A logged-in phone, or one started without waiting for its login (fails the
    /// test when it cannot start).
    PhoneProcess& phone(const std::string& user, const std::vector<std::string>& args = {},
                        bool loggedIn = true);

    /// The event, or a test failure naming what was missing.
    std::optional<PhoneLine> expectEvent(PhoneProcess& phone, const std::string& name,
                                         double seconds = kStep,
                                         const std::function<bool(const PhoneLine&)>& match = {});
    static std::function<bool(const PhoneLine&)> fieldIs(const std::string& key,
                                                         const std::string& value);

    /// alice calls bob, bob accepts, both open and see each other's first frame.
    /// Returns the call id ("" after a failure).
    std::string establishCall(PhoneProcess& caller, PhoneProcess& callee, bool audioOnly = false);
    /// Remote frames the phone has received so far (-1 without stats).
    long remoteFrames(PhoneProcess& phone);
    static bool eventually(double seconds, const std::function<bool()>& done);
    bool framesGrowBeyond(PhoneProcess& phone, long frames, double seconds = kStep);
    /// The end of the call as this phone saw it: its own didSendEndCall or the
    /// other side's didReceiveEndCall, whichever came first (empty line on timeout).
    PhoneLine endHeard(PhoneProcess& phone, double seconds);
    void endCall(PhoneProcess& ender, PhoneProcess& other, const std::string& endType);

    LocalCallStack& stack() { return *stack_; }

    /// Set by tests whose call carried candidates: the audit then also wants
    /// relay candidates in the database, so that it cannot pass on an empty one.
    bool expectRelayCandidates_ = false;

  private:
    std::string workDir_;
    std::unique_ptr<LocalCallStack> stack_;
    std::vector<std::unique_ptr<PhoneProcess>> phones_;
};
