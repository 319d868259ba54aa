// What both chat clients hand out as a group channel: a snapshot of the channel
// as the service described it at lookup. Each client adds how to send through
// it. Internal.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "VelmorinService/ChatService.h"
#include "VelmorinVideoChat/Platform/Chat/QXDChannel.h"

class QXDSnapshotGroupChannel : public QXDGroupChannel {
  public:
    explicit QXDSnapshotGroupChannel(velmorin::ChannelInfo info) : info_(std::move(info)) {}

    std::string channelUrl() const override { return info_.channelUrl; }
    bool isPublic() const override { return info_.isPublic; }
    bool isSuper() const override { return info_.isSuper; }
    long memberCount() const override { return static_cast<long>(info_.members.size()); }
    std::vector<QXDUser> members() const override { return info_.members; }
    std::string name() const override { return info_.name; }

  protected:
    const velmorin::ChannelInfo& info() const { return info_; }

  private:
    velmorin::ChannelInfo info_;
};
