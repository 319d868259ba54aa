// The shared state of a WebSocket chat client. Internal to the adapter.
//
// Two sides: what the application's threads touch (connection flag, user,
// delegates, push payloads, handlers) is guarded by `mutex`; the protocol
// (connection, requests, login, catching up) lives on the network thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <nlohmann/json.hpp>

#include "QXDWebSocketConnection.h"
#include "VelmorinChat/QXDWebSocketChatClient.h"
#include "VelmorinService/ChatService.h"

struct QXDWebSocketDelivery {
    QXDUserMessagePtr message;
    velmorin::ChannelInfo channel;
};

struct QXDWebSocketChatClient::State : std::enable_shared_from_this<State> {
    using Reply = std::function<void(const nlohmann::json& result, QXDErrorPtr error)>;

    Options options;
    QXVCDispatchQueuePtr eventQueue;
    QXVCDispatchQueuePtr callbackQueue;
    boost::asio::io_context io;
    std::optional<boost::asio::executor_work_guard<boost::asio::io_context::executor_type>> work;
    boost::asio::steady_timer reconnectTimer{io};
    std::thread thread;

    // Guarded by `mutex`.
    mutable std::mutex mutex;
    bool wantConnected = false;
    bool connected = false;
    QXDUserPtr currentUser;
    std::map<std::string, std::weak_ptr<QXDChannelDelegate>> delegates;
    std::vector<nlohmann::json> pushPayloads;
    std::function<void(const nlohmann::json&)> pushHandler;
    std::function<void(bool)> stateHandler;

    // Network thread only.
    std::shared_ptr<QXDWebSocketConnection> connection;
    bool loggedIn = false;
    uint64_t session = 0;  // counts closed connections; stale replies are ignored
    std::shared_ptr<std::promise<QXDErrorPtr>> firstLogin;  // the waiting connect()
    int64_t lastRequestId = 0;
    std::map<int64_t, Reply> pendingRequests;
    bool everLoggedIn = false;
    std::string storeId;                      // of the history lastSeen refers to
    std::map<std::string, int64_t> lastSeen;  // per channel, delivered or skipped
    int64_t highWater = 0;                    // largest message id known of
    int catchUpsOutstanding = 0;
    std::vector<QXDWebSocketDelivery> heldBack;  // events while catching up
    double reconnectDelay = 0;

    // Network thread ----------------------------------------------------------
    void attempt();
    void onOpen(const std::shared_ptr<QXDWebSocketConnection>& from);
    void onText(const std::shared_ptr<QXDWebSocketConnection>& from, const std::string& text);
    void onClosed(const std::shared_ptr<QXDWebSocketConnection>& from, const std::string& reason);
    void onLogin(const nlohmann::json& result, const QXDErrorPtr& error);
    void catchUp(const std::string& channelUrl, int64_t after);
    void finishCatchUp();
    /// The logged-in user's id (the configured one until the first login).
    std::string currentUserId() const {
        std::lock_guard lock(mutex);
        return currentUser ? currentUser->userId() : options.userId;
    }
    void deliver(QXDWebSocketDelivery delivery);
    void scheduleReconnect();
    void finishFirstLogin(QXDErrorPtr error);
    /// Sends a request; `reply` runs on the network thread with the result or
    /// the error (QXDErrorConnectionRequired when there is no connection).
    void request(const std::string& op, nlohmann::json fields, Reply reply);
    void shutDownConnection();

    // Any thread --------------------------------------------------------------
    void setConnected(bool value);
    void onEventQueue(std::function<void()> task);
    void complete(std::function<void()> task);
    void getGroupChannel(const std::string& channelUrl, QXDGroupChannelHandler handler);
    QXDUserMessagePtr sendUserMessage(const std::string& channelUrl,
                                      const QXDUserMessageParamsPtr& params,
                                      QXDUserMessageHandler handler);
};
