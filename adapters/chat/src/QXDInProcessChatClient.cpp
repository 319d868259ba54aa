#include "VelmorinChat/QXDInProcessChatClient.h"

#include <algorithm>
#include <utility>

#include "QXDInProcessClientState.h"
#include "QXDInProcessGroupChannel.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace {

QXDErrorPtr portError(long code, const char* description) {
    return QXDError::errorWithDomain(QXDErrorDomain, code,
                                     QXDUserInfo{{NSLocalizedDescriptionKey, description}});
}

QXDErrorPtr notConnected() {
    return portError(QXDErrorConnectionRequired, "The chat client is not connected.");
}

}  // namespace

// State -----------------------------------------------------------------------

void QXDInProcessChatClient::State::connect() {
    std::lock_guard lock(mutex);
    if (connectionId != 0) {
        return;
    }
    std::weak_ptr<State> weak = weak_from_this();
    connectionId = service->connect(
        userId, [weak](const QXDUserMessagePtr& message, const velmorin::ChannelInfo& channel) {
            if (auto state = weak.lock()) {
                state->onDelivery(message, channel);
            }
        });
}

void QXDInProcessChatClient::State::disconnect() {
    std::lock_guard lock(mutex);
    if (connectionId != 0) {
        service->disconnect(std::exchange(connectionId, 0));
    }
}

void QXDInProcessChatClient::State::complete(std::function<void()> task) {
    callbackQueue->async(std::move(task));
}

void QXDInProcessChatClient::State::getGroupChannel(const std::string& channelUrl,
                                                    QXDGroupChannelHandler handler) {
    QXDErrorPtr error;
    {
        std::lock_guard lock(mutex);
        if (lookupFailures > 0) {
            --lookupFailures;
            error = lookupError;
        } else if (connectionId == 0) {
            error = notConnected();
        }
    }
    QXDGroupChannelPtr channel;
    if (!error) {
        auto found = service->channel(userId, channelUrl);
        if (found.error) {
            error = found.error;
        } else {
            channel = std::make_shared<QXDInProcessGroupChannel>(weak_from_this(),
                                                                 std::move(found.value));
        }
    }
    if (handler) {
        complete([handler = std::move(handler), channel, error] {
            qxvc::safeCall("QXDInProcessChatClient lookup", handler, channel, error);
        });
    }
}

QXDUserMessagePtr QXDInProcessChatClient::State::sendUserMessage(
    const std::string& channelUrl, const QXDUserMessageParamsPtr& params,
    QXDUserMessageHandler handler) {
    auto pending = std::make_shared<const QXDUserMessage>(
        0, channelUrl, params ? params->message() : std::string(),
        params ? params->customType() : std::string(), params ? params->data() : std::string(),
        currentUser);
    QXDErrorPtr error;
    if (!params) {
        error = portError(QXDErrorInvalidParameter, "No message parameters.");
    } else {
        std::lock_guard lock(mutex);
        if (sendFailures > 0) {
            --sendFailures;
            error = sendError;
        } else if (connectionId == 0) {
            error = notConnected();
        }
    }
    QXDUserMessagePtr stored;
    if (!error) {
        auto sent = service->send(userId, channelUrl, *params);
        stored = sent.value;
        error = sent.error;
    }
    if (handler) {
        complete([handler = std::move(handler), stored, error] {
            qxvc::safeCall("QXDInProcessChatClient send", handler, stored, error);
        });
    }
    return pending;
}

void QXDInProcessChatClient::State::onDelivery(const QXDUserMessagePtr& message,
                                               const velmorin::ChannelInfo& channel) {
    int copies = 1;
    double delay = 0;
    {
        std::lock_guard lock(mutex);
        if (holding) {
            held.push_back({message, channel});
            return;
        }
        if (duplicates > 0) {
            --duplicates;
            copies = 2;
        }
        delay = deliveryDelay;
    }
    for (int i = 0; i < copies; ++i) {
        post({message, channel}, delay);
    }
}

void QXDInProcessChatClient::State::post(QXDInProcessDelivery delivery, double delay) {
    std::weak_ptr<State> weak = weak_from_this();
    auto task = [weak, delivery = std::move(delivery)] {
        if (auto state = weak.lock()) {
            state->dispatch(delivery);
        }
    };
    if (delay > 0) {
        eventQueue->asyncAfter(delay, std::move(task));
    } else {
        eventQueue->async(std::move(task));
    }
}

void QXDInProcessChatClient::State::dispatch(const QXDInProcessDelivery& delivery) {
    std::vector<std::weak_ptr<QXDChannelDelegate>> targets;
    {
        std::lock_guard lock(mutex);
        for (const auto& entry : delegates) {
            targets.push_back(entry.second);
        }
    }
    QXDBaseChannelPtr channel =
        std::make_shared<QXDInProcessGroupChannel>(weak_from_this(), delivery.channel);
    QXDBaseMessagePtr message = delivery.message;
    for (const auto& weak : targets) {
        if (auto delegate = weak.lock()) {
            qxvc::safeCall("channel:didReceiveMessage:",
                           [&] { delegate->channel(channel, message); });
        }
    }
}

// Group channel ---------------------------------------------------------------

