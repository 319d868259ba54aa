#include "support/FakeRTCContext.h"

#include <algorithm>

#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

void FakeRTCContext::record(std::string entry) {
    std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
}

long FakeRTCContext::indexOf(const std::string& entry) const {
    const auto all = entries();
    const auto at = std::find(all.begin(), all.end(), entry);
    return at == all.end() ? -1 : static_cast<long>(at - all.begin());
}

void FakeRTCContext::dispatch(const std::function<void()>& task) const {
    if (task) {
        qxvc::safeCall("fake RTC callback", task);
    }
}

std::string FakeRTCContext::nextName(const std::string& prefix) {
    std::lock_guard lock(mutex_);
    return prefix + std::to_string(++counters_[prefix]);
}
