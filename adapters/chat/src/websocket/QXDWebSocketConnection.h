// One WebSocket connection attempt of the chat client: resolve, connect,
// handshake, then text frames both ways. Lives on the client's network thread;
// every method must be called there and every callback runs there. `onClosed`
// runs exactly once, after which no other callback runs.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>

class QXDWebSocketConnection {
  public:
    struct Callbacks {
        std::function<void()> onOpen;
        std::function<void(const std::string& text)> onText;
        std::function<void(const std::string& reason)> onClosed;
    };

    static std::shared_ptr<QXDWebSocketConnection> create(boost::asio::io_context& io,
                                                          Callbacks callbacks);
    virtual ~QXDWebSocketConnection() = default;

    /// Starts the attempt; gives up (onClosed) after `timeoutSeconds` without
    /// an open connection.
    virtual void open(const std::string& host, uint16_t port, double timeoutSeconds) = 0;
    /// Queues a text frame; frames go out in order.
    virtual void send(std::string frame) = 0;
    /// Closes the socket at once (no closing handshake).
    virtual void abort() = 0;
};
