// The protocol of one client connection, without the transport: it reads the
// text of each request frame and returns the reply frame, and pushes event
// frames through the function it was given. It holds the connection's login
// and its registration with the service (released on destruction).
//
// A wrong login is answered like any refusal, but the connection must hold the
// reply back for replyDelay() and read nothing more meanwhile (LoginBackoff.h).
//
// Not thread-safe: the connection calls it from one thread at a time. The push
// function is called on whatever thread sends a message; it must only queue.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "VelmorinService/ChatService.h"
#include "VelmorinService/LoginBackoff.h"

namespace velmorin::server {

class ChatRequestHandler {
  public:
    using PushFrame = std::function<void(std::string frame)>;
    using TokenMap = std::map<std::string, std::string>;

    /// `backoff` is shared by every connection of a server; nullptr answers
    /// wrong logins at once.
    ChatRequestHandler(ChatServicePtr service, std::shared_ptr<const TokenMap> tokens,
                       std::string storeId, std::shared_ptr<LoginBackoff> backoff = nullptr);
    ~ChatRequestHandler();
    ChatRequestHandler(const ChatRequestHandler&) = delete;
    ChatRequestHandler& operator=(const ChatRequestHandler&) = delete;

    /// Where event frames go once logged in. Set before the first request.
    void setPush(PushFrame push) { push_ = std::move(push); }
    /// The reply to one text frame.
    std::string handleText(std::string_view text);
    /// How long the reply of the last handleText must wait: zero unless that
    /// frame was a wrong login.
    LoginBackoff::Delay replyDelay() const { return replyDelay_; }
    /// The reply to a frame over the size limit, or a binary one.
    std::string frameTooLarge(size_t bytes) const;
    std::string binaryFrame() const;

    /// The logged-in user ("" before login).
    const std::string& userId() const { return userId_; }

  private:
    nlohmann::json handle(const std::string& op, const nlohmann::json& request);
    nlohmann::json login(const nlohmann::json& request);
    nlohmann::json getChannel(const nlohmann::json& request);
    nlohmann::json send(const nlohmann::json& request);
    nlohmann::json fetch(const nlohmann::json& request);
    nlohmann::json takePushPayloads();

    ChatServicePtr service_;
    std::shared_ptr<const TokenMap> tokens_;
    std::string storeId_;
    std::shared_ptr<LoginBackoff> backoff_;
    unsigned connectionFailures_ = 0;
    LoginBackoff::Delay replyDelay_{0};
    PushFrame push_;
    std::string userId_;
    uint64_t connectionId_ = 0;
};

}  // namespace velmorin::server
