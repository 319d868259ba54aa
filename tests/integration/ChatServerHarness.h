// Helpers of the chat server tests: a server in this process on a loopback
// port, a raw WebSocket client for frame-level checks, a delegate that records
// what a chat client delivers, and waiting with a deadline.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ChatServer.h"
#include "VelmorinChat/QXDWebSocketChatClient.h"
#include "VelmorinService/ChatService.h"
#include "support/Locked.h"

namespace chatserver_test {

inline constexpr auto kDeadline = std::chrono::seconds(10);
inline constexpr const char* kChannel = "velmorin_group_channel_ab";
inline constexpr const char* kTurnServer = "turn:127.0.0.1:34780";

bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds deadline = kDeadline);

/// alice, bob (members of kChannel) and carol (no channel), tokens
/// "<id>-token", the service in memory, on `port` (0: any free one).
struct InProcessServer {
    explicit InProcessServer(uint16_t port = 0, velmorin::LoginBackoff::Settings backoff = {});
    ~InProcessServer();
    velmorin::ChatServicePtr service;
    std::unique_ptr<velmorin::server::ChatServer> server;
    uint16_t port() const { return server->port(); }
};

/// A WebSocket client that speaks raw frames. Requests wait for their reply;
/// events that arrive meanwhile are kept.
class RawClient {
  public:
    explicit RawClient(uint16_t port);
    ~RawClient();
    void send(const std::string& bytes, bool binary = false);
    /// The next frame, or nullopt after the deadline or on a closed connection.
    std::optional<nlohmann::json> readFrame();
    /// The next reply (events read meanwhile go to events()).
    std::optional<nlohmann::json> readReply();
    nlohmann::json request(nlohmann::json request);
    nlohmann::json login(const std::string& userId, const std::string& token = {});
    std::deque<nlohmann::json>& events() { return events_; }

    struct Impl;

  private:
    std::unique_ptr<Impl> impl_;
    std::deque<nlohmann::json> events_;
    int64_t lastId_ = 0;
};

/// Records the messages a chat client delivers; each then goes to the handler, if one is set.
class RecordingDelegate : public QXDChannelDelegate {
  public:
    void channel(const QXDBaseChannelPtr& channel, const QXDBaseMessagePtr& message) override;
    void setHandler(std::function<void(const QXDUserMessagePtr&)> handler) {
        lockedSet(mutex_, handler_, std::move(handler));
    }
    std::vector<QXDUserMessagePtr> messages() const { return lockedCopy(mutex_, messages_); }
    std::vector<std::shared_ptr<QXDGroupChannel>> channels() const {
        return lockedCopy(mutex_, channels_);
    }
    bool waitForCount(size_t count) const;

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<QXDUserMessagePtr> messages_;
    std::vector<std::shared_ptr<QXDGroupChannel>> channels_;
    std::function<void(const QXDUserMessagePtr&)> handler_;
};

/// A client of `userId` (token "<id>-token" unless given) whose deliveries go to `heard`.
QXDWebSocketChatClientPtr makeClient(uint16_t port, const std::string& userId,
                                     const std::string& token = {},
                                     const std::shared_ptr<RecordingDelegate>& heard = nullptr);

/// Calls `start` with a completion and waits for it; {nullptr, nullptr} after the deadline.
template <typename T, typename Start>
std::pair<T, QXDErrorPtr> awaitCompletion(Start start) {
    auto done = std::make_shared<std::promise<std::pair<T, QXDErrorPtr>>>();
    auto result = done->get_future();
    start([done](T value, QXDErrorPtr error) {
        done->set_value({std::move(value), std::move(error)});
    });
    if (result.wait_for(kDeadline) != std::future_status::ready) {
        return {nullptr, nullptr};
    }
    return result.get();
}

std::pair<QXDGroupChannelPtr, QXDErrorPtr> lookUp(QXDChatClient& client,
                                                  const std::string& channelUrl);
std::pair<QXDUserMessagePtr, QXDErrorPtr> sendThrough(const QXDGroupChannelPtr& channel,
                                                      const std::string& data,
                                                      const std::string& text = "QX_VIDEOCHAT");

}  // namespace chatserver_test
