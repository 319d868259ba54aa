// Media constraints: a mandatory and an optional map of string keys and values.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

using RTCConstraintsMap = std::map<std::string, std::string>;

inline constexpr const char* kRTCMediaConstraintsOfferToReceiveAudio = "OfferToReceiveAudio";
inline constexpr const char* kRTCMediaConstraintsOfferToReceiveVideo = "OfferToReceiveVideo";
inline constexpr const char* kRTCMediaConstraintsValueTrue = "true";
inline constexpr const char* kRTCMediaConstraintsValueFalse = "false";

class RTCMediaConstraints final {
  public:
    /// `initWithMandatoryConstraints:optionalConstraints:`; either map may be nil.
    static std::shared_ptr<RTCMediaConstraints> initWithMandatoryConstraints(
        std::optional<RTCConstraintsMap> mandatory, std::optional<RTCConstraintsMap> optional);

    RTCMediaConstraints(std::optional<RTCConstraintsMap> mandatory,
                        std::optional<RTCConstraintsMap> optional);

    const std::optional<RTCConstraintsMap>& mandatoryConstraints() const { return mandatory_; }
    const std::optional<RTCConstraintsMap>& optionalConstraints() const { return optional_; }

    /// The value of `key`, looked up in the mandatory map first, then the
    /// optional one; nullopt when neither has it.
    std::optional<std::string> valueForKey(const std::string& key) const;
    /// How libwebrtc reads OfferToReceiveAudio/Video: nullopt when the key is
    /// absent, true for "true" (any case), false for any other value.
    std::optional<bool> boolForKey(const std::string& key) const;

    std::string description() const;

  private:
    std::optional<RTCConstraintsMap> mandatory_;
    std::optional<RTCConstraintsMap> optional_;
};

using RTCMediaConstraintsPtr = std::shared_ptr<RTCMediaConstraints>;
