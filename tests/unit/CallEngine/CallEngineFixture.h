// Shared set-up of the call-engine tests: the manual main queue, the recording
// chat client, the fake RTC engine with the coordinator's media objects, and an
// application delegate that records every event it hears.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Call/QXVCCallManager.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/Platform/RTC/RTCPlatform.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "support/FakeChatClient.h"
#include "support/FakeRTCPeerConnection.h"
#include "support/FakeRTCPlatform.h"
#include "support/RecordingApp.h"

using Strings = std::vector<std::string>;

/// "ok", or the error's code followed by its own description when it has one.
inline std::string errorText(const QXDErrorPtr& error) {
    if (!error) {
        return "ok";
    }
    const auto code = std::to_string(error->code());
    return error->userInfo() ? code + " " + error->localizedDescription() : code;
}

/// A completion handler that appends what it is given, as `errorText`, to `heard`.
inline QXVCErrorHandler recordInto(Strings& heard) {
    return [&heard](QXDErrorPtr error) { heard.push_back(errorText(error)); };
}

/// A call delegate that counts events and can claim not to handle some.
class RecordingCallDelegate : public QXVCCallDelegate {
  public:
    bool respondsTo(Event event) const override { return event != ignored; }
    void didSendEndCall(const std::shared_ptr<QXVCCall>&, const QXDUserMessagePtr& m) override {
        ends.push_back(m);
    }
    void didOpenCall(const std::shared_ptr<QXVCCall>&) override { ++opens; }
    void didDropCall(const std::shared_ptr<QXVCCall>&) override { ++drops; }
    void didReopenCall(const std::shared_ptr<QXVCCall>&) override { ++reopens; }

    std::optional<Event> ignored;
    int opens = 0, drops = 0, reopens = 0;
    std::vector<QXDUserMessagePtr> ends;
};

/// The library on the fake RTC engine and a manual main queue, with an
/// application delegate that records every event it hears. Derived fixtures
/// set the chat client, then call `installEngineAndApp`.
class LibraryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        queue = QXVCManualQueue::create("main");
        QXVCMainQueue::replaceForTesting(queue);
        QXVCMain::resetForTesting();
        QXVCCallManager::removeAllForTesting();
    }

    void installEngineAndApp() {
        platform = FakeRTCPlatform::install();
        QXVCMain::prepareVideoDevice();
        app = recordingApp([this](const char* name, const QXVCCallPtr& call) {
            events.push_back(name);
            eventCalls.push_back(call);
        });
        QXVCMain::addVideoChatDelegate(app, "app");
    }

    void TearDown() override {
        QXVCMain::resetForTesting();
        QXVCCallManager::removeAllForTesting();
        QXDMain::setChatClient(nullptr);
        // Dropping the queue drops the timers still holding calls.
        QXVCMainQueue::replaceForTesting(QXVCManualQueue::create("idle"));
        queue.reset();
        FakeRTCPlatform::uninstall();
    }

    int count(const std::string& event) const {
        return static_cast<int>(std::count(events.begin(), events.end(), event));
    }

    std::shared_ptr<QXVCManualQueue> queue;
    std::shared_ptr<FakeRTCPlatform> platform;
    QXVCVideoChatDelegatePtr app;
    Strings events;
    std::vector<QXVCCallPtr> eventCalls;
};

class CallEngineTest : public LibraryTest {
  protected:
    static constexpr const char* kChannel = "channel-1";

    void SetUp() override {
        LibraryTest::SetUp();
        chat = FakeChatClient::create("alice");
        chat->addChannel(kChannel);
        QXDMain::setChatClient(chat);
        installEngineAndApp();
    }

    /// A callee's call as an incoming start makes it: both users with their
    /// media flags, a TURN server, registered, Connecting.
    QXVCCallPtr incomingCall(const std::string& callId = "call-1", bool audioCall = false) {
        auto message =
            std::dynamic_pointer_cast<QXVCStartCallMessage>(QXVCMessageParser::parseMessageData(
                "STCA" + nlohmann::json{{"call_id", callId},
                                        {"is_audio_call", audioCall},
                                        {"caller", {{"user_id", "bob"}}},
                                        {"callee", {{"user_id", "alice"}}}}
                             .dump(),
                1));
        auto call = QXVCCall::initWithStartCallMessage(message, kChannel);
        call->setMyRole(QXVCRoleCallee);
        call->setState(QXVCStateConnecting);
        call->addIceServerWithTurnServer("turn:127.0.0.1:3478", "user", "secret");
        call->setDelegate(QXVCMain::sharedInstance()->getDelegate());
        QXVCCallManager::add(call);
        return call;
    }

    std::shared_ptr<FakeRTCPeerConnection> acceptAndNegotiate(const QXVCCallPtr& call,
                                                              QXVCCallOptionsPtr opts = nullptr) {
        call->viewIsReady();
        call->acceptWithOptions(opts ? opts : QXVCCallOptions::initWithChannelUrl(kChannel),
                                nullptr);
        auto connection = fakeConnection(call);
        if (connection) {
            connection->completeAll();
        }
        queue->runUntilIdle();
        return connection;
    }

    std::shared_ptr<FakeRTCCameraVideoCapturer> capturer() const {
        return std::dynamic_pointer_cast<FakeRTCCameraVideoCapturer>(
            QXVCMain::getCameraVideoCapturer());
    }

    static std::shared_ptr<FakeRTCPeerConnection> fakeConnection(const QXVCCallPtr& call) {
        return std::dynamic_pointer_cast<FakeRTCPeerConnection>(call->peerConnection());
    }

    /// The signalling messages sent so far, as "<command> <type>", with
    /// " on"/" off" for the audio and video updates.
    Strings sentMessages() const {
        Strings out;
        for (const auto& sent : chat->sent()) {
            auto body = nlohmann::json::parse(sent.data.substr(4), nullptr, false);
            std::string text = sent.data.substr(0, 4) + " " + body.value("type", "?");
            if (body.contains("is_enabled")) {
                text += body.value("is_enabled", false) ? " on" : " off";
            }
            out.push_back(text);
        }
        return out;
    }

    std::string lastSent() const {
        const auto all = sentMessages();
        return all.empty() ? "" : all.back();
    }

    /// A caller's or callee's call that only exists, registered nowhere.
    QXVCCallPtr bareCall(const std::string& callId, QXVCRole role = QXVCRoleCaller) {
        auto call = QXVCCall::initWithChannelUrl(kChannel, false, role);
        call->setCallId(callId);
        return call;
    }

    std::shared_ptr<FakeChatClient> chat;
};
