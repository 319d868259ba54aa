#include "PhoneController.h"

#include <algorithm>
#include <chrono>

#include "VelmorinVideoChat/Call/QXVCCallOptions.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"

namespace {

std::string messageField(const QXDUserMessagePtr& message) {
    return "message=" + std::to_string(message ? message->messageId() : 0);
}

std::string endFields(const QXVCCallPtr& call) {
    if (!call) {
        return "";
    }
    return "endType=" + NSStringFromEndType(call->endType()) +
           " ender=" + call->enderId().value_or("-");
}

std::string orDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

}  // namespace

std::string phoneLabelFields(const std::string& label) {
    const auto dash = label.find(" - ");
    std::string user = dash == std::string::npos ? "" : label.substr(0, dash);
    std::string camera = dash == std::string::npos ? label : label.substr(dash + 3);
    for (auto* part : {&user, &camera}) {
        std::replace(part->begin(), part->end(), ' ', '_');  // one field each
    }
    return "remoteUser=" + orDash(user) + " remoteCamera=" + orDash(camera);
}

std::shared_ptr<PhoneController> PhoneController::create(PhoneOptions options,
                                                         std::shared_ptr<PhoneEventLog> log) {
    return std::shared_ptr<PhoneController>(
        new PhoneController(std::move(options), std::move(log)));
}

PhoneController::PhoneController(PhoneOptions options, std::shared_ptr<PhoneEventLog> log)
    : options_(std::move(options)), log_(std::move(log)) {}

PhoneController::~PhoneController() {
    shutdown();
}

void PhoneController::install() {
    std::weak_ptr<PhoneController> weak = weak_from_this();
    auto on = [weak](const char* name) {
        return [weak, name](const QXVCCallPtr& call) {
            if (auto self = weak.lock()) {
                self->onEvent(name, call);
            }
        };
    };
    chatDelegate_ = std::make_shared<QXVCVideoChatDelegate>();
    chatDelegate_->didReceiveStartCall = [weak](const QXVCCallPtr& call) {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        self->onEvent("didReceiveStartCall", call);
        if (call && call->operationMode() == QXVCOperationModeAutoAcceptSimultaneousStartCall) {
            // The library accepts this one itself, with the views of our own
            // start, which are in place: say so before its accept runs (it runs
            // right after this when our start's refusal came first).
            call->viewIsReady();
            return;
        }
        bool fromPush = false;
        {
            std::lock_guard lock(self->mutex_);
            fromPush = std::exchange(self->acceptFromPush_, false);
        }
        const bool lateCollision =
            self->simultaneousStart_ && self->simultaneousStart_->loneStart(call);
        if (lateCollision) {
            self->log_->stamped("INFO", "accepting call=" + call->callId() +
                                            " (it came after our start was refused for it)");
        }
        if (self->options_.autoAccept || fromPush || lateCollision) {
            self->accept(call);
        }
    };
    chatDelegate_->didSendStartCall = [weak](const QXVCCallPtr& call,
                                             const QXDUserMessagePtr& message) {
        if (auto self = weak.lock()) {
            if (call) {
                call->viewIsReady();
            }
            self->onEvent("didSendStartCall", call, messageField(message));
        }
    };
    chatDelegate_->didReceiveAcceptCall = on("didReceiveAcceptCall");
    chatDelegate_->didReceiveEndCall = [weak](const QXVCCallPtr& call) {
        if (auto self = weak.lock()) {
            self->callEnded();
            self->onEvent("didReceiveEndCall", call, endFields(call));
        }
    };
    chatDelegate_->didOpponentAudioStateChange = [weak](const QXVCCallPtr& call) {
        if (auto self = weak.lock()) {
            self->onEvent("didOpponentAudioStateChange", call, self->opponentFlags(call));
        }
    };
    chatDelegate_->didOpponentVideoStateChange = [weak](const QXVCCallPtr& call) {
        if (auto self = weak.lock()) {
            self->onEvent("didOpponentVideoStateChange", call, self->opponentFlags(call));
        }
    };
    chatDelegate_->didSendAcceptCall = on("didSendAcceptCall");
    chatDelegate_->didSendEndCall = [weak](const QXVCCallPtr& call,
                                           const QXDUserMessagePtr& message) {
        if (auto self = weak.lock()) {
            self->callEnded();
            self->onEvent("didSendEndCall", call, endFields(call) + " " + messageField(message));
        }
    };
    chatDelegate_->didOpenCall = [weak](const QXVCCallPtr& call) {
        if (auto self = weak.lock()) {
            self->onEvent("didOpenCall", call);
            if (self->options_.window && self->media_.showCall && call) {
                self->media_.showCall(call);
            }
        }
    };
    chatDelegate_->didDropCall = on("didDropCall");
    chatDelegate_->didReopenCall = on("didReopenCall");
    QXVCMain::addVideoChatDelegate(chatDelegate_, "qxvc-phone");

    viewDelegate_ = std::make_shared<QXVCVideoViewDelegate>();
    viewDelegate_->remoteVideoView = [weak](const std::shared_ptr<QXVCRemoteVideoView>&,
                                            CGSize size) {
        if (auto self = weak.lock()) {
            self->log_->event("didChangeVideoSize", self->currentCall(),
                              "width=" + std::to_string(static_cast<long>(size.width)) +
                                  " height=" + std::to_string(static_cast<long>(size.height)));
        }
    };
    QXVCMain::setVideoViewDelegate(viewDelegate_);

    if (options_.autoAcceptSimultaneous) {
        simultaneousStart_ = std::make_shared<PhoneSimultaneousStart>(options_.channel, log_);
        QXDMain::addChannelDelegate(simultaneousStart_, PhoneSimultaneousStart::kIdentifier);
    }

    frameWatch_ = std::thread([this] { watchFrames(); });
}

