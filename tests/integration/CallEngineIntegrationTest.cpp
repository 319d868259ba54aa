// Whole calls through the real parts: the coordinator (QXVCMain) and its calls on
// the GStreamer engine, signalling through the in-process Velmorin service and
// the library's own intake, media relayed by a coturn on loopback. The other
// user is played by a bare engine peer connection that signals through the
// service.
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "GStreamerCallHarness.h"
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
#include "support/TurnServerFixture.h"

namespace {

constexpr const char* kChannel = "call-engine-channel";
constexpr double kWait = 30;

/// The call messages one user receives, in order.
class Inbox : public QXDChannelDelegate {
  public:
    void channel(const QXDBaseChannelPtr&, const QXDBaseMessagePtr& message) override {
        auto user = std::dynamic_pointer_cast<const QXDUserMessage>(message);
        auto parsed = user ? QXVCMessageParser::parseUserMessage(user) : nullptr;
        if (!parsed) {
            return;
        }
        std::function<void(const QXVCCallMessagePtr&)> handler;
        {
            std::lock_guard lock(mutex_);
            messages_.push_back(parsed);
            handler = handler_;
        }
        cv_.notify_all();
        if (handler) {
            handler(parsed);
        }
    }
    void setHandler(std::function<void(const QXVCCallMessagePtr&)> handler) {
        std::lock_guard lock(mutex_);
        handler_ = std::move(handler);
    }
    /// The first message whose type is `type`, waiting for it.
    QXVCCallMessagePtr waitFor(const std::string& type, double seconds = kWait) {
        std::unique_lock lock(mutex_);
        QXVCCallMessagePtr found;
        cv_.wait_for(lock, std::chrono::duration<double>(seconds), [&] {
            for (const auto& m : messages_) {
                if (m->type() == type) {
                    found = m;
                    return true;
                }
            }
            return false;
        });
        return found;
    }
    std::vector<QXVCCallMessagePtr> messages() const {
        std::lock_guard lock(mutex_);
        return messages_;
    }
    std::vector<std::string> types() const {
        std::lock_guard lock(mutex_);
        std::vector<std::string> out;
        for (const auto& m : messages_) {
            auto text = m->type().value_or("?");
            if (auto update = std::dynamic_pointer_cast<QXVCMediaStreamUpdateMessage>(m)) {
                text += update->isEnabled() ? " on" : " off";
            }
            out.push_back(text);
        }
        return out;
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<QXVCCallMessagePtr> messages_;
    std::function<void(const QXVCCallMessagePtr&)> handler_;
};

/// Records the application events by name.
struct AppEvents {
    void add(const char* name) {
        std::lock_guard lock(mutex);
        names.push_back(name);
        cv.notify_all();
    }
    bool has(const std::string& name) {
        std::lock_guard lock(mutex);
        return std::find(names.begin(), names.end(), name) != names.end();
    }
    bool waitFor(const std::string& name, double seconds = kWait) {
        std::unique_lock lock(mutex);
        return cv.wait_for(lock, std::chrono::duration<double>(seconds), [&] {
            return std::find(names.begin(), names.end(), name) != names.end();
        });
    }
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<std::string> names;
};

class CallEngineIntegrationTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(turn_.start()) << turn_.error();
        engine_ = RTCGstPlatform::create(engineOptions());
        ASSERT_NE(engine_, nullptr) << "GStreamer elements missing";
        RTCPlatform::install(engine_);
        velmorin::ServiceSettings settings;
        settings.turnServer = turn_.url();
        settings.turnSharedSecret = turn_.secret();
        service_ = velmorin::ChatService::create(settings);
        service_->upsertUser(QXDUser("alice", "Alice"));
        service_->upsertUser(QXDUser("bob", "Bob"));
        velmorin::GroupChannelSpec channel;
        channel.channelUrl = kChannel;
        channel.memberIds = {"alice", "bob"};
        ASSERT_EQ(service_->createGroupChannel(channel).error, nullptr);
        alice_ = QXDInProcessChatClient::create(service_, "alice");
        bob_ = QXDInProcessChatClient::create(service_, "bob");
        bob_->addChannelDelegate(bobInbox_, "inbox");
        alice_->addChannelDelegate(aliceInbox_, "inbox");
        QXDMain::setChatClient(alice_);
        QXVCMain::resetForTesting();
        QXVCMain::config();
    }

