// What the service does with call signalling on the way through: the start's
// call id, users and TURN credentials, the refusal of a second start, and the
// enrichment of an end.
#include <algorithm>
#include <string>
#include <string_view>

#include "ChatServiceState.h"
#include "VelmorinService/ChatWireProtocol.h"
#include "VelmorinService/TurnCredentials.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/QXVCTypes.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace velmorin {

namespace {

constexpr size_t kCommandLength = 4;

nlohmann::json credentialsObject(const TurnCredentials& credentials) {
    return {{"username", credentials.username}, {"password", credentials.password}};
}

}  // namespace

nlohmann::json ChatService::State::userObject(const QXDUser& user) const {
    return {{"user_id", user.userId()},
            {"nickname", user.nickname()},
            {"profile_url", user.profileUrl()}};
}

bool ChatService::State::startUnderWay(ChannelRecord& channel, int64_t nowMs) const {
    if (!channel.startCallId) {
        return false;
    }
    const auto windowMs = static_cast<int64_t>(settings.startCallWindowSeconds * 1000.0);
    if (nowMs - channel.startedAtMs >= windowMs) {
        channel.startCallId.reset();
        return false;
    }
    return true;
}

QXDErrorPtr ChatService::State::rewriteSignalling(const std::string& senderId,
                                                  ChannelRecord& channel, std::string& data) {
    if (data.size() < kCommandLength) {
        return nullptr;
    }
    const std::string command = data.substr(0, kCommandLength);
    const bool isStart = command == kQXVCCommandStartCall;
    if (!isStart && command != kQXVCCommandEndCall) {
        return nullptr;
    }
    const std::string_view text = std::string_view(data).substr(kCommandLength);
    auto body = qxvc::json::parse(text);
    if (!body && qxvc::json::nestsTooDeep(text)) {
        // Writing such a body back would recurse once per level.
        return QXDError::errorWithDomain(
            wire::kWireErrorDomain, wire::kWireBadRequest,
            QXDUserInfo{{NSLocalizedDescriptionKey,
                         "bad_request: the signalling JSON nests deeper than " +
                             std::to_string(qxvc::json::kMaxDepth) + " levels"}});
    }
    if (!body || !body->is_object()) {
        return nullptr;  // malformed signalling is relayed as it came
    }
    const int64_t nowMs = clock->nowMilliseconds();
    if (isStart) {
        if (auto error = rewriteStart(senderId, channel, *body, nowMs)) {
            return error;
        }
    } else {
        rewriteEnd(senderId, channel, *body, nowMs);
    }
    data = command + body->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return nullptr;
}

QXDErrorPtr ChatService::State::rewriteStart(const std::string& senderId, ChannelRecord& channel,
                                             nlohmann::json& body, int64_t nowMs) {
    if (startUnderWay(channel, nowMs)) {
        return QXDError::errorWithDomain(
            std::string(kStartRefusedDomainPrefix) + *channel.startCallId,
            static_cast<long>(QXVCErrorAlreadyCallGoingOn),
            QXDUserInfo{{NSLocalizedDescriptionKey,
                         "A start call is already in progress in this channel."}});
    }
    CallRecord call;
    call.channelUrl = channel.info.channelUrl;
    call.startedAtMs = nowMs;
    call.caller = users.at(senderId);
    for (const auto& memberId : channel.memberIds) {
        if (memberId != senderId) {
            call.callee = users.at(memberId);
            break;
        }
    }

    const std::string callId = makeUuidV4();
    const int64_t expiry = nowMs / 1000 + settings.turnCredentialTtlSeconds;
    nlohmann::json credentials = nlohmann::json::object();
    credentials["caller"] = credentialsObject(
        makeTurnCredentials(settings.turnSharedSecret, call.caller.userId(), expiry));
    body["call_id"] = callId;
    body["caller"] = userObject(call.caller);
    if (call.callee) {
        body["callee"] = userObject(*call.callee);
        credentials["callee"] = credentialsObject(
            makeTurnCredentials(settings.turnSharedSecret, call.callee->userId(), expiry));
    }
    body["turn_server"] = settings.turnServer;
    body["credentials"] = std::move(credentials);

    channel.startCallId = callId;
    channel.startedAtMs = nowMs;
    calls[callId] = std::move(call);
    return nullptr;
}

void ChatService::State::rewriteEnd(const std::string& senderId, ChannelRecord& channel,
                                    nlohmann::json& body, int64_t nowMs) {
    body["ender"] = {{"user_id", senderId}};
    int64_t period = 0;
    const auto callId = qxvc::json::getString(body, "call_id");
    if (callId) {
        auto it = calls.find(*callId);
        // A call of another channel stays unknown here: its users are not this
        // channel's business.
        if (it != calls.end() && it->second.channelUrl == channel.info.channelUrl) {
            const CallRecord& call = it->second;
            body["caller"] = userObject(call.caller);
            if (call.callee) {
                body["callee"] = userObject(*call.callee);
            }
            period = std::max<int64_t>(0, nowMs - call.startedAtMs);
        }
        if (channel.startCallId == callId) {
            channel.startCallId.reset();
        }
    }
    body["period"] = period;
}

}  // namespace velmorin
