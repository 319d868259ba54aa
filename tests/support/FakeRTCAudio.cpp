#include "support/FakeRTCAudio.h"

namespace {

// Depth of FakeRTCAudioSession calls on this thread: only the outermost call is
// recorded, so setConfiguration does not also log its own setCategory/setMode.
thread_local int tSessionDepth = 0;

struct DepthGuard {
    DepthGuard() { ++tSessionDepth; }
    ~DepthGuard() { --tSessionDepth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
};

std::string overrideName(AVAudioSessionPortOverride value) {
    switch (value) {
        case AVAudioSessionPortOverrideNone:
            return "none";
        case AVAudioSessionPortOverrideSpeaker:
            return "speaker";
    }
    return std::to_string(static_cast<unsigned long>(value));
}

}  // namespace

FakeRTCAudioSession::FakeRTCAudioSession(std::shared_ptr<FakeRTCContext> context)
    : context_(std::move(context)) {}

bool FakeRTCAudioSession::outermost() const {
    return tSessionDepth == 1;
}

bool FakeRTCAudioSession::failIfAsked(QXDErrorPtr* error) const {
    const bool fails = lockedCopy(recordMutex_, fails_);
    if (fails && error != nullptr) {
        *error = QXDError::errorWithDomain(
            "RTCAudioSession", -1, QXDUserInfo{{NSLocalizedDescriptionKey, "Scripted failure."}});
    }
    return fails;
}

void FakeRTCAudioSession::lockForConfiguration() {
    DepthGuard depth;
    RTCAudioSession::lockForConfiguration();
    if (outermost()) {
        context_->record("audioSession.lockForConfiguration()");
    }
}

void FakeRTCAudioSession::unlockForConfiguration() {
    DepthGuard depth;
    if (outermost()) {
        context_->record("audioSession.unlockForConfiguration()");
    }
    RTCAudioSession::unlockForConfiguration();
}

bool FakeRTCAudioSession::change(const std::string& entry, QXDErrorPtr* error,
                                 const std::function<bool()>& apply,
                                 const std::function<void()>& note) {
    DepthGuard depth;
    if (outermost()) {
        context_->record("audioSession." + entry);
        if (note) {
            note();
        }
    }
    return !failIfAsked(error) && apply();
}

bool FakeRTCAudioSession::setActive(bool active, QXDErrorPtr* error) {
    return change(
        "setActive(" + std::to_string(active ? 1 : 0) + ")", error,
        [&] { return RTCAudioSession::setActive(active, error); },
        [&] { lockedAppend(recordMutex_, activeRequests_, active); });
}

bool FakeRTCAudioSession::setCategory(const std::string& category, QXDErrorPtr* error) {
    return change("setCategory(" + category + ")", error,
                  [&] { return RTCAudioSession::setCategory(category, error); });
}

bool FakeRTCAudioSession::setMode(const std::string& mode, QXDErrorPtr* error) {
    return change("setMode(" + mode + ")", error,
                  [&] { return RTCAudioSession::setMode(mode, error); });
}

bool FakeRTCAudioSession::overrideOutputAudioPort(AVAudioSessionPortOverride portOverride,
                                                  QXDErrorPtr* error) {
    return change(
        "overrideOutputAudioPort(" + overrideName(portOverride) + ")", error,
        [&] { return RTCAudioSession::overrideOutputAudioPort(portOverride, error); },
        [&] { lockedAppend(recordMutex_, overrides_, std::pair(portOverride, isLocked())); });
}

bool FakeRTCAudioSession::setConfiguration(const RTCAudioSessionConfigurationPtr& configuration,
                                           bool active, QXDErrorPtr* error) {
    const std::string category = configuration ? configuration->category() : "(null)";
    const std::string mode = configuration ? configuration->mode() : "(null)";
    return change(
        "setConfiguration(" + category + "," + mode + ",active=" + std::to_string(active ? 1 : 0) +
            ")",
        error, [&] { return RTCAudioSession::setConfiguration(configuration, active, error); },
        [&] {
            lockedAppend(recordMutex_, applied_, Applied{category, mode, active, isLocked()});
        });
}

FakeRTCAudioSource::FakeRTCAudioSource(RTCMediaConstraintsPtr constraints,
                                       std::shared_ptr<RTCAudioSession> session)
    : constraints_(std::move(constraints)), session_(std::move(session)) {}

bool FakeRTCAudioSource::isCapturingSound() const {
    return session_ && session_->isActive();
}

FakeRTCAudioTrack::FakeRTCAudioTrack(std::shared_ptr<FakeRTCContext> context, std::string trackId,
                                     std::shared_ptr<FakeRTCAudioSource> source)
    : context_(std::move(context)), trackId_(std::move(trackId)), source_(std::move(source)) {}

void FakeRTCAudioTrack::setIsEnabled(bool enabled) {
    context_->record("audioTrack(" + trackId_ + ").setIsEnabled(" +
                     std::to_string(enabled ? 1 : 0) + ")");
    std::lock_guard lock(mutex_);
    enabled_ = enabled;
    history_.push_back(enabled);
}

bool FakeRTCAudioTrack::isSendingSilence() const {
    return !isEnabled() || !source_ || !source_->isCapturingSound();
}