    void TearDown() override {
        if (caller_ && caller_->pc) {
            caller_->pc->close();
        }
        if (caller_ && caller_->capturer) {
            caller_->capturer->stopCaptureWithCompletionHandler(nullptr);
        }
        QXVCMain::resetForTesting();
        QXVCCallManager::removeAllForTesting();
        QXDMain::setChatClient(nullptr);
        RTCPlatform::install(nullptr);
    }

    virtual RTCGstPlatform::Options engineOptions() const { return {}; }

    /// Bob sends a start through the service; the echo carries the call id and
    /// the TURN credentials of both sides.
    std::shared_ptr<QXVCStartCallMessage> bobStartsACall() {
        nlohmann::json body = {{"type", "start"},
                               {"videochat_protocol_ver", 1},
                               {"is_audio_call", false},
                               {"constraints", {{"audio", true}, {"video", true}}}};
        std::promise<QXDUserMessagePtr> echoed;
        bob_->sendUserMessage(
            kChannel,
            QXVCClient::buildMessageParamsWithSignalingCommand("STCA", body, std::nullopt),
            [&](QXDUserMessagePtr message, QXDErrorPtr) { echoed.set_value(message); });
        auto future = echoed.get_future();
        if (future.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            return nullptr;
        }
        return std::dynamic_pointer_cast<QXVCStartCallMessage>(
            QXVCMessageParser::parseUserMessage(future.get()));
    }

    /// Bob's bare peer connection with audio and video, relay only, with his
    /// own TURN credentials (the caller's or the callee's).
    void makeRemote(const QXVCStartCallMessage& start, bool bobIsCaller) {
        caller_ = std::make_shared<GStreamerPeer>();
        caller_->name = "bob";
        auto factory = engine_->peerConnectionFactory(nullptr, nullptr);
        caller_->pc = std::dynamic_pointer_cast<RTCGstPeerConnection>(
            factory->peerConnectionWithConfiguration(
                GStreamerRelayConfiguration(
                    start.turnServer(),
                    (bobIsCaller ? start.callerUsername() : start.calleeUsername()).value_or(""),
                    (bobIsCaller ? start.callerPassword() : start.calleePassword()).value_or("")),
                nullptr, caller_));
        ASSERT_TRUE(caller_->pc);
        caller_->videoSource = factory->videoSource();
        caller_->capturer = engine_->cameraVideoCapturer(caller_->videoSource);
        auto device = engine_->captureDevices().back();
        RTCCaptureDeviceFormatPtr format;
        for (const auto& f : RTCCameraVideoCapturer::supportedFormatsForDevice(device)) {
            if (f->width() == 640 && f->height() == 480) {
                format = f;
            }
        }
        caller_->capturer->startCaptureWithDevice(device, format, 30, nullptr);
        caller_->audioTrack =
            factory->audioTrackWithSource(factory->audioSourceWithConstraints(nullptr), "ARDAMSa0");
        caller_->videoTrack = factory->videoTrackWithSource(caller_->videoSource, "ARDAMSv0");
        caller_->pc->addTrack(caller_->audioTrack, {"ARDAMS"});
        caller_->pc->addTrack(caller_->videoTrack, {"ARDAMS"});
        for (const auto& transceiver : caller_->pc->transceivers()) {
            auto remote =
                std::dynamic_pointer_cast<RTCVideoTrack>(transceiver->receiver()->track());
            if (transceiver->mediaType() == RTCRtpMediaTypeVideo && remote) {
                remote->addRenderer(caller_->remoteRenderer);
            }
        }
    }

    /// Bob sends `type` in the call with `body`.
    void bobSends(const std::string& callId, const std::string& command, nlohmann::json body) {
        body["videochat_protocol_ver"] = 1;
        body["call_id"] = callId;
        bob_->sendUserMessage(
            kChannel, QXVCClient::buildMessageParamsWithSignalingCommand(command, body, callId),
            nullptr);
    }

