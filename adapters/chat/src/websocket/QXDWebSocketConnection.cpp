#include "QXDWebSocketConnection.h"

#include <chrono>
#include <deque>
#include <utility>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include "VelmorinService/ChatWireProtocol.h"

namespace {

namespace beast = boost::beast;
namespace websocket = beast::websocket;
namespace net = boost::asio;
using tcp = net::ip::tcp;

class BeastConnection : public QXDWebSocketConnection,
                        public std::enable_shared_from_this<BeastConnection> {
  public:
    BeastConnection(net::io_context& io, Callbacks callbacks)
        : resolver_(io), ws_(io), callbacks_(std::move(callbacks)) {}

    void open(const std::string& host, uint16_t port, double timeoutSeconds) override {
        host_ = host + ":" + std::to_string(port);
        timeout_ = std::chrono::milliseconds(static_cast<int64_t>(timeoutSeconds * 1000.0));
        resolver_.async_resolve(
            host, std::to_string(port),
            [self = shared_from_this()](beast::error_code ec, tcp::resolver::results_type found) {
                self->onResolve(ec, std::move(found));
            });
    }

    void send(std::string frame) override {
        if (closed_ || !open_) {
            return;
        }
        outbox_.push_back(std::move(frame));
        if (outbox_.size() == 1) {
            writeNext();
        }
    }

    void abort() override { fail("closed"); }

  private:
    void onResolve(beast::error_code ec, const tcp::resolver::results_type& found) {
        if (ec) {
            return fail("cannot resolve " + host_ + ": " + ec.message());
        }
        if (closed_) {
            return;
        }
        beast::get_lowest_layer(ws_).expires_after(timeout_);
        beast::get_lowest_layer(ws_).async_connect(
            found, [self = shared_from_this()](beast::error_code error, const tcp::endpoint&) {
                self->onConnect(error);
            });
    }

    void onConnect(beast::error_code ec) {
        if (ec) {
            return fail("cannot connect to " + host_ + ": " + ec.message());
        }
        if (closed_) {
            return;
        }
        // From here the WebSocket's own timeouts watch the connection: the
        // handshake gets what is left of the attempt's time; afterwards a ping
        // goes out when it has been quiet, and it ends when even that gets no
        // answer.
        beast::get_lowest_layer(ws_).expires_never();
        websocket::stream_base::timeout timeouts{};
        timeouts.handshake_timeout = timeout_;
        timeouts.idle_timeout = std::chrono::seconds(10);
        timeouts.keep_alive_pings = true;
        ws_.set_option(timeouts);
        ws_.read_message_max(velmorin::wire::kHardFrameLimitBytes);
        ws_.async_handshake(host_, "/", [self = shared_from_this()](beast::error_code error) {
            self->onHandshake(error);
        });
    }

    void onHandshake(beast::error_code ec) {
        if (ec) {
            return fail("WebSocket handshake with " + host_ + " failed: " + ec.message());
        }
        if (closed_) {
            return;
        }
        open_ = true;
        read();
        if (callbacks_.onOpen) {
            callbacks_.onOpen();
        }
    }

    void read() {
        ws_.async_read(buffer_, [self = shared_from_this()](beast::error_code ec, std::size_t) {
            self->onRead(ec);
        });
    }

    void onRead(beast::error_code ec) {
        if (ec) {
            return fail(ec == websocket::error::closed ? "closed by the server"
                                                       : "connection lost: " + ec.message());
        }
        if (closed_) {
            return;
        }
        const std::string text = beast::buffers_to_string(buffer_.data());
        buffer_.clear();
        if (callbacks_.onText) {
            callbacks_.onText(text);
        }
        if (!closed_) {
            read();
        }
    }

    void writeNext() {
        ws_.text(true);
        ws_.async_write(
            net::buffer(outbox_.front()),
            [self = shared_from_this()](beast::error_code ec, std::size_t) { self->onWrite(ec); });
    }

    void onWrite(beast::error_code ec) {
        if (ec) {
            return fail("connection lost: " + ec.message());
        }
        outbox_.pop_front();
        if (!outbox_.empty() && !closed_) {
            writeNext();
        }
    }

    void fail(const std::string& reason) {
        if (closed_) {
            return;
        }
        closed_ = true;
        open_ = false;
        resolver_.cancel();
        beast::error_code ignored;
        auto& socket = beast::get_lowest_layer(ws_).socket();
        socket.shutdown(tcp::socket::shutdown_both, ignored);
        socket.close(ignored);
        auto onClosed = std::move(callbacks_.onClosed);
        callbacks_ = {};
        if (onClosed) {
            onClosed(reason);
        }
    }

    tcp::resolver resolver_;
    websocket::stream<beast::tcp_stream> ws_;
    Callbacks callbacks_;
    beast::flat_buffer buffer_;
    std::deque<std::string> outbox_;
    std::string host_;
    std::chrono::milliseconds timeout_{5000};
    bool open_ = false;
    bool closed_ = false;
};

}  // namespace

std::shared_ptr<QXDWebSocketConnection> QXDWebSocketConnection::create(net::io_context& io,
                                                                       Callbacks callbacks) {
    return std::make_shared<BeastConnection>(io, std::move(callbacks));
}
