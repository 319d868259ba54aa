#include "support/FakeRTCContext.h"

#include <algorithm>

#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

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
