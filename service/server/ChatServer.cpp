#include "ChatServer.h"

#include <algorithm>
#include <future>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>

#include "ChatServerSession.h"
#include "ServerLog.h"
#include "VelmorinService/TurnCredentials.h"

namespace velmorin::server {

namespace net = boost::asio;
using tcp = net::ip::tcp;

struct ChatServer::Impl {
    ChatServicePtr service;
    ChatServerOptions options;
    std::shared_ptr<const ChatRequestHandler::TokenMap> tokens;
    std::shared_ptr<LoginBackoff> backoff;
    net::io_context io;
    tcp::acceptor acceptor{io};
    std::thread thread;
    std::string boundHost;
    uint16_t boundPort = 0;
    bool running = false;

    mutable std::mutex sessionsMutex;  // the thread adds, tests count
    std::vector<std::weak_ptr<ChatServerSession>> sessions;

    void accept() {
        acceptor.async_accept(io, [this](boost::system::error_code ec, tcp::socket socket) {
            if (ec) {
                if (acceptor.is_open()) {
                    log(LogLevel::Warning, "accept failed: " + ec.message());
                    accept();
                }
                return;
            }
            auto session = std::make_shared<ChatServerSession>(std::move(socket), service, tokens,
                                                               options.storeId, backoff);
            {
                std::lock_guard lock(sessionsMutex);
                std::erase_if(sessions, [](const auto& weak) { return weak.expired(); });
                sessions.push_back(session);
            }
            session->start();
            accept();
        });
    }

    std::vector<std::shared_ptr<ChatServerSession>> liveSessions() const {
        std::vector<std::shared_ptr<ChatServerSession>> live;
        std::lock_guard lock(sessionsMutex);
        for (const auto& weak : sessions) {
            if (auto session = weak.lock()) {
                live.push_back(std::move(session));
            }
        }
        return live;
    }
};

ChatServer::ChatServer(ChatServicePtr service, ChatServerOptions options)
    : impl_(std::make_unique<Impl>()) {
    impl_->service = std::move(service);
    impl_->tokens = std::make_shared<const ChatRequestHandler::TokenMap>(options.tokens);
    impl_->backoff = std::make_shared<LoginBackoff>(options.loginBackoff);
    if (options.storeId.empty()) {
        options.storeId = makeUuidV4();
    }
    impl_->options = std::move(options);
}

ChatServer::~ChatServer() {
    stop();
}

std::string ChatServer::start() {
    if (impl_->running) {
        return "already started";
    }
    boost::system::error_code ec;
    auto address = net::ip::make_address(impl_->options.host, ec);
    if (ec) {
        tcp::resolver resolver(impl_->io);
        const auto found = resolver.resolve(impl_->options.host, "", ec);
        if (ec || found.empty()) {
            return "cannot resolve " + impl_->options.host;
        }
        address = found.begin()->endpoint().address();
    }
    const tcp::endpoint endpoint(address, impl_->options.port);
    auto& acceptor = impl_->acceptor;
    acceptor.open(endpoint.protocol(), ec);
    if (!ec) {
        acceptor.set_option(net::socket_base::reuse_address(true), ec);
    }
    if (!ec) {
        acceptor.bind(endpoint, ec);
    }
    if (!ec) {
        acceptor.listen(net::socket_base::max_listen_connections, ec);
    }
    if (ec) {
        boost::system::error_code ignored;
        acceptor.close(ignored);
        return "cannot listen on " + impl_->options.host + ":" +
               std::to_string(impl_->options.port) + ": " + ec.message();
    }
    const auto local = acceptor.local_endpoint(ec);
    impl_->boundHost = local.address().to_string();
    impl_->boundPort = local.port();
    impl_->accept();
    impl_->running = true;
    impl_->thread = std::thread([impl = impl_.get()] {
        for (;;) {
            try {
                impl->io.run();
                return;
            } catch (const std::exception& e) {
                log(LogLevel::Error, std::string("server thread: ") + e.what());
            }
        }
    });
    return {};
}

void ChatServer::stop() {
    if (!impl_->running) {
        return;
    }
    impl_->running = false;
    net::post(impl_->io, [impl = impl_.get()] {
        boost::system::error_code ignored;
        impl->acceptor.close(ignored);
        for (const auto& session : impl->liveSessions()) {
            session->drop();
        }
        // Let the dropped sessions finish their handlers, then stop.
        net::post(impl->io, [impl] { impl->io.stop(); });
    });
    impl_->thread.join();
}

const std::string& ChatServer::host() const {
    return impl_->boundHost;
}

uint16_t ChatServer::port() const {
    return impl_->boundPort;
}

size_t ChatServer::dropConnectionsOf(const std::string& userId) {
    if (!impl_->running) {
        return 0;
    }
    auto dropped = std::make_shared<std::promise<size_t>>();
    auto result = dropped->get_future();
    net::post(impl_->io, [impl = impl_.get(), userId, dropped] {
        size_t count = 0;
        for (const auto& session : impl->liveSessions()) {
            if (session->userId() == userId) {
                session->drop();
                ++count;
            }
        }
        dropped->set_value(count);
    });
    return result.get();
}

size_t ChatServer::connectionCount() const {
    std::lock_guard lock(impl_->sessionsMutex);
    return static_cast<size_t>(std::count_if(impl_->sessions.begin(), impl_->sessions.end(),
                                             [](const auto& weak) { return !weak.expired(); }));
}

}  // namespace velmorin::server
