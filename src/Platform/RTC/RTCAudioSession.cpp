#include "VelmorinVideoChat/Platform/RTC/RTCAudioSession.h"

#include "VelmorinVideoChat/Platform/RTC/RTCPlatform.h"
#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace {
QXDErrorPtr sessionError(long code, const std::string& text) {
    return QXDError::errorWithDomain("RTCAudioSession", code,
                                     QXDUserInfo{{NSLocalizedDescriptionKey, text}});
}
}  // namespace

std::shared_ptr<RTCAudioSessionConfiguration> RTCAudioSessionConfiguration::webRTCConfiguration() {
    auto config = create();
    config->setCategory(AVAudioSessionCategoryPlayAndRecord);
    config->setMode(AVAudioSessionModeVoiceChat);
    return config;
}

std::shared_ptr<RTCAudioSession> RTCAudioSession::sharedInstance() {
    if (auto platform = RTCPlatform::current()) {
        if (auto session = platform->audioSession()) {
            return session;
        }
    }
    static auto fallback = std::make_shared<RTCAudioSession>();
    return fallback;
}

void RTCAudioSession::lockForConfiguration() {
    configLock_.lock();
    std::lock_guard lock(mutex_);
    ++lockCount_;
}

void RTCAudioSession::unlockForConfiguration() {
    {
        std::lock_guard lock(mutex_);
        if (lockCount_ == 0) {
            return;
        }
        --lockCount_;
    }
    configLock_.unlock();
}

bool RTCAudioSession::isLocked() const {
    std::lock_guard lock(mutex_);
    return lockCount_ > 0;
}

std::string RTCAudioSession::category() const {
    std::lock_guard lock(mutex_);
    return category_;
}

std::string RTCAudioSession::mode() const {
    std::lock_guard lock(mutex_);
    return mode_;
}

bool RTCAudioSession::isActive() const {
    std::lock_guard lock(mutex_);
    return active_;
}

AVAudioSessionPortOverride RTCAudioSession::outputPortOverride() const {
    std::lock_guard lock(mutex_);
    return override_;
}

RTCAudioOutputRoute RTCAudioSession::outputRoute() const {
    return outputPortOverride() == AVAudioSessionPortOverrideSpeaker ? RTCAudioOutputRouteSpeaker
                                                                     : RTCAudioOutputRouteReceiver;
}

bool RTCAudioSession::checkLocked(QXDErrorPtr* error) const {
    if (isLocked()) {
        if (error) {
            *error = nullptr;
        }
        return true;
    }
    if (error) {
        *error = sessionError(-1, "The audio session must be locked for configuration.");
    }
    return false;
}

bool RTCAudioSession::setActive(bool active, QXDErrorPtr* error) {
    if (error) {
        *error = nullptr;
    }
    bool changed;
    {
        std::lock_guard lock(mutex_);
        changed = active_ != active;
        active_ = active;
    }
    if (changed) {
        notifyChanged();
    }
    return true;
}

bool RTCAudioSession::setCategory(const std::string& category, QXDErrorPtr* error) {
    if (!checkLocked(error)) {
        return false;
    }
    std::lock_guard lock(mutex_);
    category_ = category;
    return true;
}

bool RTCAudioSession::setMode(const std::string& mode, QXDErrorPtr* error) {
    if (!checkLocked(error)) {
        return false;
    }
    std::lock_guard lock(mutex_);
    mode_ = mode;
    return true;
}

bool RTCAudioSession::overrideOutputAudioPort(AVAudioSessionPortOverride portOverride,
                                              QXDErrorPtr* error) {
    if (!checkLocked(error)) {
        return false;
    }
    if (portOverride != AVAudioSessionPortOverrideNone &&
        portOverride != AVAudioSessionPortOverrideSpeaker) {
        if (error) {
            *error = sessionError(-50, "Unknown output port override.");
        }
        return false;
    }
    bool changed;
    {
        std::lock_guard lock(mutex_);
        changed = override_ != portOverride;
        override_ = portOverride;
    }
    if (changed) {
        notifyChanged();
    }
    return true;
}

bool RTCAudioSession::setConfiguration(const RTCAudioSessionConfigurationPtr& configuration,
                                       bool active, QXDErrorPtr* error) {
    if (!configuration) {
        if (error) {
            *error = sessionError(-50, "No configuration.");
        }
        return false;
    }
    if (!setCategory(configuration->category(), error) || !setMode(configuration->mode(), error)) {
        return false;
    }
    return setActive(active, error);
}

void RTCAudioSession::setChangeHandler(std::function<void()> handler) {
    std::lock_guard lock(mutex_);
    changeHandler_ = std::move(handler);
}

void RTCAudioSession::notifyChanged() {
    std::function<void()> handler;
    {
        std::lock_guard lock(mutex_);
        handler = changeHandler_;
    }
    if (handler) {
        qxvc::safeCall("RTCAudioSession change handler", handler);
    }
}
