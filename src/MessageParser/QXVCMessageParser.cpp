#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"

#include <optional>
#include <string_view>

#include "Utils/QXVCUTF8.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace {

constexpr size_t kCommandLength = 4;

struct SplitData {
    std::string_view command;
    std::string_view body;
};

/// The command and the JSON text, or nullopt when `data` is too short.
std::optional<SplitData> split(std::string_view data) {
    const size_t bodyStart = qxvc::utf8::offsetOfCharacter(data, kCommandLength);
    if (bodyStart >= data.size()) {
        return std::nullopt;  // fewer than 5 characters
    }
    return SplitData{data.substr(0, bodyStart), data.substr(bodyStart)};
}

/// The body as a JSON object, or nullopt when it is not valid JSON or not an object.
std::optional<nlohmann::json> parseObject(std::string_view body) {
    auto value = qxvc::json::parse(body);
    if (!value || !value->is_object()) {
        return std::nullopt;
    }
    return value;
}

std::shared_ptr<QXVCCallMessage> dispatch(std::string_view command,
                                          const nlohmann::json* dictionary, int64_t messageId) {
    if (command == kQXVCCommandStartCall) {
        return QXVCStartCallMessage::initWithDictionary(dictionary, messageId);
    }
    if (command == kQXVCCommandEndCall) {
        return QXVCEndCallMessage::initWithDictionary(dictionary, messageId);
    }
    if (command == kQXVCCommandSignalCall) {
        const std::optional<std::string> type =
            dictionary != nullptr ? qxvc::json::getString(*dictionary, "type") : std::nullopt;
        if (type == "candidate") {
            return QXVCCandidateMessage::initWithDictionary(dictionary);
        }
        if (type == "audio" || type == "video") {
            return QXVCMediaStreamUpdateMessage::initWithDictionary(dictionary);
        }
        return QXVCSignalMessage::initWithDictionary(dictionary);
    }
    return nullptr;
}

}  // namespace

std::shared_ptr<QXVCCallMessage> QXVCMessageParser::parseUserMessage(
    const QXDUserMessagePtr& message) {
    if (!message) {
        return nullptr;
    }
    return parseMessageData(message->data(), message->messageId());
}

std::shared_ptr<QXVCCallMessage> QXVCMessageParser::parseMessageData(const std::string& data,
                                                                     int64_t messageId) {
    const auto parts = split(data);
    if (!parts) {
        return nullptr;
    }
    const auto dictionary = parseObject(parts->body);
    return dispatch(parts->command, dictionary ? &*dictionary : nullptr, messageId);
}

std::shared_ptr<QXVCCallMessage> QXVCMessageParser::parsePushNotification(
    const nlohmann::json& payload) {
    const nlohmann::json* section = qxvc::json::objectMember(payload, "velmorin");
    if (section == nullptr) {
        return nullptr;
    }
    const nlohmann::json* messageIdValue = qxvc::json::member(*section, "message_id");
    if (messageIdValue == nullptr) {
        return nullptr;
    }
    const std::optional<int64_t> messageId = qxvc::json::int64Value(*messageIdValue);
    if (!messageId) {
        return nullptr;
    }
    const std::optional<std::string> data = qxvc::json::getString(*section, "data");
    if (!data) {
        return nullptr;
    }
    const auto parts = split(*data);
    if (!parts) {
        return nullptr;
    }
    const auto dictionary = parseObject(parts->body);
    if (!dictionary) {
        return nullptr;
    }
    return dispatch(parts->command, &*dictionary, *messageId);
}
