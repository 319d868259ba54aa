// One client connection of the chat server: the WebSocket handshake, reading
// frames (with the size limit), the request handler, and an ordered queue of
// outgoing frames. Lives on the server's thread; kept alive by its pending
// operations.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "ChatRequestHandler.h"

namespace velmorin::server {

class ChatServerSession : public std::enable_shared_from_this<ChatServerSession> {
  public:
    /// Frames queued for a client that does not read; beyond this it is dropped.
    static constexpr size_t kMaxQueuedBytes = 32 * 1024 * 1024;

    ChatServerSession(boost::asio::ip::tcp::socket socket, ChatServicePtr service,
                      std::shared_ptr<const ChatRequestHandler::TokenMap> tokens,
                      std::string storeId, std::shared_ptr<LoginBackoff> backoff);
    ~ChatServerSession();

    void start();
    /// Queues a frame for the client. On the server's thread only.
    void write(std::string frame);
    /// Closes the socket at once; pending operations end with an error.
    void drop();
    const std::string& userId() const;

  private:
    void onAccept(boost::beast::error_code ec);
    void readSome();
    void onRead(boost::beast::error_code ec, std::size_t bytes);
    /// Sends `reply` after `delay`, and only then reads the next frame.
    void holdReply(std::string reply, LoginBackoff::Delay delay);
    void writeNext();
    void onWrite(boost::beast::error_code ec, std::size_t bytes);

    boost::beast::websocket::stream<boost::beast::tcp_stream> ws_;
    boost::beast::flat_buffer buffer_;
    boost::asio::steady_timer holdTimer_;
    std::unique_ptr<ChatRequestHandler> handler_;
    std::string peer_;
    size_t frameBytes_ = 0;  // bytes of the frame being read
    bool oversized_ = false;
    std::deque<std::string> outbox_;
    size_t queuedBytes_ = 0;
    bool dropped_ = false;
};

}  // namespace velmorin::server