QXDUserMessagePtr QXDInProcessGroupChannel::sendUserMessageWithParams(
    const QXDUserMessageParamsPtr& params, QXDUserMessageHandler handler) {
    if (auto client = client_.lock()) {
        return client->sendUserMessage(info().channelUrl, params, std::move(handler));
    }
    if (handler) {
        qxvc::safeCall("QXDInProcessGroupChannel send", handler, nullptr,
                       portError(QXDErrorConnectionRequired, "The chat client no longer exists."));
    }
    return nullptr;
}

// Client ----------------------------------------------------------------------

std::shared_ptr<QXDInProcessChatClient> QXDInProcessChatClient::create(
    velmorin::ChatServicePtr service, const std::string& userId) {
    return create(std::move(service), userId, Options{});
}

std::shared_ptr<QXDInProcessChatClient> QXDInProcessChatClient::create(
    velmorin::ChatServicePtr service, const std::string& userId, Options options) {
    if (!service) {
        return nullptr;
    }
    auto user = service->user(userId);
    if (!user) {
        return nullptr;
    }
    auto state = std::make_shared<State>();
    state->service = std::move(service);
    state->userId = userId;
    state->currentUser = std::make_shared<const QXDUser>(*user);
    state->eventQueue = options.eventQueue
                            ? std::move(options.eventQueue)
                            : QXVCSerialQueue::create("velmorin.chat.events." + userId);
    state->callbackQueue = options.callbackQueue
                               ? std::move(options.callbackQueue)
                               : QXVCSerialQueue::create("velmorin.chat.callbacks." + userId);
    if (options.connect) {
        state->connect();
    }
    return std::shared_ptr<QXDInProcessChatClient>(new QXDInProcessChatClient(std::move(state)));
}

QXDInProcessChatClient::QXDInProcessChatClient(std::shared_ptr<State> state)
    : state_(std::move(state)) {}

QXDInProcessChatClient::~QXDInProcessChatClient() {
    state_->disconnect();
}

QXDUserPtr QXDInProcessChatClient::getCurrentUser() const {
    return state_->currentUser;
}

void QXDInProcessChatClient::getGroupChannel(const std::string& channelUrl,
                                             QXDGroupChannelHandler handler) {
    state_->getGroupChannel(channelUrl, std::move(handler));
}

void QXDInProcessChatClient::addChannelDelegate(const QXDChannelDelegatePtr& delegate,
                                                const std::string& identifier) {
    std::lock_guard lock(state_->mutex);
    state_->delegates[identifier] = delegate;
}

void QXDInProcessChatClient::removeChannelDelegate(const std::string& identifier) {
    std::lock_guard lock(state_->mutex);
    state_->delegates.erase(identifier);
}

void QXDInProcessChatClient::connect() {
    state_->connect();
}

void QXDInProcessChatClient::disconnect() {
    state_->disconnect();
}

bool QXDInProcessChatClient::isConnected() const {
    std::lock_guard lock(state_->mutex);
    return state_->connectionId != 0;
}

std::vector<nlohmann::json> QXDInProcessChatClient::takePushPayloads() {
    return state_->service->takePushPayloads(state_->userId);
}

const velmorin::ChatServicePtr& QXDInProcessChatClient::service() const {
    return state_->service;
}

const QXVCDispatchQueuePtr& QXDInProcessChatClient::eventQueue() const {
    return state_->eventQueue;
}

const QXVCDispatchQueuePtr& QXDInProcessChatClient::callbackQueue() const {
    return state_->callbackQueue;
}

QXDUserMessagePtr QXDInProcessChatClient::sendUserMessage(const std::string& channelUrl,
                                                          const QXDUserMessageParamsPtr& params,
                                                          QXDUserMessageHandler handler) {
    return state_->sendUserMessage(channelUrl, params, std::move(handler));
}

// Faults ----------------------------------------------------------------------

void QXDInProcessChatClient::failChannelLookups(QXDErrorPtr error, int count) {
    std::lock_guard lock(state_->mutex);
    state_->lookupError =
        error ? std::move(error) : portError(QXDErrorChannelNotFound, "Channel not found.");
    state_->lookupFailures = std::max(0, count);
}

void QXDInProcessChatClient::failSends(QXDErrorPtr error, int count) {
    std::lock_guard lock(state_->mutex);
    state_->sendError =
        error ? std::move(error) : portError(QXDErrorRequestFailed, "The request failed.");
    state_->sendFailures = std::max(0, count);
}

void QXDInProcessChatClient::setDeliveryDelay(double seconds) {
    std::lock_guard lock(state_->mutex);
    state_->deliveryDelay = seconds > 0 ? seconds : 0;
}

void QXDInProcessChatClient::duplicateDeliveries(int count) {
    std::lock_guard lock(state_->mutex);
    state_->duplicates = std::max(0, count);
}

void QXDInProcessChatClient::holdDeliveries() {
    std::lock_guard lock(state_->mutex);
    state_->holding = true;
}

void QXDInProcessChatClient::releaseHeldDeliveries(bool reversed) {
    // Posted under the lock, so a delivery arriving meanwhile queues behind them.
    std::lock_guard lock(state_->mutex);
    state_->holding = false;
    std::vector<QXDInProcessDelivery> held;
    held.swap(state_->held);
    if (reversed) {
        std::reverse(held.begin(), held.end());
    }
    for (auto& delivery : held) {
        state_->post(std::move(delivery), state_->deliveryDelay);
    }
}

size_t QXDInProcessChatClient::heldDeliveryCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->held.size();
}
