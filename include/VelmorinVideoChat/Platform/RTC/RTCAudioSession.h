// The process-wide audio session: category, mode, active flag and output route.
//
// The engine reads it: while the session is inactive the microphone sends
// silence; the output route follows the port override. The default implementation
// below is complete; an engine or a test may derive to observe or fail calls.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/Platform/RTC/RTCAudioSessionConfiguration.h"

/// Where the audio output goes.
enum RTCAudioOutputRoute : long {
    RTCAudioOutputRouteReceiver = 0,  ///< the default route (earpiece)
    RTCAudioOutputRouteSpeaker = 1,
};

class RTCAudioSession {
  public:
    /// `sharedInstance`: the installed platform's session (one per process; a
    /// plain session when no platform is installed).
    static std::shared_ptr<RTCAudioSession> sharedInstance();

    RTCAudioSession() = default;
    virtual ~RTCAudioSession() = default;

    /// `lockForConfiguration` / `unlockForConfiguration`: a recursive lock that
    /// changes of route and configuration are made under. Changes made without it
    /// fail with an error.
    virtual void lockForConfiguration();
    virtual void unlockForConfiguration();
    bool isLocked() const;

    virtual std::string category() const;
    virtual std::string mode() const;
    virtual bool isActive() const;
    virtual AVAudioSessionPortOverride outputPortOverride() const;
    virtual RTCAudioOutputRoute outputRoute() const;

    /// `setActive:error:`. Does not need the configuration lock.
    virtual bool setActive(bool active, QXDErrorPtr* error = nullptr);
    /// `setCategory:withOptions:error:` / `setMode:error:`.
    virtual bool setCategory(const std::string& category, QXDErrorPtr* error = nullptr);
    virtual bool setMode(const std::string& mode, QXDErrorPtr* error = nullptr);
    /// `overrideOutputAudioPort:error:`.
    virtual bool overrideOutputAudioPort(AVAudioSessionPortOverride portOverride,
                                         QXDErrorPtr* error = nullptr);
    /// `setConfiguration:active:error:`: category, mode, then the active flag.
    virtual bool setConfiguration(const RTCAudioSessionConfigurationPtr& configuration, bool active,
                                  QXDErrorPtr* error = nullptr);

    /// Called (outside the session's locks) after any change of active flag or
    /// route. For the engine.
    void setChangeHandler(std::function<void()> handler);

  protected:
    void notifyChanged();

  private:
    bool checkLocked(QXDErrorPtr* error) const;
    mutable std::recursive_mutex configLock_;
    mutable std::mutex mutex_;
    int lockCount_ = 0;
    std::string category_ = AVAudioSessionCategorySoloAmbient;
    std::string mode_ = AVAudioSessionModeDefault;
    bool active_ = false;
    AVAudioSessionPortOverride override_ = AVAudioSessionPortOverrideNone;
    std::function<void()> changeHandler_;
};

using RTCAudioSessionPtr = std::shared_ptr<RTCAudioSession>;
