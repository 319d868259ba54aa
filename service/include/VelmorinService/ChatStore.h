// Where a ChatService keeps what it must not lose: stored messages and the
// push payloads waiting for users who are not connected.
//
// The service calls the store with its own mutex held, in the order the
// changes happen, and only reports a send as done after `messageStored`
// succeeded; so a store that writes synchronously loses nothing the service
// acknowledged. Users and channels are not kept here: they come from the
// service's configuration at every start, and restored messages attach to
// their channel when that channel is created.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/Platform/Chat/QXDTypes.h"

namespace velmorin {

class ChatStore {
  public:
    struct Snapshot {
        /// The largest message id ever handed out (0 for a fresh store).
        int64_t lastMessageId = 0;
        /// Stored messages per channel URL, oldest first.
        std::map<std::string, std::vector<QXDUserMessagePtr>> messages;
        /// Pending push payloads per user id, oldest first.
        std::map<std::string, std::vector<nlohmann::json>> pushPayloads;
    };

    virtual ~ChatStore() = default;
    /// Everything kept so far. Called once, when the service is created.
    virtual Snapshot load() = 0;
    /// Keeps a message. False when it could not be kept: the send then fails.
    virtual bool messageStored(const QXDUserMessage& message) = 0;
    /// Keeps a push payload for `userId`, after the ones kept before.
    virtual void pushPayloadKept(const std::string& userId, const nlohmann::json& payload) = 0;
    /// Forgets the oldest push payload of `userId` (the per-user limit).
    virtual void oldestPushPayloadDropped(const std::string& userId) = 0;
    /// Forgets every push payload of `userId` (they were handed over).
    virtual void pushPayloadsTaken(const std::string& userId) = 0;
};
using ChatStorePtr = std::shared_ptr<ChatStore>;

}  // namespace velmorin
