// The protocol side of the WebSocket chat client, on its network thread: login,
// requests and replies, catching up after a reconnection, and the ordered,
// de-duplicated hand-over of channel events.
#include <algorithm>
#include <utility>

#include "QXDWebSocketClientState.h"
#include "QXDWebSocketGroupChannel.h"
#include "VelmorinService/ChatWireCodec.h"
#include "VelmorinService/ChatWireProtocol.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace wire = velmorin::wire;
using nlohmann::json;

namespace {

constexpr double kFirstReconnectDelaySeconds = 0.05;

QXDErrorPtr notConnected(const std::string& detail) {
    return QXDError::errorWithDomain(
        QXDErrorDomain, QXDErrorConnectionRequired,
        QXDUserInfo{{NSLocalizedDescriptionKey, "The chat client is not connected: " + detail}});
}

}  // namespace

void QXDWebSocketChatClient::State::attempt() {
    if (connection) {
        return;
    }
    {
        std::lock_guard lock(mutex);
        if (!wantConnected) {
            return;
        }
    }
    std::weak_ptr<State> weak = weak_from_this();
    auto self = std::make_shared<std::weak_ptr<QXDWebSocketConnection>>();
    QXDWebSocketConnection::Callbacks callbacks;
    callbacks.onOpen = [weak, self] {
        auto state = weak.lock();
        auto from = self->lock();
        if (state && from) {
            state->onOpen(from);
        }
    };
    callbacks.onText = [weak, self](const std::string& text) {
        auto state = weak.lock();
        auto from = self->lock();
        if (state && from) {
            state->onText(from, text);
        }
    };
    callbacks.onClosed = [weak, self](const std::string& reason) {
        auto state = weak.lock();
        auto from = self->lock();
        if (state && from) {
            state->onClosed(from, reason);
        }
    };
    connection = QXDWebSocketConnection::create(io, std::move(callbacks));
    *self = connection;
    connection->open(options.host, options.port, options.connectTimeoutSeconds);
}

void QXDWebSocketChatClient::State::onOpen(const std::shared_ptr<QXDWebSocketConnection>& from) {
    if (from != connection) {
        return;
    }
    std::weak_ptr<State> weak = weak_from_this();
    request(wire::kOpLogin, {{wire::kUserId, options.userId}, {wire::kToken, options.token}},
            [weak](const json& result, QXDErrorPtr error) {
                if (auto state = weak.lock()) {
                    state->onLogin(result, error);
                }
            });
}

void QXDWebSocketChatClient::State::onText(const std::shared_ptr<QXDWebSocketConnection>& from,
                                           const std::string& text) {
    if (from != connection) {
        return;
    }
    const auto frame = qxvc::json::parse(text);
    if (!frame || !frame->is_object()) {
        return;  // not ours to judge; the server only sends objects
    }
    const std::string type = qxvc::json::getString(*frame, wire::kType, "");
    if (type == wire::kTypeReply) {
        const auto id = qxvc::json::getInt64(*frame, wire::kId, 0);
        auto pending = pendingRequests.find(id);
        if (pending == pendingRequests.end()) {
            return;
        }
        Reply reply = std::move(pending->second);
        pendingRequests.erase(pending);
        if (qxvc::json::getBool(*frame, wire::kOk, false)) {
            const auto* result = qxvc::json::objectMember(*frame, wire::kResult);
            reply(result ? *result : json::object(), nullptr);
        } else {
            const auto* error = qxvc::json::objectMember(*frame, wire::kError);
            reply(json::object(), wire::errorFromJson(error ? *error : json()));
        }
        return;
    }
    if (type == wire::kTypeEvent &&
        qxvc::json::getString(*frame, wire::kEvent, "") == wire::kEventMessage) {
        const auto* messageObject = qxvc::json::objectMember(*frame, wire::kMessage);
        const auto* channelObject = qxvc::json::objectMember(*frame, wire::kChannel);
        auto message = messageObject ? wire::messageFromJson(*messageObject) : nullptr;
        auto channel = channelObject ? wire::channelFromJson(*channelObject) : std::nullopt;
        if (!message || !channel) {
            return;
        }
        QXDWebSocketDelivery delivery{std::move(message), std::move(*channel)};
        if (catchUpsOutstanding > 0) {
            heldBack.push_back(std::move(delivery));
        } else {
            deliver(std::move(delivery));
        }
    }
}

