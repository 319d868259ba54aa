// Whole calls through the real parts: the coordinator (QXVCMain) and its calls on
// the GStreamer engine, signalling through the in-process Velmorin service and
// the library's own intake, media relayed by a coturn on loopback. The other
// user is played by a bare engine peer connection that signals through the
// service.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>

#include "ChatServerHarness.h"
#include "GStreamerTurnTest.h"
#include "VelmorinChat/QXDInProcessChatClient.h"
#include "VelmorinService/ChatService.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Call/QXVCCallManager.h"
#include "VelmorinVideoChat/Client/QXVCClient.h"
#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"
#include "VelmorinVideoChat/View/QXVCLocalVideoView.h"
#include "VelmorinVideoChat/View/QXVCRemoteVideoView.h"
#include "support/Locked.h"
#include "support/RecordingApp.h"

namespace {

constexpr const char* kChannel = "call-engine-channel";
constexpr double kWait = 30;

/// The call messages `inbox` received so far, in order.
std::vector<QXVCCallMessagePtr> callMessages(const chatserver_test::RecordingDelegate& inbox) {
    std::vector<QXVCCallMessagePtr> out;
    for (const auto& message : inbox.messages()) {
        if (auto parsed = QXVCMessageParser::parseUserMessage(message)) {
            out.push_back(parsed);
        }
    }
    return out;
}

struct AppEvents {
    void add(const char* name) {
        std::lock_guard lock(mutex);
        names.insert(name);
    }
    bool has(const std::string& name) { return lockedCopy(mutex, names).count(name) > 0; }
    std::mutex mutex;
    std::set<std::string> names;
};

/// A completion handler that notes whether it ran without an error; it may
/// run after the test gave up waiting.
struct Completion {
    std::shared_ptr<std::atomic<bool>> ok = std::make_shared<std::atomic<bool>>(false);
    std::function<void(QXDErrorPtr)> handler() const {
        return [ok = ok](QXDErrorPtr error) { *ok = !error; };
    }
    bool succeeded() const { return *ok; }
};

class CallEngineIntegrationTest : public GStreamerTurnTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(GStreamerTurnTest::SetUp());
        velmorin::ServiceSettings settings;
        settings.turnServer = turn_.url();
        settings.turnSharedSecret = turn_.secret();
        service_ = velmorin::ChatService::create(settings);
        service_->upsertUser(QXDUser("alice", "Alice"));
        service_->upsertUser(QXDUser("bob", "Bob"));
        ASSERT_EQ(
            service_->createGroupChannel({kChannel, "", false, false, {"alice", "bob"}}).error,
            nullptr);
        alice_ = QXDInProcessChatClient::create(service_, "alice");
        bob_ = QXDInProcessChatClient::create(service_, "bob");
        bob_->addChannelDelegate(bobInbox_, "inbox");
        QXDMain::setChatClient(alice_);
        QXVCMain::resetForTesting();
        QXVCMain::config();
        app_ = recordingApp([this](const char* name, const QXVCCallPtr&) { events_.add(name); });
        QXVCMain::addVideoChatDelegate(app_, "app");
    }

    void TearDown() override {
        if (caller_) {
            caller_->close();
        }
        QXVCMain::resetForTesting();
        QXVCCallManager::removeAllForTesting();
        QXDMain::setChatClient(nullptr);
        GStreamerTurnTest::TearDown();
    }

    /// Waits until `done` holds; false after `seconds`. With a manual main
    /// queue, its due work runs meanwhile.
    bool settle(const std::function<bool()>& done, double seconds = kWait) {
        return chatserver_test::waitUntil(
            [&] {
                if (main_) {
                    main_->runUntilIdle();
                }
                return done();
            },
            std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000)));
    }
    bool heard(const std::string& event, double seconds = kWait) {
        return settle([&] { return events_.has(event); }, seconds);
    }
    QXVCCallMessagePtr bobGot(const std::string& type) {
        QXVCCallMessagePtr found;
        settle([&] {
            const auto all = callMessages(*bobInbox_);
            auto it =
                std::find_if(all.begin(), all.end(), [&](auto& m) { return m->type() == type; });
            return (found = it == all.end() ? nullptr : *it) != nullptr;
        });
        return found;
    }

    /// Bob sends a start through the service (its echo carries the call id and
    /// the TURN credentials of both sides); alice accepts it.
    void bobCallsAndAliceAccepts() {
        nlohmann::json body = {{"type", "start"},
                               {"videochat_protocol_ver", 1},
                               {"is_audio_call", false},
                               {"constraints", {{"audio", true}, {"video", true}}}};
        auto params =
            QXVCClient::buildMessageParamsWithSignalingCommand("STCA", body, std::nullopt);
        auto [echo, error] = chatserver_test::awaitCompletion<QXDUserMessagePtr>(
            [&](auto handler) { bob_->sendUserMessage(kChannel, params, handler); });
        ASSERT_TRUE(echo) << (error ? error->description() : "no echo");
        start_ = std::dynamic_pointer_cast<QXVCStartCallMessage>(
            QXVCMessageParser::parseUserMessage(echo));
        ASSERT_TRUE(start_ && start_->callId());
        callId_ = *start_->callId();
        ASSERT_TRUE(heard("didReceiveStartCall"));
        call_ = QXVCMain::getCallWithCallId(callId_);
        ASSERT_TRUE(call_);
        Completion accepted;
        call_->viewIsReady();
        call_->acceptWithOptions(optionsWithViews(), accepted.handler());
        ASSERT_TRUE(settle([&] { return accepted.succeeded(); }, 20));
    }

    /// Bob answers the offer that reached him through the service (with a
    /// certificate other than his own when `forged`).
    void bobAnswers(bool forged = false) {
        auto offer = std::dynamic_pointer_cast<QXVCSignalMessage>(bobGot("offer"));
        ASSERT_TRUE(offer);
        ASSERT_NO_FATAL_FAILURE(makeRemote(/*bobIsCaller=*/true));
        caller_->pc->setRemoteDescription(
            std::make_shared<const RTCSessionDescription>(RTCSdpTypeOffer, offer->sdp()), nullptr);
        tradeCandidates();
        ASSERT_NO_FATAL_FAILURE(bobSendsDescription(/*offer=*/false, forged));
    }

    /// Alice places a video call with her views; bob reads its start.
    void aliceCalls() {
        Completion started;
        QXVCMain::startCallWithAudioOnly(false, optionsWithViews(), started.handler());
        ASSERT_TRUE(settle([&] { return started.succeeded() && events_.has("didSendStartCall"); }));
        call_ = QXVCMain::getActiveCall();
        ASSERT_TRUE(call_);
        call_->viewIsReady();
        start_ = std::dynamic_pointer_cast<QXVCStartCallMessage>(bobGot("start"));
        ASSERT_TRUE(start_ && start_->callId());
        callId_ = *start_->callId();
    }

    void bobAccepts(bool forged = false) {
        ASSERT_NO_FATAL_FAILURE(makeRemote(/*bobIsCaller=*/false));
        ASSERT_NO_FATAL_FAILURE(bobSendsDescription(/*offer=*/true, forged));
    }

    void bobSendsDescription(bool offer, bool forged) {
        std::string error;
        auto description = GStreamerDescribe(*caller_->pc, offer, error);
        ASSERT_TRUE(description) << error;
        caller_->pc->setLocalDescription(description, nullptr);
        if (offer) {
            tradeCandidates();
        }
        std::string sdp = description->sdp();
        if (forged) {
            sdp = GStreamerTamperedFingerprints(sdp);
            ASSERT_NE(sdp, description->sdp());
        }
        bobSends("SGNL", {{"type", offer ? "offer" : "answer"},
                          {"sdp", QXVCUtils::compressString(sdp, nullptr)}});
    }

    /// Bob's bare peer connection with audio and video, relay only, with his
    /// own TURN credentials (the caller's or the callee's).
    void makeRemote(bool bobIsCaller) {
        const QXVCStartCallMessage& start = *start_;
        caller_ = GStreamerMakePeer(
            platform_,
            {start.turnServer(),
             (bobIsCaller ? start.callerUsername() : start.calleeUsername()).value_or(""),
             (bobIsCaller ? start.callerPassword() : start.calleePassword()).value_or("")},
            "bob", AVCaptureDevicePositionBack);
        ASSERT_TRUE(caller_);
    }

    void bobSends(const std::string& command, nlohmann::json body) {
        body["videochat_protocol_ver"] = 1;
        body["call_id"] = callId_;
        bob_->sendUserMessage(
            kChannel, QXVCClient::buildMessageParamsWithSignalingCommand(command, body, callId_),
            nullptr);
    }

    /// Bob's local candidates go to alice through the service; alice's reach
    /// his peer connection, those already received and those to come.
    void tradeCandidates() {
        caller_->setCandidateSink([this](const RTCIceCandidatePtr& candidate) {
            bobSends("SGNL", {{"type", "candidate"},
                              {"sdp", candidate->sdp().value_or("")},
                              {"sdp_mid", candidate->sdpMid().value_or("")},
                              {"sdp_mline_index", candidate->sdpMLineIndex()}});
        });
        // Alice's answer and candidates are applied on bob's event thread, in
        // the order they arrived, so no candidate comes before the answer.
        auto addToBob = [pc = caller_->pc](const QXVCCallMessagePtr& message) {
            if (auto candidate = std::dynamic_pointer_cast<QXVCCandidateMessage>(message)) {
                pc->addIceCandidate(std::make_shared<RTCIceCandidate>(
                    candidate->sdp(), candidate->sdpMLineIndex(), candidate->sdpMid()));
            } else if (auto answer = std::dynamic_pointer_cast<QXVCSignalMessage>(message);
                       answer && answer->isAnswer()) {
                pc->setRemoteDescription(
                    std::make_shared<const RTCSessionDescription>(RTCSdpTypeAnswer, answer->sdp()),
                    nullptr);
            }
        };
        bobInbox_->setHandler([addToBob](const QXDUserMessagePtr& message) {
            if (auto parsed = QXVCMessageParser::parseUserMessage(message)) {
                addToBob(parsed);
            }
        });
        for (const auto& message : callMessages(*bobInbox_)) {
            addToBob(message);
        }
    }

    QXVCCallOptionsPtr optionsWithViews() {
        auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
        options->setLocalVideoView(localView_);
        options->setRemoteVideoView(remoteView_);
        options->setResolution({640, 480});
        return options;
    }

    /// After the call ended: media, capture and the gate are released.
    void expectTornDown(const RTCPeerConnectionPtr& connection) {
        EXPECT_EQ(connection->connectionState(), RTCPeerConnectionStateClosed);
        EXPECT_FALSE(QXVCMain::getCameraVideoCapturer()->captureSession()->isRunning());
        EXPECT_EQ(localView_->captureSession(), nullptr);
        EXPECT_FALSE(QXVCMain::isCalling());
        EXPECT_EQ(QXVCMain::getActiveCall(), nullptr);
        EXPECT_EQ(QXVCMain::getCallWithCallId(callId_), nullptr);
        // Only relay candidates left alice.
        for (const auto& message : callMessages(*bobInbox_)) {
            if (auto candidate = std::dynamic_pointer_cast<QXVCCandidateMessage>(message)) {
                EXPECT_NE(candidate->sdp().find("typ relay"), std::string::npos)
                    << candidate->sdp();
            }
        }
    }

    AppEvents events_;
    std::shared_ptr<QXVCVideoChatDelegate> app_;
    std::shared_ptr<QXVCManualQueue> main_;  ///< set when the main queue is a manual one
    std::shared_ptr<QXVCStartCallMessage> start_;
    std::string callId_;
    QXVCCallPtr call_;
    std::shared_ptr<QXVCLocalVideoView> localView_ = QXVCLocalVideoView::create();
    std::shared_ptr<QXVCRemoteVideoView> remoteView_ = QXVCRemoteVideoView::create();
    velmorin::ChatServicePtr service_;
    std::shared_ptr<QXDInProcessChatClient> alice_;
    std::shared_ptr<QXDInProcessChatClient> bob_;
    std::shared_ptr<chatserver_test::RecordingDelegate> bobInbox_ =
        std::make_shared<chatserver_test::RecordingDelegate>();
    std::shared_ptr<GStreamerPeer> caller_;
};

