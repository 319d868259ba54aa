#include "support/FakeChatClient.h"

QXDUserMessagePtr FakeGroupChannel::sendUserMessageWithParams(const QXDUserMessageParamsPtr& params,
                                                              QXDUserMessageHandler handler) {
    auto pending = std::make_shared<const QXDUserMessage>(
        0, url_, params->message(), params->customType(), params->data(), nullptr);
    auto client = client_.lock();
    if (!client) {
        return pending;
    }
    auto [message, error] = client->store(url_, *params);
    if (handler) {
        handler(message, error);
    }
    return pending;
}

std::shared_ptr<FakeChatClient> FakeChatClient::create(std::optional<std::string> currentUserId) {
    auto client = std::make_shared<FakeChatClient>();
    if (currentUserId) {
        client->currentUser_ = std::make_shared<const QXDUser>(*currentUserId);
    }
    return client;
}

std::shared_ptr<FakeGroupChannel> FakeChatClient::addChannel(const std::string& url) {
    std::lock_guard lock(mutex_);
    auto channel = std::make_shared<FakeGroupChannel>(
        weak_from_this(), url,
        std::vector<QXDUser>{currentUser_ ? *currentUser_ : QXDUser("alice"), QXDUser("bob")});
    channels_[url] = channel;
    return channel;
}

std::vector<std::string> FakeChatClient::delegateIdentifiers() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> identifiers;
    for (const auto& [identifier, weak] : delegates_) {
        if (!weak.expired()) {
            identifiers.push_back(identifier);
        }
    }
    return identifiers;
}

void FakeChatClient::getGroupChannel(const std::string& channelUrl,
                                     QXDGroupChannelHandler handler) {
    QXDGroupChannelPtr channel;
    QXDErrorPtr error;
    {
        std::lock_guard lock(mutex_);
        ++lookups_;
        if (lookupError_) {
            error = lookupError_;
        } else if (auto it = channels_.find(channelUrl); it != channels_.end()) {
            channel = it->second;
        } else {
            error = QXDError::errorWithDomain(
                QXDErrorDomain, QXDErrorChannelNotFound,
                QXDUserInfo{{NSLocalizedDescriptionKey, "Channel not found: " + channelUrl}});
        }
    }
    if (handler) {
        handler(channel, error);
    }
}

void FakeChatClient::addChannelDelegate(const QXDChannelDelegatePtr& delegate,
                                        const std::string& identifier) {
    std::lock_guard lock(mutex_);
    delegates_[identifier] = delegate;
}

std::pair<QXDUserMessagePtr, QXDErrorPtr> FakeChatClient::store(
    const std::string& channelUrl, const QXDUserMessageParams& params) {
    std::lock_guard lock(mutex_);
    sent_.push_back({channelUrl, params.message(), params.customType(), params.data()});
    if (sendError_) {
        return {nullptr, sendError_};
    }
    auto message =
        std::make_shared<const QXDUserMessage>(nextMessageId_++, channelUrl, params.message(),
                                               params.customType(), params.data(), currentUser_);
    return {message, nullptr};
}
