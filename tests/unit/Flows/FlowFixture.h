// Whole coordinator flows against the Velmorin service in process: the library
// is alice (in-process chat client, fake RTC engine, manual main queue); the
// test plays bob (and carol) by sending signalling through the service, and
// reads what alice sent from the messages delivered to bob.
#pragma once

#include <map>
#include <mutex>

#include "VelmorinChat/QXDInProcessChatClient.h"
#include "VelmorinService/ChatService.h"
#include "VelmorinVideoChat/Call/QXVCAutoAcceptManager.h"
#include "VelmorinVideoChat/Client/QXVCClient.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"
#include "unit/CallEngine/CallEngineFixture.h"

class FlowTest : public LibraryTest {
  protected:
    static constexpr const char* kPrivate = "alice-bob";
    static constexpr const char* kWithCarol = "alice-carol";
    static constexpr const char* kPublic = "public-room";
    static constexpr const char* kThree = "three-of-us";

    void SetUp() override {
        LibraryTest::SetUp();
        QXVCMain::setLogLevel(QXVCInternalLogLevelDebug);
        QXVCMain::setLogSink([this](const std::string& line) {
            std::lock_guard lock(mutex);
            logLines.push_back(line);
        });

        service = velmorin::ChatService::create();
        for (const char* id : {"alice", "bob", "carol"}) {
            service->upsertUser(QXDUser(id, id));
        }
        service->createGroupChannel({kPrivate, "", false, false, {"alice", "bob"}});
        service->createGroupChannel({kWithCarol, "", false, false, {"alice", "carol"}});
        service->createGroupChannel({kPublic, "", true, false, {"alice", "bob"}});
        service->createGroupChannel({kThree, "", false, false, {"alice", "bob", "carol"}});
        for (const char* id : {"bob", "carol"}) {
            std::string who = id;
            service->connect(
                id, [this, who](const QXDUserMessagePtr& message, const velmorin::ChannelInfo&) {
                    std::lock_guard lock(mutex);
                    received[who].push_back(message);
                });
        }

        QXDInProcessChatClient::Options options;
        options.eventQueue = queue;
        options.callbackQueue = queue;
        chat = QXDInProcessChatClient::create(service, "alice", options);
        QXDMain::setChatClient(chat);
        installEngineAndApp();
        QXVCMain::sharedInstance();  // registers the intake with the chat port
    }

    void TearDown() override {
        LibraryTest::TearDown();
        chat.reset();
    }

    /// Alice starts a call in `channel`; what her handler is given goes to `events`.
    void aliceStarts(const std::string& channel = kPrivate, bool audioOnly = false) {
        auto options = QXVCCallOptions::initWithChannelUrl(channel);
        options->setVideoEnabled(!audioOnly);
        QXVCMain::startCallWithAudioOnly(audioOnly, options, recordInto(events));
    }

    /// Alice accepts the call with ready views and completes her side of the negotiation.
    QXVCCallPtr acceptIncoming(const std::string& callId) {
        auto call = QXVCMain::getCallWithCallId(callId);
        if (call) {
            call->viewIsReady();
            call->acceptWithOptions(QXVCCallOptions::initWithChannelUrl(call->channelUrl()));
            lastConnection()->completeAll();
            run();
        }
        return call;
    }

    /// The username of the call's one TURN server ("<expiry>:<user>"), else "".
    static std::string turnUsername(const QXVCCallPtr& call) {
        auto servers = call->iceServers();
        return servers && servers->size() == 1 ? (*servers)[0]->username().value_or("") : "";
    }

    /// Sends `command` + `body` as `from` in `channel`; returns the stored
    /// message (nullptr when the service refused it).
    QXDUserMessagePtr send(const std::string& from, const std::string& channel,
                           const std::string& command, nlohmann::json body,
                           const std::optional<std::string>& callId = std::nullopt) {
        if (callId) {
            body["call_id"] = *callId;
        }
        body["videochat_protocol_ver"] = 1;
        auto params = QXVCClient::buildMessageParamsWithSignalingCommand(command, body, callId);
        auto result = service->send(from, channel, *params);
        return result.error ? nullptr : result.value;
    }

    std::string startFrom(const std::string& from = "bob", const std::string& channel = kPrivate,
                          bool audioOnly = false) {
        auto stored = send(from, channel, "STCA",
                           {{"type", "start"},
                            {"is_audio_call", audioOnly},
                            {"constraints", {{"audio", true}, {"video", !audioOnly}}}});
        if (!stored) {
            return "";
        }
        auto body = nlohmann::json::parse(stored->data().substr(4));
        return body.value("call_id", "");
    }

    QXDUserMessagePtr sendSignal(const std::string& callId, const std::string& type,
                                 nlohmann::json extra = nlohmann::json::object(),
                                 const std::string& from = "bob",
                                 const std::string& channel = kPrivate) {
        extra["type"] = type;
        return send(from, channel, "SGNL", extra, callId);
    }

    QXDUserMessagePtr sendOffer(const std::string& callId) {
        return sendSignal(callId, "offer",
                          {{"sdp", QXVCUtils::compressString(std::string("v=0\r\nm=video\r\n"))}});
    }

    QXDUserMessagePtr sendEnd(const std::string& callId, const std::string& endType = "end",
                              const std::string& from = "bob",
                              const std::string& channel = kPrivate) {
        return send(from, channel, "ENCA", {{"type", endType}}, callId);
    }

    /// What `who` received from alice, as "<command> <type>".
    Strings receivedBy(const std::string& who = "bob") {
        std::lock_guard lock(mutex);
        Strings out;
        for (const auto& message : received[who]) {
            auto body = nlohmann::json::parse(message->data().substr(4), nullptr, false);
            std::string type = body.is_object() ? body.value("type", "?") : "?";
            out.push_back(message->data().substr(0, 4) + " " + type);
        }
        return out;
    }

    bool logged(const std::string& text) {
        std::lock_guard lock(mutex);
        return std::any_of(logLines.begin(), logLines.end(),
                           [&](const auto& line) { return line.find(text) != std::string::npos; });
    }

    std::shared_ptr<FakeRTCPeerConnection> lastConnection() const {
        return platform->lastPeerConnection();
    }

    void run() { queue->runUntilIdle(); }

    velmorin::ChatServicePtr service;
    QXDInProcessChatClientPtr chat;
    std::mutex mutex;
    std::map<std::string, std::vector<QXDUserMessagePtr>> received;
    Strings logLines;
};
