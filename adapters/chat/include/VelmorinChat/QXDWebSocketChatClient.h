// A chat client for one user of a velmorin-chat-server, over WebSocket (the
// protocol of VelmorinService/ChatWireProtocol.h). It implements the library's
// chat port, so two processes can call each other through a real server:
//
//   QXDWebSocketChatClient::Options options;
//   options.port = 47000; options.userId = "alice"; options.token = "alice-token";
//   auto alice = QXDWebSocketChatClient::create(options);
//   if (auto error = alice->connect()) { ... }
//   QXDMain::setChatClient(alice);
//
// Connection: connect() logs in once, blocking. After that the client keeps
// itself logged in: when the connection drops it reconnects with back-off (up
// to maxReconnectDelaySeconds between attempts), logs in again and fetches, in
// each of the user's channels, every message it missed, until disconnect().
// The very first login replays no history. While not connected, lookups and
// sends fail promptly with QXDErrorConnectionRequired.
//
// Threads: channel events reach the delegates on the event queue, one at a
// time, in message-id order, each message once (by message id) across
// reconnections; each event goes to the delegates in the order of their
// identifiers. Lookup and send completions run on the callback queue.
// The network runs on a thread of the client's own. Delegates are held weakly.
// Every method is thread-safe; no exception leaves the client.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"

class QXDWebSocketChatClient : public QXDChatClient {
  public:
    struct Options {
        std::string host = "127.0.0.1";
        uint16_t port = 0;
        std::string userId;
        std::string token;
        double connectTimeoutSeconds = 5.0;
        double maxReconnectDelaySeconds = 2.0;  // back-off cap
        QXVCDispatchQueuePtr eventQueue;        // channel events; nullptr: own serial thread
        QXVCDispatchQueuePtr callbackQueue;  // lookup/send completions; nullptr: own serial thread
    };

    static std::shared_ptr<QXDWebSocketChatClient> create(Options options);
    ~QXDWebSocketChatClient() override;  // disconnects, joins its threads
    QXDWebSocketChatClient(const QXDWebSocketChatClient&) = delete;
    QXDWebSocketChatClient& operator=(const QXDWebSocketChatClient&) = delete;

    /// Connects and logs in, blocking up to connectTimeoutSeconds. nullptr on success,
    /// else the error (bad token, no server...). After success the client reconnects
    /// by itself (back-off) whenever the connection drops, until disconnect().
    QXDErrorPtr connect();
    void disconnect();
    bool isConnected() const;
    /// Push payloads the server kept for this user while it was offline, collected at
    /// each login; returns them oldest first and clears them.
    std::vector<nlohmann::json> takePushPayloads();
    /// Optional: called on the event queue once per collected push payload. Each
    /// payload is handed over once: while a handler is set, payloads collected at
    /// a login go to it and not to takePushPayloads(). A payload may describe a
    /// message that also arrives as a channel event after a reconnection (the
    /// library tells them apart by message id).
    void setPushPayloadHandler(std::function<void(const nlohmann::json& payload)> handler);
    /// Optional: called on the event queue when the connection goes up or down.
    void setConnectionStateHandler(std::function<void(bool connected)> handler);

    // QXDChatClient -----------------------------------------------------------
    /// The logged-in user (nullptr before the first login); kept while
    /// reconnecting and after disconnect().
    QXDUserPtr getCurrentUser() const override;
    /// Completes on the callback queue with a snapshot of the channel through
    /// which messages are sent, or the server's error (QXDErrorNotAMember,
    /// QXDErrorChannelNotFound, QXDErrorConnectionRequired...).
    void getGroupChannel(const std::string& channelUrl, QXDGroupChannelHandler handler) override;
    void addChannelDelegate(const QXDChannelDelegatePtr& delegate,
                            const std::string& identifier) override;
    void removeChannelDelegate(const std::string& identifier) override;

    /// Sends a user message in `channelUrl` (what a channel's
    /// sendUserMessageWithParams does). Returns the pending message (id 0) at
    /// once; the handler gets the stored message or the server's error (code
    /// and domain as the service gave them) on the callback queue.
    QXDUserMessagePtr sendUserMessage(const std::string& channelUrl,
                                      const QXDUserMessageParamsPtr& params,
                                      QXDUserMessageHandler handler);

    const QXVCDispatchQueuePtr& eventQueue() const;
    const QXVCDispatchQueuePtr& callbackQueue() const;

    struct State;

  private:
    explicit QXDWebSocketChatClient(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};
using QXDWebSocketChatClientPtr = std::shared_ptr<QXDWebSocketChatClient>;