void PhoneController::callEnded() {
    if (media_.hideCall) {
        media_.hideCall();
    }
}

void PhoneController::shutdown() {
    callEnded();
    stopping_ = true;
    if (frameWatch_.joinable()) {
        frameWatch_.join();
    }
    if (chatDelegate_) {
        QXVCMain::removeVideoChatDelegateWithIdentifier("qxvc-phone");
        QXVCMain::removeVideoViewDelegate();
        chatDelegate_.reset();
    }
    if (simultaneousStart_) {
        QXDMain::removeChannelDelegate(PhoneSimultaneousStart::kIdentifier);
    }
}

QXVCCallPtr PhoneController::currentCall() const {
    std::lock_guard lock(mutex_);
    return current_;
}

void PhoneController::remember(const QXVCCallPtr& call) {
    if (!call) {
        return;
    }
    std::lock_guard lock(mutex_);
    current_ = call;
}

void PhoneController::onEvent(const std::string& name, const QXVCCallPtr& call,
                              const std::string& extra) {
    remember(call);
    log_->event(name, call, extra);
}

std::string PhoneController::opponentFlags(const QXVCCallPtr& call) const {
    if (!call) {
        return "";
    }
    auto opponent = call->myRole() == QXVCRoleCaller ? call->callee() : call->caller();
    if (!opponent) {
        return "audio=- video=-";
    }
    return std::string("audio=") + (opponent->isAudioEnabled() ? "1" : "0") +
           " video=" + (opponent->isVideoEnabled() ? "1" : "0");
}

QXVCCallOptionsPtr PhoneController::makeCallOptions(bool audioOnly) {
    auto options = QXVCCallOptions::initWithChannelUrl(options_.channel);
    auto local = QXVCLocalVideoView::create();
    auto remote = std::make_shared<PhoneRemoteView>(media_.readTag, media_.wallClockMs);
    options->setLocalVideoView(local);
    options->setRemoteVideoView(remote);
    options->setVideoEnabled(!audioOnly);
    options->setResolution(CGSize{640, 480});
    std::lock_guard lock(mutex_);
    localView_ = local;
    remoteView_ = remote;
    currentOptions_ = options;
    return options;
}

void PhoneController::accept(const QXVCCallPtr& call) {
    if (!call) {
        return;
    }
    remember(call);
    auto options = makeCallOptions(call->isAudioCall());
    call->viewIsReady();
    auto log = log_;
    std::weak_ptr<QXVCCall> weakCall = call;
    call->acceptWithOptions(options, [log, weakCall](QXDErrorPtr error) {
        log->completion("acceptCompleted", weakCall.lock(), error);
    });
}

void PhoneController::handlePushPayloads(const std::vector<nlohmann::json>& payloads,
                                         const std::string& source) {
    QXVCCallPtr toAccept;
    for (const auto& payload : payloads) {
        if (options_.pushMode == PhoneOptions::PushMode::Handle) {
            {
                std::lock_guard lock(mutex_);
                acceptFromPush_ = true;
            }
            const bool mine = QXVCMain::handleNotification(payload);
            log_->event("pushHandled", nullptr,
                        "source=" + source + " result=" + (mine ? "1" : "0"));
            continue;
        }
        auto call = QXVCMain::buildCallFromNotification(payload);
        log_->event("pushBuilt", call, "source=" + source + " result=" + (call ? "1" : "0"));
        if (!call) {
            continue;
        }
        remember(call);
        if (call->state() == QXVCStateClosed) {
            if (toAccept && toAccept->callId() == call->callId()) {
                toAccept.reset();
            }
        } else if (call->myRole() == QXVCRoleCallee) {
            toAccept = call;
        }
    }
    if (toAccept) {
        accept(toAccept);
    }
}

void PhoneController::watchFrames() {
    std::shared_ptr<QXVCRemoteVideoView> reported;
    while (!stopping_) {
        std::shared_ptr<QXVCRemoteVideoView> view;
        {
            std::lock_guard lock(mutex_);
            view = remoteView_;
        }
        if (view && view != reported && view->frameCount() > 0) {
            reported = view;
            const auto size = view->videoSize();
            log_->event("firstRemoteFrame", currentCall(),
                        "width=" + std::to_string(static_cast<long>(size.width)) +
                            " height=" + std::to_string(static_cast<long>(size.height)));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}
