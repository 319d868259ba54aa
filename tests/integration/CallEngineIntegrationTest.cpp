// One call through the real parts: a callee-side QXVCCall on the GStreamer
// engine, its signalling through the in-process Velmorin service, media relayed
// by a coturn on loopback. A bare engine peer connection plays the caller.
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>

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
        engine_ = RTCGstPlatform::create();
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

    /// The caller's bare peer connection with audio and video, relay only.
    void makeCaller(const QXVCStartCallMessage& start) {
        caller_ = std::make_shared<GStreamerPeer>();
        caller_->name = "caller";
        auto factory = engine_->peerConnectionFactory(nullptr, nullptr);
        caller_->pc = std::dynamic_pointer_cast<RTCGstPeerConnection>(
            factory->peerConnectionWithConfiguration(
                GStreamerRelayConfiguration(start.turnServer(), start.callerUsername().value_or(""),
                                            start.callerPassword().value_or("")),
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

    TurnServerFixture turn_;
    std::shared_ptr<RTCGstPlatform> engine_;
    velmorin::ChatServicePtr service_;
    std::shared_ptr<QXDInProcessChatClient> alice_;
    std::shared_ptr<QXDInProcessChatClient> bob_;
    std::shared_ptr<Inbox> aliceInbox_ = std::make_shared<Inbox>();
    std::shared_ptr<Inbox> bobInbox_ = std::make_shared<Inbox>();
    std::shared_ptr<GStreamerPeer> caller_;
};

TEST_F(CallEngineIntegrationTest, AcceptedCallOpensCarriesVideoAndTearsDownOnEnd) {
    AppEvents events;
    auto app = std::make_shared<QXVCVideoChatDelegate>();
    app->didSendAcceptCall = [&](const QXVCCallPtr&) { events.add("didSendAcceptCall"); };
    app->didOpenCall = [&](const QXVCCallPtr&) { events.add("didOpenCall"); };
    app->didSendEndCall = [&](const QXVCCallPtr&, const QXDUserMessagePtr&) {
        events.add("didSendEndCall");
    };
    QXVCMain::addVideoChatDelegate(app, "app");

    auto start = bobStartsACall();
    ASSERT_TRUE(start);
    ASSERT_TRUE(start->callId());
    // What the intake does with an incoming start: a callee's call with the
    // callee's TURN credentials, registered, with the coordinator as delegate.
    auto call = QXVCCall::initWithStartCallMessage(start, kChannel);
    call->setMyRole(QXVCRoleCallee);
    call->setState(QXVCStateConnecting);
    call->addIceServerWithTurnServer(start->turnServer(), start->calleeUsername(),
                                     start->calleePassword());
    call->setDelegate(QXVCMain::sharedInstance()->getDelegate());
    QXVCCallManager::add(call);
    // Remote answer and candidates reach the call as the intake would hand them.
    aliceInbox_->setHandler([call](const QXVCCallMessagePtr& message) {
        if (auto answer = std::dynamic_pointer_cast<QXVCSignalMessage>(message);
            answer && answer->isAnswer()) {
            call->invalidateOfferCallTimer();
            call->setRemoteDescription(
                std::make_shared<const RTCSessionDescription>(RTCSdpTypeAnswer, answer->sdp()),
                nullptr);
        } else if (auto candidate = std::dynamic_pointer_cast<QXVCCandidateMessage>(message)) {
            call->addIceCandidate(std::make_shared<RTCIceCandidate>(
                candidate->sdp(), candidate->sdpMLineIndex(), candidate->sdpMid()));
        }
    });

    auto options = QXVCCallOptions::initWithChannelUrl(kChannel);
    auto localView = QXVCLocalVideoView::create();
    auto remoteView = QXVCRemoteVideoView::create();
    options->setLocalVideoView(localView);
    options->setRemoteVideoView(remoteView);
    options->setResolution({640, 480});
    std::promise<QXDErrorPtr> accepted;
    call->viewIsReady();
    call->acceptWithOptions(options, [&](QXDErrorPtr error) { accepted.set_value(error); });
    auto acceptFuture = accepted.get_future();
    ASSERT_EQ(acceptFuture.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(acceptFuture.get(), nullptr);
    EXPECT_TRUE(events.waitFor("didSendAcceptCall"));

    // The caller answers the offer that travelled through the service.
    auto offer = std::dynamic_pointer_cast<QXVCSignalMessage>(bobInbox_->waitFor("offer"));
    ASSERT_TRUE(offer);
    makeCaller(*start);
    ASSERT_TRUE(caller_ && caller_->pc);
    auto callId = start->callId();
    caller_->setCandidateSink([this, callId](const RTCIceCandidatePtr& candidate) {
        nlohmann::json candidateBody = {{"type", "candidate"},
                                        {"videochat_protocol_ver", 1},
                                        {"sdp", candidate->sdp().value_or("")},
                                        {"sdp_mid", candidate->sdpMid().value_or("")},
                                        {"sdp_mline_index", candidate->sdpMLineIndex()}};
        bob_->sendUserMessage(
            kChannel,
            QXVCClient::buildMessageParamsWithSignalingCommand("SGNL", candidateBody, callId),
            nullptr);
    });
    std::promise<RTCSessionDescriptionPtr> answered;
    caller_->pc->setRemoteDescription(
        std::make_shared<const RTCSessionDescription>(RTCSdpTypeOffer, offer->sdp()), nullptr);
    // The callee's relay candidates, those already received and those to come.
    auto addToCaller = [pc = caller_->pc](const QXVCCallMessagePtr& message) {
        if (auto candidate = std::dynamic_pointer_cast<QXVCCandidateMessage>(message)) {
            pc->addIceCandidate(std::make_shared<RTCIceCandidate>(
                candidate->sdp(), candidate->sdpMLineIndex(), candidate->sdpMid()));
        }
    };
    bobInbox_->setHandler(addToCaller);
    for (const auto& message : bobInbox_->messages()) {
        addToCaller(message);
    }
    caller_->pc->answerForConstraints(
        nullptr, [&](RTCSessionDescriptionPtr sdp, QXDErrorPtr) { answered.set_value(sdp); });
    auto answerFuture = answered.get_future();
    ASSERT_EQ(answerFuture.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    auto answer = answerFuture.get();
    ASSERT_TRUE(answer);
    caller_->pc->setLocalDescription(answer, nullptr);
    nlohmann::json body = {{"type", "answer"}, {"videochat_protocol_ver", 1}};
    std::string compressed = QXVCUtils::compressString(answer->sdp(), nullptr);
    body["sdp"] = compressed;
    bob_->sendUserMessage(
        kChannel, QXVCClient::buildMessageParamsWithSignalingCommand("SGNL", body, start->callId()),
        nullptr);

    // The call opens and the caller's frames reach the call's remote view.
    EXPECT_TRUE(events.waitFor("didOpenCall"));
    EXPECT_EQ(call->state(), QXVCStateOpened);
    EXPECT_TRUE(caller_->waitFor(kWait, [&] { return remoteView->frameCount() >= 10; }));
    EXPECT_EQ(remoteView->videoSize(), (CGSize{640, 480}));
    EXPECT_TRUE(caller_->waitFor(kWait, [&] { return caller_->remoteRenderer->frames() >= 5; }));
    // Relay candidates flowed both ways; only relay ones left the callee.
    auto calleeCandidates = bobInbox_->types();
    EXPECT_NE(std::find(calleeCandidates.begin(), calleeCandidates.end(), "candidate"),
              calleeCandidates.end());

    call->muteMicrophone();
    call->stopVideo();
    EXPECT_TRUE(caller_->waitFor(kWait, [&] {
        auto types = bobInbox_->types();
        return std::find(types.begin(), types.end(), "video off") != types.end() &&
               std::find(types.begin(), types.end(), "audio off") != types.end();
    }));

    auto connection = call->peerConnection();
    auto capturer = QXVCMain::getCameraVideoCapturer();
    std::promise<QXDErrorPtr> ended;
    call->endWithCompletionHandler([&](QXDErrorPtr error) { ended.set_value(error); });
    auto endFuture = ended.get_future();
    ASSERT_EQ(endFuture.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(endFuture.get(), nullptr);
    EXPECT_EQ(call->endType(), QXVCEndTypeEnd);
    EXPECT_TRUE(bobInbox_->waitFor("end"));
    EXPECT_EQ(call->peerConnection(), nullptr);
    EXPECT_EQ(connection->connectionState(), RTCPeerConnectionStateClosed);
    EXPECT_FALSE(capturer->captureSession()->isRunning());
    EXPECT_EQ(localView->captureSession(), nullptr);
    EXPECT_FALSE(QXVCMain::isCalling());
    EXPECT_EQ(QXVCCallManager::get(*start->callId()), nullptr);
    // The callee's TURN allocation is released (refreshed to a lifetime of 0).
    EXPECT_TRUE(caller_->waitFor(10, [&] { return turn_.countLogLines("lifetime=0") >= 1; }));
}

}  // namespace
