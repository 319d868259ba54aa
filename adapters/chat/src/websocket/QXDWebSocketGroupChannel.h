// A group channel of the WebSocket chat client: a snapshot of the channel as
// the server described it, through which messages are sent. Internal.
#pragma once

#include <memory>
#include <string>

#include "QXDSnapshotGroupChannel.h"
#include "QXDWebSocketClientState.h"

class QXDWebSocketGroupChannel : public QXDSnapshotGroupChannel {
  public:
    QXDWebSocketGroupChannel(std::weak_ptr<QXDWebSocketChatClient::State> client,
                             velmorin::ChannelInfo info)
        : QXDSnapshotGroupChannel(std::move(info)), client_(std::move(client)) {}

    /// Sends through the client that looked the channel up. When that client no
    /// longer exists the handler is called at once with QXDErrorConnectionRequired.
    QXDUserMessagePtr sendUserMessageWithParams(const QXDUserMessageParamsPtr& params,
                                                QXDUserMessageHandler handler) override;

  private:
    std::weak_ptr<QXDWebSocketChatClient::State> client_;
};
