#include "PhoneSimultaneousStart.h"

#include <utility>

#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/QXVCMain.h"

PhoneSimultaneousStart::PhoneSimultaneousStart(std::string channelUrl,
                                               std::shared_ptr<PhoneEventLog> log)
    : channelUrl_(std::move(channelUrl)), log_(std::move(log)) {}

void PhoneSimultaneousStart::channel(const QXDBaseChannelPtr& /*channel*/,
                                     const QXDBaseMessagePtr& message) {
    if (!startUnderWay_) {
        return;
    }
    auto userMessage = std::dynamic_pointer_cast<const QXDUserMessage>(message);
    if (!userMessage || userMessage->channelUrl() != channelUrl_) {
        return;
    }
    auto start = QXVCMessageParser::parseUserMessage(userMessage);
    if (!start || !start->isStart() || !start->callId()) {
        return;
    }
    auto call = QXVCMain::getCallWithCallId(*start->callId());
    if (!call || call->myRole() != QXVCRoleCallee) {
        return;  // our own start coming back, or nothing the library took up
    }
    call->viewIsReady();
    log_->stamped("INFO", "views=ready call=" + call->callId() + " (incoming start meets ours)");
}
