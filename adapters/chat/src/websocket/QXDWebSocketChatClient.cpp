#include "VelmorinChat/QXDWebSocketChatClient.h"

#include <chrono>
#include <cstdio>
#include <utility>

#include <boost/asio/post.hpp>

#include "QXDWebSocketClientState.h"
#include "QXDWebSocketGroupChannel.h"
#include "VelmorinService/ChatWireCodec.h"
#include "VelmorinService/ChatWireProtocol.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace wire = velmorin::wire;
using nlohmann::json;

namespace {

QXDErrorPtr portError(long code, const std::string& description) {
    return QXDError::errorWithDomain(QXDErrorDomain, code,
                                     QXDUserInfo{{NSLocalizedDescriptionKey, description}});
}

QXDErrorPtr notConnected() {
    return portError(QXDErrorConnectionRequired, "The chat client is not connected.");
}

}  // namespace

// Any thread ------------------------------------------------------------------

void QXDWebSocketChatClient::State::setConnected(bool value) {
    std::function<void(bool)> handler;
    {
        std::lock_guard lock(mutex);
        if (connected == value) {
            return;
        }
        connected = value;
        handler = stateHandler;
    }
    if (handler) {
        onEventQueue([handler, value] {
            qxvc::safeCall("QXDWebSocketChatClient connection state", handler, value);
        });
    }
}

void QXDWebSocketChatClient::State::onEventQueue(std::function<void()> task) {
    eventQueue->async(std::move(task));
}

void QXDWebSocketChatClient::State::complete(std::function<void()> task) {
    callbackQueue->async(std::move(task));
}

void QXDWebSocketChatClient::State::getGroupChannel(const std::string& channelUrl,
                                                    QXDGroupChannelHandler handler) {
    auto finish = [weak = weak_from_this(), handler](QXDGroupChannelPtr channel,
                                                     QXDErrorPtr error) {
        if (auto state = weak.lock(); state && handler) {
            state->complete([handler, channel, error] {
                qxvc::safeCall("QXDWebSocketChatClient lookup", handler, channel, error);
            });
        }
    };
    {
        std::lock_guard lock(mutex);
        if (!connected) {
            finish(nullptr, notConnected());
            return;
        }
    }
    boost::asio::post(io, [weak = weak_from_this(), channelUrl, finish] {
        auto state = weak.lock();
        if (!state) {
            return;
        }
        state->request(wire::kOpGetChannel, {{wire::kChannelUrl, channelUrl}},
                       [weak, finish](const json& result, QXDErrorPtr error) {
                           QXDGroupChannelPtr channel;
                           if (!error) {
                               const auto* object =
                                   qxvc::json::objectMember(result, wire::kChannel);
                               auto info = object ? wire::channelFromJson(*object) : std::nullopt;
                               if (info) {
                                   channel = std::make_shared<QXDWebSocketGroupChannel>(
                                       weak, std::move(*info));
                               } else {
                                   error = portError(QXDErrorRequestFailed,
                                                     "The server sent an unreadable channel.");
                               }
                           }
                           finish(channel, error);
                       });
    });
}

QXDUserMessagePtr QXDWebSocketChatClient::State::sendUserMessage(
    const std::string& channelUrl, const QXDUserMessageParamsPtr& params,
    QXDUserMessageHandler handler) {
    QXDUserPtr sender;
    bool isConnected = false;
    {
        std::lock_guard lock(mutex);
        sender = currentUser;
        isConnected = connected;
    }
    auto pending = std::make_shared<const QXDUserMessage>(
        0, channelUrl, params ? params->message() : std::string(),
        params ? params->customType() : std::string(), params ? params->data() : std::string(),
        sender);
    auto finish = [weak = weak_from_this(), handler](QXDUserMessagePtr stored, QXDErrorPtr error) {
        if (auto state = weak.lock(); state && handler) {
            state->complete([handler, stored, error] {
                qxvc::safeCall("QXDWebSocketChatClient send", handler, stored, error);
            });
        }
    };
    if (!params) {
        finish(nullptr, portError(QXDErrorInvalidParameter, "No message parameters."));
        return pending;
    }
    if (!isConnected) {
        finish(nullptr, notConnected());
        return pending;
    }
    json fields = {{wire::kChannelUrl, channelUrl},
                   {wire::kMessage, params->message()},
                   {wire::kCustomType, params->customType()},
                   {wire::kData, params->data()}};
    boost::asio::post(io, [weak = weak_from_this(), fields = std::move(fields), finish]() mutable {
        auto state = weak.lock();
        if (!state) {
            return;
        }
        state->request(
            wire::kOpSend, std::move(fields), [finish](const json& result, QXDErrorPtr error) {
                QXDUserMessagePtr stored;
                if (!error) {
                    const auto* object = qxvc::json::objectMember(result, wire::kMessage);
                    stored = object ? wire::messageFromJson(*object) : nullptr;
                    if (!stored) {
                        error = portError(QXDErrorRequestFailed,
                                          "The server sent an unreadable message.");
                    }
                }
                finish(stored, error);
            });
    });
    return pending;
}

QXDUserMessagePtr QXDWebSocketGroupChannel::sendUserMessageWithParams(
    const QXDUserMessageParamsPtr& params, QXDUserMessageHandler handler) {
    if (auto client = client_.lock()) {
        return client->sendUserMessage(info().channelUrl, params, std::move(handler));
    }
    if (handler) {
        qxvc::safeCall("QXDWebSocketGroupChannel send", handler, nullptr,
                       portError(QXDErrorConnectionRequired, "The chat client no longer exists."));
    }
    return nullptr;
}

// Client ----------------------------------------------------------------------

