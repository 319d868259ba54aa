// A coturn on loopback, one GStreamer engine installed as the platform, and a
// call between two of its peer connections; closed and uninstalled after.
#pragma once

#include <gtest/gtest.h>

#include "GStreamerCallHarness.h"
#include "support/TurnServerFixture.h"

class GStreamerTurnTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(turn_.start()) << turn_.error();
        platform_ = RTCGstPlatform::create(options());
        ASSERT_NE(platform_, nullptr) << "GStreamer elements missing";
        RTCPlatform::install(platform_);
    }
    void TearDown() override {
        call_.close();
        RTCPlatform::install(nullptr);
    }
    /// The engine's options: the test cameras only, so that every machine sees the same.
    virtual RTCGstPlatform::Options options() const {
        RTCGstPlatform::Options testCameras;
        testCameras.includeV4L2Cameras = false;
        return testCameras;
    }
    GStreamerCallOptions callOptions(const std::string& user = "alice") const {
        auto credentials = turn_.credentialsForUser(user);
        return {turn_.url(), credentials.username, credentials.password};
    }
    /// Starts `call_` and waits until each side has seen more than `frames` frames.
    void connect(uint64_t frames = 0, const std::string& user = "alice") {
        call_ = GStreamerCall::start(platform_, callOptions(user));
        ASSERT_TRUE(call_.error.empty()) << call_.error;
        for (auto& peer : {call_.a, call_.b}) {
            ASSERT_TRUE(peer->waitFor(30, [&] { return peer->remoteRenderer->frames() > frames; }))
                << peer->name;
        }
    }

    TurnServerFixture turn_;
    std::shared_ptr<RTCGstPlatform> platform_;
    GStreamerCall call_;
};