TEST_F(CallEngineIntegrationTest, IncomingCallAcceptedOpensCarriesMediaAndEndsFromTheCaller) {
    ASSERT_NO_FATAL_FAILURE(bobCallsAndAliceAccepts());
    EXPECT_TRUE(heard("didSendAcceptCall"));
    ASSERT_NO_FATAL_FAILURE(bobAnswers());
    EXPECT_TRUE(heard("didOpenCall"));
    EXPECT_TRUE(settle([&] { return remoteView_->frameCount() >= 10; }));
    EXPECT_EQ(remoteView_->videoSize(), (CGSize{640, 480}));
    EXPECT_TRUE(settle([&] { return caller_->remoteRenderer->frames() >= 5; }));

    bobSends("SGNL", {{"type", "audio"}, {"is_enabled", false}});
    EXPECT_TRUE(heard("didOpponentAudioStateChange"));
    EXPECT_FALSE(call_->caller()->isAudioEnabled());
    call_->stopVideo();
    EXPECT_TRUE(bobGot("video"));

    auto connection = call_->peerConnection();
    bobSends("ENCA", {{"type", "end"}});
    EXPECT_TRUE(heard("didReceiveEndCall"));
    expectTornDown(connection);
}

TEST_F(CallEngineIntegrationTest, OutgoingCallIsAnsweredThroughTheIntakeAndEndedByTheCaller) {
    ASSERT_NO_FATAL_FAILURE(aliceCalls());
    ASSERT_NO_FATAL_FAILURE(bobAccepts());
    EXPECT_TRUE(heard("didReceiveAcceptCall"));
    EXPECT_TRUE(bobGot("answer"));
    EXPECT_TRUE(heard("didOpenCall"));
    EXPECT_TRUE(settle([&] { return remoteView_->frameCount() >= 10; }));
    EXPECT_TRUE(settle([&] { return caller_->remoteRenderer->frames() >= 5; }));

    auto connection = call_->peerConnection();
    Completion ended;
    call_->endWithCompletionHandler(ended.handler());
    ASSERT_TRUE(settle([&] { return ended.succeeded(); }, 10));
    EXPECT_TRUE(bobGot("end"));
    EXPECT_TRUE(heard("didSendEndCall"));
    // The end travels back to alice through the service (ENCA from herself is
    // not delivered to her); her own end cleared the call.
    EXPECT_TRUE(settle([&] { return !QXVCMain::isCalling(); }, 10));
    expectTornDown(connection);
}

