#include "support/FakeRTCContext.h"

#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

void FakeRTCContext::record(std::string entry) {
    std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
}

std::vector<std::string> FakeRTCContext::entries() const {
    std::lock_guard lock(mutex_);
    return entries_;
}

std::vector<std::string> FakeRTCContext::entriesWithPrefix(const std::string& prefix) const {
    std::vector<std::string> out;
    for (const auto& e : entries()) {
        if (e.rfind(prefix, 0) == 0) {
            out.push_back(e);
        }
    }
    return out;
}

long FakeRTCContext::indexOf(const std::string& entry) const {
    std::lock_guard lock(mutex_);
    for (size_t i = 0; i < entries_.size(); ++i) {
        if (entries_[i] == entry) {
            return static_cast<long>(i);
        }
    }
    return -1;
}

void FakeRTCContext::clearEntries() {
    std::lock_guard lock(mutex_);
    entries_.clear();
}

void FakeRTCContext::setCallbackQueue(QXVCDispatchQueuePtr queue) {
    std::lock_guard lock(mutex_);
    queue_ = std::move(queue);
}

QXVCDispatchQueuePtr FakeRTCContext::callbackQueue() const {
    std::lock_guard lock(mutex_);
    return queue_;
}

void FakeRTCContext::dispatch(std::function<void()> task) const {
    if (!task) {
        return;
    }
    if (auto queue = callbackQueue()) {
        queue->async([task = std::move(task)] { qxvc::safeCall("fake RTC callback", task); });
    } else {
        qxvc::safeCall("fake RTC callback", task);
    }
}

std::string FakeRTCContext::nextName(const std::string& prefix) {
    std::lock_guard lock(mutex_);
    return prefix + std::to_string(++counters_[prefix]);
}
