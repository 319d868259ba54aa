// A microphone or a loudspeaker (headphones, line out) the engine can use.
#pragma once

#include <memory>
#include <string>

class RTCAudioDevice final {
  public:
    RTCAudioDevice(std::string uniqueId, std::string localizedName, bool isDefault)
        : uniqueId_(std::move(uniqueId)),
          localizedName_(std::move(localizedName)),
          isDefault_(isDefault) {}
    /// What the engine takes to choose this device.
    const std::string& uniqueId() const { return uniqueId_; }
    const std::string& localizedName() const { return localizedName_; }
    /// The system's default device of its kind.
    bool isDefault() const { return isDefault_; }
    std::string description() const {
        return "RTCAudioDevice: " + localizedName_ + " (" + uniqueId_ + ")" +
               (isDefault_ ? " default" : "");
    }

  private:
    std::string uniqueId_;
    std::string localizedName_;
    bool isDefault_;
};

using RTCAudioDevicePtr = std::shared_ptr<RTCAudioDevice>;
