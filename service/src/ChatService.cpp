#include "VelmorinService/ChatService.h"

#include <algorithm>
#include <set>
#include <utility>

#include "ChatServiceState.h"
#include "VelmorinService/TurnCredentials.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace velmorin {

namespace {

QXDErrorPtr makeError(long code, const std::string& description) {
    return QXDError::errorWithDomain(QXDErrorDomain, code,
                                     QXDUserInfo{{NSLocalizedDescriptionKey, description}});
}

}  // namespace

// State helpers ---------------------------------------------------------------

ChannelInfo ChatService::State::snapshot(const ChannelRecord& channel) const {
    ChannelInfo info = channel.info;
    info.members.clear();
    for (const auto& id : channel.memberIds) {
        auto it = users.find(id);
        info.members.push_back(it != users.end() ? it->second : QXDUser(id));
    }
    return info;
}

QXDErrorPtr ChatService::State::checkMember(const std::string& userId,
                                            const std::string& channelUrl,
                                            const ChannelRecord** channel) const {
    auto it = channels.find(channelUrl);
    if (it == channels.end()) {
        return makeError(QXDErrorChannelNotFound, "Channel not found.");
    }
    const auto& ids = it->second.memberIds;
    if (std::find(ids.begin(), ids.end(), userId) == ids.end()) {
        return makeError(QXDErrorNotAMember, "Not a member of the channel.");
    }
    if (channel) {
        *channel = &it->second;
    }
    return nullptr;
}

// Life ------------------------------------------------------------------------

std::shared_ptr<ChatService> ChatService::create(ServiceSettings settings, ServiceClockPtr clock,
                                                 ChatStorePtr store) {
    return std::shared_ptr<ChatService>(
        new ChatService(std::move(settings), std::move(clock), std::move(store)));
}

ChatService::ChatService(ServiceSettings settings, ServiceClockPtr clock, ChatStorePtr store)
    : state_(std::make_unique<State>()) {
    state_->settings = std::move(settings);
    state_->clock = clock ? std::move(clock) : ServiceClock::system();
    state_->store = std::move(store);
    if (state_->store) {
        auto kept = state_->store->load();
        state_->lastMessageId = kept.lastMessageId;
        state_->restoredMessages = std::move(kept.messages);
        for (auto& [userId, payloads] : kept.pushPayloads) {
            state_->pushPayloads[userId].assign(std::make_move_iterator(payloads.begin()),
                                                std::make_move_iterator(payloads.end()));
        }
    }
}

ChatService::~ChatService() = default;

const ServiceSettings& ChatService::settings() const {
    return state_->settings;
}

const ServiceClockPtr& ChatService::clock() const {
    return state_->clock;
}

// Users -----------------------------------------------------------------------

QXDErrorPtr ChatService::upsertUser(const QXDUser& user) {
    if (user.userId().empty()) {
        return makeError(QXDErrorInvalidParameter, "A user needs an id.");
    }
    std::lock_guard lock(state_->mutex);
    state_->users.insert_or_assign(user.userId(), user);
    return nullptr;
}

std::optional<QXDUser> ChatService::user(const std::string& userId) const {
    std::lock_guard lock(state_->mutex);
    auto it = state_->users.find(userId);
    if (it == state_->users.end()) {
        return std::nullopt;
    }
    return it->second;
}

// Channels --------------------------------------------------------------------

