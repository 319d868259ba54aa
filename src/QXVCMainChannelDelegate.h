// The coordinator's channel delegate: the one object through which the chat
// port delivers channel events to the library.
#pragma once

#include <memory>

#include "VelmorinVideoChat/Platform/Chat/QXDChannel.h"

class QXVCMain;

class QXVCMainChannelDelegate final : public QXDChannelDelegate {
  public:
    explicit QXVCMainChannelDelegate(std::weak_ptr<QXVCMain> main) : main_(std::move(main)) {}

    /// Message intake starts here: a user message in a group channel whose data
    /// reads as a call message goes to QXVCMain::handleCallMessage.
    void channel(const QXDBaseChannelPtr& channel, const QXDBaseMessagePtr& message) override;

  private:
    std::weak_ptr<QXVCMain> main_;
};