void QXDWebSocketChatClient::State::onClosed(const std::shared_ptr<QXDWebSocketConnection>& from,
                                             const std::string& reason) {
    if (from != connection) {
        return;
    }
    connection.reset();
    loggedIn = false;
    ++session;
    // Whatever was held back is fetched again after the next login.
    catchUpsOutstanding = 0;
    heldBack.clear();
    auto pending = std::move(pendingRequests);
    pendingRequests.clear();
    for (auto& entry : pending) {
        entry.second(json::object(), notConnected(reason));
    }
    setConnected(false);
    if (firstLogin) {
        finishFirstLogin(notConnected(reason));
        return;
    }
    bool reconnect = false;
    {
        std::lock_guard lock(mutex);
        reconnect = wantConnected;
    }
    if (reconnect) {
        scheduleReconnect();
    }
}

void QXDWebSocketChatClient::State::onLogin(const json& result, const QXDErrorPtr& error) {
    if (error) {
        if (!connection) {
            return;  // the connection is gone; onClosed took care of it
        }
        finishFirstLogin(error);
        connection->abort();  // reconnects later unless that was connect()'s login
        return;
    }
    loggedIn = true;
    reconnectDelay = 0;
    const auto* user = qxvc::json::objectMember(result, wire::kUser);
    auto currentUserNow =
        std::make_shared<const QXDUser>(user ? wire::userFromJson(*user) : QXDUser(options.userId));
    std::vector<json> payloads;
    if (const auto* list = qxvc::json::member(result, wire::kPushPayloads);
        list && list->is_array()) {
        payloads.assign(list->begin(), list->end());
    }
    // Each payload reaches the application once: through its handler when it
    // set one, else kept for takePushPayloads().
    std::function<void(const json&)> onPayload;
    {
        std::lock_guard lock(mutex);
        currentUser = std::move(currentUserNow);
        onPayload = pushHandler;
        if (!onPayload) {
            pushPayloads.insert(pushPayloads.end(), payloads.begin(), payloads.end());
        }
    }
    if (onPayload) {
        for (auto& payload : payloads) {
            onEventQueue([onPayload, payload = std::move(payload)] {
                qxvc::safeCall("QXDWebSocketChatClient push payload", onPayload, payload);
            });
        }
    }

    // Another history (a server in memory restarted): its ids started over, so
    // what was seen means nothing there. Start as on a first login.
    const std::string loginStoreId = qxvc::json::getString(result, wire::kStoreId, "");
    if (everLoggedIn && loginStoreId != storeId) {
        everLoggedIn = false;
        lastSeen.clear();
        highWater = 0;
    }
    storeId = loginStoreId;

    // Where each channel stands: on the first login that is where delivery
    // starts; after a reconnection everything after what was seen is fetched.
    std::vector<std::pair<std::string, int64_t>> catchUps;
    int64_t newest = highWater;
    if (const auto* channels = qxvc::json::member(result, wire::kChannels);
        channels && channels->is_array()) {
        for (const auto& entry : *channels) {
            const std::string url = qxvc::json::getString(entry, wire::kChannelUrl, "");
            const int64_t last = qxvc::json::getInt64(entry, wire::kLastMessageId, 0);
            if (url.empty()) {
                continue;
            }
            newest = std::max(newest, last);
            if (!everLoggedIn) {
                lastSeen[url] = last;
                continue;
            }
            // A channel not seen before can only hold news after the newest
            // id this client knew of: ids only grow.
            const int64_t after = lastSeen.emplace(url, highWater).first->second;
            if (last > after) {
                catchUps.emplace_back(url, after);
            }
        }
    }
    everLoggedIn = true;
    highWater = newest;
    for (const auto& [url, after] : catchUps) {
        catchUp(url, after);
    }
    setConnected(true);
    finishFirstLogin(nullptr);
}