    /// Bob's local candidates go to alice through the service; alice's reach
    /// his peer connection, those already received and those to come.
    void tradeCandidates(const std::string& callId) {
        caller_->setCandidateSink([this, callId](const RTCIceCandidatePtr& candidate) {
            bobSends(callId, "SGNL",
                     {{"type", "candidate"},
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
        bobInbox_->setHandler(addToBob);
        for (const auto& message : bobInbox_->messages()) {
            addToBob(message);
        }
    }

    /// The application: records every event; holds the calls it hears of.
    std::shared_ptr<QXVCVideoChatDelegate> makeApp() {
        auto app = std::make_shared<QXVCVideoChatDelegate>();
        auto record = [this](const char* name) {
            return [this, name](const QXVCCallPtr& call) {
                {
                    std::lock_guard lock(events_.mutex);
                    lastCall_ = call;
                }
                events_.add(name);
            };
        };
        app->didReceiveStartCall = record("didReceiveStartCall");
        app->didReceiveAcceptCall = record("didReceiveAcceptCall");
        app->didSendAcceptCall = record("didSendAcceptCall");
        app->didOpenCall = record("didOpenCall");
        app->didReceiveEndCall = record("didReceiveEndCall");
        app->didOpponentAudioStateChange = record("didOpponentAudioStateChange");
        app->didOpponentVideoStateChange = record("didOpponentVideoStateChange");
        app->didSendStartCall = [this](const QXVCCallPtr&, const QXDUserMessagePtr&) {
            events_.add("didSendStartCall");
        };
        app->didSendEndCall = [this](const QXVCCallPtr&, const QXDUserMessagePtr&) {
            events_.add("didSendEndCall");
        };
        QXVCMain::addVideoChatDelegate(app, "app");
        return app;
    }

    QXVCCallOptionsPtr optionsWithViews() {
        auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
        options->setLocalVideoView(localView_);
        options->setRemoteVideoView(remoteView_);
        options->setResolution({640, 480});
        return options;
    }

    /// After the call ended: media, capture and the gate are released.
    void expectTornDown(const RTCPeerConnectionPtr& connection, const std::string& callId) {
        EXPECT_EQ(connection->connectionState(), RTCPeerConnectionStateClosed);
        EXPECT_FALSE(QXVCMain::getCameraVideoCapturer()->captureSession()->isRunning());
        EXPECT_EQ(localView_->captureSession(), nullptr);
        EXPECT_FALSE(QXVCMain::isCalling());
        EXPECT_EQ(QXVCMain::getActiveCall(), nullptr);
        EXPECT_EQ(QXVCMain::getCallWithCallId(callId), nullptr);
        // Only relay candidates left alice.
        for (const auto& message : bobInbox_->messages()) {
            if (auto candidate = std::dynamic_pointer_cast<QXVCCandidateMessage>(message)) {
                EXPECT_NE(candidate->sdp().find("typ relay"), std::string::npos)
                    << candidate->sdp();
            }
        }
    }

    AppEvents events_;
    QXVCCallPtr lastCall_;
    std::shared_ptr<QXVCLocalVideoView> localView_ = QXVCLocalVideoView::create();
    std::shared_ptr<QXVCRemoteVideoView> remoteView_ = QXVCRemoteVideoView::create();
    TurnServerFixture turn_;
    std::shared_ptr<RTCGstPlatform> engine_;
    velmorin::ChatServicePtr service_;
    std::shared_ptr<QXDInProcessChatClient> alice_;
    std::shared_ptr<QXDInProcessChatClient> bob_;
    std::shared_ptr<Inbox> aliceInbox_ = std::make_shared<Inbox>();
    std::shared_ptr<Inbox> bobInbox_ = std::make_shared<Inbox>();
    std::shared_ptr<GStreamerPeer> caller_;
};

TEST_F(CallEngineIntegrationTest, IncomingCallAcceptedOpensCarriesMediaAndEndsFromTheCaller) {
    auto app = makeApp();
    auto start = bobStartsACall();
    ASSERT_TRUE(start && start->callId());
    const std::string callId = *start->callId();

    // The intake builds the incoming call and tells the application.
    ASSERT_TRUE(events_.waitFor("didReceiveStartCall"));
    auto call = QXVCMain::getCallWithCallId(callId);
    ASSERT_TRUE(call);
    EXPECT_EQ(call->myRole(), QXVCRoleCallee);
    std::promise<QXDErrorPtr> accepted;
    call->viewIsReady();
    call->acceptWithOptions(optionsWithViews(),
                            [&](QXDErrorPtr error) { accepted.set_value(error); });
    auto acceptFuture = accepted.get_future();
    ASSERT_EQ(acceptFuture.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(acceptFuture.get(), nullptr);
    EXPECT_TRUE(events_.waitFor("didSendAcceptCall"));

    // Bob answers the offer that travelled through the service.
    auto offer = std::dynamic_pointer_cast<QXVCSignalMessage>(bobInbox_->waitFor("offer"));
    ASSERT_TRUE(offer);
    makeRemote(*start, /*bobIsCaller=*/true);
    ASSERT_TRUE(caller_ && caller_->pc);
    caller_->pc->setRemoteDescription(
        std::make_shared<const RTCSessionDescription>(RTCSdpTypeOffer, offer->sdp()), nullptr);
    tradeCandidates(callId);
    std::promise<RTCSessionDescriptionPtr> answered;
    caller_->pc->answerForConstraints(
        nullptr, [&](RTCSessionDescriptionPtr sdp, QXDErrorPtr) { answered.set_value(sdp); });
    auto answerFuture = answered.get_future();
    ASSERT_EQ(answerFuture.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    auto answer = answerFuture.get();
    ASSERT_TRUE(answer);
    caller_->pc->setLocalDescription(answer, nullptr);
    bobSends(callId, "SGNL",
             {{"type", "answer"}, {"sdp", QXVCUtils::compressString(answer->sdp(), nullptr)}});

    // The intake applies the answer and the candidates: the call opens.
    EXPECT_TRUE(events_.waitFor("didOpenCall"));
    EXPECT_EQ(call->state(), QXVCStateOpened);
    EXPECT_TRUE(caller_->waitFor(kWait, [&] { return remoteView_->frameCount() >= 10; }));
    EXPECT_EQ(remoteView_->videoSize(), (CGSize{640, 480}));
    EXPECT_TRUE(caller_->waitFor(kWait, [&] { return caller_->remoteRenderer->frames() >= 5; }));

    // Updates both ways.
    bobSends(callId, "SGNL", {{"type", "audio"}, {"is_enabled", false}});
    EXPECT_TRUE(events_.waitFor("didOpponentAudioStateChange"));
    EXPECT_FALSE(call->caller()->isAudioEnabled());
    call->stopVideo();
    EXPECT_TRUE(bobInbox_->waitFor("video"));

    // Bob hangs up: alice hears of it and lets everything go.
    auto connection = call->peerConnection();
    bobSends(callId, "ENCA", {{"type", "end"}});
    EXPECT_TRUE(events_.waitFor("didReceiveEndCall"));
    EXPECT_EQ(call->endType(), QXVCEndTypeEnd);
    EXPECT_EQ(call->enderId().value_or(""), "bob");
    expectTornDown(connection, callId);
}

TEST_F(CallEngineIntegrationTest, OutgoingCallIsAnsweredThroughTheIntakeAndEndedByTheCaller) {
    auto app = makeApp();
    std::promise<QXDErrorPtr> started;
    QXVCMain::startCallWithAudioOnly(false, optionsWithViews(),
                                     [&](QXDErrorPtr error) { started.set_value(error); });
    auto startFuture = started.get_future();
    ASSERT_EQ(startFuture.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    ASSERT_EQ(startFuture.get(), nullptr);
    EXPECT_TRUE(events_.waitFor("didSendStartCall"));
    auto call = QXVCMain::getActiveCall();
    ASSERT_TRUE(call);
    call->viewIsReady();
    auto start = std::dynamic_pointer_cast<QXVCStartCallMessage>(bobInbox_->waitFor("start"));
    ASSERT_TRUE(start && start->callId());
    const std::string callId = *start->callId();
    EXPECT_EQ(call->callId(), callId);

    // Bob accepts: his offer goes to alice, whose intake answers it.
    makeRemote(*start, /*bobIsCaller=*/false);
    ASSERT_TRUE(caller_ && caller_->pc);
    std::promise<RTCSessionDescriptionPtr> offered;
    caller_->pc->offerForConstraints(
        nullptr, [&](RTCSessionDescriptionPtr sdp, QXDErrorPtr) { offered.set_value(sdp); });
    auto offerFuture = offered.get_future();
    ASSERT_EQ(offerFuture.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    auto offer = offerFuture.get();
    ASSERT_TRUE(offer);
    caller_->pc->setLocalDescription(offer, nullptr);
    tradeCandidates(callId);
    bobSends(callId, "SGNL",
             {{"type", "offer"}, {"sdp", QXVCUtils::compressString(offer->sdp(), nullptr)}});
    EXPECT_TRUE(events_.waitFor("didReceiveAcceptCall"));
    EXPECT_TRUE(bobInbox_->waitFor("answer"));

    EXPECT_TRUE(events_.waitFor("didOpenCall"));
    EXPECT_TRUE(caller_->waitFor(kWait, [&] { return remoteView_->frameCount() >= 10; }));
    EXPECT_TRUE(caller_->waitFor(kWait, [&] { return caller_->remoteRenderer->frames() >= 5; }));

    auto connection = call->peerConnection();
    std::promise<QXDErrorPtr> ended;
    call->endWithCompletionHandler([&](QXDErrorPtr error) { ended.set_value(error); });
    auto endFuture = ended.get_future();
    ASSERT_EQ(endFuture.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(endFuture.get(), nullptr);
    EXPECT_TRUE(bobInbox_->waitFor("end"));
    EXPECT_TRUE(events_.waitFor("didSendEndCall"));
    // The end travels back to alice through the service (ENCA from herself is
    // not delivered to her); her own end cleared the call.
    EXPECT_TRUE(caller_->waitFor(10, [&] { return !QXVCMain::isCalling(); }));
    expectTornDown(connection, callId);
}

// A peer whose DTLS certificate is not the one its description names, on the
// main queue's virtual clock: the engine refuses the connection, late packets
// and pads find nothing to run against, and the call's timers end it.
class TamperedPeerTest : public CallEngineIntegrationTest {
  protected:
    void SetUp() override {
        QXVCMainQueue::replaceForTesting(main_);
        CallEngineIntegrationTest::SetUp();
    }
    void TearDown() override {
        CallEngineIntegrationTest::TearDown();
        QXVCMainQueue::replaceForTesting(nullptr);
    }
    RTCGstPlatform::Options engineOptions() const override {
        RTCGstPlatform::Options options;
        options.disconnectedTimeout = 1;  // bob soon notices alice is gone
        options.includeV4L2Cameras = false;
        return options;
    }

    /// Runs the main queue's due work until `done` holds; false after `seconds`.
    bool pumpUntil(const std::function<bool()>& done, double seconds = kWait) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        for (;;) {
            main_->runUntilIdle();
            if (done()) {
                return true;
            }
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    void bobSendsDescription(const std::string& callId, const RTCSessionDescriptionPtr& sdp,
                             const char* type) {
        auto forged = GStreamerTamperedFingerprints(sdp->sdp());
        ASSERT_NE(forged, sdp->sdp());
        bobSends(callId, "SGNL",
                 {{"type", type}, {"sdp", QXVCUtils::compressString(forged, nullptr)}});
    }

    /// Alice refuses bob's certificate: her call drops without ever opening and
    /// stays quiet while bob's media still arrive; twenty seconds later her
    /// timers end it as a timeout and everything is let go.
    void expectRefusedThenEndedByTimers(const QXVCCallPtr& call, const std::string& callId) {
        EXPECT_TRUE(pumpUntil([&] { return call->state() == QXVCStateDropped; }));
        auto connection = call->peerConnection();
        ASSERT_TRUE(connection);
        EXPECT_EQ(connection->connectionState(), RTCPeerConnectionStateFailed);
        // Bob got through his own check and kept sending until he noticed.
        EXPECT_TRUE(pumpUntil([&] {
            auto states = caller_->iceStates();
            return std::find(states.begin(), states.end(), RTCIceConnectionStateDisconnected) !=
                   states.end();
        }));
        EXPECT_FALSE(events_.has("didOpenCall"));
        EXPECT_EQ(QXVCMain::getActiveCall(), call);

        main_->advance(20);
        EXPECT_TRUE(pumpUntil([&] { return events_.has("didSendEndCall"); }));
        // The end message's type is its end type.
        auto end = std::dynamic_pointer_cast<QXVCEndCallMessage>(bobInbox_->waitFor("timeout"));
        ASSERT_TRUE(end);
        EXPECT_EQ(end->endType(), QXVCEndTypeTimeout);
        EXPECT_EQ(call->endType(), QXVCEndTypeTimeout);
        EXPECT_FALSE(events_.has("didOpenCall"));
        expectTornDown(connection, callId);
    }

    std::shared_ptr<QXVCManualQueue> main_ = QXVCManualQueue::create("main");
};

TEST_F(TamperedPeerTest, ForgedOfferFingerprintIsRefusedAndTheAnswerTimerEndsTheCall) {
    auto app = makeApp();
    bool started = false;
    QXVCMain::startCallWithAudioOnly(false, optionsWithViews(),
                                     [&](QXDErrorPtr error) { started = !error; });
    ASSERT_TRUE(pumpUntil([&] { return started && events_.has("didSendStartCall"); }));
    auto call = QXVCMain::getActiveCall();
    ASSERT_TRUE(call);
    call->viewIsReady();
    auto start = std::dynamic_pointer_cast<QXVCStartCallMessage>(bobInbox_->waitFor("start"));
    ASSERT_TRUE(start && start->callId());
    const std::string callId = *start->callId();

    makeRemote(*start, /*bobIsCaller=*/false);
    ASSERT_TRUE(caller_ && caller_->pc);
    std::promise<RTCSessionDescriptionPtr> offered;
    caller_->pc->offerForConstraints(
        nullptr, [&](RTCSessionDescriptionPtr sdp, QXDErrorPtr) { offered.set_value(sdp); });
    auto offer = offered.get_future().get();
    ASSERT_TRUE(offer);
    caller_->pc->setLocalDescription(offer, nullptr);
    tradeCandidates(callId);
    bobSendsDescription(callId, offer, "offer");
    EXPECT_TRUE(pumpUntil([&] { return bobInbox_->waitFor("answer", 0) != nullptr; }));
    expectRefusedThenEndedByTimers(call, callId);
}

TEST_F(TamperedPeerTest, ForgedAnswerFingerprintIsRefusedAndTheReconnectTimerEndsTheCall) {
    auto app = makeApp();
    auto start = bobStartsACall();
    ASSERT_TRUE(start && start->callId());
    const std::string callId = *start->callId();
    ASSERT_TRUE(pumpUntil([&] { return events_.has("didReceiveStartCall"); }));
    auto call = QXVCMain::getCallWithCallId(callId);
    ASSERT_TRUE(call);
    bool accepted = false;
    call->viewIsReady();
    call->acceptWithOptions(optionsWithViews(), [&](QXDErrorPtr error) { accepted = !error; });
    ASSERT_TRUE(pumpUntil([&] { return accepted; }));

    auto offer = std::dynamic_pointer_cast<QXVCSignalMessage>(bobInbox_->waitFor("offer"));
    ASSERT_TRUE(offer);
    makeRemote(*start, /*bobIsCaller=*/true);
    ASSERT_TRUE(caller_ && caller_->pc);
    caller_->pc->setRemoteDescription(
        std::make_shared<const RTCSessionDescription>(RTCSdpTypeOffer, offer->sdp()), nullptr);
    tradeCandidates(callId);
    std::promise<RTCSessionDescriptionPtr> answered;
    caller_->pc->answerForConstraints(
        nullptr, [&](RTCSessionDescriptionPtr sdp, QXDErrorPtr) { answered.set_value(sdp); });
    auto answer = answered.get_future().get();
    ASSERT_TRUE(answer);
    caller_->pc->setLocalDescription(answer, nullptr);
    bobSendsDescription(callId, answer, "answer");
    expectRefusedThenEndedByTimers(call, callId);
}

}  // namespace
