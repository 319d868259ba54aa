// The service's state, guarded by one mutex. Internal to the service.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VelmorinService/ChatService.h"

namespace velmorin {

struct ChannelRecord {
    ChannelInfo info;  // members filled on demand; memberIds is the truth
    std::vector<std::string> memberIds;
    std::vector<QXDUserMessagePtr> messages;
    std::optional<std::string> startCallId;  // the start under way, if any
    int64_t startedAtMs = 0;
};

struct CallRecord {
    std::string channelUrl;
    QXDUser caller;
    std::optional<QXDUser> callee;
    int64_t startedAtMs = 0;
};

struct PendingDelivery {
    uint64_t connectionId = 0;
    QXDUserMessagePtr message;
    ChannelInfo channel;
};

struct ChatService::State {
    ServiceSettings settings;
    ServiceClockPtr clock;
    ChatStorePtr store;  // nullptr: nothing outlives the service

    mutable std::mutex mutex;
    std::map<std::string, QXDUser> users;
    std::map<std::string, ChannelRecord> channels;
    std::vector<std::string> channelOrder;
    std::map<std::string, CallRecord> calls;
    int64_t lastMessageId = 0;
    uint64_t lastConnectionId = 0;
    std::map<uint64_t, std::pair<std::string, DeliverySink>> connections;
    std::map<std::string, std::deque<nlohmann::json>> pushPayloads;
    std::deque<PendingDelivery> outbox;
    /// Messages restored from the store whose channel does not exist yet.
    std::map<std::string, std::vector<QXDUserMessagePtr>> restoredMessages;
    bool draining = false;

    // All below run with `mutex` held.
    ChannelInfo snapshot(const ChannelRecord& channel) const;
    QXDErrorPtr checkMember(const std::string& userId, const std::string& channelUrl,
                            const ChannelRecord** channel) const;
    bool startUnderWay(ChannelRecord& channel, int64_t nowMs) const;
    /// Rewrites call signalling in `data`. Returns an error for a refused start.
    QXDErrorPtr rewriteSignalling(const std::string& senderId, ChannelRecord& channel,
                                  std::string& data);
    QXDErrorPtr rewriteStart(const std::string& senderId, ChannelRecord& channel,
                             nlohmann::json& body, int64_t nowMs);
    void rewriteEnd(const std::string& senderId, ChannelRecord& channel, nlohmann::json& body,
                    int64_t nowMs);
    nlohmann::json userObject(const QXDUser& user) const;
    void keepPushPayload(const std::string& userId, const QXDUserMessage& message,
                         const ChannelRecord& channel);
};

}  // namespace velmorin