void QXDWebSocketChatClient::State::catchUp(const std::string& channelUrl, int64_t after) {
    ++catchUpsOutstanding;
    std::weak_ptr<State> weak = weak_from_this();
    const uint64_t forSession = session;
    request(wire::kOpFetch,
            {{wire::kChannelUrl, channelUrl},
             {wire::kAfterMessageId, after},
             {wire::kLimit, wire::kMaxFetchLimit}},
            [weak, forSession, channelUrl, after](const json& result, QXDErrorPtr error) {
                auto state = weak.lock();
                if (!state || state->session != forSession) {
                    return;  // that connection is gone; the next login starts over
                }
                int64_t last = after;
                bool more = false;
                const auto* channelObject = qxvc::json::objectMember(result, wire::kChannel);
                auto channel = channelObject ? wire::channelFromJson(*channelObject) : std::nullopt;
                const auto* messages = qxvc::json::member(result, wire::kMessages);
                if (!error && channel && messages && messages->is_array()) {
                    const std::string me = state->currentUserId();
                    for (const auto& object : *messages) {
                        if (auto message = wire::messageFromJson(object)) {
                            last = std::max(last, message->messageId());
                            // Live delivery never hands users their own
                            // messages; catching up must not either.
                            if (message->sender() && message->sender()->userId() == me) {
                                continue;
                            }
                            state->heldBack.push_back({std::move(message), *channel});
                        }
                    }
                    more = qxvc::json::getBool(result, wire::kHasMore, false) && last > after;
                }
                // A refusal (no longer a member) ends this channel's catching up.
                if (more) {
                    state->catchUp(channelUrl, last);
                }
                if (--state->catchUpsOutstanding == 0) {
                    state->finishCatchUp();
                }
            });
}

void QXDWebSocketChatClient::State::finishCatchUp() {
    auto held = std::move(heldBack);
    heldBack.clear();
    std::stable_sort(held.begin(), held.end(), [](const auto& a, const auto& b) {
        return a.message->messageId() < b.message->messageId();
    });
    for (auto& delivery : held) {
        deliver(std::move(delivery));
    }
}

void QXDWebSocketChatClient::State::deliver(QXDWebSocketDelivery delivery) {
    const int64_t id = delivery.message->messageId();
    auto& seen = lastSeen[delivery.message->channelUrl()];
    if (id <= seen) {
        return;  // delivered already
    }
    seen = id;
    highWater = std::max(highWater, id);
    std::weak_ptr<State> weak = weak_from_this();
    onEventQueue([weak, delivery = std::move(delivery)] {
        auto state = weak.lock();
        if (!state) {
            return;
        }
        std::vector<std::weak_ptr<QXDChannelDelegate>> targets;
        {
            std::lock_guard lock(state->mutex);
            for (const auto& entry : state->delegates) {
                targets.push_back(entry.second);
            }
        }
        QXDBaseChannelPtr channel =
            std::make_shared<QXDWebSocketGroupChannel>(weak, delivery.channel);
        QXDBaseMessagePtr message = delivery.message;
        for (const auto& target : targets) {
            if (auto delegate = target.lock()) {
                qxvc::safeCall("channel:didReceiveMessage:",
                               [&] { delegate->channel(channel, message); });
            }
        }
    });
}

void QXDWebSocketChatClient::State::scheduleReconnect() {
    reconnectDelay = reconnectDelay <= 0
                         ? kFirstReconnectDelaySeconds
                         : std::min(reconnectDelay * 2, options.maxReconnectDelaySeconds);
    reconnectTimer.expires_after(
        std::chrono::milliseconds(static_cast<int64_t>(reconnectDelay * 1000.0)));
    std::weak_ptr<State> weak = weak_from_this();
    reconnectTimer.async_wait([weak](const boost::system::error_code& ec) {
        auto state = weak.lock();
        if (state && !ec) {
            state->attempt();
        }
    });
}

void QXDWebSocketChatClient::State::finishFirstLogin(QXDErrorPtr error) {
    if (!firstLogin) {
        return;
    }
    if (error) {
        std::lock_guard lock(mutex);
        wantConnected = false;
    }
    firstLogin->set_value(std::move(error));
    firstLogin.reset();
}

void QXDWebSocketChatClient::State::request(const std::string& op, json fields, Reply reply) {
    if (!connection || (!loggedIn && op != wire::kOpLogin)) {
        reply(json::object(), notConnected("no connection"));
        return;
    }
    const int64_t id = ++lastRequestId;
    fields[wire::kOp] = op;
    fields[wire::kId] = id;
    pendingRequests.emplace(id, std::move(reply));
    connection->send(wire::dump(fields));
}

void QXDWebSocketChatClient::State::shutDownConnection() {
    reconnectTimer.cancel();
    if (connection) {
        connection->abort();
    }
}
