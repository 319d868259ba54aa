// QXVCAutoAcceptManager: pairs the refusal of this user's start with the other
// user's start for the same call id.
#include "VelmorinVideoChat/Call/QXVCAutoAcceptManager.h"

#include <utility>
#include <vector>

#include "QXVCMainDelegateFanOut.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace {

template <typename... Args>
void logDebug(std::string_view format, const Args&... args) {
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug, format, args...);
}

/// Accepts `call` with the refused start's options when both sides agree on
/// audio-only; ends it otherwise. Results are not waited for.
void acceptOrEnd(const QXVCCallPtr& call, bool refusedAudioOnly,
                 const QXVCCallOptionsPtr& options) {
    if (refusedAudioOnly == call->isAudioCall()) {
        // The options only: whether the views are in place is the application's
        // to say (viewIsReady), as for any accept.
        call->acceptWithOptions(options, nullptr);
    } else {
        call->endWithCompletionHandler([](const QXDErrorPtr&) {
            logDebug(
                "[QXVC] Call is ended because the caller and callee have differnt call "
                "option.");
        });
    }
}

/// Posts the start handler's call with the refusal, when there is a handler.
void reportRefusal(const QXVCAutoAcceptData::StartCallHandler& handler, const QXDErrorPtr& error) {
    if (handler) {
        QXVCMain::performCompletionHandlerDelegateQueueBlock([handler, error] { handler(error); });
    }
}

}  // namespace

std::shared_ptr<QXVCAutoAcceptManager> QXVCAutoAcceptManager::sharedInstance() {
    // Never destroyed: timers and queued tasks may reach it until exit.
    static const auto* instance =
        new std::shared_ptr<QXVCAutoAcceptManager>(new QXVCAutoAcceptManager());
    return *instance;
}

void QXVCAutoAcceptManager::upsertCall(const QXVCCallPtr& call) {
    if (!call) {
        return;
    }
    logDebug("[QXVC] Upserting a call for the auto-accept.");
    sharedInstance()->upsertCallInternal(call);
}

void QXVCAutoAcceptManager::upsertCallInternal(const QXVCCallPtr& call) {
    const std::string callId = call->callId();
    const std::string channelUrl = call->channelUrl();

    QXVCAutoAcceptDataPtr conflicting;
    QXVCAutoAcceptDataPtr record;
    bool pairWithRefusal = false;
    {
        std::lock_guard lock(mapsMutex_);
        auto inChannel = autoAcceptCallDictByChannelUrl_.find(channelUrl);
        if (inChannel != autoAcceptCallDictByChannelUrl_.end() &&
            inChannel->second->callId() != std::optional<std::string>(callId)) {
            // Another call is recorded for this channel: the record stays under
            // its call id, but the channel forgets it.
            conflicting = inChannel->second;
            autoAcceptCallDictByChannelUrl_.erase(inChannel);
        } else {
            auto& slot = autoAcceptCallDictByCallId_[callId];
            if (!slot) {
                slot = QXVCAutoAcceptData::init();
            }
            record = slot;
            autoAcceptCallDictByChannelUrl_[channelUrl] = record;
            record->setCallId(callId);
            record->setCall(call);
            pairWithRefusal = record->errorReceived() && !record->finished();
        }
    }

    if (conflicting) {
        qxvc::notifyVideoChatDelegates(&QXVCVideoChatDelegate::didReceiveStartCall, call);
        conflicting->invalidateFailTimer();
        conflicting->invalidateStartCallTimer();
        logDebug("[QXVC] Ending the incoming call in the auto-accept.");
        call->endWithCompletionHandler(nullptr);
        if (auto recorded = conflicting->call()) {
            logDebug("[QXVC] Ending the outgoing call in the auto-accept.");
            recorded->endWithCompletionHandler(nullptr);
        }
        return;
    }

    if (!pairWithRefusal) {
        // No refusal yet, or it was already settled alone: wait for one.
        record->runStartCallTimer();
        return;
    }

    // The refusal came first and is still waiting: settle the pair.
    record->invalidateFailTimer();
    call->setOperationMode(QXVCOperationModeAutoAcceptSimultaneousStartCall);
    logDebug("[QXVC] Auto-accept after receiving start call.");
    reportRefusal(record->startCallCompletionHandler(), record->error());

    // Once per delegate that handles incoming starts: tell it, forget the
    // pair, and accept (or end) the call.
    std::weak_ptr<QXVCAutoAcceptManager> weakManager = sharedInstance();
    for (const auto& [identifier, weak] : QXVCMain::getVideoChatDelegates()) {
        auto delegate = weak.lock();
        if (!delegate || !delegate->didReceiveStartCall) {
            continue;
        }
        QXVCMain::performCompletionHandlerDelegateQueueBlock(
            [weak = weak, weakManager, call, record, channelUrl, callId] {
                if (auto live = weak.lock(); live && live->didReceiveStartCall) {
                    qxvc::safeCall("didReceiveStartCall", live->didReceiveStartCall, call);
                }
                if (auto manager = weakManager.lock()) {
                    manager->removeEntries(channelUrl, callId);
                }
                acceptOrEnd(call, record->isAudioCall(), record->options());
            });
    }
}

