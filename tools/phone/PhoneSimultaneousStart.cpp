#include "PhoneSimultaneousStart.h"

#include <utility>

#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypes.h"

namespace {

/// The other call's id as the refusal names it: what follows "CALL_ID:".
std::string refusedForCall(const QXDErrorPtr& error) {
    static constexpr std::string_view kMarker = "CALL_ID:";
    if (!error || error->code() != QXVCErrorAlreadyCallGoingOn) {
        return {};
    }
    const std::string& domain = error->domain();
    const auto at = domain.find(kMarker);
    return at == std::string::npos ? std::string() : domain.substr(at + kMarker.size(), 36);
}

}  // namespace

PhoneSimultaneousStart::PhoneSimultaneousStart(std::string channelUrl,
                                               std::shared_ptr<PhoneEventLog> log)
    : channelUrl_(std::move(channelUrl)), log_(std::move(log)) {}

void PhoneSimultaneousStart::channel(const QXDBaseChannelPtr& /*channel*/,
                                     const QXDBaseMessagePtr& message) {
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

QXVCCallPtr PhoneSimultaneousStart::startRefused(const QXDErrorPtr& error) {
    std::string other = refusedForCall(error);
    if (other.empty()) {
        return nullptr;
    }
    std::lock_guard lock(mutex_);
    auto lone = lone_.lock();
    if (lone && lone->callId() == other) {
        lone_.reset();
        return lone;
    }
    refusedFor_ = std::move(other);
    return nullptr;
}

QXVCCallPtr PhoneSimultaneousStart::loneStart(const QXVCCallPtr& call) {
    if (!call) {
        return nullptr;
    }
    std::lock_guard lock(mutex_);
    if (!refusedFor_.empty() && call->callId() == refusedFor_) {
        refusedFor_.clear();
        return call;
    }
    lone_ = call;
    return nullptr;
}
