#include "ChatRequestHandler.h"

#include <algorithm>
#include <utility>

#include "ServerLog.h"
#include "VelmorinService/ChatWireCodec.h"
#include "VelmorinService/ChatWireProtocol.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace velmorin::server {

using namespace velmorin::wire;
using nlohmann::json;

namespace {

/// A request that cannot be served; becomes the error reply.
struct Refusal {
    long code;
    std::string domain;
    std::string message;
};

Refusal wireRefusal(WireErrorCode code, std::string message) {
    return {code, kWireErrorDomain, std::move(message)};
}

json errorReply(const json& id, const Refusal& refusal) {
    return {
        {kType, kTypeReply},
        {kId, id},
        {kOk, false},
        {kError, {{kCode, refusal.code}, {kDomain, refusal.domain}, {kMessage, refusal.message}}}};
}

json okReply(const json& id, json result) {
    return {{kType, kTypeReply}, {kId, id}, {kOk, true}, {kResult, std::move(result)}};
}

/// The string field `key`, or a bad_request refusal.
std::string requiredString(const json& request, const char* key) {
    const auto it = request.find(key);
    if (it == request.end() || !it->is_string()) {
        throw wireRefusal(kWireBadRequest,
                          std::string("bad_request: \"") + key + "\" must be a string");
    }
    return it->get<std::string>();
}

std::string optionalString(const json& request, const char* key) {
    const auto it = request.find(key);
    if (it == request.end() || it->is_null()) {
        return {};
    }
    if (!it->is_string()) {
        throw wireRefusal(kWireBadRequest,
                          std::string("bad_request: \"") + key + "\" must be a string");
    }
    return it->get<std::string>();
}

int64_t integerField(const json& request, const char* key, int64_t fallback, bool required) {
    const auto it = request.find(key);
    if (it == request.end() || it->is_null()) {
        if (required) {
            throw wireRefusal(kWireBadRequest,
                              std::string("bad_request: \"") + key + "\" is required");
        }
        return fallback;
    }
    if (!it->is_number_integer()) {
        throw wireRefusal(kWireBadRequest,
                          std::string("bad_request: \"") + key + "\" must be an integer");
    }
    return it->get<int64_t>();
}

void throwIf(const QXDErrorPtr& error) {
    if (error) {
        throw Refusal{error->code(), error->domain(), error->localizedDescription()};
    }
}

bool sameToken(const std::string& given, const std::string& expected) {
    if (given.size() != expected.size() || expected.empty()) {
        return false;
    }
    // Looks at every byte whatever the first mismatch, so timing tells nothing.
    unsigned char difference = 0;
    for (size_t i = 0; i < given.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i] ^ expected[i]);
    }
    return difference == 0;
}

}  // namespace

ChatRequestHandler::ChatRequestHandler(ChatServicePtr service,
                                       std::shared_ptr<const TokenMap> tokens, std::string storeId,
                                       std::shared_ptr<LoginBackoff> backoff)
    : service_(std::move(service)),
      tokens_(std::move(tokens)),
      storeId_(std::move(storeId)),
      backoff_(std::move(backoff)) {}

ChatRequestHandler::~ChatRequestHandler() {
    if (connectionId_ != 0) {
        service_->disconnect(connectionId_);
        log(LogLevel::Info, "user " + userId_ + " disconnected");
    }
}

std::string ChatRequestHandler::frameTooLarge(size_t bytes) const {
    return dump(errorReply(
        nullptr, wireRefusal(kWireFrameTooLarge, "frame_too_large: " + std::to_string(bytes) +
                                                     " bytes; the limit is " +
                                                     std::to_string(kMaxRequestFrameBytes))));
}

std::string ChatRequestHandler::binaryFrame() const {
    return dump(
        errorReply(nullptr, wireRefusal(kWireBinaryFrame, "binary_frame: send JSON text frames")));
}

std::string ChatRequestHandler::handleText(std::string_view text) {
    replyDelay_ = LoginBackoff::Delay::zero();
    auto parsed = qxvc::json::parse(text);
    if (!parsed && qxvc::json::nestsTooDeep(text)) {
        return dump(errorReply(
            nullptr,
            wireRefusal(kWireBadRequest, "bad_request: JSON nests deeper than " +
                                             std::to_string(qxvc::json::kMaxDepth) + " levels")));
    }
    if (!parsed || !parsed->is_object()) {
        return dump(errorReply(
            nullptr, wireRefusal(kWireMalformedJson, "malformed_json: expected a JSON object")));
    }
    const json& request = *parsed;
    json id = nullptr;
    try {
        const auto idField = request.find(kId);
        if (idField == request.end() || !(idField->is_number() || idField->is_string())) {
            throw wireRefusal(kWireBadRequest, "bad_request: \"id\" must be a number or string");
        }
        id = *idField;
        const std::string op = requiredString(request, kOp);
        return dump(okReply(id, handle(op, request)));
    } catch (const Refusal& refusal) {
        log(LogLevel::Debug, "refused a request of " +
                                 (userId_.empty() ? std::string("a client") : userId_) + ": " +
                                 refusal.message);
        return dump(errorReply(id, refusal));
    } catch (const std::exception& e) {
        log(LogLevel::Error, std::string("request failed: ") + e.what());
        return dump(errorReply(id, {QXDErrorRequestFailed, QXDErrorDomain, "internal error"}));
    }
}

