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

bool FakeRTCAudioSession::setActive(bool active, QXDErrorPtr* error) {
    DepthGuard depth;
    if (outermost()) {
        context_->record("audioSession.setActive(" + std::to_string(active ? 1 : 0) + ")");
        std::lock_guard lock(recordMutex_);
        activeRequests_.push_back(active);
    }
    if (failIfAsked(error)) {
        return false;
    }
    return RTCAudioSession::setActive(active, error);
}

bool FakeRTCAudioSession::setCategory(const std::string& category, QXDErrorPtr* error) {
    DepthGuard depth;
    if (outermost()) {
        context_->record("audioSession.setCategory(" + category + ")");
    }
    if (failIfAsked(error)) {
        return false;
    }
    return RTCAudioSession::setCategory(category, error);
}

bool FakeRTCAudioSession::setMode(const std::string& mode, QXDErrorPtr* error) {
    DepthGuard depth;
    if (outermost()) {
        context_->record("audioSession.setMode(" + mode + ")");
    }
    if (failIfAsked(error)) {
        return false;
    }
    return RTCAudioSession::setMode(mode, error);
}

bool FakeRTCAudioSession::overrideOutputAudioPort(AVAudioSessionPortOverride portOverride,
                                                  QXDErrorPtr* error) {
    DepthGuard depth;
    if (outermost()) {
        context_->record("audioSession.overrideOutputAudioPort(" + overrideName(portOverride) +
                         ")");
        const bool locked = isLocked();
        std::lock_guard lock(recordMutex_);
        overrides_.emplace_back(portOverride, locked);
    }
    if (failIfAsked(error)) {
        return false;
    }
    return RTCAudioSession::overrideOutputAudioPort(portOverride, error);
}

bool FakeRTCAudioSession::setConfiguration(const RTCAudioSessionConfigurationPtr& configuration,
                                           bool active, QXDErrorPtr* error) {
    DepthGuard depth;
    if (outermost()) {
        const std::string category = configuration ? configuration->category() : "(null)";
        const std::string mode = configuration ? configuration->mode() : "(null)";
        context_->record("audioSession.setConfiguration(" + category + "," + mode +
                         ",active=" + std::to_string(active ? 1 : 0) + ")");
        const bool locked = isLocked();
        std::lock_guard lock(recordMutex_);
        applied_.push_back(Applied{category, mode, active, locked});
    }
    if (failIfAsked(error)) {
        return false;
    }
    return RTCAudioSession::setConfiguration(configuration, active, error);
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
    lockedSet(mutex_, enabled_, enabled);
}

bool FakeRTCAudioTrack::isSendingSilence() const {
    return !isEnabled() || !source_ || !source_->isCapturingSound();
}
