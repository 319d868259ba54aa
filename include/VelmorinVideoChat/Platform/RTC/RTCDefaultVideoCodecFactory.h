// The default video encoder and decoder factories of a peer-connection factory.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCVideoCodecInfo.h"

/// Lists the codecs the installed engine can encode, in its order of preference;
/// `preferredCodec` (nil by default) moves one to the front of offers.
class RTCDefaultVideoEncoderFactory {
  public:
    virtual ~RTCDefaultVideoEncoderFactory() = default;
    /// `+supportedCodecs`: the installed platform's encoders; empty without one.
    static std::vector<RTCVideoCodecInfoPtr> supportedCodecs();
    /// A new factory from the installed platform; nullptr without one.
    static std::shared_ptr<RTCDefaultVideoEncoderFactory> create();

    explicit RTCDefaultVideoEncoderFactory(std::vector<RTCVideoCodecInfoPtr> codecs)
        : codecs_(std::move(codecs)) {}
    /// `-supportedCodecs` of this factory.
    std::vector<RTCVideoCodecInfoPtr> codecs() const { return codecs_; }
    RTCVideoCodecInfoPtr preferredCodec() const {
        std::lock_guard lock(mutex_);
        return preferred_;
    }
    void setPreferredCodec(RTCVideoCodecInfoPtr codec) {
        std::lock_guard lock(mutex_);
        preferred_ = std::move(codec);
    }

  private:
    std::vector<RTCVideoCodecInfoPtr> codecs_;
    mutable std::mutex mutex_;
    RTCVideoCodecInfoPtr preferred_;
};

class RTCDefaultVideoDecoderFactory {
  public:
    virtual ~RTCDefaultVideoDecoderFactory() = default;
    static std::vector<RTCVideoCodecInfoPtr> supportedCodecs();
    static std::shared_ptr<RTCDefaultVideoDecoderFactory> create();

    explicit RTCDefaultVideoDecoderFactory(std::vector<RTCVideoCodecInfoPtr> codecs)
        : codecs_(std::move(codecs)) {}
    std::vector<RTCVideoCodecInfoPtr> codecs() const { return codecs_; }

  private:
    std::vector<RTCVideoCodecInfoPtr> codecs_;
};

using RTCDefaultVideoEncoderFactoryPtr = std::shared_ptr<RTCDefaultVideoEncoderFactory>;
using RTCDefaultVideoDecoderFactoryPtr = std::shared_ptr<RTCDefaultVideoDecoderFactory>;
