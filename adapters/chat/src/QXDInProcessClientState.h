// The shared state of an in-process chat client. Internal to the adapter.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "VelmorinChat/QXDInProcessChatClient.h"

struct QXDInProcessDelivery {
    QXDUserMessagePtr message;
    velmorin::ChannelInfo channel;
};

struct QXDInProcessChatClient::State : std::enable_shared_from_this<State> {
    velmorin::ChatServicePtr service;
    std::string userId;
    QXDUserPtr currentUser;
    QXVCDispatchQueuePtr eventQueue;
    QXVCDispatchQueuePtr callbackQueue;

    mutable std::mutex mutex;
    uint64_t connectionId = 0;
    std::map<std::string, std::weak_ptr<QXDChannelDelegate>> delegates;
    // Faults.
    QXDErrorPtr lookupError;
    int lookupFailures = 0;
    QXDErrorPtr sendError;
    int sendFailures = 0;
    double deliveryDelay = 0;
    int duplicates = 0;
    bool holding = false;
    std::vector<QXDInProcessDelivery> held;

    void connect();
    void disconnect();
    void getGroupChannel(const std::string& channelUrl, QXDGroupChannelHandler handler);
    QXDUserMessagePtr sendUserMessage(const std::string& channelUrl,
                                      const QXDUserMessageParamsPtr& params,
                                      QXDUserMessageHandler handler);
    /// From the service, on whatever thread sent the message.
    void onDelivery(const QXDUserMessagePtr& message, const velmorin::ChannelInfo& channel);
    /// Posts one delivery to the event queue, after `delay` seconds.
    void post(QXDInProcessDelivery delivery, double delay);
    /// On the event queue: hands the message to every live delegate.
    void dispatch(const QXDInProcessDelivery& delivery);
    /// Runs `task` on the callback queue.
    void complete(std::function<void()> task);
};
