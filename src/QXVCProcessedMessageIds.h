// The latest distinct chat message ids the coordinator has seen, so that a
// message delivered twice (a push and the channel event, a redelivery after a
// reconnect) is acted on once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <unordered_set>

class QXVCProcessedMessageIds {
  public:
    static constexpr size_t kCapacity = 1000;

    /// True when `messageId` is among the kept ids (its place is unchanged).
    /// Otherwise records it as the newest, evicting the oldest when full, and
    /// returns false. Search, eviction and append happen under one lock, in
    /// constant time.
    bool checkAndRecord(int64_t messageId) {
        std::lock_guard lock(mutex_);
        if (members_.count(messageId) != 0) {
            return true;
        }
        if (order_.size() == kCapacity) {
            members_.erase(order_.front());
            order_.pop_front();
        }
        order_.push_back(messageId);
        members_.insert(messageId);
        return false;
    }

    size_t size() const {
        std::lock_guard lock(mutex_);
        return order_.size();
    }

    void clear() {
        std::lock_guard lock(mutex_);
        order_.clear();
        members_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::deque<int64_t> order_;  // oldest first
    std::unordered_set<int64_t> members_;
};