ServiceResult<ChannelInfo> ChatService::createGroupChannel(const GroupChannelSpec& request) {
    std::lock_guard lock(state_->mutex);
    std::string url = request.channelUrl;
    if (url.empty()) {
        do {
            url = "velmorin_group_channel_" + makeUuidV4();
        } while (state_->channels.count(url) != 0);
    } else if (state_->channels.count(url) != 0) {
        return {{}, makeError(QXDErrorInvalidParameter, "The channel URL is already in use.")};
    }
    std::set<std::string> seen;
    for (const auto& id : request.memberIds) {
        if (state_->users.count(id) == 0) {
            return {{}, makeError(QXDErrorUserNotFound, "Unknown user: " + id)};
        }
        if (!seen.insert(id).second) {
            return {{}, makeError(QXDErrorInvalidParameter, "A member is listed twice: " + id)};
        }
    }
    ChannelRecord record;
    record.info.channelUrl = url;
    record.info.name = request.name;
    record.info.isPublic = request.isPublic;
    record.info.isSuper = request.isSuper;
    record.memberIds = request.memberIds;
    if (auto restored = state_->restoredMessages.find(url);
        restored != state_->restoredMessages.end()) {
        record.messages = std::move(restored->second);
        state_->restoredMessages.erase(restored);
    }
    auto& stored = state_->channels[url] = std::move(record);
    state_->channelOrder.push_back(url);
    return {state_->snapshot(stored), nullptr};
}

ServiceResult<ChannelInfo> ChatService::channel(const std::string& userId,
                                                const std::string& channelUrl) const {
    std::lock_guard lock(state_->mutex);
    const ChannelRecord* record = nullptr;
    if (auto error = state_->checkMember(userId, channelUrl, &record)) {
        return {{}, error};
    }
    return {state_->snapshot(*record), nullptr};
}

std::vector<std::string> ChatService::channelUrlsOfUser(const std::string& userId) const {
    std::lock_guard lock(state_->mutex);
    std::vector<std::string> urls;
    for (const auto& url : state_->channelOrder) {
        const auto& ids = state_->channels.at(url).memberIds;
        if (std::find(ids.begin(), ids.end(), userId) != ids.end()) {
            urls.push_back(url);
        }
    }
    return urls;
}

QXDErrorPtr ChatService::addMember(const std::string& channelUrl, const std::string& userId) {
    std::lock_guard lock(state_->mutex);
    auto it = state_->channels.find(channelUrl);
    if (it == state_->channels.end()) {
        return makeError(QXDErrorChannelNotFound, "Channel not found.");
    }
    if (state_->users.count(userId) == 0) {
        return makeError(QXDErrorUserNotFound, "Unknown user: " + userId);
    }
    auto& ids = it->second.memberIds;
    if (std::find(ids.begin(), ids.end(), userId) == ids.end()) {
        ids.push_back(userId);
    }
    return nullptr;
}

QXDErrorPtr ChatService::removeMember(const std::string& channelUrl, const std::string& userId) {
    std::lock_guard lock(state_->mutex);
    auto it = state_->channels.find(channelUrl);
    if (it == state_->channels.end()) {
        return makeError(QXDErrorChannelNotFound, "Channel not found.");
    }
    auto& ids = it->second.memberIds;
    auto member = std::find(ids.begin(), ids.end(), userId);
    if (member == ids.end()) {
        return makeError(QXDErrorNotAMember, "Not a member of the channel.");
    }
    ids.erase(member);
    return nullptr;
}

// Messages --------------------------------------------------------------------

ServiceResult<QXDUserMessagePtr> ChatService::send(const std::string& senderId,
                                                   const std::string& channelUrl,
                                                   const QXDUserMessageParams& params) {
    QXDUserMessagePtr stored;
    {
        std::lock_guard lock(state_->mutex);
        const ChannelRecord* found = nullptr;
        if (auto error = state_->checkMember(senderId, channelUrl, &found)) {
            return {nullptr, error};
        }
        auto& channel = state_->channels.at(channelUrl);
        std::string data = params.data();
        if (auto error = state_->rewriteSignalling(senderId, channel, data)) {
            return {nullptr, error};
        }
        const auto sender = std::make_shared<const QXDUser>(state_->users.at(senderId));
        stored = std::make_shared<const QXDUserMessage>(
            ++state_->lastMessageId, channelUrl, params.message(), params.customType(),
            std::move(data), sender, state_->clock->nowMilliseconds());
        if (state_->store && !state_->store->messageStored(*stored)) {
            return {nullptr, makeError(QXDErrorRequestFailed, "The message could not be stored.")};
        }
        channel.messages.push_back(stored);

        const ChannelInfo info = state_->snapshot(channel);
        for (const auto& memberId : channel.memberIds) {
            if (memberId == senderId) {
                continue;
            }
            bool connected = false;
            for (const auto& [connectionId, connection] : state_->connections) {
                if (connection.first == memberId) {
                    state_->outbox.push_back({connectionId, stored, info});
                    connected = true;
                }
            }
            if (!connected) {
                state_->keepPushPayload(memberId, *stored, channel);
            }
        }
    }
    drainDeliveries();
    return {stored, nullptr};
}

