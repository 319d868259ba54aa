#pragma once

#include <map>
#include <memory>
#include <string>

inline constexpr const char* kRTCVideoCodecVp8Name = "VP8";
inline constexpr const char* kRTCVideoCodecVp9Name = "VP9";
inline constexpr const char* kRTCVideoCodecH264Name = "H264";

/// A video codec: its name ("VP8") and format parameters.
class RTCVideoCodecInfo final {
  public:
    RTCVideoCodecInfo(std::string name, std::map<std::string, std::string> parameters = {})
        : name_(std::move(name)), parameters_(std::move(parameters)) {}
    const std::string& name() const { return name_; }
    const std::map<std::string, std::string>& parameters() const { return parameters_; }
    bool isEqualToCodecInfo(const RTCVideoCodecInfo& other) const {
        return name_ == other.name_ && parameters_ == other.parameters_;
    }
    std::string description() const { return "RTCVideoCodecInfo: " + name_; }

  private:
    std::string name_;
    std::map<std::string, std::string> parameters_;
};

using RTCVideoCodecInfoPtr = std::shared_ptr<RTCVideoCodecInfo>;
