// Channels of the chat port and the delegate that hears their events.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/Platform/Chat/QXDTypes.h"

class QXDBaseChannel {
  public:
    virtual ~QXDBaseChannel() = default;
    virtual std::string channelUrl() const = 0;
};
using QXDBaseChannelPtr = std::shared_ptr<QXDBaseChannel>;

class QXDGroupChannel;
using QXDGroupChannelPtr = std::shared_ptr<QXDGroupChannel>;
using QXDGroupChannelHandler = std::function<void(QXDGroupChannelPtr, QXDErrorPtr)>;
using QXDUserMessageHandler = std::function<void(QXDUserMessagePtr, QXDErrorPtr)>;

/// A group channel of the chat service.
class QXDGroupChannel : public QXDBaseChannel {
  public:
    virtual bool isPublic() const = 0;
    virtual bool isSuper() const = 0;
    virtual long memberCount() const = 0;
    virtual std::vector<QXDUser> members() const = 0;
    /// The channel's display name ("" when it has none).
    virtual std::string name() const { return {}; }

    /// Sends a user message. Returns at once the pending message (id 0), and
    /// calls `handler` (if any) once, on the chat client's callback thread, with
    /// the message as the service stored it, or an error.
    virtual QXDUserMessagePtr sendUserMessageWithParams(const QXDUserMessageParamsPtr& params,
                                                        QXDUserMessageHandler handler) = 0;

    /// `getChannelWithUrl:completionHandler:`: looks the channel up through the
    /// installed chat client and calls back once with (channel, error). Without
    /// an installed client the handler gets an error.
    static void getChannelWithUrl(const std::string& channelUrl, QXDGroupChannelHandler handler);
};

/// Hears channel events. Held weakly by the chat client.
class QXDChannelDelegate {
  public:
    virtual ~QXDChannelDelegate() = default;
    /// `channel:didReceiveMessage:`. Called on the chat client's event thread,
    /// one event at a time.
    virtual void channel(const QXDBaseChannelPtr& channel, const QXDBaseMessagePtr& message) = 0;
};
using QXDChannelDelegatePtr = std::shared_ptr<QXDChannelDelegate>;
