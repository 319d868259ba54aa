// The phone's part in turning two simultaneous starts into one call.
//
// With auto-accept of simultaneous starts on, the library accepts the other
// user's incoming call with the options of this phone's refused start, views
// included, but it leaves declaring those views ready to the application. When
// the refusal comes first, the phone does that in didReceiveStartCall. When the
// other start comes first, the library accepts as soon as the refusal arrives,
// before the phone hears of the call; so while its own start is under way the
// phone watches the chat channel itself and declares the views of an incoming
// start at once: they are the ones it placed for its own start.
//
// This watch must see a message after the library has handled it, and before
// the chat client completes anything that arrived later: it is registered
// under an identifier that sorts after the library's ("<QXVCMain: ...>"; chat
// clients call their delegates in identifier order), and the phone gives its
// chat client one queue for events and completions.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "PhoneEventLog.h"
#include "VelmorinVideoChat/Platform/Chat/QXDChannel.h"

class PhoneSimultaneousStart : public QXDChannelDelegate {
  public:
    static constexpr const char* kIdentifier = "qxvc-phone.simultaneous-start";

    PhoneSimultaneousStart(std::string channelUrl, std::shared_ptr<PhoneEventLog> log);

    /// This phone's start is under way (from placing it until its handler runs).
    void setStartUnderWay(bool underWay) { startUnderWay_ = underWay; }

    void channel(const QXDBaseChannelPtr& channel, const QXDBaseMessagePtr& message) override;

  private:
    const std::string channelUrl_;
    const std::shared_ptr<PhoneEventLog> log_;
    std::atomic<bool> startUnderWay_{false};
};
