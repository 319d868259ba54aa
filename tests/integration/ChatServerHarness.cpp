#include "ChatServerHarness.h"

#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include "ServerLog.h"

namespace chatserver_test {

namespace beast = boost::beast;
namespace websocket = beast::websocket;
namespace net = boost::asio;
using tcp = net::ip::tcp;

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

InProcessServer::InProcessServer(uint16_t port, velmorin::LoginBackoff::Settings backoff) {
    velmorin::server::setLogLevel(velmorin::server::LogLevel::Warning);
    velmorin::ServiceSettings settings;
    settings.turnServer = kTurnServer;
    settings.turnSharedSecret = "test-turn-secret";
    service = velmorin::ChatService::create(settings);
    velmorin::server::ChatServerOptions options;
    options.port = port;
    options.loginBackoff = backoff;
    for (const auto& [id, nickname] : std::vector<std::pair<std::string, std::string>>{
             {"alice", "Alice"}, {"bob", "Bob"}, {"carol", "Carol"}}) {
        service->upsertUser(QXDUser(id, nickname));
        options.tokens[id] = id + "-token";
    }
    service->createGroupChannel({kChannel, "", false, false, {"alice", "bob"}});
    server = std::make_unique<velmorin::server::ChatServer>(service, options);
    server->start();
}

InProcessServer::~InProcessServer() {
    server->stop();
}

struct RawClient::Impl {
    net::io_context io;
    websocket::stream<beast::tcp_stream> ws{io};
    beast::flat_buffer buffer;
    bool open = false;

    /// Runs the io context until `done` or the deadline; false on the deadline.
    bool runUntil(const bool& done) {
        io.restart();
        const auto end = std::chrono::steady_clock::now() + kDeadline;
        while (!done && std::chrono::steady_clock::now() < end) {
            io.run_for(std::chrono::milliseconds(20));
            io.restart();
        }
        return done;
    }
};

RawClient::RawClient(uint16_t port) : impl_(std::make_unique<Impl>()) {
    beast::error_code ec;
    beast::get_lowest_layer(impl_->ws).connect(
        tcp::endpoint(net::ip::make_address("127.0.0.1"), port), ec);
    if (!ec) {
        impl_->ws.handshake("127.0.0.1:" + std::to_string(port), "/", ec);
    }
    impl_->open = !ec;
}

RawClient::~RawClient() {
    beast::error_code ignored;
    beast::get_lowest_layer(impl_->ws).socket().close(ignored);
}

void RawClient::send(const std::string& bytes, bool binary) {
    beast::error_code ec;
    impl_->ws.binary(binary);
    impl_->ws.write(net::buffer(bytes), ec);
    impl_->open = impl_->open && !ec;
}

std::optional<nlohmann::json> RawClient::readFrame() {
    if (!impl_->open) {
        return std::nullopt;
    }
    bool done = false;
    beast::error_code result;
    impl_->ws.async_read(impl_->buffer, [&](beast::error_code ec, std::size_t) {
        result = ec;
        done = true;
    });
    if (!impl_->runUntil(done)) {
        beast::get_lowest_layer(impl_->ws).socket().cancel();
        impl_->runUntil(done);
        impl_->open = false;
        return std::nullopt;
    }
    if (result) {
        impl_->open = false;
        return std::nullopt;
    }
    auto frame =
        nlohmann::json::parse(beast::buffers_to_string(impl_->buffer.data()), nullptr, false);
    impl_->buffer.clear();
    return frame;
}

std::optional<nlohmann::json> RawClient::readReply() {
    for (;;) {
        auto frame = readFrame();
        if (!frame || frame->value("type", "") == "reply") {
            return frame;
        }
        events_.push_back(std::move(*frame));
    }
}

nlohmann::json RawClient::request(nlohmann::json request) {
    if (!request.contains("id")) {
        request["id"] = ++lastId_;
    }
    send(request.dump());
    auto reply = readReply();
    return reply ? *reply : nlohmann::json();
}

nlohmann::json RawClient::login(const std::string& userId, const std::string& token) {
    return request({{"op", "login"},
                    {"user_id", userId},
                    {"token", token.empty() ? userId + "-token" : token}});
}

void RecordingDelegate::channel(const QXDBaseChannelPtr& channel,
                                const QXDBaseMessagePtr& message) {
    auto user = std::dynamic_pointer_cast<const QXDUserMessage>(message);
    std::unique_lock lock(mutex_);
    messages_.push_back(user);
    channels_.push_back(std::dynamic_pointer_cast<QXDGroupChannel>(channel));
    changed_.notify_all();
    auto handler = handler_;
    lock.unlock();
    if (handler) {
        handler(user);
    }
}

bool RecordingDelegate::waitForCount(size_t count) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kDeadline, [&] { return messages_.size() >= count; });
}

QXDWebSocketChatClientPtr makeClient(uint16_t port, const std::string& userId,
                                     const std::string& token,
                                     const std::shared_ptr<RecordingDelegate>& heard) {
    QXDWebSocketChatClient::Options options;
    options.port = port;
    options.userId = userId;
    options.token = token.empty() ? userId + "-token" : token;
    options.maxReconnectDelaySeconds = 0.2;
    auto client = QXDWebSocketChatClient::create(options);
    if (heard) {
        client->addChannelDelegate(heard, "test");
    }
    return client;
}

std::pair<QXDGroupChannelPtr, QXDErrorPtr> lookUp(QXDChatClient& client,
                                                  const std::string& channelUrl) {
    return awaitCompletion<QXDGroupChannelPtr>(
        [&](auto handler) { client.getGroupChannel(channelUrl, handler); });
}

std::pair<QXDUserMessagePtr, QXDErrorPtr> sendThrough(const QXDGroupChannelPtr& channel,
                                                      const std::string& data,
                                                      const std::string& text) {
    auto params = QXDUserMessageParams::initWithMessage(text);
    params->setCustomType("QX_VIDEOCHAT_TEST");
    params->setData(data);
    return awaitCompletion<QXDUserMessagePtr>(
        [&](auto handler) { channel->sendUserMessageWithParams(params, handler); });
}

}  // namespace chatserver_test
