#include "support/FakeRTCContext.h"

#include <algorithm>

#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

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
    const auto all = entries();
    const auto at = std::find(all.begin(), all.end(), entry);
    return at == all.end() ? -1 : static_cast<long>(at - all.begin());
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
