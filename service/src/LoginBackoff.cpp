#include "VelmorinService/LoginBackoff.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace velmorin {

LoginBackoff::LoginBackoff(Settings settings, Clock clock)
    : settings_(settings),
      clock_(clock ? std::move(clock) : Clock([] { return std::chrono::steady_clock::now(); })) {}

LoginBackoff::Delay LoginBackoff::delayAfter(unsigned failures) const {
    if (failures <= settings_.freeFailures || settings_.firstDelay <= Delay::zero()) {
        return Delay::zero();
    }
    Delay delay = settings_.firstDelay;
    for (unsigned step = settings_.freeFailures + 1; step < failures; ++step) {
        if (delay >= settings_.maxDelay) {
            break;
        }
        delay *= 2;
    }
    return std::min(delay, settings_.maxDelay);
}

LoginBackoff::Delay LoginBackoff::userFailed(const std::string& userId) {
    const auto now = clock_();
    unsigned count = 0;
    {
        std::lock_guard lock(mutex_);
        auto found = users_.find(userId);
        if (found != users_.end() && now - found->second.last >= settings_.forgetAfter) {
            found->second.count = 0;
        }
        if (found == users_.end()) {
            makeRoom(now);
            found = users_.emplace(userId, Failures{}).first;
        }
        Failures& failures = found->second;
        if (failures.count < std::numeric_limits<unsigned>::max()) {
            ++failures.count;
        }
        failures.last = now;
        count = failures.count;
    }
    return delayAfter(count);
}

size_t LoginBackoff::trackedUsers() const {
    std::lock_guard lock(mutex_);
    return users_.size();
}

void LoginBackoff::makeRoom(std::chrono::steady_clock::time_point now) {
    if (users_.size() < settings_.maxUsers) {
        return;
    }
    std::erase_if(users_, [&](const auto& entry) {
        return now - entry.second.last >= settings_.forgetAfter;
    });
    while (!users_.empty() && users_.size() >= settings_.maxUsers) {
        auto oldest = std::min_element(
            users_.begin(), users_.end(),
            [](const auto& a, const auto& b) { return a.second.last < b.second.last; });
        users_.erase(oldest);
    }
}

}  // namespace velmorin
