// The protocol of one client connection, without the transport: it reads the
// text of each request frame and returns the reply frame, and pushes event
// frames through the function it was given. It holds the connection's login
// and its registration with the service (released on destruction).
//
// Not thread-safe: the connection calls it from one thread at a time. The push
// function is called on whatever thread sends a message; it must only queue.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "VelmorinService/ChatService.h"

namespace velmorin::server {

class ChatRequestHandler {
  public:
    using PushFrame = std::function<void(std::string frame)>;
    using TokenMap = std::map<std::string, std::string>;

    ChatRequestHandler(ChatServicePtr service, std::shared_ptr<const TokenMap> tokens,
                       std::string storeId);
    ~ChatRequestHandler();
    ChatRequestHandler(const ChatRequestHandler&) = delete;
    ChatRequestHandler& operator=(const ChatRequestHandler&) = delete;

    /// Where event frames go once logged in. Set before the first request.
    void setPush(PushFrame push) { push_ = std::move(push); }
    /// The reply to one text frame.
    std::string handleText(std::string_view text);
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
    PushFrame push_;
    std::string userId_;
    uint64_t connectionId_ = 0;
};

}  // namespace velmorin::server
