// velmorin-chat-server's network side: a WebSocket listener (Boost.Beast) in
// front of a ChatService, speaking the protocol of ChatWireProtocol.h. One
// thread serves every connection.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "VelmorinService/ChatService.h"
#include "VelmorinService/LoginBackoff.h"

namespace velmorin::server {

struct ChatServerOptions {
    std::string host = "127.0.0.1";  // an address, or a name that resolves to one
    uint16_t port = 0;               // 0: any free port
    /// User id to login token. A user missing here cannot log in.
    std::map<std::string, std::string> tokens;
    /// Names the message history the service holds (see "store_id" in
    /// ChatWireProtocol.h); "" makes a random one.
    std::string storeId;
    /// How wrong logins are slowed down (LoginBackoff.h).
    LoginBackoff::Settings loginBackoff;
};

class ChatServer {
  public:
    ChatServer(ChatServicePtr service, ChatServerOptions options);
    ~ChatServer();  // stop()
    ChatServer(const ChatServer&) = delete;
    ChatServer& operator=(const ChatServer&) = delete;

    /// Binds and starts serving on the server's thread. "" on success, else why not.
    std::string start();
    /// Closes the listener and every connection and joins the thread. Idempotent.
    void stop();

    /// The bound address and port (valid after a successful start).
    const std::string& host() const;
    uint16_t port() const;

    /// Drops every connection logged in as `userId` as a failing network would
    /// (no closing handshake). Returns how many were dropped. For tests.
    size_t dropConnectionsOf(const std::string& userId);
    /// Connections currently open. For tests and diagnostics.
    size_t connectionCount() const;

    struct Impl;

  private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace velmorin::server
