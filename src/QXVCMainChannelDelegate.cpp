// The coordinator's channel delegate: hands call messages to the intake.
#include "QXVCMainChannelDelegate.h"

#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/QXVCMain.h"

void QXVCMainChannelDelegate::channel(const QXDBaseChannelPtr& channel,
                                      const QXDBaseMessagePtr& message) {
    if (!std::dynamic_pointer_cast<QXDGroupChannel>(channel)) {
        return;
    }
    auto userMessage = std::dynamic_pointer_cast<const QXDUserMessage>(message);
    if (!userMessage) {
        return;
    }
    // The custom type is not looked at: any user message whose data reads as a
    // call message is handled.
    auto callMessage = QXVCMessageParser::parseUserMessage(userMessage);
    if (!callMessage) {
        return;
    }
    if (auto main = main_.lock()) {
        main->handleCallMessage(callMessage, userMessage->messageId(), userMessage->channelUrl());
    }
}
