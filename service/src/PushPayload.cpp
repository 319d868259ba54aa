// The push payload the service keeps for a member who is not connected.
#include "ChatServiceState.h"

namespace velmorin {

void ChatService::State::keepPushPayload(const std::string& userId, const QXDUserMessage& message,
                                         const ChannelRecord& channel) {
    nlohmann::json sender = nlohmann::json::object();
    std::string senderName;
    if (message.sender()) {
        sender = userObject(*message.sender());
        senderName = message.sender()->nickname().empty() ? message.sender()->userId()
                                                          : message.sender()->nickname();
    }
    nlohmann::json channelObject = {{"channel_url", channel.info.channelUrl}};
    if (!channel.info.name.empty()) {
        channelObject["name"] = channel.info.name;
    }
    nlohmann::json payload = {
        {"aps", {{"category", kPushCategory}, {"alert", senderName + ": " + message.message()}}},
        {"velmorin",
         {{"custom_type", message.customType()},
          {"channel", std::move(channelObject)},
          {"message_id", message.messageId()},
          {"data", message.data()},
          {"sender", std::move(sender)}}}};

    if (store) {
        store->pushPayloadKept(userId, payload);
    }
    auto& kept = pushPayloads[userId];
    kept.push_back(std::move(payload));
    while (settings.maxPushPayloadsPerUser > 0 && kept.size() > settings.maxPushPayloadsPerUser) {
        kept.pop_front();
        if (store) {
            store->oldestPushPayloadDropped(userId);
        }
    }
}

}  // namespace velmorin
