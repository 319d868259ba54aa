#include "VelmorinService/ChatWireCodec.h"

#include "VelmorinService/ChatWireProtocol.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace velmorin::wire {

namespace json = qxvc::json;

nlohmann::json userToJson(const QXDUser& user) {
    return {
        {kUserId, user.userId()}, {kNickname, user.nickname()}, {kProfileUrl, user.profileUrl()}};
}

QXDUser userFromJson(const nlohmann::json& object) {
    return QXDUser(json::getString(object, kUserId, ""), json::getString(object, kNickname, ""),
                   json::getString(object, kProfileUrl, ""));
}

nlohmann::json channelToJson(const ChannelInfo& channel) {
    nlohmann::json members = nlohmann::json::array();
    for (const auto& member : channel.members) {
        members.push_back(userToJson(member));
    }
    return {{kChannelUrl, channel.channelUrl},
            {kName, channel.name},
            {kIsPublic, channel.isPublic},
            {kIsSuper, channel.isSuper},
            {kMembers, std::move(members)}};
}

std::optional<ChannelInfo> channelFromJson(const nlohmann::json& object) {
    ChannelInfo channel;
    channel.channelUrl = json::getString(object, kChannelUrl, "");
    if (channel.channelUrl.empty()) {
        return std::nullopt;
    }
    channel.name = json::getString(object, kName, "");
    channel.isPublic = json::getBool(object, kIsPublic, false);
    channel.isSuper = json::getBool(object, kIsSuper, false);
    if (const auto* members = json::member(object, kMembers); members && members->is_array()) {
        for (const auto& member : *members) {
            channel.members.push_back(userFromJson(member));
        }
    }
    return channel;
}

nlohmann::json messageToJson(const QXDUserMessage& message) {
    return {{kMessageId, message.messageId()},
            {kChannelUrl, message.channelUrl()},
            {kMessage, message.message()},
            {kCustomType, message.customType()},
            {kData, message.data()},
            {kCreatedAt, message.createdAt()},
            {kSender, message.sender() ? userToJson(*message.sender()) : nlohmann::json::object()}};
}

QXDUserMessagePtr messageFromJson(const nlohmann::json& object) {
    const int64_t id = json::getInt64(object, kMessageId, 0);
    const std::string channelUrl = json::getString(object, kChannelUrl, "");
    if (id <= 0 || channelUrl.empty()) {
        return nullptr;
    }
    QXDUserPtr sender;
    if (const auto* senderObject = json::objectMember(object, kSender)) {
        sender = std::make_shared<const QXDUser>(userFromJson(*senderObject));
    }
    return std::make_shared<const QXDUserMessage>(
        id, channelUrl, json::getString(object, kMessage, ""),
        json::getString(object, kCustomType, ""), json::getString(object, kData, ""),
        std::move(sender), json::getInt64(object, kCreatedAt, 0));
}

nlohmann::json errorToJson(const QXDError& error) {
    return {
        {kCode, error.code()}, {kDomain, error.domain()}, {kMessage, error.localizedDescription()}};
}

QXDErrorPtr errorFromJson(const nlohmann::json& object) {
    const auto domain = json::getString(object, kDomain);
    if (!object.is_object() || !domain) {
        return QXDError::errorWithDomain(
            kWireErrorDomain, kWireBadRequest,
            QXDUserInfo{{NSLocalizedDescriptionKey, "bad_request: an unreadable error reply"}});
    }
    return QXDError::errorWithDomain(
        *domain, static_cast<long>(json::getInt64(object, kCode, 0)),
        QXDUserInfo{{NSLocalizedDescriptionKey, json::getString(object, kMessage, "")}});
}

std::string dump(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace velmorin::wire