ServiceResult<std::vector<QXDUserMessagePtr>> ChatService::messages(
    const std::string& userId, const std::string& channelUrl) const {
    std::lock_guard lock(state_->mutex);
    const ChannelRecord* record = nullptr;
    if (auto error = state_->checkMember(userId, channelUrl, &record)) {
        return {{}, error};
    }
    return {record->messages, nullptr};
}

// Connections -----------------------------------------------------------------

uint64_t ChatService::connect(const std::string& userId, DeliverySink sink) {
    std::lock_guard lock(state_->mutex);
    if (state_->users.count(userId) == 0 || !sink) {
        return 0;
    }
    const uint64_t id = ++state_->lastConnectionId;
    state_->connections.emplace(id, std::make_pair(userId, std::move(sink)));
    return id;
}

void ChatService::disconnect(uint64_t connectionId) {
    DeliverySink released;  // destroyed outside the lock
    std::lock_guard lock(state_->mutex);
    auto it = state_->connections.find(connectionId);
    if (it != state_->connections.end()) {
        released = std::move(it->second.second);
        state_->connections.erase(it);
    }
}

bool ChatService::isConnected(const std::string& userId) const {
    std::lock_guard lock(state_->mutex);
    return std::any_of(state_->connections.begin(), state_->connections.end(),
                       [&](const auto& entry) { return entry.second.first == userId; });
}

std::vector<nlohmann::json> ChatService::takePushPayloads(const std::string& userId) {
    std::lock_guard lock(state_->mutex);
    auto it = state_->pushPayloads.find(userId);
    if (it == state_->pushPayloads.end()) {
        return {};
    }
    std::vector<nlohmann::json> taken(std::make_move_iterator(it->second.begin()),
                                      std::make_move_iterator(it->second.end()));
    state_->pushPayloads.erase(it);
    if (state_->store) {
        state_->store->pushPayloadsTaken(userId);
    }
    return taken;
}

std::optional<std::string> ChatService::startUnderWay(const std::string& channelUrl) const {
    std::lock_guard lock(state_->mutex);
    auto it = state_->channels.find(channelUrl);
    if (it == state_->channels.end()) {
        return std::nullopt;
    }
    if (!state_->startUnderWay(it->second, state_->clock->nowMilliseconds())) {
        return std::nullopt;
    }
    return it->second.startCallId;
}

// Delivery --------------------------------------------------------------------

void ChatService::drainDeliveries() {
    {
        std::lock_guard lock(state_->mutex);
        if (state_->draining) {
            return;  // the thread already draining delivers ours too, in order
        }
        state_->draining = true;
    }
    for (;;) {
        PendingDelivery delivery;
        DeliverySink sink;
        {
            std::lock_guard lock(state_->mutex);
            if (state_->outbox.empty()) {
                state_->draining = false;
                return;
            }
            delivery = std::move(state_->outbox.front());
            state_->outbox.pop_front();
            auto it = state_->connections.find(delivery.connectionId);
            if (it == state_->connections.end()) {
                continue;  // disconnected meanwhile
            }
            sink = it->second.second;
        }
        qxvc::safeCall("velmorin service delivery", sink, delivery.message, delivery.channel);
    }
}

}  // namespace velmorin