std::shared_ptr<QXDWebSocketChatClient> QXDWebSocketChatClient::create(Options options) {
    auto state = std::make_shared<State>();
    const std::string label = "velmorin.chat.ws." + options.userId;
    state->eventQueue =
        options.eventQueue ? options.eventQueue : QXVCSerialQueue::create(label + ".events");
    state->callbackQueue = options.callbackQueue ? options.callbackQueue
                                                 : QXVCSerialQueue::create(label + ".callbacks");
    if (!(options.connectTimeoutSeconds > 0)) {
        options.connectTimeoutSeconds = 5.0;
    }
    if (!(options.maxReconnectDelaySeconds > 0)) {
        options.maxReconnectDelaySeconds = 2.0;
    }
    state->options = std::move(options);
    state->work.emplace(state->io.get_executor());
    state->thread = std::thread([raw = state.get()] {
        for (;;) {
            try {
                raw->io.run();
                return;
            } catch (const std::exception& e) {
                std::fprintf(stderr, "[QXVC] QXDWebSocketChatClient network thread: %s\n",
                             e.what());
            }
        }
    });
    return std::shared_ptr<QXDWebSocketChatClient>(new QXDWebSocketChatClient(std::move(state)));
}

QXDWebSocketChatClient::QXDWebSocketChatClient(std::shared_ptr<State> state)
    : state_(std::move(state)) {}

QXDWebSocketChatClient::~QXDWebSocketChatClient() {
    disconnect();
    boost::asio::post(state_->io, [raw = state_.get()] {
        raw->work.reset();
        raw->io.stop();
    });
    if (state_->thread.get_id() == std::this_thread::get_id()) {
        state_->thread.detach();
    } else if (state_->thread.joinable()) {
        state_->thread.join();
    }
}

QXDErrorPtr QXDWebSocketChatClient::connect() {
    {
        std::lock_guard lock(state_->mutex);
        if (state_->connected) {
            return nullptr;
        }
        state_->wantConnected = true;
    }
    auto promise = std::make_shared<std::promise<QXDErrorPtr>>();
    auto result = promise->get_future();
    boost::asio::post(state_->io, [weak = std::weak_ptr<State>(state_), promise] {
        auto state = weak.lock();
        if (!state) {
            return;
        }
        if (state->firstLogin) {
            promise->set_value(portError(QXDErrorRequestFailed, "Already connecting."));
            return;
        }
        state->firstLogin = promise;
        if (state->loggedIn) {
            state->finishFirstLogin(nullptr);
            return;
        }
        state->reconnectTimer.cancel();
        state->attempt();
    });
    const auto timeout = std::chrono::milliseconds(
        static_cast<int64_t>(state_->options.connectTimeoutSeconds * 1000.0));
    if (result.wait_for(timeout) != std::future_status::ready) {
        // Give up on the network thread, which answers the waiting promise.
        boost::asio::post(state_->io, [weak = std::weak_ptr<State>(state_), promise] {
            auto state = weak.lock();
            if (state && state->firstLogin == promise) {
                state->finishFirstLogin(portError(QXDErrorConnectionRequired,
                                                  "Timed out connecting to " + state->options.host +
                                                      ":" + std::to_string(state->options.port) +
                                                      "."));
                state->shutDownConnection();
            }
        });
        if (result.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            return portError(QXDErrorConnectionRequired, "Timed out connecting.");
        }
    }
    return result.get();
}

void QXDWebSocketChatClient::disconnect() {
    {
        std::lock_guard lock(state_->mutex);
        state_->wantConnected = false;
    }
    state_->setConnected(false);
    boost::asio::post(state_->io, [weak = std::weak_ptr<State>(state_)] {
        if (auto state = weak.lock()) {
            state->finishFirstLogin(notConnected());
            state->shutDownConnection();
        }
    });
}

bool QXDWebSocketChatClient::isConnected() const {
    std::lock_guard lock(state_->mutex);
    return state_->connected;
}

std::vector<json> QXDWebSocketChatClient::takePushPayloads() {
    std::lock_guard lock(state_->mutex);
    return std::exchange(state_->pushPayloads, {});
}

void QXDWebSocketChatClient::setPushPayloadHandler(std::function<void(const json&)> handler) {
    std::lock_guard lock(state_->mutex);
    state_->pushHandler = std::move(handler);
}

void QXDWebSocketChatClient::setConnectionStateHandler(std::function<void(bool)> handler) {
    std::lock_guard lock(state_->mutex);
    state_->stateHandler = std::move(handler);
}

QXDUserPtr QXDWebSocketChatClient::getCurrentUser() const {
    std::lock_guard lock(state_->mutex);
    return state_->currentUser;
}

void QXDWebSocketChatClient::getGroupChannel(const std::string& channelUrl,
                                             QXDGroupChannelHandler handler) {
    state_->getGroupChannel(channelUrl, std::move(handler));
}

void QXDWebSocketChatClient::addChannelDelegate(const QXDChannelDelegatePtr& delegate,
                                                const std::string& identifier) {
    std::lock_guard lock(state_->mutex);
    state_->delegates[identifier] = delegate;
}

void QXDWebSocketChatClient::removeChannelDelegate(const std::string& identifier) {
    std::lock_guard lock(state_->mutex);
    state_->delegates.erase(identifier);
}

QXDUserMessagePtr QXDWebSocketChatClient::sendUserMessage(const std::string& channelUrl,
                                                          const QXDUserMessageParamsPtr& params,
                                                          QXDUserMessageHandler handler) {
    return state_->sendUserMessage(channelUrl, params, std::move(handler));
}

const QXVCDispatchQueuePtr& QXDWebSocketChatClient::eventQueue() const {
    return state_->eventQueue;
}

const QXVCDispatchQueuePtr& QXDWebSocketChatClient::callbackQueue() const {
    return state_->callbackQueue;
}
