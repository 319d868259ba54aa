#pragma once

#include <memory>
#include <string>

// Categories and modes, under the platform's names.
inline constexpr const char* AVAudioSessionCategoryPlayAndRecord =
    "AVAudioSessionCategoryPlayAndRecord";
inline constexpr const char* AVAudioSessionCategoryMultiRoute = "AVAudioSessionCategoryMultiRoute";
inline constexpr const char* AVAudioSessionCategorySoloAmbient =
    "AVAudioSessionCategorySoloAmbient";
inline constexpr const char* AVAudioSessionModeDefault = "AVAudioSessionModeDefault";
inline constexpr const char* AVAudioSessionModeVoiceChat = "AVAudioSessionModeVoiceChat";
inline constexpr const char* AVAudioSessionModeVideoChat = "AVAudioSessionModeVideoChat";

/// Output-port override of the audio session.
enum AVAudioSessionPortOverride : unsigned long {
    AVAudioSessionPortOverrideNone = 0,
    AVAudioSessionPortOverrideSpeaker = 0x73706b72,  // 'spkr'
};

/// A category and mode to apply with RTCAudioSession::setConfiguration.
class RTCAudioSessionConfiguration final {
  public:
    /// `webRTCConfiguration`: play-and-record, voice chat.
    static std::shared_ptr<RTCAudioSessionConfiguration> webRTCConfiguration();
    static std::shared_ptr<RTCAudioSessionConfiguration> create() {
        return std::make_shared<RTCAudioSessionConfiguration>();
    }

    const std::string& category() const { return category_; }
    void setCategory(std::string value) { category_ = std::move(value); }
    const std::string& mode() const { return mode_; }
    void setMode(std::string value) { mode_ = std::move(value); }

  private:
    std::string category_ = AVAudioSessionCategorySoloAmbient;
    std::string mode_ = AVAudioSessionModeDefault;
};

using RTCAudioSessionConfigurationPtr = std::shared_ptr<RTCAudioSessionConfiguration>;
