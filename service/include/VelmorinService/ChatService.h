// The Velmorin chat service: users, group channels, stored user messages, and
// what the service does with call signalling on the way through.
//
// Transport-agnostic: a transport (the in-process chat client, the WebSocket
// server) calls `send`, registers a delivery sink per connected user, and hands
// out the push payloads it keeps for users who are not connected.
//
// Messages
//  - Message ids are signed 64-bit, assigned from one counter for the whole
//    service, and only grow. Messages are stored per channel.
//  - Only members of a channel can look it up, read its messages or send in it.
//    A non-member gets QXDErrorNotAMember; an unknown URL QXDErrorChannelNotFound
//    (both in QXDErrorDomain).
//  - A stored message is delivered to every other member: to each of their
//    connected sinks, or, when a member has none, kept as a push payload for
//    that member to collect (`takePushPayloads`). The sender does not receive
//    its own message through its sink: `send` returns it as stored (the echo).
//
// Call signalling (the data field "STCA"/"ENCA" directly followed by a JSON
// object; the custom type is not looked at):
//  - "STCA": the service gives the call a fresh id (a version 4 UUID, 36
//    characters) and writes into the body "call_id", "caller" and "callee"
//    (user objects {"user_id", "nickname", "profile_url"}; the caller is the
//    sender, the callee the first other member of the channel), "turn_server"
//    (the configured TURN URL) and "credentials" ({"caller": {"username",
//    "password"}, "callee": {...}}, see TurnCredentials.h). The stored,
//    delivered and echoed message all carry the rewritten body. A channel
//    without another member gets no "callee" and no callee credentials.
//  - While a start is under way in a channel, another "STCA" there is refused:
//    nothing is stored or delivered and `send` returns an error with code
//    900600 whose domain is "QXDErrorDomain CALL_ID:" directly followed by the
//    36-character id of the call under way (kStartRefusedDomainPrefix), so the
//    domain text split at "CALL_ID:" gives exactly two pieces, the second being
//    the id. A start is under way from the moment it is stored until the first
//    of: an "ENCA" in that channel carrying its call id, or the end of the
//    start-call window (`startCallWindowSeconds`, 60 s by default: the longest
//    a caller waits for an answer). After that a new start is accepted again.
//  - "ENCA": the service writes "ender" ({"user_id": the sender}) and "period"
//    (milliseconds from the call's start to now; 0 for a call id it does not
//    know) and, for a call it knows, "caller" and "callee" as in the start.
//  - An "STCA"/"ENCA" whose JSON nests deeper than qxvc::json::kMaxDepth is
//    refused: nothing is stored or delivered and `send` returns the wire
//    protocol's "bad_request" error (kWireErrorDomain, kWireBadRequest).
//  - Everything else — other commands ("SGNL"), plain chat messages, data that
//    is not signalling, and "STCA"/"ENCA" whose JSON is malformed or not an
//    object — is stored and relayed unchanged.
//
// Push payload kept for a member who is not connected:
//   {"aps": {"category": "velmorin_mesg", "alert": "<sender nickname>: <text>"},
//    "velmorin": {"custom_type": ..., "channel": {"channel_url": ..., "name": ...
//    (only when the channel has a name)}, "message_id": <int64>, "data": ...,
//    "sender": {"user_id", "nickname", "profile_url"}}}
// At most `maxPushPayloadsPerUser` are kept per user; the oldest go first.
//
// Threads: every operation is thread-safe (one mutex guards the state). Sinks
// are called without that mutex held, one delivery at a time, in message-id
// order per recipient; a sink may call back into the service (a re-entrant
// send is delivered after the current delivery returns). Sinks should return
// quickly (post to their own queue). The service writes no logs, so TURN
// secrets and credentials never reach a log.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VelmorinService/ChatStore.h"
#include "VelmorinService/ServiceClock.h"
#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/Platform/Chat/QXDTypes.h"

