#include "RTCGstMediaSettings.h"

#include <filesystem>

#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"

RTCGstMediaSettings::RTCGstMediaSettings(RTCGstMediaOptions options)
    : options_(std::move(options)), worker_(QXVCSerialQueue::create("rtc.media-files")) {
    prepareClip(options_.microphone);
}

RTCGstMediaOptions RTCGstMediaSettings::options() const {
    std::lock_guard lock(mutex_);
    return options_;
}

void RTCGstMediaSettings::setOptions(RTCGstMediaOptions options) {
    const std::string microphone = options.microphone;
    {
        std::lock_guard lock(mutex_);
        options_ = std::move(options);
        ++generation_;
    }
    prepareClip(microphone);
}

uint64_t RTCGstMediaSettings::generation() const {
    std::lock_guard lock(mutex_);
    return generation_;
}

void RTCGstMediaSettings::warn(const std::string& text) const {
    std::function<void(const std::string&)> handler;
    {
        std::lock_guard lock(mutex_);
        handler = options_.warningHandler;
    }
    if (handler) {
        handler(text);
    } else {
        RTCLogEx(RTCLoggingSeverityWarning, text);
    }
}

void RTCGstMediaSettings::prepareClip(const std::string& microphone) {
    std::error_code error;
    if (microphone.empty() || !std::filesystem::is_regular_file(microphone, error)) {
        return;
    }
    worker_->async([clips = clips_, microphone] {
        std::string ignored;  // reported when a call uses the file
        clips->get(microphone, ignored);
    });
}
