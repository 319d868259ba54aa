// QXVCMain: push payloads and call lookup.
//
// handleNotification feeds a push into the same intake as chat messages.
// buildCallFromNotification gives the application a call at once (to show an
// incoming call screen before the chat connection has caught up); unlike the
// intake it tells no delegate, sets no call delegate, ignores auto-accept and
// picks the TURN credentials by the callee's identity.
#include "QXVCMainState.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Call/QXVCCallManager.h"
#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace {

using qxvc::json::member;

constexpr const char* kPushCategory = "velmorin_mesg";

/// The "velmorin" section's custom type, when it is present and has the
/// library's prefix.
bool hasCallCustomType(const nlohmann::json& velmorin) {
    const auto* customType = member(velmorin, "custom_type");
    if (!customType) {
        return false;
    }
    auto text = qxvc::json::stringValue(*customType);
    return text && text->rfind(kQXVCCustomTypePrefix, 0) == 0;
}

std::optional<int64_t> messageIdOf(const nlohmann::json& velmorin) {
    const auto* id = member(velmorin, "message_id");
    return id ? qxvc::json::int64Value(*id) : std::nullopt;
}

}  // namespace

bool QXVCMain::handleNotification(const nlohmann::json& payload) {
    const auto* velmorin = member(payload, "velmorin");
    if (!velmorin || !hasCallCustomType(*velmorin)) {
        return false;
    }
    // From here the payload is the library's, whatever comes of it.
    auto messageId = messageIdOf(*velmorin);
    if (!messageId) {
        return true;
    }
    const auto* channel = member(*velmorin, "channel");
    const auto* channelUrl = channel ? member(*channel, "channel_url") : nullptr;
    auto url = channelUrl ? qxvc::json::stringValue(*channelUrl) : std::nullopt;
    if (!url) {
        return true;
    }
    if (auto message = QXVCMessageParser::parsePushNotification(payload)) {
        sharedInstance()->handleCallMessage(message, *messageId, *url);
    }
    return true;
}

QXVCCallPtr QXVCMain::buildCallFromNotification(const nlohmann::json& payload) {
    const auto* aps = member(payload, "aps");
    const auto* category = aps ? member(*aps, "category") : nullptr;
    auto categoryText = category ? qxvc::json::stringValue(*category) : std::nullopt;
    if (categoryText != kPushCategory) {
        return nullptr;
    }
    const auto* velmorin = member(payload, "velmorin");
    if (!velmorin || !hasCallCustomType(*velmorin)) {
        return nullptr;
    }
    const auto* channel = member(*velmorin, "channel");
    if (!channel) {
        return nullptr;
    }
    std::string channelUrl = qxvc::json::getString(*channel, "channel_url", "");
    const auto* data = member(*velmorin, "data");
    auto dataText = data ? qxvc::json::stringValue(*data) : std::nullopt;
    auto messageId = messageIdOf(*velmorin);
    if (!dataText || !messageId) {
        return nullptr;
    }
    auto message = QXVCMessageParser::parseMessageData(*dataText, *messageId);
    if (!message || isProcessedMessage(*messageId)) {
        return nullptr;
    }

    if (message->isStart()) {
        if (auto known = QXVCCallManager::get<QXVCCall>(message->callId().value_or(""))) {
            return known;
        }
        auto start = std::dynamic_pointer_cast<QXVCStartCallMessage>(message);
        auto call = QXVCCall::initWithStartCallMessage(start, channelUrl);
        if (!call) {
            return nullptr;
        }
        call->setAudioCall(start->isAudioCall());
        call->setMyRole(QXVCRoleCallee);
        call->changeState(QXVCCall::StateTrigger::IncomingStart);
        auto user = QXDMain::getCurrentUser();
        bool iAmCallee = start->callee() && user && start->callee()->userId() == user->userId();
        call->addIceServerWithTurnServer(
            start->turnServer(), iAmCallee ? start->calleeUsername() : start->callerUsername(),
            iAmCallee ? start->calleePassword() : start->callerPassword());
        QXVCCallManager::add(call);
        return call;
    }
    if (message->isEnd()) {
        auto known = QXVCCallManager::get<QXVCCall>(message->callId().value_or(""));
        if (known) {
            known->changeState(QXVCCall::StateTrigger::PushedEnd);
        }
        return known;
    }
    return nullptr;
}

QXVCCallPtr QXVCMain::buildCallFromUserMessage(const QXDUserMessagePtr& message) {
    auto callMessage = QXVCMessageParser::parseUserMessage(message);
    if (!callMessage || !message) {
        return nullptr;
    }
    auto known = QXVCCallManager::get<QXVCCall>(callMessage->callId().value_or(""));
    if (callMessage->isStart()) {
        return known ? known
                     : QXVCCall::initWithStartCallMessage(
                           std::dynamic_pointer_cast<QXVCStartCallMessage>(callMessage),
                           message->channelUrl());
    }
    if (callMessage->isEnd()) {
        return known ? known
                     : QXVCCall::initWithEndCallMessage(
                           std::dynamic_pointer_cast<QXVCEndCallMessage>(callMessage),
                           message->channelUrl());
    }
    return nullptr;
}

QXVCCallPtr QXVCMain::getCallWithCallId(const std::string& callId) {
    return QXVCCallManager::get<QXVCCall>(callId);
}