namespace velmorin {

/// Domain text of a refused start, followed directly by the id of the call
/// under way: "QXDErrorDomain CALL_ID:<call id>".
inline constexpr const char* kStartRefusedDomainPrefix = "QXDErrorDomain CALL_ID:";
/// Category of every push payload.
inline constexpr const char* kPushCategory = "velmorin_mesg";

struct ServiceSettings {
    /// Written into every start as "turn_server".
    std::string turnServer = "turn:127.0.0.1:3478";
    /// The secret shared with the TURN server. Never logged.
    std::string turnSharedSecret = "velmorin-turn-secret";
    /// How long TURN credentials stay valid from the start of a call.
    int64_t turnCredentialTtlSeconds = 24 * 60 * 60;
    /// How long a start counts as under way when no end arrives.
    double startCallWindowSeconds = 60.0;
    /// Push payloads kept per user before the oldest are dropped; 0 keeps all.
    size_t maxPushPayloadsPerUser = 1000;
};

/// What `createGroupChannel` is given. An empty URL gets a generated one.
struct GroupChannelSpec {
    std::string channelUrl;
    std::string name;
    bool isPublic = false;
    bool isSuper = false;
    std::vector<std::string> memberIds;
};

/// A snapshot of a channel as one of its members sees it.
struct ChannelInfo {
    std::string channelUrl;
    std::string name;
    bool isPublic = false;
    bool isSuper = false;
    std::vector<QXDUser> members;  // in the order they joined
};

/// A message handed to a connected user, with the channel as it stood.
using DeliverySink =
    std::function<void(const QXDUserMessagePtr& message, const ChannelInfo& channel)>;

template <typename T>
struct ServiceResult {
    T value{};
    QXDErrorPtr error;  // nullptr on success
};

class ChatService {
  public:
    /// A service with `settings`; `clock` nullptr means the system clock.
    /// With a `store`, the service starts from what the store kept (message ids
    /// continue after the largest kept one; kept messages join their channel
    /// when it is created) and tells it every message and push payload change.
    static std::shared_ptr<ChatService> create(ServiceSettings settings = {},
                                               ServiceClockPtr clock = nullptr,
                                               ChatStorePtr store = nullptr);
    ~ChatService();
    ChatService(const ChatService&) = delete;
    ChatService& operator=(const ChatService&) = delete;

    const ServiceSettings& settings() const;
    const ServiceClockPtr& clock() const;

    // Users ------------------------------------------------------------------

    /// Adds a user, or updates nickname and profile URL of a known one. An
    /// empty user id is refused (QXDErrorInvalidParameter).
    QXDErrorPtr upsertUser(const QXDUser& user);
    std::optional<QXDUser> user(const std::string& userId) const;

    // Channels ---------------------------------------------------------------

    /// Creates a group channel. Refused: a URL already in use, an unknown
    /// member, a member listed twice.
    ServiceResult<ChannelInfo> createGroupChannel(const GroupChannelSpec& request);
    /// Looks a channel up for `userId`, who must be a member.
    ServiceResult<ChannelInfo> channel(const std::string& userId,
                                       const std::string& channelUrl) const;
    /// URLs of the channels `userId` belongs to, in creation order.
    std::vector<std::string> channelUrlsOfUser(const std::string& userId) const;
    QXDErrorPtr addMember(const std::string& channelUrl, const std::string& userId);
    QXDErrorPtr removeMember(const std::string& channelUrl, const std::string& userId);

    // Messages ---------------------------------------------------------------

    /// Sends a user message from `senderId` in `channelUrl`: stores it (with the
    /// call-signalling rewrite above), delivers it, and returns it as stored.
    ServiceResult<QXDUserMessagePtr> send(const std::string& senderId,
                                          const std::string& channelUrl,
                                          const QXDUserMessageParams& params);
    /// Stored messages of a channel, oldest first, for a member.
    ServiceResult<std::vector<QXDUserMessagePtr>> messages(const std::string& userId,
                                                           const std::string& channelUrl) const;

    // Connections ------------------------------------------------------------

    /// Registers a sink for `userId` (several per user are allowed: devices)
    /// and returns its connection id (> 0), or 0 for an unknown user.
    uint64_t connect(const std::string& userId, DeliverySink sink);
    /// Removes a connection; a sink never runs after its disconnect returned,
    /// except for a delivery already in progress on another thread.
    void disconnect(uint64_t connectionId);
    bool isConnected(const std::string& userId) const;

    /// The push payloads kept for `userId`, oldest first; clears them.
    std::vector<nlohmann::json> takePushPayloads(const std::string& userId);

    /// The id of the start under way in `channelUrl`, if any (for tests and
    /// diagnostics; the start-call window is applied).
    std::optional<std::string> startUnderWay(const std::string& channelUrl) const;

    struct State;

  private:
    ChatService(ServiceSettings settings, ServiceClockPtr clock, ChatStorePtr store);
    void drainDeliveries();
    std::unique_ptr<State> state_;
};
using ChatServicePtr = std::shared_ptr<ChatService>;

}  // namespace velmorin