json ChatRequestHandler::handle(const std::string& op, const json& request) {
    if (op == kOpLogin) {
        return login(request);
    }
    const bool known =
        op == kOpGetChannel || op == kOpSend || op == kOpFetch || op == kOpTakePushPayloads;
    if (!known) {
        throw wireRefusal(kWireUnknownOp, "unknown_op: " + op);
    }
    if (connectionId_ == 0) {
        throw wireRefusal(kWireNotLoggedIn, "not_logged_in: log in first");
    }
    if (op == kOpGetChannel) {
        return getChannel(request);
    }
    if (op == kOpSend) {
        return send(request);
    }
    if (op == kOpFetch) {
        return fetch(request);
    }
    return takePushPayloads();
}

json ChatRequestHandler::login(const json& request) {
    if (connectionId_ != 0) {
        throw wireRefusal(kWireAlreadyLoggedIn, "already_logged_in: as " + userId_);
    }
    const std::string userId = requiredString(request, kUserId);
    const std::string token = requiredString(request, kToken);
    const auto account = tokens_->find(userId);
    const auto user = service_->user(userId);
    if (account == tokens_->end() || !user || !sameToken(token, account->second)) {
        log(LogLevel::Warning, "refused a login as \"" + userId + "\" (unknown user or bad token)");
        if (backoff_) {
            ++connectionFailures_;
            replyDelay_ =
                std::max(backoff_->userFailed(userId), backoff_->delayAfter(connectionFailures_));
        }
        throw wireRefusal(kWireUnauthorized, "unauthorized: unknown user or wrong token");
    }
    // Registered before the push payloads are taken: a message sent from now
    // on is delivered as an event, one sent before is among the payloads.
    auto push = push_;
    connectionId_ = service_->connect(
        userId, [push](const QXDUserMessagePtr& message, const ChannelInfo& channel) {
            push(dump({{kType, kTypeEvent},
                       {kEvent, kEventMessage},
                       {kMessage, messageToJson(*message)},
                       {kChannel, channelToJson(channel)}}));
        });
    if (connectionId_ == 0) {
        throw wireRefusal(kWireUnauthorized, "unauthorized: unknown user");
    }
    userId_ = userId;
    json channels = json::array();
    for (const auto& url : service_->channelUrlsOfUser(userId)) {
        const auto stored = service_->messages(userId, url);
        const int64_t last = stored.value.empty() ? 0 : stored.value.back()->messageId();
        channels.push_back({{kChannelUrl, url}, {kLastMessageId, last}});
    }
    log(LogLevel::Info, "user " + userId + " logged in");
    return {{kUser, userToJson(*user)},
            {kStoreId, storeId_},
            {kChannels, std::move(channels)},
            {kPushPayloads, service_->takePushPayloads(userId)}};
}

json ChatRequestHandler::getChannel(const json& request) {
    auto found = service_->channel(userId_, requiredString(request, kChannelUrl));
    throwIf(found.error);
    return {{kChannel, channelToJson(found.value)}};
}

json ChatRequestHandler::send(const json& request) {
    const std::string channelUrl = requiredString(request, kChannelUrl);
    auto message = QXDUserMessageParams::initWithMessage(optionalString(request, kMessage));
    message->setCustomType(optionalString(request, kCustomType));
    message->setData(optionalString(request, kData));
    auto sent = service_->send(userId_, channelUrl, *message);
    throwIf(sent.error);
    log(LogLevel::Debug, "message " + std::to_string(sent.value->messageId()) + " from " + userId_ +
                             " in " + channelUrl);
    return {{kMessage, messageToJson(*sent.value)}};
}

json ChatRequestHandler::fetch(const json& request) {
    const std::string channelUrl = requiredString(request, kChannelUrl);
    const int64_t after = integerField(request, kAfterMessageId, 0, true);
    const int64_t limit = std::clamp<int64_t>(integerField(request, kLimit, kMaxFetchLimit, false),
                                              1, kMaxFetchLimit);
    auto found = service_->channel(userId_, channelUrl);
    throwIf(found.error);
    auto stored = service_->messages(userId_, channelUrl);
    throwIf(stored.error);
    json messages = json::array();
    bool hasMore = false;
    for (const auto& message : stored.value) {
        if (message->messageId() <= after) {
            continue;
        }
        if (static_cast<int64_t>(messages.size()) == limit) {
            hasMore = true;
            break;
        }
        messages.push_back(messageToJson(*message));
    }
    return {{kChannel, channelToJson(found.value)},
            {kMessages, std::move(messages)},
            {kHasMore, hasMore}};
}

json ChatRequestHandler::takePushPayloads() {
    return {{kPushPayloads, service_->takePushPayloads(userId_)}};
}

}  // namespace velmorin::server