void QXVCAutoAcceptManager::removeEntries(const std::string& channelUrl,
                                          const std::string& callId) {
    std::lock_guard lock(mapsMutex_);
    autoAcceptCallDictByChannelUrl_.erase(channelUrl);
    autoAcceptCallDictByCallId_.erase(callId);
}

void QXVCAutoAcceptManager::upsertError(const QXDErrorPtr& error, const QXVCCallOptionsPtr& options,
                                        bool audioOnly, const std::string& channelUrl,
                                        QXVCAutoAcceptData::StartCallHandler completionHandler,
                                        const std::string& callId) {
    logDebug("[QXVC] Upserting an error for auto-accept.");
    sharedInstance()->upsertErrorInternal(error, options, audioOnly, channelUrl,
                                          std::move(completionHandler), callId);
}

void QXVCAutoAcceptManager::upsertErrorInternal(
    const QXDErrorPtr& error, const QXVCCallOptionsPtr& options, bool audioOnly,
    const std::string& channelUrl, QXVCAutoAcceptData::StartCallHandler completionHandler,
    const std::string& callId) {
    QXVCAutoAcceptDataPtr record;
    QXVCCallPtr waiting;
    {
        std::lock_guard lock(mapsMutex_);
        auto& slot = autoAcceptCallDictByCallId_[callId];
        if (!slot) {
            slot = QXVCAutoAcceptData::init();
        }
        record = slot;
        record->setCallId(callId);
        record->setErrorReceived(true);
        record->setError(error);
        record->setStartCallCompletionHandler(completionHandler);
        record->setOptions(options);
        record->setIsAudioCall(audioOnly);
        record->setChannelUrl(channelUrl);
        if (!record->finished()) {
            waiting = record->call();
        }
    }

    if (!waiting) {
        // No incoming start yet, or it was already settled alone.
        record->runFailTimer();
        return;
    }

    // The incoming start came first and is still waiting: accept it now. Its
    // own timer keeps running and presents it to the delegates when it fires.
    waiting->setOperationMode(QXVCOperationModeAutoAcceptSimultaneousStartCall);
    logDebug("[QXVC] Auto-accept after receiving error of start call.");
    reportRefusal(completionHandler, error);
    acceptOrEnd(waiting, audioOnly, options);
}

void QXVCAutoAcceptManager::updateAccepted(const QXVCCallPtr& call) {
    if (!call) {
        return;
    }
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mapsMutex_);
    auto found = manager->autoAcceptCallDictByCallId_.find(call->callId());
    if (found != manager->autoAcceptCallDictByCallId_.end()) {
        found->second->setAccepted(true);
    }
}

QXVCAutoAcceptDataPtr QXVCAutoAcceptManager::recordForCallId(const std::string& callId) {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mapsMutex_);
    auto found = manager->autoAcceptCallDictByCallId_.find(callId);
    return found == manager->autoAcceptCallDictByCallId_.end() ? nullptr : found->second;
}

QXVCAutoAcceptDataPtr QXVCAutoAcceptManager::recordForChannelUrl(const std::string& channelUrl) {
    auto manager = sharedInstance();
    std::lock_guard lock(manager->mapsMutex_);
    auto found = manager->autoAcceptCallDictByChannelUrl_.find(channelUrl);
    return found == manager->autoAcceptCallDictByChannelUrl_.end() ? nullptr : found->second;
}

void QXVCAutoAcceptManager::removeAllForTesting() {
    auto manager = sharedInstance();
    std::vector<QXVCAutoAcceptDataPtr> records;
    {
        std::lock_guard lock(manager->mapsMutex_);
        for (auto& [id, record] : manager->autoAcceptCallDictByCallId_) {
            records.push_back(record);
        }
        for (auto& [url, record] : manager->autoAcceptCallDictByChannelUrl_) {
            records.push_back(record);
        }
        manager->autoAcceptCallDictByCallId_.clear();
        manager->autoAcceptCallDictByChannelUrl_.clear();
    }
    for (auto& record : records) {
        record->invalidateFailTimer();
        record->invalidateStartCallTimer();
    }
}
