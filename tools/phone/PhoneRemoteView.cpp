#include "PhoneRemoteView.h"

#include <algorithm>
#include <vector>

namespace {
constexpr size_t kDelaysKept = 90;
}

PhoneRemoteView::PhoneRemoteView(PhoneTagReader reader, std::function<int64_t()> wallClockMs)
    : reader_(std::move(reader)), wallClockMs_(std::move(wallClockMs)) {}

void PhoneRemoteView::renderFrame(const RTCVideoFramePtr& frame) {
    QXVCRemoteVideoView::renderFrame(frame);
    if (!frame || !reader_) {
        return;
    }
    const int64_t now = wallClockMs_();
    if (auto tag = reader_(*frame)) {
        std::lock_guard lock(mutex_);
        label_ = tag->label;
        delays_.push_back(now - tag->captureTimeMs);
        if (delays_.size() > kDelaysKept) {
            delays_.pop_front();
        }
    }
}

std::string PhoneRemoteView::latestLabel() const {
    std::lock_guard lock(mutex_);
    return label_;
}

std::optional<int64_t> PhoneRemoteView::medianDelayMs() const {
    std::vector<int64_t> delays;
    {
        std::lock_guard lock(mutex_);
        delays.assign(delays_.begin(), delays_.end());
    }
    if (delays.empty()) {
        return std::nullopt;
    }
    auto middle = delays.begin() + std::ptrdiff_t(delays.size() / 2);
    std::nth_element(delays.begin(), middle, delays.end());
    return *middle;
}

std::optional<PhoneFrameTag> PhoneRemoteView::latestTag() const {
    auto frame = latestFrame();
    return frame && reader_ ? reader_(*frame) : std::nullopt;
}
