// A group channel of the in-process chat client: a snapshot of the channel as
// the service described it, through which messages are sent. Internal.
#pragma once

#include <memory>
#include <string>

#include "QXDInProcessClientState.h"
#include "QXDSnapshotGroupChannel.h"

class QXDInProcessGroupChannel : public QXDSnapshotGroupChannel {
  public:
    QXDInProcessGroupChannel(std::weak_ptr<QXDInProcessChatClient::State> client,
                             velmorin::ChannelInfo info)
        : QXDSnapshotGroupChannel(std::move(info)), client_(std::move(client)) {}

    /// Sends through the client that looked the channel up. When that client no
    /// longer exists the handler is called at once with
    /// QXDErrorConnectionRequired (there is no callback queue left to use).
    QXDUserMessagePtr sendUserMessageWithParams(const QXDUserMessageParamsPtr& params,
                                                QXDUserMessageHandler handler) override;

  private:
    std::weak_ptr<QXDInProcessChatClient::State> client_;
};
