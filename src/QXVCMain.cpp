// QXVCMain: creation of the shared instance, version and settings.
#include "VelmorinVideoChat/QXVCMain.h"

#include "QXVCMainChannelDelegate.h"
#include "QXVCMainState.h"
#include "VelmorinVideoChat/Call/QXVCAutoAcceptManager.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"

namespace {
constexpr const char* kQXVCSDKVersion = "0.9.1";
}  // namespace

QXVCMain::QXVCMain() : state_(std::make_unique<State>()) {}

QXVCMain::~QXVCMain() = default;

std::shared_ptr<QXVCMain> QXVCMain::sharedInstance() {
    // Created once under the language's once-guard for function statics, and
    // never destroyed: threads of the library may still reach it at exit.
    static const std::shared_ptr<QXVCMain>* instance = [] {
        std::shared_ptr<QXVCMain> main(new QXVCMain());
        auto delegate = std::make_shared<QXVCMainChannelDelegate>(main);
        main->state_->channelDelegate = delegate;
        QXDMain::addChannelDelegate(delegate, main->description());
        return new std::shared_ptr<QXVCMain>(std::move(main));
    }();
    return *instance;
}

QXVCMain::State& QXVCMain::state() {
    return *sharedInstance()->state_;
}

std::string QXVCMain::description() const {
    return qxvc::format("<QXVCMain: %p>", static_cast<const void*>(this));
}

std::string QXVCMain::getSDKVersion() {
    return kQXVCSDKVersion;
}

void QXVCMain::setStartCallTimeout(long seconds) {
    if (seconds >= State::kMinStartCallTimeout && seconds <= State::kMaxStartCallTimeout) {
        state().startCallTimeout.store(seconds);
    }
}

long QXVCMain::getStartCallTimeout() {
    long timeout = state().startCallTimeout.load();
    logWithLevel(QXVCInternalLogLevelDebug, "[QXVC] Start call: %d", timeout);
    return timeout;
}

void QXVCMain::setAutoAcceptSimultaneousStartCall(bool enabled) {
    state().autoAcceptSimultaneousStartCall.store(enabled);
}

bool QXVCMain::getAutoAcceptSimultaneousStartCall() {
    return state().autoAcceptSimultaneousStartCall.load();
}

void QXVCMain::resetForTesting() {
    State& s = state();
    s.isCalling.store(false);
    s.autoAcceptSimultaneousStartCall.store(false);
    s.startCallTimeout.store(State::kDefaultStartCallTimeout);
    s.logLevel.store(0);
    {
        std::lock_guard lock(s.logSinkMutex);
        s.logSink.reset();
    }
    {
        std::unique_lock lock(s.videoChatDelegatesMutex);
        s.videoChatDelegates.clear();
    }
    {
        std::unique_lock lock(s.videoViewDelegateMutex);
        s.videoViewDelegate.reset();
    }
    {
        std::lock_guard lock(s.completionQueueMutex);
        s.completionHandlerAndDelegatesQueue.reset();
    }
    s.processedMessageIds.clear();
    QXVCAutoAcceptManager::removeAllForTesting();
    QXVCCallPtr previous;
    {
        std::lock_guard lock(s.activeCallMutex);
        previous = std::move(s.activeCall);
        s.activeCall.reset();
    }
}
