// A group channel of the WebSocket chat client: a snapshot of the channel as
// the server described it, through which messages are sent. Internal.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "QXDWebSocketClientState.h"

class QXDWebSocketGroupChannel : public QXDGroupChannel {
  public:
    QXDWebSocketGroupChannel(std::weak_ptr<QXDWebSocketChatClient::State> client,
                             velmorin::ChannelInfo info)
        : client_(std::move(client)), info_(std::move(info)) {}

    std::string channelUrl() const override { return info_.channelUrl; }
    bool isPublic() const override { return info_.isPublic; }
    bool isSuper() const override { return info_.isSuper; }
    long memberCount() const override { return static_cast<long>(info_.members.size()); }
    std::vector<QXDUser> members() const override { return info_.members; }
    std::string name() const override { return info_.name; }

    /// Sends through the client that looked the channel up. When that client no
    /// longer exists the handler is called at once with QXDErrorConnectionRequired.
    QXDUserMessagePtr sendUserMessageWithParams(const QXDUserMessageParamsPtr& params,
                                                QXDUserMessageHandler handler) override;

  private:
    std::weak_ptr<QXDWebSocketChatClient::State> client_;
    velmorin::ChannelInfo info_;
};
