// The phone's part in turning two simultaneous starts into one call.
//
// With auto-accept of simultaneous starts on, the library accepts the other
// user's incoming call with the options of this phone's refused start, views
// included, but it leaves declaring those views ready to the application. When
// the refusal comes first, the phone does that in didReceiveStartCall. When the
// other start comes first, the library accepts as soon as the refusal arrives,
// before the phone hears of the call; so the phone watches the chat channel
// itself and declares the views of every incoming start at once: they are the
// ones it placed for its own start. The other start may arrive just before
// the phone places its own, and still be paired with its refusal, so the
// watch does not wait for a start of ours to be under way; for a call that
// stays an ordinary incoming call the early declaration changes nothing, as
// the phone declares its views when it accepts anyway.
//
// This watch must see a message after the library has handled it, and before
// the chat client completes anything that arrived later: it is registered
// under an identifier that sorts after the library's ("<QXVCMain: ...>"; chat
// clients call their delegates in identifier order), and the phone gives its
// chat client one queue for events and completions.
//
// The library pairs the refusal and the other start only when the second
// arrives within 0.25 s of the first; otherwise it settles each alone: the
// refusal goes to the start's handler and the other start comes as an
// ordinary incoming call. A user who pressed "call" and is being called by
// the same person expects one call all the same, so the phone pairs such a
// late collision itself and accepts the other call.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "PhoneEventLog.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Platform/Chat/QXDChannel.h"

class PhoneSimultaneousStart : public QXDChannelDelegate {
  public:
    static constexpr const char* kIdentifier = "qxvc-phone.simultaneous-start";

    PhoneSimultaneousStart(std::string channelUrl, std::shared_ptr<PhoneEventLog> log);

    void channel(const QXDBaseChannelPtr& channel, const QXDBaseMessagePtr& message) override;

    /// Our start's handler got `error`. The call to accept when it is the
    /// service's refusal for another call that already came in on its own.
    QXVCCallPtr startRefused(const QXDErrorPtr& error);
    /// An incoming call the library did not pair. The call itself when our
    /// start was already refused for it.
    QXVCCallPtr loneStart(const QXVCCallPtr& call);

  private:
    const std::string channelUrl_;
    const std::shared_ptr<PhoneEventLog> log_;
    std::mutex mutex_;
    std::string refusedFor_;        // the other call our refused start named
    std::weak_ptr<QXVCCall> lone_;  // the last incoming call left unpaired
};
