#include "ChatServerSession.h"

#include <chrono>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/beast/core/bind_handler.hpp>
#include <boost/beast/websocket.hpp>

#include "ServerLog.h"
#include "VelmorinService/ChatWireProtocol.h"

namespace velmorin::server {

namespace beast = boost::beast;
namespace websocket = beast::websocket;

namespace {
constexpr size_t kReadChunkBytes = 64 * 1024;
}

ChatServerSession::ChatServerSession(boost::asio::ip::tcp::socket socket, ChatServicePtr service,
                                     std::shared_ptr<const ChatRequestHandler::TokenMap> tokens,
                                     std::string storeId, std::shared_ptr<LoginBackoff> backoff)
    : ws_(std::move(socket)), holdTimer_(ws_.get_executor()) {
    boost::system::error_code ec;
    const auto remote = beast::get_lowest_layer(ws_).socket().remote_endpoint(ec);
    peer_ = ec ? "?" : remote.address().to_string() + ":" + std::to_string(remote.port());
    handler_ = std::make_unique<ChatRequestHandler>(std::move(service), std::move(tokens),
                                                    std::move(storeId), std::move(backoff));
}

ChatServerSession::~ChatServerSession() {
    log(LogLevel::Debug, "connection from " + peer_ + " closed");
}

const std::string& ChatServerSession::userId() const {
    return handler_->userId();
}

void ChatServerSession::start() {
    // Events come from the service on whatever thread sent the message; they
    // join the outbox on this session's thread, in the order they were pushed.
    std::weak_ptr<ChatServerSession> weak = weak_from_this();
    auto executor = ws_.get_executor();
    handler_->setPush([weak, executor](std::string frame) {
        boost::asio::post(executor, [weak, frame = std::move(frame)]() mutable {
            if (auto self = weak.lock()) {
                self->write(std::move(frame));
            }
        });
    });
    websocket::stream_base::timeout timeouts{};
    timeouts.handshake_timeout = std::chrono::seconds(10);
    timeouts.idle_timeout = std::chrono::seconds(30);
    timeouts.keep_alive_pings = true;
    ws_.set_option(timeouts);
    ws_.read_message_max(wire::kHardFrameLimitBytes);
    ws_.async_accept(beast::bind_front_handler(&ChatServerSession::onAccept, shared_from_this()));
}

void ChatServerSession::onAccept(beast::error_code ec) {
    if (ec) {
        log(LogLevel::Debug, "handshake with " + peer_ + " failed: " + ec.message());
        return;
    }
    log(LogLevel::Debug, "connection from " + peer_);
    readSome();
}

void ChatServerSession::readSome() {
    ws_.async_read_some(buffer_, kReadChunkBytes,
                        beast::bind_front_handler(&ChatServerSession::onRead, shared_from_this()));
}

void ChatServerSession::onRead(beast::error_code ec, std::size_t bytes) {
    if (ec) {
        if (ec == websocket::error::message_too_big) {
            log(LogLevel::Warning, "closed " + peer_ + ": a frame over the hard limit");
        } else if (ec != websocket::error::closed && !dropped_) {
            log(LogLevel::Debug, "connection " + peer_ + ": " + ec.message());
        }
        return;  // the session ends with its last operation
    }
    frameBytes_ += bytes;
    if (frameBytes_ > wire::kMaxRequestFrameBytes) {
        // Too large to serve: drain the rest of it without keeping it.
        oversized_ = true;
        buffer_.clear();
    }
    if (ws_.is_message_done()) {
        std::string reply;
        if (oversized_) {
            log(LogLevel::Warning,
                "refused a frame of " + std::to_string(frameBytes_) + " bytes from " + peer_);
            reply = handler_->frameTooLarge(frameBytes_);
        } else if (!ws_.got_text()) {
            reply = handler_->binaryFrame();
        } else {
            const auto data = buffer_.cdata();
            reply = handler_->handleText(
                std::string_view(static_cast<const char*>(data.data()), data.size()));
        }
        buffer_.clear();
        frameBytes_ = 0;
        oversized_ = false;
        if (const auto delay = handler_->replyDelay(); delay > LoginBackoff::Delay::zero()) {
            holdReply(std::move(reply), delay);
            return;
        }
        write(std::move(reply));
    }
    if (!dropped_) {
        readSome();
    }
}

void ChatServerSession::holdReply(std::string reply, LoginBackoff::Delay delay) {
    log(LogLevel::Debug, "holding a reply to " + peer_ + " for " + std::to_string(delay.count()) +
                             " ms (wrong login)");
    holdTimer_.expires_after(delay);
    holdTimer_.async_wait(
        [self = shared_from_this(), reply = std::move(reply)](beast::error_code ec) mutable {
            if (ec || self->dropped_) {
                return;
            }
            self->write(std::move(reply));
            if (!self->dropped_) {
                self->readSome();
            }
        });
}

void ChatServerSession::write(std::string frame) {
    if (dropped_) {
        return;
    }
    queuedBytes_ += frame.size();
    outbox_.push_back(std::move(frame));
    if (queuedBytes_ > kMaxQueuedBytes) {
        log(LogLevel::Warning, "dropped " + peer_ + ": it does not read its frames");
        drop();
        return;
    }
    if (outbox_.size() == 1) {
        writeNext();
    }
}

void ChatServerSession::writeNext() {
    ws_.text(true);
    ws_.async_write(boost::asio::buffer(outbox_.front()),
                    beast::bind_front_handler(&ChatServerSession::onWrite, shared_from_this()));
}

void ChatServerSession::onWrite(beast::error_code ec, std::size_t) {
    if (ec) {
        drop();
        return;
    }
    queuedBytes_ -= outbox_.front().size();
    outbox_.pop_front();
    if (!outbox_.empty() && !dropped_) {
        writeNext();
    }
}

void ChatServerSession::drop() {
    if (dropped_) {
        return;
    }
    dropped_ = true;
    holdTimer_.cancel();
    boost::system::error_code ignored;
    auto& socket = beast::get_lowest_layer(ws_).socket();
    socket.shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
    socket.close(ignored);
}

}  // namespace velmorin::server
