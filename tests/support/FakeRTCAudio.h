// The fake engine's audio: the shared audio session (recording every call) and
// the microphone source and tracks.
//
// The port's contract that an inactive audio session keeps the microphone
// silent is modelled: a local audio track reports isSendingSilence() while the
// session is inactive or the track is disabled.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCAudioSession.h"
#include "VelmorinVideoChat/Platform/RTC/RTCAudioTrack.h"
#include "VelmorinVideoChat/Platform/RTC/RTCMediaConstraints.h"
#include "support/FakeRTCContext.h"

/// The real session logic of the port, with every call recorded as
/// "audioSession.<operation>(...)". Calls the session makes on itself (the
/// category, mode and active flag set by setConfiguration) are not recorded
/// separately.
class FakeRTCAudioSession : public RTCAudioSession {
  public:
    explicit FakeRTCAudioSession(std::shared_ptr<FakeRTCContext> context);

    /// A configuration applied through setConfiguration.
    struct Applied {
        std::string category;
        std::string mode;
        bool active = false;
        bool wasLocked = false;
    };
    std::vector<Applied> appliedConfigurations() const {
        return lockedCopy(recordMutex_, applied_);
    }
    /// The port overrides requested, in order, with whether the lock was held.
    std::vector<std::pair<AVAudioSessionPortOverride, bool>> portOverrides() const {
        return lockedCopy(recordMutex_, overrides_);
    }
    /// The active flags requested through setActive, in order.
    std::vector<bool> activeRequests() const { return lockedCopy(recordMutex_, activeRequests_); }
    /// When set, every change fails with an error and changes nothing.
    void setFailsChanges(bool fails) { lockedSet(recordMutex_, fails_, fails); }

    void lockForConfiguration() override;
    void unlockForConfiguration() override;
    bool setActive(bool active, QXDErrorPtr* error = nullptr) override;
    bool setCategory(const std::string& category, QXDErrorPtr* error = nullptr) override;
    bool setMode(const std::string& mode, QXDErrorPtr* error = nullptr) override;
    bool overrideOutputAudioPort(AVAudioSessionPortOverride portOverride,
                                 QXDErrorPtr* error = nullptr) override;
    bool setConfiguration(const RTCAudioSessionConfigurationPtr& configuration, bool active,
                          QXDErrorPtr* error = nullptr) override;

  private:
    bool failIfAsked(QXDErrorPtr* error) const;
    /// Records "audioSession.<entry>" and runs `note` when this is the outermost
    /// session call, then fails as scripted or applies the change.
    bool change(const std::string& entry, QXDErrorPtr* error, const std::function<bool()>& apply,
                const std::function<void()>& note = nullptr);
    bool outermost() const;

    std::shared_ptr<FakeRTCContext> context_;
    mutable std::mutex recordMutex_;
    std::vector<Applied> applied_;
    std::vector<std::pair<AVAudioSessionPortOverride, bool>> overrides_;
    std::vector<bool> activeRequests_;
    bool fails_ = false;
};

/// The microphone. Silent while the audio session is inactive.
class FakeRTCAudioSource : public RTCAudioSource {
  public:
    FakeRTCAudioSource(RTCMediaConstraintsPtr constraints,
                       std::shared_ptr<RTCAudioSession> session);
    RTCSourceState state() const override { return RTCSourceStateLive; }
    double volume() const override { return lockedCopy(mutex_, volume_); }
    void setVolume(double volume) override { lockedSet(mutex_, volume_, volume); }

    /// The constraints the source was made with.
    RTCMediaConstraintsPtr constraints() const { return constraints_; }
    /// True while the audio session is active.
    bool isCapturingSound() const;

  private:
    RTCMediaConstraintsPtr constraints_;
    std::shared_ptr<RTCAudioSession> session_;
    mutable std::mutex mutex_;
    double volume_ = 1;
};

class FakeRTCAudioTrack : public RTCAudioTrack {
  public:
    /// A local track on `source`, or a remote one when `source` is nullptr.
    FakeRTCAudioTrack(std::shared_ptr<FakeRTCContext> context, std::string trackId,
                      std::shared_ptr<FakeRTCAudioSource> source);

    std::string trackId() const override { return trackId_; }
    bool isEnabled() const override { return lockedCopy(mutex_, enabled_); }
    /// Recorded as "audioTrack(<id>).setIsEnabled(<0|1>)".
    void setIsEnabled(bool enabled) override;
    RTCMediaStreamTrackState readyState() const override { return RTCMediaStreamTrackStateLive; }
    RTCAudioSourcePtr source() const override { return source_; }

    /// Every value passed to setIsEnabled, in order.
    std::vector<bool> enabledHistory() const { return lockedCopy(mutex_, history_); }
    /// What the far side hears from a local track: silence while the track is
    /// disabled or the audio session is inactive.
    bool isSendingSilence() const;

  private:
    std::shared_ptr<FakeRTCContext> context_;
    std::string trackId_;
    std::shared_ptr<FakeRTCAudioSource> source_;
    mutable std::mutex mutex_;
    bool enabled_ = true;
    std::vector<bool> history_;
};