// A peer whose DTLS certificate is not the one its description names, on the
// main queue's virtual clock: the engine refuses the connection, late packets
// and pads find nothing to run against, and the call's timers end it.
class TamperedPeerTest : public CallEngineIntegrationTest {
  protected:
    void SetUp() override {
        main_ = QXVCManualQueue::create("main");
        QXVCMainQueue::replaceForTesting(main_);
        CallEngineIntegrationTest::SetUp();
    }
    void TearDown() override {
        CallEngineIntegrationTest::TearDown();
        QXVCMainQueue::replaceForTesting(nullptr);
    }
    RTCGstPlatform::Options options() const override {
        auto options = GStreamerTurnTest::options();
        options.disconnectedTimeout = 1;  // bob soon notices alice is gone
        return options;
    }

    /// Alice refuses bob's certificate: her call drops without ever opening and
    /// stays quiet while bob's media still arrive; twenty seconds later her
    /// timers end it as a timeout and everything is let go.
    void expectRefusedThenEndedByTimers() {
        EXPECT_TRUE(settle([&] { return call_->state() == QXVCStateDropped; }));
        auto connection = call_->peerConnection();
        ASSERT_TRUE(connection);
        EXPECT_EQ(connection->connectionState(), RTCPeerConnectionStateFailed);
        // Bob got through his own check and kept sending until he noticed.
        EXPECT_TRUE(settle([&] { return caller_->sawIce(RTCIceConnectionStateDisconnected); }));
        EXPECT_EQ(QXVCMain::getActiveCall(), call_);

        main_->advance(20);
        EXPECT_TRUE(heard("didSendEndCall"));
        EXPECT_TRUE(bobGot("timeout"));  // the end message's type is its end type
        EXPECT_EQ(call_->endType(), QXVCEndTypeTimeout);
        EXPECT_FALSE(events_.has("didOpenCall"));
        expectTornDown(connection);
    }
};

TEST_F(TamperedPeerTest, ForgedOfferFingerprintIsRefusedAndTheAnswerTimerEndsTheCall) {
    ASSERT_NO_FATAL_FAILURE(aliceCalls());
    ASSERT_NO_FATAL_FAILURE(bobAccepts(/*forged=*/true));
    EXPECT_TRUE(bobGot("answer"));
    expectRefusedThenEndedByTimers();
}

TEST_F(TamperedPeerTest, ForgedAnswerFingerprintIsRefusedAndTheReconnectTimerEndsTheCall) {
    ASSERT_NO_FATAL_FAILURE(bobCallsAndAliceAccepts());
    ASSERT_NO_FATAL_FAILURE(bobAnswers(/*forged=*/true));
    expectRefusedThenEndedByTimers();
}

}  // namespace
