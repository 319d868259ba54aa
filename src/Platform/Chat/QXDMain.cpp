#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"

#include <map>
#include <mutex>
#include <utility>

#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

const char* const QXDErrorDomain = "QXDErrorDomain";

namespace {

struct Registry {
    std::mutex mutex;
    QXDChatClientPtr client;
    std::map<std::string, std::weak_ptr<QXDChannelDelegate>> delegates;
};

Registry& registry() {
    static Registry* instance = new Registry();  // lives as long as the process
    return *instance;
}

}  // namespace

void QXDMain::setChatClient(QXDChatClientPtr client) {
    auto& r = registry();
    std::map<std::string, std::weak_ptr<QXDChannelDelegate>> delegates;
    QXDChatClientPtr previous;
    {
        std::lock_guard lock(r.mutex);
        previous = std::exchange(r.client, client);
        delegates = r.delegates;
    }
    // The replaced client stops delivering to the port's delegates.
    if (previous && previous != client) {
        for (const auto& entry : delegates) {
            previous->removeChannelDelegate(entry.first);
        }
    }
    if (!client) {
        return;
    }
    for (const auto& [identifier, weak] : delegates) {
        if (auto delegate = weak.lock()) {
            client->addChannelDelegate(delegate, identifier);
        }
    }
}

QXDChatClientPtr QXDMain::chatClient() {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    return r.client;
}

QXDUserPtr QXDMain::getCurrentUser() {
    auto client = chatClient();
    return client ? client->getCurrentUser() : nullptr;
}

void QXDMain::addChannelDelegate(const QXDChannelDelegatePtr& delegate,
                                 const std::string& identifier) {
    auto& r = registry();
    QXDChatClientPtr client;
    {
        std::lock_guard lock(r.mutex);
        r.delegates[identifier] = delegate;
        client = r.client;
    }
    if (client) {
        client->addChannelDelegate(delegate, identifier);
    }
}

void QXDMain::removeChannelDelegate(const std::string& identifier) {
    auto& r = registry();
    QXDChatClientPtr client;
    {
        std::lock_guard lock(r.mutex);
        r.delegates.erase(identifier);
        client = r.client;
    }
    if (client) {
        client->removeChannelDelegate(identifier);
    }
}

void QXDGroupChannel::getChannelWithUrl(const std::string& channelUrl,
                                        QXDGroupChannelHandler handler) {
    auto client = QXDMain::chatClient();
    if (!client) {
        if (handler) {
            qxvc::safeCall(
                "QXDGroupChannel::getChannelWithUrl", handler, nullptr,
                QXDError::errorWithDomain(
                    QXDErrorDomain, QXDErrorConnectionRequired,
                    QXDUserInfo{{NSLocalizedDescriptionKey, "No chat client is installed."}}));
        }
        return;
    }
    client->getGroupChannel(channelUrl, std::move(handler));
}
