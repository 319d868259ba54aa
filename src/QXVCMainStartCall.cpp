// QXVCMain: placing a call.
//
// The checks run in order (chat user, no call under way, a suitable channel);
// the gate `isCalling` is set before the channel lookup so that a second start
// during the lookup is refused. The call registers only once the service has
// echoed its start with the call id.
#include <utility>

#include "QXVCMainDelegateFanOut.h"
#include "QXVCMainState.h"
#include "VelmorinVideoChat/Call/QXVCAutoAcceptManager.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Call/QXVCCallManager.h"
#include "VelmorinVideoChat/Client/QXVCClient.h"
#include "VelmorinVideoChat/MessageParser/QXVCCallMessage.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/QXVCMain.h"

namespace {

using StartHandler = std::function<void(QXDErrorPtr error)>;

constexpr const char* kCallIdMarker = "CALL_ID:";
constexpr size_t kCallIdLength = 36;

template <typename... Args>
void logDebug(std::string_view format, const Args&... args) {
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, format, args...);
}

/// Posts the handler's call; never calls it inline.
void report(const StartHandler& handler, QXDErrorPtr error) {
    if (handler) {
        QXVCMain::performCompletionHandlerDelegateQueueBlock(
            [handler, error = std::move(error)] { handler(error); });
    }
}

/// The other call's id in a refusal's domain text: the first 36 characters
/// after "CALL_ID:", or all of them when fewer follow. nullopt unless the marker
/// occurs exactly once.
std::optional<std::string> callIdFromRefusal(const std::string& domain) {
    auto first = domain.find(kCallIdMarker);
    if (first == std::string::npos) {
        return std::nullopt;
    }
    auto rest = first + std::char_traits<char>::length(kCallIdMarker);
    if (domain.find(kCallIdMarker, rest) != std::string::npos) {
        return std::nullopt;
    }
    return domain.substr(rest, kCallIdLength);
}

void startCallFailed(const QXVCCallPtr& call, const QXDErrorPtr& error, bool audioOnly,
                     const QXVCCallOptionsPtr& options, const std::string& channelUrl,
                     const StartHandler& handler) {
    call->invalidateStartCallTimer();
    QXVCMain::setCalling(false);
    QXVCMain::setActiveCall(nullptr);

    if (!QXVCMain::getAutoAcceptSimultaneousStartCall()) {
        logDebug("[QXVC] Start call error in manual accept mode: %@", error);
        report(handler, error);
        return;
    }
    if (error && error->code() == QXVCErrorAlreadyCallGoingOn) {
        // The other user's start in this channel won. The auto-accept manager
        // pairs this refusal with that start and owns the handler from here.
        if (auto otherCallId = callIdFromRefusal(error->domain())) {
            QXVCAutoAcceptManager::upsertError(error, options, audioOnly, channelUrl, handler,
                                               *otherCallId);
        }
        // A refusal that does not name the other call leaves the handler
        // uncalled.
        return;
    }
    logDebug("[QXVC] Start call error in auto accept mode: %@", error);
    report(handler, error);
}

void startCallSent(const QXVCCallPtr& call, const QXDUserMessagePtr& sent,
                   const QXVCCallOptionsPtr& options, const StartHandler& handler) {
    auto start =
        std::dynamic_pointer_cast<QXVCStartCallMessage>(QXVCMessageParser::parseUserMessage(sent));
    if (!start) {
        // The service always echoes a start; anything else cannot give the call
        // its id, users or TURN server.
        call->invalidateStartCallTimer();
        QXVCMain::setCalling(false);
        QXVCMain::setActiveCall(nullptr);
        report(handler, QXVCMakeError(QXVCErrorInvalidParameter, QXVCErrorInvalidParameter,
                                      "The echo of the start is not a start-call message."));
        return;
    }
    call->setCallId(start->callId().value_or(""));
    QXVCCallManager::add(call);
    call->setCaller(start->caller() ? start->caller()->copy() : nullptr);
    call->setCallee(start->callee() ? start->callee()->copy() : nullptr);
    bool audio = options ? options->audioEnabled() : true;
    bool video = options ? options->videoEnabled() : true;
    // The callee starts with the caller's choice; its own arrives by signalling.
    call->setCallerAudioEnabled(audio, video);
    call->setCalleeAudioEnabled(audio, video);
    call->addIceServerWithTurnServer(start->turnServer(), start->callerUsername(),
                                     start->callerPassword());
    if (auto main = QXVCMain::sharedInstance()) {
        call->setDelegate(main->getDelegate());
    }
    report(handler, nullptr);
    qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didSendStartCall, call, sent);
}

}  // namespace

void QXVCMain::startCallWithAudioOnly(bool audioOnly, const QXVCCallOptionsPtr& options,
                                      std::function<void(QXDErrorPtr error)> completionHandler) {
    if (!QXDMain::getCurrentUser()) {
        report(completionHandler, QXVCMakeError(QXVCErrorVelmorinConnectionRequired,
                                                QXVCErrorVelmorinConnectionRequired));
        return;
    }
    // Test and set in one step, so two racing starts (or accepts) cannot both pass.
    if (!trySetCalling()) {
        report(completionHandler,
               QXVCMakeError(QXVCErrorInvalidAction, QXVCErrorInvalidAction,
                             "Another call cannot be started while an active call is in "
                             "progress."));
        return;
    }

    // Without options there is no channel URL; the lookup then fails with the
    // chat client's error.
    std::string channelUrl = options ? options->channelUrl().value_or("") : std::string();
    StartHandler handler = std::move(completionHandler);
    QXDGroupChannel::getChannelWithUrl(channelUrl, [audioOnly, options, handler](
                                                       QXDGroupChannelPtr channel,
                                                       QXDErrorPtr error) {
        if (error || !channel) {
            setCalling(false);
            report(handler,
                   error ? error
                         : QXVCMakeError(QXVCErrorUnsuitableChannel, QXVCErrorUnsuitableChannel));
            return;
        }
        if (channel->isPublic() || channel->isSuper() || channel->memberCount() != 2) {
            setCalling(false);
            report(handler, QXVCMakeError(QXVCErrorUnsuitableChannel, QXVCErrorUnsuitableChannel));
            return;
        }
        auto call = QXVCCall::initWithChannelUrl(channel->channelUrl(), audioOnly, QXVCRoleCaller);
        setActiveCall(call);
        call->changeState(QXVCCall::StateTrigger::StartFlowStarted);
        if (auto main = sharedInstance()) {
            call->setDelegate(main->getDelegate());
        }
        logDebug("[QXVC] Start call: %@", call->description());
        call->setOptions(options);
        call->createStartCallTimer();

        std::string url = channel->channelUrl();
        bool audio = options ? options->audioEnabled() : true;
        bool video = options ? options->videoEnabled() : true;
        QXVCClient::sendStartCall(call, audio, video,
                                  [call, audioOnly, options, url, handler](QXDUserMessagePtr sent,
                                                                           QXDErrorPtr sendError) {
                                      if (sendError) {
                                          startCallFailed(call, sendError, audioOnly, options, url,
                                                          handler);
                                      } else {
                                          startCallSent(call, sent, options, handler);
                                      }
                                  });
    });
}
